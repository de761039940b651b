#!/usr/bin/env bats
# shellcheck disable=SC2030,SC2031,SC2086 # the paths have no blanks; each test is a subshell
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

@test "at-mngr prints the answer from its first character and tells how it ended" {
  expect 0 $'+CSCA: "+8613800100500",145\r\n\r\nOK\r' at-mngr AT+CSCA?
  expect 0 $'OK\r' at-mngr $'AT+CMGF=0\r'
  expect 0 $'OK\r' at-mngr AT+CPBW=, '"12"'
  expect 1 $'+CMS ERROR: 321\r' at-mngr AT+CMGD=9
  expect 1 $'ERROR\r' at-mngr AT+CFOO
  refused 2 usage at-mngr
  refused 2 usage at-mngr -t 0 AT
  refused 2 'nanocom sends both' at-mngr AT+CMGS=24
}

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

@test "a modem that is slow, or does not answer at all" {
  modemctl behave slow 1000
  # A late answer is not taken for the next one's.
  refused 3 'does not answer in time' at-mngr -t 0.1 AT+CPMS?
  expect 0 "+CMGF: 0||OK|" at AT+CMGF?
  modemctl behave slow 600000
  refused 3 'does not answer in time' at-mngr -t 0.2 AT
  # nanocom gives up waiting for the prompt and leaves no result.
  printf 'AT+CMGS=24\r|%s' $SUBMIT >/var/atcmd
  refused 3 'does not answer in time' nanocom $TTY 1 1
  [ ! -e $RESULT ]
  # What it held back comes at once, and is nobody's.
  modemctl behave normal
  modemctl behave slow 600000 --only +CMGL
  expect 0 "+CMGF: 0||OK|" at AT+CMGF?
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

@test "nanocom sends a command and its PDU, and leaves the answer" {
  expect 0 "" send AT+CMGS=24 $SUBMIT
  expect 0 $'+CMGS: 0\r\n\r\nOK\r' cat $RESULT
  expect 0 "[{'to': '+8613900000001', 'pdu': '$SUBMIT'}]" state "['sent']"
  # Refused at the prompt, by the network; without a PDU; without anything.
  expect 1 "" send AT+CMGS=999 $SUBMIT
  expect 0 $'+CMS ERROR: 304\r' cat $RESULT
  modemctl behave refuse 38 --only CMGS
  expect 1 "" send AT+CMGS=24 $SUBMIT
  expect 0 $'+CMS ERROR: 38\r' cat $RESULT
  rm $RESULT
  echo AT+CMGW=24 >/var/atcmd
  refused 2 'wants a PDU' nanocom $TTY 1 0
  : >/var/atcmd
  refused 2 'has no command' nanocom $TTY 1 0
  [ ! -e $RESULT ]
  echo AT+CSCS? >/var/atcmd
  expect 0 "" nanocom $TTY 1 0
  expect 0 $'+CSCS: "GSM"\r\n\r\nOK\r' cat $RESULT
}

@test "the list script leaves the whole list, or says that there is none" {
  pdu=0891683108100005F004038109F700004211529003510005E8329BFD06
  modemctl receive --from 907 --text hello --time '2024-11-25 09:30:15'
  send AT+CMGW=24,3 $SUBMIT
  # Listing what was sent leaves the inbox unread.
  /usr/syscfg/sms_getmsg.sh 1
  expect 0 $'+CMGL: 1,3,,24\r\n'$SUBMIT$'\r\n\r\nOK\r' cat $LIST
  for status in 0 1; do
    /usr/syscfg/sms_getmsg.sh 0
    expect 0 $'+CMGL: 0,'$status$',,20\r\n'$pdu$'\r\n+CMGL: 1,3,,24\r\n'$SUBMIT$'\r\n\r\nOK\r' cat $LIST
  done
  modemctl behave refuse
  /usr/syscfg/sms_getmsg.sh 0
  expect 0 $'+CMS ERROR: 302\r' cat $LIST
  modemctl behave vanish
  /usr/syscfg/sms_getmsg.sh 0 2>/dev/null
  expect 0 ERROR cat $LIST
  expect 0 $LIST ls $LIST*
}

@test "a list that is longer than a tty's buffers, and a reader that dies on the way" {
  at-mngr 'AT+CPMS="ME","ME","ME"'
  modemctl size ME 255
  modemctl receive --from 907 --text "$(printf 'x%.0s' {1..36000})" | tail -n 1 >"$BATS_TEST_TMPDIR/last"
  expect 0 "ME 248" cat "$BATS_TEST_TMPDIR/last"
  at-mngr AT+CMGL=4 >"$BATS_TEST_TMPDIR/list"
  [ "$(wc -c <"$BATS_TEST_TMPDIR/list")" -gt 80000 ]
  expect 0 249 grep -c '^+CMGL: ' "$BATS_TEST_TMPDIR/list"
  expect 0 $'OK\r' tail -n 1 "$BATS_TEST_TMPDIR/list"
  at-mngr AT+CMGL=4 | head -c 100 >/dev/null
  # Asks and does not read.
  printf 'AT+CMGL=4\r' >$TTY
  expect 0 "+CMGF: 0||OK|" at AT+CMGF?
}

@test "modemctl says what it did not do" {
  expect 0 $'SM 0\nSM 1' modemctl receive --from 907 --text "$(printf 'x%.0s' {1..161})"
  expect 0 "" modemctl number +4917012345678
  modemctl size SM 2
  expect 0 "waits for room in SM" modemctl receive --pdu 00AB
  refused 1 'place 2 of SM' modemctl size SM 1
  refused 1 'knows no' modemctl ussd '*9#'
  refused 2 'behaviour' modemctl behave well
  refused 2 'requires|help' modemctl receive --from 907
  modemctl state >"$BATS_TEST_TMPDIR/state"
  for line in 'number +4917012345678' 'SM: 2 of 2 messages' '  1 more wait for room'; do
    grep -qxF -- "$line" "$BATS_TEST_TMPDIR/state" || fail "no line: $line"
  done
}
