#!/usr/bin/env bats
# shellcheck disable=SC2086,SC2030,SC2031 # the paths have no blanks; each test is a subshell
# Tunnels and the rate limit: their scripts, and the poll of the IPsec peers with a real name server.
# Runs inside the sandbox.
load helpers

readonly IPSEC=$SERVICES.X_KVO_IPSec
readonly TUNNELS=$IPSEC.TunnelList RACOON=/var/ipsec/racoon.conf

setup() {
  mark=$(wc -l <$COMMANDS)
  : >$CALLS
}
teardown() { stub_reset; }

# The daemon's command lines since the mark.
since() { tail -n "+$((mark + 1))" $COMMANDS; }
count() { since | grep -cxF -- "$1" || true; }
gets() { count "/usr/syscfg/ipsec_cfg.sh get $TUNNELS.$1 "; }
applies() { count "/usr/syscfg/ipsec_cfg.sh set $TUNNELS.$1 &"; }
resolves() { count "resolveip -t 5 $1 | tr '\\n' ' ' | cut -d ' ' -f 1"; }
got() { [ "$(gets "$1")" -ge "$2" ]; }

# after_passes TUNNEL COUNT: forgets what ran until now, then lets that many passes go by.
after_passes() {
  mark=$(wc -l <$COMMANDS)
  until_true got "$1" $(($2 + 1))
}
# The address of racoon's first peer; another follows.
in_use() { printf 'path certificate "/c";\nremote %s {\n}\nremote 203.0.113.9 {\n}\n' "$1" >$RACOON; }

@test "the start's files, the accelerator, the poll, what reaches the scripts" { sessions tunnels; }
