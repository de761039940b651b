#!/usr/bin/env bats
# shellcheck disable=SC2030,SC2031,SC2034,SC2086 # each test is a subshell; sessions use them; the paths have no blanks
# The modem simulator behind its tty, and the tools that talk to it. Runs inside the sandbox.
load helpers

readonly TTY=/dev/ttyUSB3 RESULT=/var/atresult_1 LIST=/var/atresult_msg
# SMS-SUBMIT of "hellohello" to the modem's own number; 24 octets of TPDU.
readonly SUBMIT=0891683108100005F011000D91683109000000F10000000AE8329BFD4697D9EC37

setup() {
  gateway-daemon start modem 2>/dev/null
  modemctl reset
  rm -f $RESULT $LIST /var/atcmd
}

# The answer's lines without carriage returns, in one.
at() { at-mngr "$@" | tr -d '\r' | tr '\n' '|'; }
state() { modemctl state --json | python3 -c "import json, sys; print(json.load(sys.stdin)$1)"; }
# send COMMAND PDU: as the daemon calls nanocom.
send() {
  printf '%s\r|%s\x1a\r\n' "$1" "$2" >/var/atcmd
  flock $TTY nanocom $TTY 1 0
}

@test "the process, the tools, a modem that goes" { sessions modem; }

@test "at-mngr's instances take turns" {
  modemctl behave slow 20
  local number
  for number in {10..29}; do
    (at-mngr "AT+CPBW=$number,\"1$number\"" && at-mngr "AT+CPBR=$number") \
      >"$BATS_TEST_TMPDIR/$number" 3>&- &
  done
  wait
  for number in {10..29}; do
    expect 0 $'OK\r\n'"+CPBR: $number,\"1$number\",129,\"\""$'\r\n\r\nOK\r' cat "$BATS_TEST_TMPDIR/$number"
  done
}
