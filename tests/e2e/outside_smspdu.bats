#!/usr/bin/env bats
# smspdu, the command-line tool of the PDU codec: from the build folder and inside the sandbox.
load helpers

readonly PDUS=$BATS_TEST_DIRNAME/../data/pdu

smspdu() { "$GATEWAY_BUILD/bin/smspdu" "$@"; }
# field NAME COMMAND...: the field of each JSON object that the command prints.
field() { "${@:2}" | python3 -c "import json, sys; [print(json.loads(line)['$1']) for line in sys.stdin]"; }

@test "decode prints the fields, the text last; inside the sandbox too" {
  for file in "$PDUS"/*; do
    mapfile -t lines < <(sed '1{/^#/d;}' "$file")
    stat=$(sed -n 's/^stat=//p' "$file")
    expect 0 "$(printf '%s\n' "${lines[@]:1}")" smspdu decode --stat "$stat" "${lines[0]}"
  done
  expect 0 "$(printf '%s\n' "${lines[@]:1}")" "$BATS_TEST_DIRNAME/../../devkit/sandbox" \
    --build "$GATEWAY_BUILD" --bare -- smspdu decode --stat "$stat" "${lines[0]}"
}

@test "JSON, encoding, refusals" { sessions smspdu; }
