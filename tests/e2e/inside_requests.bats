#!/usr/bin/env bats
# shellcheck disable=SC2086,SC2030,SC2031 # the paths have no blanks; each test is a subshell
# Every command of the client against the running gateway: answers, exit statuses, refusals.
# Runs inside the sandbox.
load helpers

@test "get: a leaf is bare, an object and an array are path=value lines" {
  expect 0 V2.3.1 cfgcmd get $DEVICE.X_KVO_FWVersion
  expect 0 V2.3.1 cfgcmd get $DEVICE.X_KVO_FWVersion.
  expect 0 "$SERVICES.ServiceTelnet.Enable=0
$SERVICES.ServiceTelnet.Port=23" cfgcmd get $SERVICES.ServiceTelnet
  expect 0 "$USERS.1.Enable=1
$USERS.1.Username=admin
$USERS.1.Password=
$USERS.1.Level=0" cfgcmd get $USERS
}

@test "get without a module behind it comes from the store" {
  expect 0 192.168.1.1 cfgcmd get \
    InternetGatewayDevice.LANDevice.1.LANHostConfigManagement.IPInterface.1.IPInterfaceIPAddress
  expect 0 1 cfgcmd list InternetGatewayDevice.LANDevice
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

@test "sset writes what set may not" {
  refused 1 'read-only.*cfgcmd sset' cfgcmd set $DEVICE.DeviceLog x
  expect 0 "" cfgcmd sset $DEVICE.DeviceLog x
  expect 0 x cfgcmd get $DEVICE.DeviceLog
}

@test "add, list and del: numbers are never used again, entries are counted" {
  expect 0 "$USERS.2" cfgcmd add $USERS
  expect 0 "$USERS.3" cfgcmd add $USERS.
  expect 0 1 cfgcmd get $USERS.2.Level
  expect 0 3 cfgcmd get ${USERS}NumberOfEntries
  expect 0 "" cfgcmd del $USERS.3
  expect 0 "" cfgcmd del $USERS.2
  expect 0 "$USERS.4" cfgcmd add $USERS
  expect 0 "" cfgcmd del $USERS.4
  refused 1 'no parameter' cfgcmd get $USERS.2.Level
}

@test "attr shows attributes, refresh answers nothing and runs the op function" {
  cfgcmd attr $DEVICE.X_KVO_FWVersion | grep -q "^$DEVICE.X_KVO_FWVersion=V2.3.1 "'.*writable="0"' || fail "$(cfgcmd attr $DEVICE.X_KVO_FWVersion)"
  expect 0 "+ /usr/syscfg/cpuState.sh path=$DEVICE.ProcessStatus >/dev/null 2>&1" \
    cfgcmd --calls refresh $DEVICE.ProcessStatus
  expect 0 "+ /usr/syscfg/cpuState.sh path=$DEVICE.ProcessStatus >/dev/null 2>&1" \
    cfgcmd --calls refresh $DEVICE.ProcessStatus.CPUUsage
  expect 0 "" cfgcmd attr InternetGatewayDevice.ALL_CHANGED_DATA
}

@test "above several modules, each brings its part up to date; one that is busy holds up no other" {
  cfgcmd sset $DEVICE.MemoryStatus.Total 0
  cfgcmd --calls refresh InternetGatewayDevice. >"$BATS_TEST_TMPDIR/calls"
  for call in "cpuState.sh path=$DEVICE.ProcessStatus" 'l2tp_cfg.sh action="lnsstats"'; do
    grep -qF "$call" "$BATS_TEST_TMPDIR/calls" || fail "no $call: $(cat "$BATS_TEST_TMPDIR/calls")"
  done
  [ "$(cfgcmd tree $DEVICE.MemoryStatus.Total | awk '{print $3}')" -gt 0 ]
  cfgcmd sset $DEVICE.MemoryStatus.Total 0
  cfgcmd --timeout 60 get InternetGatewayDevice >"$BATS_TEST_TMPDIR/all"
  grep -Eq "^$DEVICE.MemoryStatus.Total=[1-9]" "$BATS_TEST_TMPDIR/all" || fail "$(cat "$BATS_TEST_TMPDIR/all")"
  [ "$(grep -c . "$BATS_TEST_TMPDIR/all")" -gt 150 ]

  stub_sleep l2tp_cfg.sh 600
  before=$(wc -l <$COMMANDS)
  all=$BATS_TEST_TMPDIR/refused
  { cfgcmd --timeout 600 get InternetGatewayDevice >"$all" 2>&1 || echo $? >"$all.status"; } 3>&- &
  waits() { tail -n +$((before + 1)) $COMMANDS | grep -q lnsstats; }
  until_true waits
  stub_reset
  expect 0 V2.3.1 cfgcmd get $DEVICE.X_KVO_FWVersion
  [ -e "$all" ] && [ ! -e "$all.status" ]
  refused 3 'no answer in 100 ms.* waits for sysmgr:capabinfo' cfgcmd --timeout 0.1 get InternetGatewayDevice
  kill -9 "$(pid_of sysmgr)"
  wait
  [ "$(cat "$all.status")" = 1 ]
  grep -Eq '^cfgcmd: sysmgr:[a-zA-Z]+ died before it answered' "$all" || fail "$(cat "$all")"
  refused 1 'sysmgr:devInfo is not running' cfgcmd --timeout 600 attr InternetGatewayDevice
  gateway-daemon restart sysmgr
}

@test "a module that answers without the value that was asked for is no success" {
  gateway-daemon stop sysmgr
  cfgcmd listen sysmgr:mgtsrvr >"$BATS_TEST_TMPDIR/heard" 3>&- &
  module=$!
  cfgcmd --timeout 60 wait sysmgr:mgtsrvr
  answer=$BATS_TEST_TMPDIR/answer
  {
    status=0
    cfgcmd --timeout 600 get InternetGatewayDevice.ManagementServer.URL >"$answer" 2>&1 || status=$?
    echo $status >"$answer.status"
  } 3>&- &
  until_true grep -q 0x100005 "$BATS_TEST_TMPDIR/heard"
  # Its chain id, "get", "result without a text", 0.
  chain=$(cut -d ' ' -f 4- "$BATS_TEST_TMPDIR/heard" | python3 -c '
import sys
print(sys.stdin.read().encode().decode("unicode_escape").encode("latin-1")[:4].hex())')
  cfgcmd send msgcenter:cAckAgt 0x100003 --hex "$chain 01000000 03000000 00000000"
  until_true test -s "$answer.status"
  kill $module
  wait || true
  gateway-daemon start sysmgr
  [ "$(cat "$answer.status")" = 1 ] || fail "$(cat "$answer")"
  grep -q 'sysmgr:mgtsrvr .* without .*ManagementServer.URL' "$answer" || fail "$(cat "$answer")"
}

@test "refusals say why and what to do" {
  long=$(printf 'x%.0s' {1..300})
  refused 1 "no parameter \"$DEVICE.Nope\": \"cfgcmd tree\"" cfgcmd get $DEVICE.Nope
  refused 1 'no parameter ""' cfgcmd get ''
  refused 1 'no parameter' cfgcmd get $DEVICE.X_KVO_FWVersion..
  refused 1 'no parameter' cfgcmd set $DEVICE.Nope 1
  refused 1 'set needs a parameter, .* is an array' cfgcmd set $USERS 1
  refused 1 'add needs an array, .* is an object' cfgcmd add $SERVICES
  refused 1 'list needs an array, .* is a parameter' cfgcmd list $DEVICE.UpTime
  refused 1 'del needs an instance of an array, .* is an array' cfgcmd del $USERS
  refused 1 'del needs an instance of an array, .* is an object' cfgcmd del $SERVICES.ServiceTelnet
  refused 1 'path is 300 bytes, at most 255' cfgcmd get "$long"
  refused 1 '317 bytes.*carries 255' cfgcmd set $DEVICE.ProvisioningCode "$long"
  refused 1 'byte 0x03' cfgcmd set $DEVICE.ProvisioningCode $'a\x03b=c'
  refused 1 'full path' cfgcmd set nodots 1
  refused 1 "is of type boolean: 0 or 1 .*--trust-values" cfgcmd set $SERVICES.ServiceDLNA.Enable on
  refused 1 "no parameter.*; set before it: $DEVICE.X_CT-COM_ReConnect$" cfgcmd set $DEVICE.X_CT-COM_ReConnect.Enable 1 $DEVICE.Nope 1
  refused 1 'no parameter' cfgcmd sset $DEVICE.Nope 1
  refused 1 'no parameter' cfgcmd tree $DEVICE.Nope
  refused 1 'nobody:here.*not running' cfgcmd send nobody:here 1 --wait
}

@test "what a shell would act on is refused where the value reaches a shell line" {
  telnet=$SERVICES.ServiceTelnet
  refused 1 "\"$telnet.Port\" goes into a shell line, so it has the form \"port list\": .*--trust-values" \
    cfgcmd set $telnet.Port '23;touch /tmp/broken' $telnet.Enable 1
  expect 0 23 cfgcmd get $telnet.Port
  expect 0 0 cfgcmd get $telnet.Enable
  refused 1 'the form "address"' cfgcmd set $SERVICES.ServiceWOL.MACAddr $'1\nreboot'
  # Those of rows: made by the file, and added.
  address=InternetGatewayDevice.LANDevice.1.LANHostConfigManagement.IPInterface.1.IPInterfaceIPAddress
  refused 1 'the form "address"' cfgcmd set $address '1;reboot;:.1'
  tunnel=$(cfgcmd add $SERVICES.X_KVO_IPSec.TunnelList)
  refused 1 'the form "address"' cfgcmd set $tunnel.RemoteGatewayAddress 'x;reboot'
  cfgcmd del $tunnel
  # The same text where no shell sees it.
  cfgcmd set $DEVICE.ProvisioningCode '23;touch /tmp/broken'
  [ ! -e /tmp/broken ]
  # What the gateway keeps in /tmp for itself begins with a dot.
  refused 1 'the form "name"' cfgcmd set \
    InternetGatewayDevice.X_TR69_Transfer.X_KVO_Download.TargetFileName .kvo_restart_uhttpd
}

@test "a set that the op function refuses is undone, and its answer says so" {
  sms=$SERVICES.X_KVO_ShortMsg # a phonebook name is hexadecimal digits
  cfgcmd set $sms.ActionArgument 1 $sms.ActionContent 41
  refused 1 "refused set of \"$sms\": its parameters are as before; .*log says why" \
    cfgcmd set $sms.ActionArgument 2 $sms.ActionContent 'not hex' $sms.ActionCode 11
  expect 0 $'12\n1\n41' eval "for leaf in Code Argument Content; do cfgcmd get $sms.Action\$leaf; done"
}

@test "list has as many rows as there are" {
  for ((i = 2; i <= 1100; ++i)); do echo "add $FILES"; done | cfgcmd --timeout 600 batch >/dev/null
  expect 0 "$(seq -s , 1100)" cfgcmd list $FILES
  [ "$(cfgcmd --json list $FILES | grep -c '[0-9]')" = 1100 ]
}

@test "a refused leaf leaves the others of its request as they were" {
  refused 1 'read-only' cfgcmd set $DEVICE.X_KVO-RestartWeb 1 $DEVICE.UpTime 5
  expect 0 0 cfgcmd get $DEVICE.X_KVO-RestartWeb
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
  cfgcmd tree $SERVICES.ServiceTelnet >"$BATS_TEST_TMPDIR/tree"
  [ "$(wc -l <"$BATS_TEST_TMPDIR/tree")" -eq 3 ]
  grep -Eq "^$SERVICES.ServiceTelnet.Port +string +23 +Its ports" "$BATS_TEST_TMPDIR/tree"
  # Each node of the file is in the tree, its arrays' templates and instances aside.
  [ "$(cfgcmd tree | wc -l)" -gt 150 ]
}

@test "completion offers verbs, and paths one level at a time" {
  expect 0 "set
sset
send" bash -c 'cfgcmd complete --verbs s | grep -v "^$"'
  expect 0 InternetGatewayDevice. cfgcmd complete Inter
  expect 0 "$SERVICES.ServiceTelnet.Enable
$SERVICES.ServiceTelnet.Port" cfgcmd complete $SERVICES.ServiceTelnet.
  expect 0 "$USERS.1." cfgcmd complete $USERS.
}

@test "batch answers each line in order, and refusals among them" {
  cat >"$BATS_TEST_TMPDIR/lines" <<LINES
# a comment, and an empty line

get $DEVICE.X_KVO_FWVersion
set $DEVICE.ProvisioningCode 'two words'
get $DEVICE.Nope
get "$DEVICE.ProvisioningCode"
frobnicate
set $DEVICE.ProvisioningCode 'open
list $USERS
LINES
  run cfgcmd batch "$BATS_TEST_TMPDIR/lines"
  [ "$status" -eq 1 ]
  [ "${lines[0]}" = V2.3.1 ]
  [ "${lines[1]}" = ok ]
  [[ ${lines[2]} == 'error: no parameter'* ]]
  [ "${lines[3]}" = 'two words' ]
  [[ ${lines[4]} == 'error: no request'* ]]
  [ "${lines[5]}" = 'error: a quote is not closed' ]
  [ "${lines[6]}" = 1 ]
  expect 0 1 cfgcmd batch <<<"list $USERS"
  run cfgcmd batch /no/such/file
  [ "$status" -eq 2 ]
}

@test "level, trace and mem reach the daemon as a whole" {
  expect 0 'change prt level succeed!' cfgcmd level capab 3
  expect 0 'trace switch on' cfgcmd trace on
  cfgcmd get $DEVICE.UpTime
  expect 0 'trace switch off' cfgcmd trace off
  grep -q '#####MSGCENTER MESSAGE TRACE#####' /var/log/devkit/sysmgr.log
  grep -q "#url: $DEVICE" /var/log/devkit/sysmgr.log
  cfgcmd mem | grep -q senderSPid
}

@test "informs are recorded" {
  expect 0 "" cfgcmd manully_inform EV MI X_CT-COM_ManualInform
  [ "$(tail -n 1 /var/log/devkit/informs)" = 'manully_inform EV MI X_CT-COM_ManualInform' ]
  # The daemon's own, which it starts in the background.
  expect 0 "+ /usr/sbin/cfgcmd manully_inform EV AC X_CT-COM_MaintainComplete &" \
    cfgcmd --calls set InternetGatewayDevice.ManagementServer.X_CT-COM_MaintainComplete 1
  recorded() { grep -q 'EV AC X_CT-COM_MaintainComplete' /var/log/devkit/informs; }
  until_true recorded
}
