#!/usr/bin/env bats
# smspdu, the command-line tool of the PDU codec: from the build folder and inside the sandbox.
load helpers

readonly PDUS=$BATS_TEST_DIRNAME/../data/pdu

smspdu() { "$GATEWAY_BUILD/bin/smspdu" "$@"; }
# field NAME COMMAND...: the field of each JSON object that the command prints.
field() {
  local name=$1
  shift
  "$@" | python3 -c 'import json, sys
for line in sys.stdin: print(json.loads(line)[sys.argv[1]])' "$name"
}

@test "decode prints the fields, the text last; inside the sandbox too" {
  for file in "$PDUS"/*; do
    mapfile -t lines < <(sed '1{/^#/d;}' "$file")
    stat=$(sed -n 's/^stat=//p' "$file")
    expect 0 "$(printf '%s\n' "${lines[@]:1}")" smspdu decode --stat "$stat" "${lines[0]}"
  done
  expect 0 "$(printf '%s\n' "${lines[@]:1}")" "$BATS_TEST_DIRNAME/../../devkit/sandbox" \
    --build "$GATEWAY_BUILD" --bare -- smspdu decode --stat "$stat" "${lines[0]}"
}

@test "decode --json: every field, and bytes that are no text" {
  expect 0 '{"SCA":"8613800100500","TPA":"8613912345678","TP_PID":0,"TP_DCS":8,"TP_SCTS":"24112509301532","TP_UD":"后半","index":0,"stat":0,"hasUdh":1,"concatRef":"2A","concatTotal":2,"concatSeq":2,"text":"后半"}' \
    smspdu decode --json "$(head -n 1 "$PDUS/part_ucs2.txt")"
  expect 0 "�" field text smspdu decode --json 01910402912100044211529003512301FF
}

@test "encode: one line a part, of the alphabet that the text needs" {
  expect 0 0591683108F0110005910110F000000004E10D4F0C smspdu encode --sca +8613800 --tpa 10010 --text 'a[b'
  expect 0 0591683108F0110005910110F00008000400E94F60 smspdu encode --sca 8613800 --tpa +10010 --text 'é你'
  text=$(printf 'x%.0s' {1..161})
  [ "$(smspdu encode --sca 1 --tpa 2 --text "$text" | wc -l)" -eq 2 ]
  expect 0 $'143\n30' field length smspdu encode --json --sca 1 --tpa 2 --text "$text"
  expect 0 "${text:0:145}"$'\n'"${text:145}" field text smspdu encode --json --sca 1 --tpa 2 --text "$text"
}

@test "wrong usage: one line that says what to do" {
  refused 2 '"0791zz" is no PDU: give' smspdu decode 0791zz
  refused 2 'two an octet' smspdu decode 079
  refused 2 '^smspdu: --tpa "12x" is no number' smspdu encode --sca 1 --tpa 12x --text a
  refused 2 '^smspdu: --sca "" is no number' smspdu encode --sca '' --tpa 1 --text a
  refused 1 'more than 255 messages: shorten it' smspdu encode --sca 1 --tpa 1 --text "$(head -c 36976 /dev/zero | tr '\0' a)"
}
