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

@test "the modem is there from the start to the end of its process" {
  [ -c $TTY ]
  expect 0 "2c7c 0125" cat /var/tmp/devinfo
  gateway-daemon stop modem
  [ ! -L $TTY ]
  [ ! -e /var/tmp/devinfo ]
  refused 3 'gateway-daemon start modem' modemctl state
  refused 3 'cannot be opened' at-mngr AT
  echo AT >/var/atcmd
  refused 3 'cannot be opened' nanocom $TTY 1 0
  refused 2 usage nanocom 1 0
  [ ! -e $RESULT ]
  # A process that was killed leaves its files: they are in nobody's way.
  gateway-daemon start modem
  modemctl receive --from 907 --text x
  kill -9 "$(pid_of modem)"
  tail --pid="$(pid_of modem)" -s 0.02 -f /dev/null
  gateway-daemon start modem
  expect 0 "OK|" at 'AT+CMGL=4'
  # Nobody takes the place of one that runs.
  refused 1 'another one serves' "$DEVKIT_BUILD/bin/modem"
  expect 0 "OK|" at AT
}

@test "the tools" { sessions modem; }

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
  # Whoever sends a PDU has the tty locked.
  exec 8<>$TTY
  flock 8
  refused 3 'in use' at-mngr -t 0.2 AT 8>&-
  exec 8>&-
  expect 0 "OK|" at AT
}

@test "a modem that is gone in the middle of an answer, and comes back with what it keeps" {
  modemctl receive --from 907 --text hello
  modemctl behave drop --only CSCA
  status=0
  answer=$(at-mngr AT+CSCA? 2>"$BATS_TEST_TMPDIR/error") || status=$?
  [ $status -eq 3 ]
  [[ $answer == '+CSCA: "+8'* ]]
  [[ $answer != *OK* ]]
  grep -q 'went away' "$BATS_TEST_TMPDIR/error"
  until_true [ ! -e /var/tmp/devinfo ] # the last that goes
  [ ! -e $TTY ]
  modemctl behave return
  expect 0 "+CMGF: 0||OK|" at AT+CMGF?
  expect 0 "1" state "['storages']['SM']['messages'].__len__()"
}
