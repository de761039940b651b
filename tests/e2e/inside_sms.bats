#!/usr/bin/env bats
# shellcheck disable=SC2086,SC2030,SC2031 # the paths have no blanks; each test is a subshell
# Short messages, phonebook and USSD through the gateway, on the simulated modem. Runs inside the
# sandbox.
load helpers

# Sessions use them.
# shellcheck disable=SC2034
readonly SMS=$SERVICES.X_KVO_ShortMsg OWN=13800138000

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

@test "messages, phonebook, service codes, failures" { sessions sms; }
