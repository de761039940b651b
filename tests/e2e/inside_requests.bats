#!/usr/bin/env bats
# shellcheck disable=SC2086,SC2030,SC2031 # the paths have no blanks; each test is a subshell
# Every command of the client against the running gateway: answers, exit statuses, refusals.
# Runs inside the sandbox.
load helpers

teardown() { stub_reset; }

json() { python3 -c 'import json,sys; d = json.load(sys.stdin); print(eval(sys.argv[1]))' "$1"; }

@test "sessions of the client" { sessions requests; }

@test "above several modules, each brings its part up to date; one that is busy holds up no other" {
  cfgcmd sset $DEVICE.MemoryStatus.Total 0
  calls=$(cfgcmd --calls refresh InternetGatewayDevice.)
  [[ $calls == *"cpuState.sh path=$DEVICE.ProcessStatus"* && $calls == *'l2tp_cfg.sh action="lnsstats"'* ]] || fail "$calls"
  [ "$(cfgcmd tree $DEVICE.MemoryStatus.Total | awk '{print $3}')" -gt 0 ]
  cfgcmd sset $DEVICE.MemoryStatus.Total 0
  all=$(cfgcmd get InternetGatewayDevice)
  grep -Eq "^$DEVICE.MemoryStatus.Total=[1-9]" <<<"$all" && [ "$(wc -l <<<"$all")" -gt 150 ] || fail "$all"

  stub_sleep l2tp_cfg.sh 600
  before=$(wc -l <$COMMANDS)
  in_background all get InternetGatewayDevice
  waits() { tail -n +$((before + 1)) $COMMANDS | grep -q lnsstats; }
  until_true waits
  expect 0 V2.3.1 cfgcmd get $DEVICE.X_KVO_FWVersion
  [ ! -e "$BATS_TEST_TMPDIR/all.status" ]
  refused 3 'no answer in 100 ms.* waits for sysmgr:capabinfo' cfgcmd --timeout 0.1 get InternetGatewayDevice
  kill -9 "$(pid_of sysmgr)"
  told all 1 '^cfgcmd: sysmgr:[a-zA-Z]+ died before it answered'
  refused 1 'sysmgr:devInfo is not running' cfgcmd attr InternetGatewayDevice
  stub_reset
  gateway-daemon restart sysmgr
}

@test "a module that answers without the value that was asked for is no success" {
  gateway-daemon stop sysmgr
  cfgcmd listen sysmgr:mgtsrvr >"$BATS_TEST_TMPDIR/heard" 3>&- &
  module=$!
  cfgcmd wait sysmgr:mgtsrvr
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
