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

# each_command WRITE READ ROW: one of each, those that change something given to WRITE, the others to READ.
each_command() {
  $2 get $SERVICES.ServiceTelnet &&
    $1 set $SERVICES.ServiceTelnet.Port 2300 &&
    $1 add $USERS &&
    $1 set "$3.Username" x &&
    $2 list $USERS &&
    $2 attr $SERVICES.ServiceTelnet.Port &&
    $2 refresh $SERVICES.ServiceTelnet &&
    $1 del "$3"
}
is_done() { cfgcmd "$@" >/dev/null || fail "$*"; }
not_kept() { refused 1 'it cannot be kept' cfgcmd "$@"; }
no_answer() { refused 3 'gave no answer in 1000 ms' cfgcmd --timeout 1 "$@"; }
not_there() { refused 1 'dbmgr:dbmgt is not running: gateway-daemon start dbmgr starts it' cfgcmd "$@"; }
done_or_not_there() {
  local said
  said=$(cfgcmd "$@" 2>&1 >/dev/null) || [[ $said =~ ^cfgcmd:\ [^$'\n']*' is not running: gateway-daemon start '[a-z]*' starts it'$ ]] ||
    fail "$*: $said"
}
# Of these only a set runs commands.
not_run() {
  if [ "$1" = set ]; then refused 1 'not run: Cannot allocate memory' cfgcmd "$@"; else is_done "$@"; fi
}

@test "what lacks something is told so in a line, and served when that is there again" {
  # sysmgr has mounts of its own.
  everywhere() { "$@" && nsenter -t "$(pid_of sysmgr)" -m "$@"; }
  lacks_flash() { everywhere mount -t tmpfs -o size=64k flash /var/nvram && everywhere sh -c '! yes >/var/nvram/filler'; }
  has_flash() { everywhere umount /var/nvram; }
  lacks_folder() { mv /var/run/tds "$BATS_TEST_TMPDIR"; } # those who serve make it anew
  has_folder() { until_true cfgcmd get $SERVICES.ServiceTelnet; }
  lacks_sockets() { everywhere mount -t tmpfs -o ro sockets /var/run/tds; }
  has_sockets() { everywhere umount /var/run/tds; }
  lacks_descriptors() { prlimit --pid "$(pid_of "$1")" --nofile=3:; }
  has_descriptors() { prlimit --pid "$(pid_of "$1")" --nofile=1024:; }
  # What it has is all that it gets; a sanitizer ends the process for that, an emulator itself.
  kilobytes() { awk '/^VmSize:/ {print $2}' "/proc/$(pid_of "$1")/status"; }
  lacks_memory() { prlimit --pid "$(pid_of "$1")" --as=$(($(kilobytes "$1") * 1024)):; }
  has_memory() { prlimit --pid "$(pid_of "$1")" --as=unlimited; }
  state() { cfgcmd list $USERS && cfgcmd get "$1" && cfgcmd get $SERVICES.ServiceTelnet; }
  local fault writes reads before row state
  before=$(cfgcmd list $USERS)
  while read -r fault writes reads; do
    [[ $fault != memory* || $(kilobytes sysmgr) -lt 2000000 ]] || continue
    row=$(cfgcmd add $USERS)
    state=$(state "$row")
    lacks_${fault/:/ } 2>/dev/null
    each_command "$writes" "$reads" "$row" || fail "$fault"
    [[ $writes = is_done || $reads != is_done ]] || expect 0 23 cfgcmd get $SERVICES.ServiceTelnet.Port
    has_${fault/:/ }
    [[ $writes != not_kept && $writes != not_there ]] || expect 0 "$state" state "$row"
    each_command is_done is_done "$(cfgcmd add $USERS)" || fail "after $fault"
    is_done set $SERVICES.ServiceTelnet.Port 23
  done <<'FAULTS'
flash not_kept is_done
folder done_or_not_there done_or_not_there
sockets not_there not_there
descriptors:sysmgr not_kept is_done
descriptors:dbmgr no_answer no_answer
memory:sysmgr not_run is_done
FAULTS
  for row in $(cfgcmd list $USERS | tr , ' '); do
    [[ ",$before," == *",$row,"* ]] || is_done del "$USERS.$row"
  done
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
