#!/usr/bin/env bats
# shellcheck disable=SC2086 # the paths have no blanks
# What passes the data-base manager, as it is shown to who looks on. Runs inside the sandbox.
load helpers

setup() { monitors=(); }
teardown() {
  release
  [ ${#monitors[@]} -eq 0 ] || kill "${monitors[@]}" 2>/dev/null || true
}

# watch NAME ARGUMENT...: cfgcmd with these, from before this returns; what it shows is in the file NAME.
watch() {
  shown=$BATS_TEST_TMPDIR/$1
  cfgcmd "${@:2}" >"$shown" 2>"$shown.said" 3>&- &
  monitors+=($!)
  until_true grep -q 'watching' "$shown.said"
}
shows() { grep -qE -- "$1" "$shown"; }

# events FILTER: of the JSON lines those for which the Python expression on e is true, one that there has to be.
events() {
  python3 -c 'import json, sys
for line in open(sys.argv[1]):
    e = json.loads(line)
    if eval(sys.argv[2]):
        sys.exit(0)
sys.exit(1)' "$shown" "$1"
}
event() { until_true events "$1" || fail "not shown: $1: $(cat "$shown")"; }

@test "a change: who asked, what was before and is now, what it ran, how long it took" {
  watch all monitor
  cfgcmd set $SERVICES.ServiceTelnet.Port=2399 $SERVICES.ServiceTelnet.Enable=1
  until_true shows '  \+ telnetd .*2399'
  before='^[0-9-]+T[0-9:.]+ cfgcmd\[[0-9]+\] set'
  shows "$before $SERVICES.ServiceTelnet FuncServTelnet@sysmgr:capabinfo: done, [0-9.]+ ms$"
  shows "^  $SERVICES.ServiceTelnet.Port: \"23\" -> \"2399\"$"
  shows "^  $SERVICES.ServiceTelnet.Enable: \"0\" -> \"1\"$"
  cfgcmd set $SERVICES.ServiceTelnet.Port=23 $SERVICES.ServiceTelnet.Enable=0
}

@test "what is refused, what the store serves, what a part of the tree sees, what is notified" {
  watch all --json monitor
  all=$shown
  watch part --json --base $SERVICES monitor X_KVO_IPSec
  why=$(cfgcmd set $DEVICE.X_CT-COM_Syslog.Level 99 2>&1) && fail "a level of 99 was taken"
  row=$(cfgcmd add $SERVICES.X_KVO_IPSec.TunnelList)
  cfgcmd list $SERVICES.X_KVO_IPSec.TunnelList
  cfgcmd publish portmgr:wan 0x100037 --text told
  cfgcmd del "$row"
  event "e.get('command') == 'del' and e['path'] == '$row' and e['commands'][0]['line'].startswith('/usr/syscfg/ipsec_cfg.sh del')"
  ! grep -q Syslog "$shown" || fail "a part of the tree shows another"
  shown=$all
  event "e.get('command') == 'del'"
  event "e.get('result') == 'refused' and 'cfgcmd: ' + e['text'] == '''$why''' and 'module' not in e"
  event "e.get('command') == 'add' and e['result'] == 'done' and e['text'] == '$row'"
  event "e.get('command') == 'list' and 'module' not in e and e['client'] == 'cfgcmd' and e['pid'] > 1"
  event "e['kind'] == 'notification' and (e['publisher'], e['id'], e['text']) == ('portmgr:wan', '0x100037', 'told')"
}

@test "a command line that two modules may have run says so" {
  watch all --json monitor
  hold cpuState.sh
  in_background slow get $DEVICE.ProcessStatus
  until_true grep -q cpuState.sh $COMMANDS
  cfgcmd set $SERVICES.ServiceTelnet.Enable 1
  event "e.get('path') == '$SERVICES.ServiceTelnet.Enable' and e['commands'] and all(c['unsure'] for c in e['commands'])"
  let_go
  told slow 0 CPUUsage
  event "e.get('path') == '$DEVICE.ProcessStatus' and e['module_ms'] <= e['total_ms'] and 'unsure' not in e['commands'][0] and 0 < e['commands'][0]['took_ms'] <= e['module_ms']"
  cfgcmd set $SERVICES.ServiceTelnet.Enable 0
}

@test "a dbmgr that dies and comes back; a reader that goes" {
  watch all monitor
  kill -9 "$(pid_of dbmgr)"
  until_true grep -q 'waiting for it' "$shown.said"
  gateway-daemon restart dbmgr
  until_true grep -q 'is there again' "$shown.said"
  grep -q 'started anew.*is not shown' "$shown.said"
  cfgcmd list $SERVICES.X_KVO_IPSec.TunnelList
  until_true shows ' list '
  mkfifo "$BATS_TEST_TMPDIR/pipe"
  cfgcmd monitor >"$BATS_TEST_TMPDIR/pipe" 2>"$BATS_TEST_TMPDIR/said" 3>&- &
  head -c 0 "$BATS_TEST_TMPDIR/pipe"
  ! wait $! || fail "it ended well"
  grep -q 'not read any more' "$BATS_TEST_TMPDIR/said"
}
