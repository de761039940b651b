#!/usr/bin/env bats
# The front-panel keys: what the key driver is told at the start, and what its events do. Runs inside
# the sandbox.
load helpers

readonly KEYS=/var/devkit/keys BOARD=/usr/syscfg LOG=/var/log/devkit/sysmgr.log

setup() {
  : >$CALLS
  : >$COMMANDS
  : >$KEYS
}

# A board file of the test's own in place of the desk's.
board_file() {
  rm "$BOARD/$1"
  cat >"$BOARD/$1"
}

desk_files() {
  local name
  rm -f $BOARD/{gpio_cfg,key_event}.sh
  for name in gpio_cfg key_event; do
    ln -s "$DEVKIT_SOURCE/devkit/rootfs/usr/syscfg/$name.sh" $BOARD/$name.sh
  done
}

teardown() {
  stub_reset
  desk_files
  rm -f $KEYS
  cfgcmd send sysmgr:button_proc 0x100052 --hex 0100
}

# Line, event, on press, trigger time, abandon time of each record that the driver got.
records() { od -An -v -w20 -t d4 $KEYS | tr -s ' '; }

readonly DESK_RECORDS=' 12 1 0 1 10
 7 2 0 1 4
 7 3 0 5 14
 7 4 1 15 0
 7 11 1 4 0
 7 11 1 14 0'

log_since() { tail -c +$((mark + 1)) $LOG; }
mark_log() { mark=$(stat -c %s $LOG); }

# A key event, and the switch.
press() { cfgcmd send sysmgr:button_proc 0x100051 --hex "63000000 $(printf %02x "$1")000000"; }
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

@test "what the board's files ask for, with keys, events and times that are missing" {
  board_file gpio_cfg.sh <<'KEYS'
KVO_GPIO_WPS_KEY=4
KVO_TRIGGER_TYPE_WPS=press
KVO_TRIGGER_TIME_WPS=3,10
KVO_GPIO_RESET_KEY=  9
KVO_TRIGGER_TYPE_REBOOT=PRESS
KVO_TRIGGER_TIME_REBOOT=,8
KVO_TRIGGER_TIME_RESTORE=30
KVO_TRIGGER_TIME_RESTORE_CLEAN=0
KVO_TRIGGER_TIME_BLINK=4294967295
KVO_ABANDON_TIME_BLINK=99
KEYS
  board_file key_event.sh <<'EVENTS'
MSG_MONITOR_EVT_WPS_INIT=1
MSG_MONITOR_EVT_RESET_REBOOT=-2
MSG_MONITOR_EVT_RESET_FACTORY_CLEAN=4
MSG_MONITOR_EVT_BLINK=11
EVENTS
  mark_log
  gateway-daemon restart sysmgr
  expect 0 ' 4 1 0 3 0
 4 1 0 10 0
 9 -2 1 8 0
 9 11 0 -1 99' records
  log_since | grep -F 'gpio=9, event=4, triggerTime1=0, triggerTime2=0'
}

@test "a driver that is not there, or takes nothing, leaves a gateway whose key events work" {
  mark_log
  rm $KEYS
  gateway-daemon restart sysmgr
  expect 0 1 grep -c 'open /proc/gpio_config/key failed!' <(log_since)
  press 5
  until_true pressed 5

  mark_log
  ln -s /dev/full $KEYS
  gateway-daemon restart sysmgr
  expect 0 6 grep -c 'Write gpio [0-9]* event [0-9]* failed!' <(log_since)
  log_since | grep -F 'Write gpio 7 event 11 failed!'
  press 6
  until_true pressed 6
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
