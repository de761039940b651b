#!/usr/bin/env bats
# shellcheck disable=SC2086,SC2030,SC2031,SC2094 # numbers of users; each test is a subshell; names of descriptors
# What runs in the sandbox attacks what is outside; each test looks from outside. Started as root,
# each also runs as a user without rights.
load helpers

readonly NOBODY=65534 TERMINAL=$BATS_TEST_DIRNAME/terminal.py

setup() {
  # Not the folder of the tests, which is closed to others.
  folder=$(mktemp -d) && chmod 755 "$folder"
}
teardown() { rm -rf "$folder"; }

users() {
  id -u
  [ "$(id -u)" -ne 0 ] || echo $NOBODY
}
# as USER COMMAND...
as() {
  local change=(setpriv --reuid "$1" --regid "$1" --clear-groups)
  [ "$1" -ne "$(id -u)" ] || change=()
  "${change[@]}" "${@:2}"
}
readonly SANDBOX=$BATS_TEST_DIRNAME/../../devkit/sandbox
# sandbox USER ARGUMENTS...
sandbox() { as "$1" "$SANDBOX" --build "$GATEWAY_BUILD" "${@:2}"; }

@test "the kernel's settings and the cgroups of the machine are not written" {
  setting=/proc/sys/kernel/printk_ratelimit_burst
  before=$(cat $setting)
  for user in $(users); do
    # A fresh /proc has settings of the sandbox's own namespaces; none of these are.
    run sandbox "$user" --bare -- bash -c "mkdir /tmp/proc /tmp/groups
      mount -t proc proc /tmp/proc || exit
      for proc in /proc /opt/proc /tmp/proc; do
        echo $((before + 1)) >\$proc${setting#/proc}
        find \$proc/sys/vm \$proc/sys/dev \$proc/sys/kernel/{core_pattern,printk*} \$proc/sysrq-trigger -type f -writable
      done 2>/dev/null
      find {,/opt}/proc/sys -type f -writable
      mount -t cgroup2 groups /tmp/groups && mkdir /tmp/groups/sysmgr-attack && echo 'made a group'
      true"
    after=$(cat $setting)
    [ "$after" = "$before" ] || echo "$before" >$setting
    find /sys/fs/cgroup -name sysmgr-attack -delete 2>/dev/null || true
    expect 0 "$before" echo "$after"
    [ "$status" -eq 0 ] || fail "user $user: $output"
    [[ $output != *'made a group'* ]] || fail "user $user made a group of the machine's"
    expect 0 "/proc/sys/vm/drop_caches
/opt/proc/sys/vm/drop_caches
/proc/sys/vm/drop_caches
/opt/proc/sys/vm/drop_caches" grep '^/' <<<"$output"
  done
}

# Others may drop it as well, but not each time.
@test "freeing memory for a download leaves the machine's page cache alone" {
  drops() { sed -n 's/^drop_pagecache //p' /proc/vmstat; }
  untouched() {
    local before
    before=$(drops)
    expect 0 3 sandbox "$user" --bare -- sh -c 'sync;echo 3 >/proc/sys/vm/drop_caches && cat /var/devkit/drop_caches'
    [ "$(drops)" = "$before" ]
  }
  for user in $(users); do until_true untouched; done
}

@test "the caller's descriptors are closed, and its environment is not seen" {
  echo secret >"$folder/file"
  for user in $(users); do
    CALLERS_TOKEN=$folder run sandbox "$user" --bare -- bash -c 'ls -l /proc/[0-9]*/fd; cat /proc/[0-9]*/environ | tr "\0" "\n"' \
      3<"$folder/file" 9<>"$folder/file" 77<"$folder" 254<"$folder/file" 255<"$folder/file"
    [ "$status" -eq 0 ] || fail "$output"
    [[ $output == *' 1 -> '*HOME=/var/home* && $output != *"$folder"* ]] || fail "user $user: $output"
  done
}

# Types into each terminal that it finds.
readonly TYPIST='
import contextlib, fcntl, glob, os, termios
if os.fork() == 0:
    os.setsid()
for path in ["/dev/tty", "/dev/console"] + glob.glob("/proc/[0-9]*/fd/*"):
    with contextlib.suppress(OSError):
        terminal = os.open(path, os.O_RDWR | os.O_NOCTTY)
        for request, argument in ((termios.TIOCSTI, b"!"), (termios.TIOCSCTTY, 1), (termios.TIOCSTI, b"!")):
            with contextlib.suppress(OSError):
                fcntl.ioctl(terminal, request, argument)
print("attacked", flush=True)
'

@test "nothing is typed into the caller's terminal" {
  typist=$folder/typist
  echo "$TYPIST" >"$typist" && chmod 644 "$typist"
  see() { as "$user" /usr/bin/python3 "$TERMINAL" "$@" <<<'see attacked'; }
  user=$(id -u)
  [[ $(see /usr/bin/python3 "$typist") == "status 0 typed '!!"* ]] || skip "this kernel lets nobody type for another"
  command="'$SANDBOX' --build '$GATEWAY_BUILD' --bare -- /usr/bin/python3 -c \"\$(cat '$typist')\""
  for user in $(users); do
    for how in "$command" "$command </dev/null" "$command | cat" "$command 2>/dev/null" "$command & wait"; do
      expect 0 "status 0 typed ''" see bash -c "$how" || fail "user $user: $how" || return
    done
  done
}

@test "the shell inside has job control, sizes and keys; the command's status is told" {
  for user in $(users); do
    expect 0 "status 9 typed ''" as "$user" /usr/bin/python3 "$TERMINAL" "$SANDBOX" --build "$GATEWAY_BUILD" <<'SESSION' || fail "user $user" || return
see gateway:.*#
size 33 77
type stty size\n
see 33 77
type set -o\n
see monitor\s+on
type bash -c 'trap "echo inter""rupted; exit" INT; echo rea""dy; while sleep 0.1; do :; done'\n
see ready
type \x03
see interrupted
type cfgcmd get InternetGatewayDevice.DeviceInfo.X_KVO_FWVersion\n
see V[0-9.]+
type exit 9\n
SESSION
  done
  # What is led elsewhere stays there.
  expect 0 "status 3 typed ''" /usr/bin/python3 "$TERMINAL" bash -c "'$SANDBOX' --build '$GATEWAY_BUILD' --bare -- \
    bash -c 'echo told; echo error >&2; exit 3' 2>'$folder/error'" <<<'see told'
  expect 0 error cat "$folder/error"
}

@test "the state stays its owner's, whoever starts the gateway" {
  [ "$(id -u)" -eq 0 ] || skip "only root can be two users"
  name() { sandbox "$1" --state "$2" --bare -- bash -c "nvram --area 2 set user=$3 && nvram --area 2 commit"; }
  named() { sandbox "$1" --state "$2" --bare -- nvram --area 2 get user; }
  # A plain user's, with runs as root before, between and after.
  for users in "$NOBODY 0 $NOBODY" "0 $NOBODY 0"; do
    plain=$(mktemp -d "$folder/plain.XXXX") && chown $NOBODY:$NOBODY "$plain"
    for user in $users; do
      name $user "$plain" $user
      expect 0 $user named $NOBODY "$plain"
      expect 0 "" find "$plain" ! -user $NOBODY
    done
  done
  # Root's, below a folder that nobody else enters, with a file that root put there.
  mkdir -m 700 "$folder/root"
  for user in first second; do
    name 0 "$folder/root/state" $user
    expect 0 $user named 0 "$folder/root/state"
    (umask 077 && echo $user >"$folder/root/state/config/note")
    expect 0 $user sandbox 0 --state "$folder/root/state" --bare -- cat /var/config/note
  done
  # Another's state is refused by name.
  chmod 755 "$folder/root"
  run sandbox $NOBODY --state "$folder/root/state" --bare -- true
  [ "$status" -eq 2 ]
  [[ $output == "sandbox: "*"$folder/root/state"* ]] || fail "$output"
}

@test "root's own folders are found below one that nobody else enters" {
  [ "$(id -u)" -eq 0 ] || skip "a plain user reads what the sandbox reads"
  mkdir -m 700 "$folder/closed"
  mkdir "$folder/closed/source"
  cp -r "$BATS_TEST_DIRNAME/../../devkit" "$folder/closed/source"
  expect 0 '' "$folder/closed/source/devkit/sandbox" --build "$GATEWAY_BUILD" --bare -- test -r "$folder/closed/source/devkit/tour"
  chmod 700 "$folder/closed/source"
  run "$folder/closed/source/devkit/sandbox" --build "$GATEWAY_BUILD" --bare -- true
  [ "$status" -eq 2 ]
  [[ $output == *'cannot read the folder source: chmod -R go+rX it' ]] || fail "$output"
}
