#!/usr/bin/env bats
# shellcheck disable=SC2086,SC2030,SC2031 # the paths have no blanks; each test is a subshell
# Short messages, phonebook and USSD through the gateway, on the simulated modem. Runs inside the
# sandbox.
load helpers

readonly SMS=$SERVICES.X_KVO_ShortMsg OWN=13800138000
# Sends and lists wait for the modem.
cfgcmd() { command cfgcmd --timeout 60 "$@"; }

setup() {
  modemctl reset
  modemctl number $OWN
  rm -f /var/tmp/runCPMSFlag
}

# What the modem holds, as Python sees it: state EXPRESSION (s is the state).
state() { modemctl state --json | python3 -c "import json, sys; s = json.load(sys.stdin); print($1)"; }
send() { cfgcmd set $SMS.MsgSend.MsgTo "$1" $SMS.MsgSend.MsgContent "$2"; }
action() { cfgcmd set $SMS.ActionArgument "$2" $SMS.ActionContent "${3:-}" $SMS.ActionCode "$1"; }
inbox() { cfgcmd get $SMS.MsgInbox; }
# Number and content of each message of a list, a line each.
short() { sed 's/|,|/\n/g' | sed -n 's/^[^}]*}-{[0-9]*}-{\([^}]*\)}-{[^}]*}-{\(.*\)}-{$/\1 \2/p'; }

@test "a message to oneself is sent, kept, received, read twice and deleted" {
  send $OWN 'Hello [world] @ 5$'
  expect 0 0 cfgcmd get $SMS.MsgResult
  expect 0 1 state 'len(s["sent"])'
  expect 0 "$OWN Hello [world] @ 5\$" short <<<"$(cfgcmd get $SMS.MsgOutbox)"
  expect 0 "$OWN Hello [world] @ 5\$" short <<<"$(inbox)"
  # The modem has it as read now; for the user it stays unread.
  [[ $(inbox) =~ ^([0-9]+)\}-\{0\}-\{ ]] || fail "$(inbox)"
  number=${BASH_REMATCH[1]}
  cfgcmd set $SMS.DelIdx $number
  expect 0 "" inbox
}

@test "several recipients, long texts, other alphabets" {
  long=$(printf 'ü你%.0s' {1..40})
  send "$OWN;10010" "$long"
  expect 0 "['+10010', '+10010', '+$OWN', '+$OWN']" state 'sorted(m["to"] for m in s["sent"])'
  expect 0 "$OWN $long" short <<<"$(inbox)"
}

@test "what others send is escaped and put together" {
  modemctl receive --from 27838890001 --text '<b>"5 & 6" 100%</b>'
  expect 0 '27838890001 &#60;b&#62;&quot;5 &#38; 6&quot; 100&#37;&#60;/b&#62;' short <<<"$(inbox)"
  modemctl receive --from PROVIDER --text "$(printf 'long %.0s' {1..60})"
  [ "$(inbox | short | grep -c "^PROVIDER $(printf 'long %.0s' {1..59})long")" -eq 1 ]
  # An ordinary text of class 2, whose octets hold control characters, hides nothing.
  modemctl receive --pdu 0004038109F700129930925161958003410342
  [ "$(inbox | short | grep -cx $'907 A\uFFFDB')" -eq 1 ]
}

@test "a value on a terminal cannot steer it; in a pipe it is as it is" {
  value=$'\e[2Ja\177\u009bb\ré'
  cfgcmd sset $SMS.ActionContent "$value"
  expect 0 "$value" cfgcmd get $SMS.ActionContent
  expect 0 '\x1b[2Ja\x7f\u009bb\x0dé'$'\r' script -qec "cfgcmd get $SMS.ActionContent" /dev/null
  expect 0 '\x1b[2Ja\x7f\u009bb\x0dé'$'\r' script -qec "cfgcmd batch - <<<'get $SMS.ActionContent'" /dev/null
}

@test "phonebook, service centre, and messages that are only stored" {
  action 11 10086 00410042
  expect 0 0 cfgcmd get $SMS.MsgResult
  expect 0 "['10086']" state '[e["number"] for e in s["phonebook"]["entries"]]'
  action 9 1
  expect 0 '[]' state 's["phonebook"]["entries"]'
  action 14 +8613800100500
  expect 0 +8613800100500 state 's["centre"]'
  action 8 $OWN 'A draft'
  expect 0 0 state 'len(s["sent"])'
  expect 0 '[2]' state '[m["status"] for m in s["storages"]["SM"]["messages"]]'
}

@test "service codes answer with a menu; cancel ends them" {
  modemctl ussd '*100#' '1 Balance 2 Data'
  cfgcmd set $SMS.USSD.Command '*100#'
  expect 0 '1 Balance 2 Data' cfgcmd get $SMS.USSD.Menu
  expect 0 "+ at-mngr 'AT+CUSD=2'" cfgcmd --calls set $SMS.USSD.Command cancel
}

@test "each failure has its code and blocks nothing" {
  modemctl behave refuse 38 --only +CMGS
  refused 1 . send 10010 'Refused'
  expect 0 400 cfgcmd get $SMS.MsgResult
  modemctl behave garbage
  refused 1 . send 10010 'Garbage'
  expect 0 401 cfgcmd get $SMS.MsgResult
  modemctl behave normal
  modemctl behave vanish
  refused 1 . send 10010 'Gone'
  refused 1 . cfgcmd set $SMS.DelIdx 1
  expect 0 403 cfgcmd get $SMS.MsgResult
  modemctl behave return
  send 10010 'Back'
  expect 0 0 cfgcmd get $SMS.MsgResult
}
