#!/usr/bin/env bats
# shellcheck disable=SC2086,SC2030,SC2031 # the paths have no blanks; each test is a subshell
# Service access control: what the packet filter holds after a change. Runs inside the sandbox.
load helpers
load access

# A list without entries, and each chain hooked up once, wherever the test before left them.
setup() {
  needs_filter
  access_entries
  cfgcmd set $ACCESS.OnlyTr69Wan 0
  firewall
  gateway-daemon restart sysmgr
  : >$CALLS
}

# Every rule, in order: IPv4, nat, IPv6.
rules() {
  iptables -S | grep '^-A' && iptables -t nat -S | grep '^-A' && ip6tables -S | grep '^-A'
}
# The rules of one chain, without "-A CHAIN ".
chain() { "$1" -S "$2" | sed -n "s/^-A $2 //p"; }

web_restarted_on() { grep -q "^/usr/sbin/uhttpd .* $1\$" $CALLS; }
web_mark_is() { [ "$(cfgcmd get $DEVICE.X_KVO-RestartWeb)" = "$1" ]; }

@test "the chains after each change" { sessions access; }
