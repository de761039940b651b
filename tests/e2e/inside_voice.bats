#!/usr/bin/env bats
# shellcheck disable=SC2086,SC2034 # the paths have no blanks; sessions use them
# The voice service: its start, lines, the voice path between voice stack and modem, the voice tool.
# Runs inside the sandbox.
load helpers

readonly VOICE=$SERVICES.VoiceService LOG=/var/log/devkit/sysmgr.log
readonly PROFILE=$VOICE.1.VoiceProfile.1 SELECT=$VOICE.X_KVO_Is_Voip.X_KVO_Voip_select

# Lines 1 and 2, which no test takes away: another one would have a number that has no port.
setup() {
  for _ in 1 2; do
    [ "$(cfgcmd list $PROFILE.Line)" = 1,2 ] || cfgcmd add $PROFILE.Line || return
  done
}

# What the daemon logs of a start of its own.
restart() {
  local lines
  lines=$(wc -l <$LOG)
  gateway-daemon restart sysmgr
  tail -n "+$((lines + 1))" $LOG | grep -o 'voip init.*!' || true
}

# Codecs and port of a line.
line_has() {
  cfgcmd get $PROFILE.Line.$1.Codec.List | sed -n 's/.*\.\(Codec\|Priority\)=//p' | paste -sd ' '
  cfgcmd get $PROFILE.Line.$1.Codec.ListNumberOfEntries
  cfgcmd get $PROFILE.Line.$1.PhyReferenceList
}
# How often the modem was told that calls are its own.
modes() { modemctl state | grep -c 'AT+CVMOD=3 -> OK'; }

@test "the start, lines, the voice path, the voice tool" { sessions voice; }
