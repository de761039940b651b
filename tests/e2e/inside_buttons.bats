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

# Line, event, on press, trigger time, abandon time of each record that the driver got.
records() { front-panel told | tr -s ' '; }

readonly DESK_RECORDS=' 12 1 0 1 10
 7 2 0 1 4
 7 3 0 5 14
 7 4 1 15 0
 7 11 1 4 0
 7 11 1 14 0'

press() { front-panel press "$1"; }
switch() { cfgcmd send sysmgr:button_proc 0x100052 --hex "$1"; }
# Messages are handled in order, so the last key's script tells that all before it are through. The
# scripts run in the background, side by side.
pressed() { grep -qxF "$BOARD/key_press.sh $1" $CALLS; }
scripts_are() { [ "$(grep -F key_press.sh $CALLS | sort)" = "$1" ]; }

@test "the driver is told the desk's timings at the start" {
  gateway-daemon restart sysmgr
  expect 0 "$DESK_RECORDS" records
}

@test "each record is one write of 20 bytes, to a file opened for synchronous writes" {
  [ -z "${GATEWAY_SANITIZE:-}" ] || skip "the leak check and a tracer exclude each other"
  strace -o /dev/null true || skip "this machine allows no tracing"
  gateway-daemon stop sysmgr
  # A file for each thread, so that no call of another is in between.
  GATEWAY_UNDER='strace -D -ff -qq -o /tmp/key_trace -e trace=openat,write -e signal=none' \
    gateway-daemon start sysmgr
  expect 0 "$DESK_RECORDS" records
  trace=$(grep -lF '"/proc/gpio_config/key"' /tmp/key_trace.*)
  [[ $(grep -F '"/proc/gpio_config/key"' "$trace") =~ 'O_RDWR|O_DSYNC|O_CLOEXEC) = '([0-9]+)$ ]]
  expect 0 '20) = 20
20) = 20
20) = 20
20) = 20
20) = 20
20) = 20' sed -n "s/^write(${BASH_REMATCH[1]},.*, //p" "$trace"
}

@test "key events run the script while the switch is on" {
  press 1
  switch 0001 # not for the keys
  press 2
  switch 0000
  press 3
  press 11
  switch 0101 # not for the keys either
  press 4
  switch 0200 # only 1 is on
  press 5
  switch 01 # too short
  press 6
  switch 0100
  cfgcmd send sysmgr:button_proc 0x100051 --hex 63000000070000 # too short
  press 8
  until_true pressed 8
  expect 0 "$BOARD/key_press.sh 1&
$BOARD/key_press.sh 2&
$BOARD/key_press.sh 8&" grep -F key_press.sh $COMMANDS
  until_true scripts_are "$BOARD/key_press.sh 1
$BOARD/key_press.sh 2
$BOARD/key_press.sh 8"
}

@test "event 11 is told to the LAN port manager, also without the script; others are not" {
  cfgcmd listen portmgr:lan 1 >/tmp/lan &
  listener=$!
  cfgcmd wait portmgr:lan
  mv $BOARD/key_press.sh /tmp/key_press.sh
  press 10
  press 11
  wait $listener
  mv /tmp/key_press.sh $BOARD/key_press.sh
  expect 0 'sysmgr:button_proc 0x100053 4 \x00\x00\x00' cat /tmp/lan
}
