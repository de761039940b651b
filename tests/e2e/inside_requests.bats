#!/usr/bin/env bats
# shellcheck disable=SC2086,SC2030,SC2031 # the paths have no blanks; each test is a subshell
# Every command of the client against the running gateway: answers, exit statuses, refusals.
# Runs inside the sandbox.
load helpers

# Whether a COMMAND does as the session says: SAID, all of it, or "STATUS~ PATTERN" of a refusal.
does() {
  if [[ $2 == [0-9]'~ '* ]]; then refused "${2%%'~'*}" "${2#*'~ '}" eval "$1"; else expect 0 "$2" eval "$1"; fi
}

# session FILE: how one is written is in tests/data/client/reading_and_writing.txt.
session() {
  local line name command='' said=''
  while IFS= read -r line || [ -n "$command" ]; do
    for name in DEVICE SERVICES USERS; do line=${line//"\$$name"/${!name}}; done
    if [ -z "$line" ] || [[ $line == '$ '* ]]; then
      [ -z "$command" ] || does "$command" "$said" <&- || return
      command=${line#'$ '} said=''
    elif [[ $line != '# '* ]]; then
      said+=${said:+$'\n'}$line
    fi
  done
}

@test "sessions of the client" {
  for file in "$BATS_TEST_DIRNAME"/../data/client/*; do session <"$file" || fail "$file"; done
}

@test "set of several leaves of one object is one op call with all of them" {
  cfgcmd level devInfo 1
  before=$(wc -c </var/log/devkit/sysmgr.log)
  expect 0 "" cfgcmd set $DEVICE.X_CT-COM_IPProtocolVersion.Mode 2 $DEVICE.X_CT-COM_IPProtocolVersion.PreferredIP 2
  log=$(tail -c +$((before + 1)) /var/log/devkit/sysmgr.log)
  [ "$(grep -c 'FuncIPProtocolVersion: op: 2,' <<<"$log")" -eq 1 ] || fail "$log"
  grep -q $'value: Mode=2\x03PreferredIP=2' <<<"$log" || fail "$log"
  cfgcmd level devInfo 3
  expect 0 2 cfgcmd get $DEVICE.X_CT-COM_IPProtocolVersion.PreferredIP
}

@test "set keeps every byte that a value may have" {
  for value in 'a=b' '-1' '--json' ' two  blanks ' "it's \"quoted\" \\ \$HOME" $'line\nfeed' 'ü€😀' ''; do
    expect 0 "" cfgcmd set $DEVICE.ProvisioningCode "$value"
    expect 0 "$value" cfgcmd get $DEVICE.ProvisioningCode
  done
}

@test "attr shows attributes" {
  cfgcmd attr $DEVICE.X_KVO_FWVersion | grep -q "^$DEVICE.X_KVO_FWVersion=V2.3.1 "'.*writable="0"' || fail "$(cfgcmd attr $DEVICE.X_KVO_FWVersion)"
}

@test "above several modules, each brings its part up to date; one that is busy holds up no other" {
  cfgcmd sset $DEVICE.MemoryStatus.Total 0
  calls=$(cfgcmd --calls refresh InternetGatewayDevice.)
  [[ $calls == *"cpuState.sh path=$DEVICE.ProcessStatus"* && $calls == *'l2tp_cfg.sh action="lnsstats"'* ]] || fail "$calls"
  [ "$(cfgcmd tree $DEVICE.MemoryStatus.Total | awk '{print $3}')" -gt 0 ]
  cfgcmd sset $DEVICE.MemoryStatus.Total 0
  all=$(cfgcmd --timeout 60 get InternetGatewayDevice)
  grep -Eq "^$DEVICE.MemoryStatus.Total=[1-9]" <<<"$all" && [ "$(wc -l <<<"$all")" -gt 150 ] || fail "$all"

  stub_sleep l2tp_cfg.sh 600
  before=$(wc -l <$COMMANDS)
  in_background all get InternetGatewayDevice
  waits() { tail -n +$((before + 1)) $COMMANDS | grep -q lnsstats; }
  until_true waits
  stub_reset
  expect 0 V2.3.1 cfgcmd get $DEVICE.X_KVO_FWVersion
  [ ! -e "$BATS_TEST_TMPDIR/all.status" ]
  refused 3 'no answer in 100 ms.* waits for sysmgr:capabinfo' cfgcmd --timeout 0.1 get InternetGatewayDevice
  kill -9 "$(pid_of sysmgr)"
  told all 1 '^cfgcmd: sysmgr:[a-zA-Z]+ died before it answered'
  refused 1 'sysmgr:devInfo is not running' cfgcmd --timeout 600 attr InternetGatewayDevice
  gateway-daemon restart sysmgr
}

@test "a module that answers without the value that was asked for is no success" {
  gateway-daemon stop sysmgr
  cfgcmd listen sysmgr:mgtsrvr >"$BATS_TEST_TMPDIR/heard" 3>&- &
  module=$!
  cfgcmd --timeout 60 wait sysmgr:mgtsrvr
  in_background answer get InternetGatewayDevice.ManagementServer.URL
  until_true grep -q 0x100005 "$BATS_TEST_TMPDIR/heard"
  # Its chain id, "get", "result without a text", 0.
  chain=$(cut -d ' ' -f 4- "$BATS_TEST_TMPDIR/heard" | python3 -c '
import sys
print(sys.stdin.read().encode().decode("unicode_escape").encode("latin-1")[:4].hex())')
  cfgcmd send msgcenter:cAckAgt 0x100003 --hex "$chain 01000000 03000000 00000000"
  told answer 1 'sysmgr:mgtsrvr .* without .*ManagementServer.URL'
  kill $module
  wait || true
  gateway-daemon start sysmgr
}

@test "list has as many rows as there are" {
  for ((i = 2; i <= 1100; ++i)); do echo "add $FILES"; done | cfgcmd --timeout 600 batch >/dev/null
  expect 0 "$(seq -s , 1100)" cfgcmd list $FILES
  [ "$(cfgcmd --json list $FILES | grep -c '[0-9]')" = 1100 ]
}

@test "wrong usage ends with 2" {
  for words in '' 'frobnicate' 'get' 'get a b' 'set a' 'set a 1 b' 'level x' 'level devInfo many' \
    'send sysmgr:devInfo' 'send sysmgr:devInfo 5 --hex 0' 'send sysmgr:devInfo 5 --hex zz' \
    'send sysmgr:devInfo 5 --loud' '--timeout 0 get a' '--timeout x get a' 'wait' 'mem now'; do
    # shellcheck disable=SC2086
    refused 2 '^cfgcmd: ' cfgcmd $words
  done
  cfgcmd --help | grep -q 'Exit status: 0 done'
}

@test "--json gives the same data as JSON" {
  json() { python3 -c 'import json,sys; d = json.load(sys.stdin); print(eval(sys.argv[1]))' "$1"; }
  [ "$(cfgcmd --json get $SERVICES.ServiceTelnet | json "d['$SERVICES.ServiceTelnet.Port']")" = 23 ]
  [ "$(cfgcmd get $DEVICE.X_KVO_FWVersion --json | json 'list(d.values())')" = "['V2.3.1']" ]
  [ "$(cfgcmd --json list $USERS | json d)" = '[1]' ]
  [ "$(cfgcmd --json list $DEVICE.X_CT-COM_Ping.PingConfig | json d)" = '[]' ]
  [ "$(cfgcmd --json attr $DEVICE.X_KVO_FWVersion | json "d['$DEVICE.X_KVO_FWVersion']['attributes']['writable']")" = 0 ]
  [ "$(cfgcmd --json tree $DEVICE.UpTime | json "d[0]['type']")" = unsignedInt ]
  [ "$(cfgcmd --json trace off | json "d['reply']")" = 'trace switch off' ]
}

@test "tree lists type, value and description" {
  expect 0 3 eval "cfgcmd tree $SERVICES.ServiceTelnet | wc -l"
  cfgcmd tree $SERVICES.ServiceTelnet | grep -Eq "^$SERVICES.ServiceTelnet.Port +string +23 +Its ports"
  # Each node of the file is in the tree, its arrays' templates and instances aside.
  [ "$(cfgcmd tree | wc -l)" -gt 150 ]
}

@test "batch answers each line in order, and refusals among them" {
  expect 1 "V2.3.1
ok
error: no parameter \"$DEVICE.Nope\": \"cfgcmd tree\" lists what there is
two words
error: no request: \"frobnicate\"
error: a quote is not closed
error: usage: cfgcmd level MODULE N (a name of at most 31 bytes, and a number)
1" cfgcmd batch <<LINES
# a comment, and an empty line

get $DEVICE.X_KVO_FWVersion
set $DEVICE.ProvisioningCode 'two words'
get $DEVICE.Nope
get "$DEVICE.ProvisioningCode"
frobnicate
set $DEVICE.ProvisioningCode 'open
level devInfo many
list $USERS
LINES
  expect 0 1 cfgcmd batch <(echo "list $USERS")
  refused 2 'usage: cfgcmd batch .*cannot read /no/such/file' cfgcmd batch /no/such/file
}

@test "level, trace and mem reach the daemon as a whole" {
  expect 0 'change prt level succeed!' cfgcmd level capab 3
  expect 0 'trace switch on' cfgcmd trace on
  cfgcmd get $DEVICE.UpTime
  expect 0 'trace switch off' cfgcmd trace off
  for line in '#####MSGCENTER MESSAGE TRACE#####' "#url: $DEVICE"; do grep -q "$line" /var/log/devkit/sysmgr.log; done
  cfgcmd mem | grep -q senderSPid
}

@test "informs are recorded" {
  expect 0 "" cfgcmd manully_inform EV MI X_CT-COM_ManualInform
  [ "$(tail -n 1 /var/log/devkit/informs)" = 'manully_inform EV MI X_CT-COM_ManualInform' ]
  # The daemon's own, which it starts in the background.
  expect 0 "+ /usr/sbin/cfgcmd manully_inform EV AC X_CT-COM_MaintainComplete &" \
    cfgcmd --calls set InternetGatewayDevice.ManagementServer.X_CT-COM_MaintainComplete 1
  until_true grep -q 'EV AC X_CT-COM_MaintainComplete' /var/log/devkit/informs
}
