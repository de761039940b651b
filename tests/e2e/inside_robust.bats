#!/usr/bin/env bats
# shellcheck disable=SC2086,SC2030,SC2031 # the paths have no blanks; each test is a subshell
# Damaged messages, killed processes, restarts: the others go on. Runs inside the sandbox.
load helpers

# What the data-base manager answers to these bytes.
answer() { cfgcmd send dbmgr:dbmgt 0x110000 --wait --hex "$1" | tr -d '\0'; }

teardown() { stub_reset; release; }

# qemu does not tell the kernel which locks a process holds, and who is killed in a write keeps the store's.
needs_robust_locks() {
  [[ $(readlink "/proc/$(pid_of sysmgr)/exe") != */qemu-* ]] ||
    skip "an emulator, where nobody gets the lock of a process that is killed in a write"
}

alive() { expect 0 V2.3.1 cfgcmd get $DEVICE.X_KVO_FWVersion; }

@test "random bytes to every endpoint change nothing" {
  # Always the same bytes: a failure can be repeated.
  RANDOM=4711
  for ((i = 0; i < 150; ++i)); do
    frame=
    for ((n = RANDOM % 60; n > 0; --n)); do frame+=$(printf '%02x' $((RANDOM % 256))); done
    for endpoint in sysmgr:devInfo sysmgr:capabinfo sysmgr:mgtsrvr; do echo "send $endpoint 0x100005 --hex '$frame'"; done
    echo "send dbmgr:dbmgt 0x110000 --hex '$frame'"
    for id in 0x100003 0x100004; do echo "send msgcenter:cAckAgt $id --hex '$frame'"; done
    for id in 0xfff01 0xfff02; do echo "send sysmgr $id --hex '$frame'"; done
    echo "send sysmgr:mgtsrvr 0x100037 --hex '$frame'"
    echo "send sysmgr $((RANDOM * 32768 + RANDOM)) --hex '$frame'"
  done >"$BATS_TEST_TMPDIR/lines"
  cfgcmd batch "$BATS_TEST_TMPDIR/lines" >/dev/null
  alive
  kill -0 "$(pid_of sysmgr)" "$(pid_of dbmgr)"
}

@test "damaged client requests are answered with a reason" { sessions robust; }

@test "what only the runtime sends is taken from nobody else" {
  # The init message would run every start line again; the IPsec poll's timer is another.
  commands=$(wc -l <$COMMANDS)
  for module in devInfo capabinfo mgtsrvr button_proc; do
    for id in 0x101 0x102 0x200 0x201; do
      refused 1 "sysmgr:$module takes no message" cfgcmd send sysmgr:$module $id
      refused 1 "runtime's own" cfgcmd send sysmgr:$module $id --wait
    done
  done
  alive
  [ "$(wc -l <$COMMANDS)" = "$commands" ] || fail "$(tail -n 3 $COMMANDS)"
}

@test "a killed client disturbs nobody" {
  cfgcmd set $SERVICES.ServiceVRRP.Enable 0
  hold vrrp.sh
  cfgcmd set $SERVICES.ServiceVRRP.Enable 1 3>&- &
  client=$!
  until_true grep -q '^/usr/syscfg/vrrp.sh stop$' $COMMANDS
  kill -9 $client
  alive
  let_go
  # Its change is done all the same.
  expect 0 1 cfgcmd get $SERVICES.ServiceVRRP.Enable
}

@test "a request in flight learns at once that the daemon was killed, those behind are refused" {
  cfgcmd set $SERVICES.ServiceIPSLA.Enable 0
  stub_sleep ipsla.sh 600
  in_background first set $SERVICES.ServiceIPSLA.Enable 1
  until_true grep -q '^/usr/syscfg/ipsla.sh stop$' $COMMANDS
  in_background second get $SERVICES.ServiceTelnet.Port # waits behind it
  kill -9 "$(pid_of sysmgr)"
  # Not "no answer in time", which would be 3; the second had been sent, too, or found the daemon gone.
  told first 1 'sysmgr:capabinfo died before it answered: its parameters have changed meanwhile, "cfgcmd get"'
  told second 1 'died before|not running'
  # Without the daemon the store still answers.
  refused 1 'sysmgr:devInfo is not running.*gateway-daemon restart' cfgcmd get $DEVICE.UpTime
  refused 1 'sysmgr is not running' cfgcmd level all 3
  expect 0 1 cfgcmd list InternetGatewayDevice.LANDevice
  stub_reset
  gateway-daemon restart sysmgr
  alive
}

@test "a second data-base manager is refused and touches nothing" {
  cfgcmd sset $DEVICE.DeviceLog first
  run "$DEVKIT_BUILD/bin/dbmgr"
  [ "$status" -eq 1 ]
  [[ $output == *"process $(pid_of dbmgr) serves"* ]] || fail "$output"
  expect 0 first cfgcmd get $DEVICE.DeviceLog
}

@test "the daemon restarts under load, again and again, without a restart of dbmgr" {
  needs_robust_locks
  dbmgr=$(pid_of dbmgr)
  while :; do echo "get $DEVICE.X_KVO_FWVersion"; done | cfgcmd batch >"$BATS_TEST_TMPDIR/answers" 2>&1 3>&- &
  client=$!
  for _ in 1 2 3; do
    kill -9 "$(pid_of sysmgr)"
    gateway-daemon restart sysmgr
    alive
  done
  until_true grep -q '^V2.3.1$' "$BATS_TEST_TMPDIR/answers"
  kill $client
  wait $client 2>/dev/null || true
  # The last line may be cut; all others are the value, or a clear refusal.
  sed '$d' "$BATS_TEST_TMPDIR/answers" | sort | uniq -c >"$BATS_TEST_TMPDIR/kinds"
  ! grep -Ev ' V2.3.1$|died before it answered|is not running' "$BATS_TEST_TMPDIR/kinds" || fail "$(cat "$BATS_TEST_TMPDIR/kinds")"
  [ "$(pid_of dbmgr)" = "$dbmgr" ]
  kill -0 "$dbmgr"
}

@test "killed in the middle of writes, the daemon leaves the store whole" {
  needs_robust_locks
  for _ in 1 2 3 4 5; do
    for ((i = 0; ; ++i)); do echo "set $DEVICE.X_CT-COM_IPProtocolVersion.Mode $i $DEVICE.X_CT-COM_IPProtocolVersion.PreferredIP $i"; done | cfgcmd batch >/dev/null 2>&1 3>&- &
    client=$!
    first=$(cfgcmd get $DEVICE.X_CT-COM_IPProtocolVersion.Mode)
    moved() { [ "$(cfgcmd get $DEVICE.X_CT-COM_IPProtocolVersion.Mode)" != "$first" ]; }
    until_true moved
    kill -9 "$(pid_of sysmgr)"
    kill $client
    wait $client 2>/dev/null || true
    # Both leaves of a request, or neither; the lock is free.
    mode=$(cfgcmd tree $DEVICE.X_CT-COM_IPProtocolVersion.Mode | awk '{print $3}')
    preferred=$(cfgcmd tree $DEVICE.X_CT-COM_IPProtocolVersion.PreferredIP | awk '{print $3}')
    [ "$mode" = "$preferred" ] || fail "half a change: $mode and $preferred"
    expect 0 "" cfgcmd sset $DEVICE.DeviceLog after
    gateway-daemon restart sysmgr
  done
  alive
}

# each_command CHECK: one of each, given to CHECK.
each_command() {
  local row
  "$1" get $SERVICES.ServiceTelnet
  "$1" set $SERVICES.ServiceTelnet.Port 2300
  "$1" add $USERS
  row=$(grep . "$BATS_TEST_TMPDIR/said" || echo $USERS.4711)
  "$1" set "$row.Username" x
  "$1" list $USERS
  "$1" attr $SERVICES.ServiceTelnet.Port
  "$1" refresh $SERVICES.ServiceTelnet
  "$1" del "$row"
}
is_done() { cfgcmd "$@" >"$BATS_TEST_TMPDIR/said" || fail "$*"; }
is_clear() {
  local status=0
  cfgcmd --timeout 1 "$@" >"$BATS_TEST_TMPDIR/said" 2>"$BATS_TEST_TMPDIR/error" || status=$?
  [ $status -ne 2 ] && [ "$(wc -l <"$BATS_TEST_TMPDIR/error")" -eq $((status != 0)) ] ||
    fail "$*: status $status: $(cat "$BATS_TEST_TMPDIR/error")"
}

@test "what lacks something is told so in a line, and served when that is there again" {
  lacks_flash() { mount -t tmpfs -o size=64k flash /var/nvram && ! head -c 1M /dev/zero >/var/nvram/filler; }
  has_flash() { rm /var/nvram/filler; }
  lacks_folder() { mv /var/run/tds "$BATS_TEST_TMPDIR"; }
  has_folder() { until_true cfgcmd get $SERVICES.ServiceTelnet; }
  lacks_descriptors() { prlimit --pid "$(pid_of "$1")" --nofile=3:; }
  has_descriptors() { prlimit --pid "$(pid_of "$1")" --nofile=1024:; }
  # What it has is all that it gets; a sanitizer ends the process for that.
  kilobytes() { awk '/^VmSize:/ {print $2}' "/proc/$(pid_of "$1")/status"; }
  lacks_memory() { [ "$(kilobytes "$1")" -gt 2000000 ] || prlimit --pid "$(pid_of "$1")" --as=$(($(kilobytes "$1") * 1024)):; }
  has_memory() { prlimit --pid "$(pid_of "$1")" --as=unlimited; }
  for fault in flash folder {descriptors,memory}' '{sysmgr,dbmgr}; do
    lacks_$fault 2>/dev/null
    each_command is_clear
    has_$fault
    each_command is_done
    expect 0 2300 cfgcmd get $SERVICES.ServiceTelnet.Port
  done
  umount /var/nvram
  is_done set $SERVICES.ServiceTelnet.Port 23
}

@test "a client without memory says so in a line" {
  local kb error=$BATS_TEST_TMPDIR/error
  # Less and less beside the map of the store, until the tree does not fit.
  (ulimit -v 900000 && cfgcmd tree) >/dev/null 2>&1 || skip "the sanitizer's client takes more than that"
  for ((kb = 400000; kb > 270000; kb -= 1000)); do
    (ulimit -v $kb && exec cfgcmd tree) >/dev/null 2>"$error" || break
  done
  [ "$(cat "$error")" = "cfgcmd: no memory for what was asked or answered: ask for less, or later" ] ||
    fail "$kb KiB: $(cat "$error")"
}

# Whether every thread of a process is traced.
traced() { ! grep -q '^TracerPid:[[:blank:]]*0$' /proc/"$1"/task/*/status; }

@test "without a process for a command a set is refused, and the values are what they were" {
  daemon=$(pid_of sysmgr)
  strace -f -o /dev/null -p "$daemon" -e trace=clone,clone3,vfork,fork -e inject=clone,clone3,vfork,fork:error=EAGAIN 3>&- &
  tracer=$!
  until_true traced "$daemon"
  refused 1 'refused set' cfgcmd set $SERVICES.ServiceTelnet.Port 2323
  expect 0 23 cfgcmd get $SERVICES.ServiceTelnet.Port
  grep -q ' 4 "killall ..." not run: Resource temporarily unavailable' /var/log/devkit/sysmgr.log
  kill $tracer
  wait $tracer || true
  expect 0 "" cfgcmd set $SERVICES.ServiceTelnet.Port 23
}

@test "who dies while a change is kept: what is told and read then stays so, without the power, too" {
  local who leaf call now told
  # At the first call the file of the settings has the change, at the second the settings in use have it, too.
  while read -r who leaf call now told; do
    expect 0 "" cfgcmd set $leaf before
    strace -f -o /dev/null -p "$(pid_of $who)" -e trace=fsync,flock -e inject="$call" 3>&- &
    until_true traced "$(pid_of $who)"
    refused 1 "died before it answered: $told" cfgcmd set $leaf after
    gateway-daemon start $who
    expect 0 "$now" cfgcmd get $leaf || fail "$who $call"
    gateway-daemon stop sysmgr && gateway-daemon stop dbmgr && rm -r /dev/shm/*
    gateway-daemon start dbmgr && gateway-daemon start sysmgr
    expect 0 "$now" cfgcmd get $leaf || fail "$who $call, and the power"
  done <<CALLS
sysmgr $DEVICE.X_CT-COM_MiddlewareMgt.MiddlewareURL fsync:signal=KILL:when=1 before its parameters are as before
sysmgr $DEVICE.X_CT-COM_MiddlewareMgt.MiddlewareURL flock:signal=KILL:when=2 after its parameters have changed
dbmgr InternetGatewayDevice.WANDevice.1.WANConnectionDevice.1.WANIPConnection.1.Name fsync:signal=KILL:when=1 before look
dbmgr InternetGatewayDevice.WANDevice.1.WANConnectionDevice.1.WANIPConnection.1.Name flock:signal=KILL:when=2 after look
CALLS
}
