#!/usr/bin/env bats
# shellcheck disable=SC2086,SC2030,SC2031 # the paths have no blanks; each test is a subshell
# Damaged messages, killed processes, restarts: the others go on. Runs inside the sandbox.
load helpers

# What the data-base manager answers to these bytes.
answer() { cfgcmd send dbmgr:dbmgt 0x110000 --wait --hex "$1" | tr -d '\0'; }

teardown() { stub_reset; release; }

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
  cfgcmd batch "$BATS_TEST_TMPDIR/lines" >/dev/null 2>&1
  alive
  kill -0 "$(pid_of sysmgr)" "$(pid_of dbmgr)"
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
  for ((kb = 280000; kb > 270000; kb -= 50)); do
    (ulimit -v $kb && exec cfgcmd tree) >/dev/null 2>"$error" || break
  done
  [ "$(cat "$error")" = "cfgcmd: no memory for what was asked or answered: ask for less, or later" ] ||
    fail "$kb KiB: $(cat "$error")"
}

# Whether every thread of a process is traced.
traced() { ! grep -q '^TracerPid:[[:blank:]]*0$' /proc/"$1"/task/*/status; }

# dies WHO LEAF CALL NOW TOLD: a process that is killed at this call of its set of a leaf. What is told, and read
# then, stays so when all is started anew without the power. Who waits for the settings meanwhile is the reason for
# the call with which they are let go.
dies() {
  local pid
  pid=$(pid_of $1)
  cfgcmd set $2 before
  strace -f -o /dev/null -p "$pid" -e trace=fsync,futex -e inject=fsync:delay_exit=500000 -e inject=$3 3>&- >/dev/null &
  until_true traced "$pid"
  { until_true grep -aq '=after' /var/nvram/area1 && nvram set waits=1; } 3>&- &
  refused 1 "died before it answered: $5" cfgcmd set $2 after &&
    until_true [ ! -e "/proc/$pid" ] && gateway-daemon start $1 && expect 0 $4 cfgcmd get $2 &&
    gateway-daemon stop sysmgr && gateway-daemon stop dbmgr && rm -r /dev/shm/* &&
    gateway-daemon start dbmgr && gateway-daemon start sysmgr && expect 0 $4 cfgcmd get $2
}

@test "damaged requests, processes that are killed or missing" { sessions robust; }

# Under qemu a tracer sees the emulator's calls.
@test "who dies while a change is kept" {
  [[ $(readlink "/proc/$(pid_of sysmgr)/exe") != */qemu-* ]] || skip "an emulator, where no process can be traced"
  sessions deaths
}
