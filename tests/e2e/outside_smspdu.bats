#!/usr/bin/env bats
# smspdu, the command-line tool of the PDU codec: from the build folder and inside the sandbox.
load helpers

readonly HELLO=07917283010010F5040BC87238880900F10000993092516195800AE8329BFD4697D9EC37

smspdu() { "$GATEWAY_BUILD/bin/smspdu" "$@"; }
# field NAME COMMAND...: the field of each JSON object that the command prints.
field() {
  local name=$1
  shift
  "$@" | python3 -c 'import json, sys
for line in sys.stdin: print(json.loads(line)[sys.argv[1]])' "$name"
}

@test "decode prints the fields, the text last; inside the sandbox too" {
  local lines="SCA=27381000015
TPA=27838890001
TP_PID=0
TP_DCS=0
TP_SCTS=99032915165908
stat=0
hasUdh=0
concatRef=
concatTotal=0
concatSeq=0
text=hellohello"
  expect 0 "$lines" smspdu decode $HELLO
  expect 0 "$lines" "$BATS_TEST_DIRNAME/../../devkit/sandbox" --build "$GATEWAY_BUILD" --bare -- smspdu decode $HELLO
}

@test "decode --json: every field, the text without its header" {
  expect 0 '{"SCA":"8613800100500","TPA":"8613912345678","TP_PID":0,"TP_DCS":8,"TP_SCTS":"24112509301532","TP_UD":"后半","index":0,"stat":1,"hasUdh":1,"concatRef":"2A","concatTotal":2,"concatSeq":2,"text":"后半"}' \
    smspdu decode --stat 1 --json 0891683108100005F0440D91683119325476F80008421152900351230A0500032A0202540E534A
  expect 0 "second part" field text smspdu decode --json \
    0891683108100005F0440D91683119325476F800004211529003512312050003CC0302E6E5F1DB4D06C1C3723A
}

@test "encode: one line a part, of the alphabet that the text needs" {
  expect 0 0591683108F0110005910110F000000004E10D4F0C smspdu encode --sca +8613800 --tpa 10010 --text 'a[b'
  expect 0 0591683108F0110005910110F00008000400E94F60 smspdu encode --sca 8613800 --tpa +10010 --text 'é你'
  text=$(printf 'x%.0s' {1..161})
  [ "$(smspdu encode --sca 1 --tpa 2 --text "$text" | wc -l)" -eq 2 ]
  expect 0 "1
2" field concatSeq smspdu encode --json --sca 1 --tpa 2 --text "$text"
  expect 0 "143
30" field length smspdu encode --json --sca 1 --tpa 2 --text "$text"
  [ "$(field text smspdu encode --json --sca 1 --tpa 2 --text "$text" | tr -d '\n')" = "$text" ]
  # Each bracket is two septets: 76 of them are the 152 that a header leaves.
  text=$(printf '[%.0s' {1..160})
  expect 0 "$(printf '%.76s\n%.76s\n%.8s' "$text" "$text" "$text")" field text smspdu encode --json --sca 1 --tpa 2 --text "$text"
}

@test "what is printed cannot steer a terminal, and bytes that are no text stay JSON" {
  expect 0 'text=\x1b[2J' bash -c "'$GATEWAY_BUILD/bin/smspdu' decode 019104029121000442115290035123041B5B324A | tail -n 1"
  expect 0 "�" field text smspdu decode --json 01910402912100044211529003512301FF
}

@test "wrong usage: one line that says what to do" {
  refused 2 '"0791zz" is no PDU: give' smspdu decode 0791zz
  refused 2 'two an octet' smspdu decode 079
  refused 2 '^smspdu: --tpa "12x" is no number' smspdu encode --sca 1 --tpa 12x --text a
  refused 2 '^smspdu: --sca "" is no number' smspdu encode --sca '' --tpa 1 --text a
  refused 1 'more than 255 messages: shorten it' smspdu encode --sca 1 --tpa 1 --text "$(head -c 36976 /dev/zero | tr '\0' a)"
}
