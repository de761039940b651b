#!/usr/bin/env bats
# shellcheck disable=SC2086,SC2030,SC2031 # the paths have no blanks; each test is a subshell
# The voice service: its start, lines, the voice path between voice stack and modem, the voice tool.
# Runs inside the sandbox.
load helpers

readonly VOICE=$SERVICES.VoiceService LOG=/var/log/devkit/sysmgr.log
readonly IS_VOIP=$VOICE.X_KVO_Is_Voip PROFILE=$VOICE.1.VoiceProfile.1 PORTS=$VOICE.1.PhyInterface
readonly CHANGED='+ /usr/sbin/voipcmd vc'

teardown() { stub_reset; }

# What the daemon logs of a start of its own.
restart() {
  local lines
  lines=$(wc -l <$LOG)
  gateway-daemon restart sysmgr
  tail -n "+$((lines + 1))" $LOG | grep -o 'voip init.*!' || true
}

# Lines 1 and 2, which no test takes away: another one would have a number that has no port.
lines() {
  for _ in 1 2; do
    [ "$(cfgcmd list $PROFILE.Line)" = 1,2 ] || cfgcmd add $PROFILE.Line || return
  done
}

@test "the start finds the voice stack and fills in a dial plan, once" {
  cfgcmd set $PROFILE.DigitMap ''
  expect 0 "voip init, use the default digital map!
voip init complete OK!" restart
  plan=$(cfgcmd get $PROFILE.DigitMap)
  [ ${#plan} -eq 423 ] || fail "$plan"
  cfgcmd set $PROFILE.DigitMap x.T
  mv /usr/sbin/kvophone /usr/sbin/kvophone.aside
  expect 0 "voip init complete failed(cause:/usr/sbin/kvophone file is non existent)!" restart
  mv /usr/sbin/kvophone.aside /usr/sbin/kvophone
  expect 0 "voip init complete OK!" restart
  expect 0 x.T cfgcmd get $PROFILE.DigitMap
}

# The codec list of a line.
codecs() { cfgcmd get $PROFILE.Line.$1.Codec.List | sed -n 's/.*\.\(Codec\|Priority\)=//p' | paste -sd ' '; }

@test "a new line gets its phone port and its codecs, which survive a restart of the gateway" {
  lines
  check() {
    for line in 1 2; do
      expect 0 'G711U 3 G711A 1 G729 4 G722 2' codecs $line || return
      expect 0 4 cfgcmd get $PROFILE.Line.$line.Codec.ListNumberOfEntries || return
    done
    expect 0 1 cfgcmd get $PROFILE.Line.1.PhyReferenceList || return
    expect 0 0 cfgcmd get $PROFILE.Line.2.PhyReferenceList
  }
  check
  gateway-daemon stop sysmgr
  gateway-daemon restart dbmgr
  gateway-daemon start sysmgr
  check
}

@test "the voice path follows the selection, on the modem, too" {
  select=$IS_VOIP.X_KVO_Voip_select
  mode() { modemctl state | grep -c 'AT+CVMOD=3 -> OK'; }
  lines
  cfgcmd set $PROFILE.Line.1.Enable Enabled
  before=$(mode || true)
  expect 0 '+ /usr/syscfg/lte.sh start&
+ at-mngr AT+CVMOD=3' cfgcmd --calls set $select 3
  expect 0 $((before + 1)) mode
  expect 0 "+ /usr/syscfg/lte.sh voip&" cfgcmd --calls set $select 2
  expect 0 "+ /usr/syscfg/lte.sh isvoiprun&
$CHANGED" cfgcmd --calls set $select 2
  expect 0 '+ /usr/syscfg/lte.sh start&
+ at-mngr AT+CVMOD=0' cfgcmd --calls set $select 0
  # A gateway without such a modem: as it was at the start.
  cfgcmd sset $IS_VOIP.X_KVO_has_lte 0
  restart
  expect 0 "$CHANGED" cfgcmd --calls set $select 3
  cfgcmd sset $IS_VOIP.X_KVO_has_lte 1
}

@test "statistics, tests and actions reach the voice tool" {
  lines
  expect 0 '0
+ /usr/sbin/voipcmd state 2' cfgcmd --calls get $PROFILE.Line.2.Stats.PacketsLost
  expect 0 '+ /usr/sbin/voipcmd reset_statistics 1' cfgcmd --calls set $PROFILE.Line.1.Stats.ResetStatistics now
  expect 0 '+ /usr/sbin/voipcmd diag_test' cfgcmd --calls set $VOICE.1.X_KVO_IADDiag.DiagnosticsState Requested
  expect 0 '+ /usr/sbin/voipcmd phy_test 1' cfgcmd --calls set $PORTS.1.Tests.TestState Requested
  expect 0 '+ /usr/sbin/voipcmd phy_test 2' cfgcmd --calls set $PORTS.2.X_KVO_SimulateTest.TestState Requested
  action=$PROFILE.X_KVO-ACTION.2
  expect 0 '+ /usr/sbin/voipcmd line_register 2' cfgcmd --calls set $action.Register 1
  expect 0 '' cfgcmd --calls set $action.Register 0 $action.Reboot 2
  expect 0 '+ /usr/sbin/voipcmd reset
+ /usr/sbin/voipcmd line_register -2' cfgcmd --calls set $action.Unregister 1 $action.Reboot 1
}
