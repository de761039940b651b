#!/usr/bin/env bats
# shellcheck disable=SC2086 # the paths have no blanks
# What a request would do, and that it then does just that. Runs inside the sandbox.
load helpers

# What there is of the running gateway, but for its clock: its tree, files, processes, rules, and what it ran.
gateway_state() {
  cfgcmd tree | grep -v "^$DEVICE.UpTime "
  find /var /tmp /etc /dev/shm -path "$BATS_TMPDIR" -prune -o -type f ! -name '*.mdb' ! -path '/tmp/bats*' -printf '%p %s %T@\n' | sort
  pgrep -a 'sysmgr|dbmgr|modem|vermgt|telnetd|dropbear'
  iptables -S 2>/dev/null || true
  wc -l $COMMANDS $CALLS
}

# ran_behind LINE: behind this one of all lines the daemon ran those that were planned, and no other.
ran_behind() { tail -n +$(($1 + 1)) $COMMANDS | cmp -s - $BATS_TEST_TMPDIR/lines; }

# as_long: each file that is planned is there, of the length that was planned.
as_long() {
  local file length
  while read -r file length; do
    [ "$(stat -c %s "$file")" = "$length" ] || return
  done < <(sed -nE 's/^(\/[^:]*): (made|written), ([0-9]+) bytes$/\1 \3/p' $BATS_TEST_TMPDIR/plan)
}

# still: no restart of the web server, which comes some time after a request, is due.
still() { [ "$(cfgcmd get -r $DEVICE.X_KVO-RestartWeb)" = 0 ]; }

# planned REQUEST...: what is planned changes nothing; done, the request runs the same command lines, writes
# the files and gives the nodes the same values.
planned() {
  local plan=$BATS_TEST_TMPDIR/plan lines
  until_true still || fail "the web server is restarted for ever" || return
  gateway_state >$BATS_TEST_TMPDIR/before
  cfgcmd plan "$@" >"$plan" || fail "plan $*: $(cat "$plan")" || return
  gateway_state | diff $BATS_TEST_TMPDIR/before - || fail "plan $* changed the gateway" || return
  lines=$(wc -l <$COMMANDS)
  cfgcmd tree --json >$BATS_TEST_TMPDIR/tree
  cfgcmd "$@"
  sed -n 's/^+ //p' "$plan" | sed 's/   (its answer is read.*//' >$BATS_TEST_TMPDIR/lines
  until_true ran_behind $lines || fail "plan $*: it did not run what was planned: $(tail -n +$((lines + 1)) $COMMANDS)" || return
  as_long || fail "plan $*: the files are not those of $(cat "$plan")" || return
  cfgcmd tree --json | python3 -c '
import json, sys
was, now = ({row["path"]: row.get("value", "") for row in json.load(file)} for file in (open(sys.argv[1]), sys.stdin))
for path in set(was) | set(now):
    if was.get(path) != now.get(path) and path != "InternetGatewayDevice.DeviceInfo.UpTime":
        print(path + (": gone" if path not in now else f": \"{was[path]}\" -> \"{now[path]}\"" if path in was else ": new" + (f", \"{now[path]}\"" if now[path] else "")))
' $BATS_TEST_TMPDIR/tree | sort | diff <(grep '^InternetGatewayDevice' "$plan" | grep -v "^$DEVICE.UpTime:" | sort) - || fail "plan $*: what it changed (>) is not what was planned (<)"
}

@test "what is planned is what is done then, and changes nothing before" {
  access=$SERVICES.ServiceAccessControl
  planned set $SERVICES.ServiceTelnet.Port=2345 $SERVICES.ServiceTelnet.Enable=1
  planned set $SERVICES.ServiceTelnet.Enable 0 $SERVICES.ServiceSSH.Enable 1
  planned set $DEVICE.X_CT-COM_Syslog.Level 4
  planned set $SERVICES.ServiceSamba.Enable 1
  planned add $access.ServiceCtrlList
  planned set $access.ServiceCtrlList.1.ServiceName=TELNET $access.ServiceCtrlList.1.Enable=1
  planned set $access.Enable 1
  planned del $access.ServiceCtrlList.1
  planned set $SERVICES.ServiceSNMP.Enable=1 $SERVICES.ServiceSNMP.SystemName=desk
  grep -q '^/var/snmpd.conf: made, ' $BATS_TEST_TMPDIR/plan
  planned set $USERS.1.Level 1
  cfgcmd sset $DEVICE.X_KVO-RestartWeb 0 # as the board's script does when the server is up
  planned add $SERVICES.X_KVO_IPSec.TunnelList
  cfgcmd del $SERVICES.X_KVO_IPSec.TunnelList.1
  cfgcmd set $SERVICES.ServiceSNMP.Enable 0 $USERS.1.Level 0
  cfgcmd set $access.Enable 0 $SERVICES.ServiceSamba.Enable 0 $SERVICES.ServiceSSH.Enable 0 $SERVICES.ServiceTelnet.Port 23 $DEVICE.X_CT-COM_Syslog.Level 3
}

@test "a plan says what it does not know, what is refused, and is one document" {
  message="$SERVICES.X_KVO_ShortMsg.MsgSend.MsgTo 10010 $SERVICES.X_KVO_ShortMsg.MsgSend.MsgContent hello"
  sent=$(modemctl state | grep -c '^  +\?10010' || true)
  cfgcmd plan set $message >"$BATS_TEST_TMPDIR/plan" 2>"$BATS_TEST_TMPDIR/said" && fail "the modem answered: $(cat "$BATS_TEST_TMPDIR/plan")"
  grep -q '^+ at-mngr .*(its answer is read: here it had none)$' "$BATS_TEST_TMPDIR/plan"
  grep -q 'failed, the modem answered "".*; a plan.s commands give no answers, with them it may go on$' "$BATS_TEST_TMPDIR/said"
  [ "$(modemctl state | grep -c '^  +\?10010' || true)" = "$sent" ]
  cfgcmd --timeout 2 plan set $SERVICES.X_KVO_ShortMsg.USSD.Command '*100#' >"$BATS_TEST_TMPDIR/plan" 2>"$BATS_TEST_TMPDIR/said" && fail "the modem answered: $(cat "$BATS_TEST_TMPDIR/plan")"
  grep -q ' in 2000 ms: .*, --timeout waits longer;.*; a plan.s commands give no answers, with them it may go on$' "$BATS_TEST_TMPDIR/said" || fail "$(cat "$BATS_TEST_TMPDIR/said")" || return
  refused 1 'cannot be "x", it takes the form "port list"' cfgcmd plan set $SERVICES.ServiceTelnet.Port x
  refused 2 'plan shows what set, add or del would do' cfgcmd plan get $SERVICES
  refused 2 'usage: cfgcmd add' cfgcmd plan add
  cfgcmd --base $SERVICES --json plan set ServiceTelnet.Enable 1 | python3 -c '
import json, sys
plan = json.load(sys.stdin)
assert plan["result"] == "done" and plan["files"] == [], plan
assert [each["line"].split()[0] for each in plan["commands"]] == ["killall", "telnetd"], plan
nodes = [node for node in plan["nodes"] if not node["path"].endswith(".UpTime")]
assert nodes == [{"path": "InternetGatewayDevice.Services.ServiceTelnet.Enable", "before": "0", "after": "1"}], plan'
}

@test "a copy writes nothing but its own" {
  refused 1 'Read-only file system' gateway-copy touch /dev/of_a_copy
  refused 1 'Read-only file system' gateway-copy touch /usr/of_a_copy
  gateway-copy touch /var/of_a_copy /tmp/of_a_copy /dev/shm/of_a_copy
  [ -z "$(find /var /tmp /dev /usr -xdev -name of_a_copy)" ]
}

@test "files are part of a plan; nothing is left of a plan that is killed" {
  access=$SERVICES.ServiceAccessControl
  row=$(cfgcmd add $access.ServiceCtrlList)
  cfgcmd set $row.ServiceName HTTP $row.Port 81 $row.Enable 1
  rm -f /tmp/.kvo_restart_uhttpd
  cfgcmd plan set $access.Enable 1 >"$BATS_TEST_TMPDIR/plan"
  grep -qE '^/tmp/.kvo_restart_uhttpd: made, [0-9]+ bytes$' "$BATS_TEST_TMPDIR/plan"
  [ ! -e /tmp/.kvo_restart_uhttpd ]
  cfgcmd del $row
  daemons=$(pgrep -c 'sysmgr|dbmgr')
  cfgcmd plan set $SERVICES.ServiceTelnet.Enable 1 >/dev/null 2>&1 3>&- &
  until_true eval '[ "$(pgrep -c "sysmgr|dbmgr")" -gt $daemons ]'
  kill -9 $!
  until_true eval '[ "$(pgrep -c "sysmgr|dbmgr")" -eq $daemons ]'
  expect 0 0 cfgcmd get $SERVICES.ServiceTelnet.Enable
}

@test "a copy's shell writes files and runs nothing else" {
  cp /usr/bin/bash "$BATS_TEST_TMPDIR/sysmgr"
  # shellcheck disable=SC2016 # the copy's shell expands them
  cat >"$BATS_TEST_TMPDIR/copy" <<'END'
mkdir /tmp/made && cd /tmp/made
"$1"/sysmgr -c 'while read -r line; do /bin/sh -c "$line" </dev/null; done' <<'LINES'
echo -e "a; touch b\tc" > kept 2>&1
echo 'a $(touch a) `touch a`' >> kept
mkdir folder
touch removed folder/one
rm -f removed
echo "$(touch a)" > d
echo "\"; touch a; echo \"" > quoted
echo e > e; touch f
echo `touch g` &
touch h | cat
ln -s kept i
killall sysmgr
LINES
find . -type f | sort | paste -sd ' '
cat kept
END
  expect 0 './folder/one ./kept ./quoted
a; touch b	c
a $(touch a) `touch a`' gateway-copy bash "$BATS_TEST_TMPDIR/copy" "$BATS_TEST_TMPDIR"
}
