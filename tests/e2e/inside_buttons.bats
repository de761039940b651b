#!/usr/bin/env bats
# The front-panel keys: what the key driver is told at the start, and what its events do. Runs inside
# the sandbox.
load helpers

readonly KEYS=/var/devkit/keys BOARD=/usr/syscfg

setup() {
  : >$CALLS
  : >$COMMANDS
  : >$KEYS
}

teardown() { switch 0100; }

press() { front-panel press "$1"; }
switch() { cfgcmd send sysmgr:button_proc 0x100052 --hex "$1"; }
# Messages are handled in order, so the last key's script tells that all before it are through. The
# scripts run in the background, side by side.
pressed() { grep -qxF "$BOARD/key_press.sh $1" $CALLS; }
scripts_are() { [ "$(grep -F key_press.sh $CALLS | sort)" = "$1" ]; }

@test "each record is one write of 20 bytes, to a file opened for synchronous writes" {
  [ -z "${GATEWAY_SANITIZE:-}" ] || skip "the leak check and a tracer exclude each other"
  strace -o /dev/null true || skip "this machine allows no tracing"
  gateway-daemon stop sysmgr
  # A file for each thread, so that no call of another is in between.
  GATEWAY_UNDER='strace -D -ff -qq -o /tmp/key_trace -e trace=openat,write -e signal=none' \
    gateway-daemon start sysmgr
  trace=$(grep -lF '"/proc/gpio_config/key"' /tmp/key_trace.*)
  [[ $(grep -F '"/proc/gpio_config/key"' "$trace") =~ 'O_RDWR|O_DSYNC|O_CLOEXEC) = '([0-9]+)$ ]]
  expect 0 6 grep -cE "^write\\(${BASH_REMATCH[1]},.*, 20\\) = 20$" "$trace"
  expect 0 6 grep -c "^write(${BASH_REMATCH[1]}," "$trace"
}

@test "the timings at the start, the switch, what is told to others" { sessions buttons; }
