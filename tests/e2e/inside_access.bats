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
chain() { "$1" ${3:+-t "$3"} -S "$2" | sed -n "s/^-A $2 //p"; }

readonly HOOKS_V4='-A INPUT -m conntrack --ctstate RELATED,ESTABLISHED -j ACCEPT
-A INPUT -j SCL_IP_FILTER_ACCEPT
-A INPUT -j SCL_IP_DROP'
readonly HOOKS_V6='-A INPUT -m conntrack --ctstate RELATED,ESTABLISHED -j ACCEPT
-A INPUT -j SCL_IP_FILTER_ACCEPT_V6
-A INPUT -j SCL_IP_DROP_V6'
readonly NAT='-A PREROUTING -j service_list
-A service_list -j service_local_list
-A service_local_list -i br+ -j RETURN
-A service_local_list -i lo -j RETURN'

# drop_rules SUFFIX ICMP WEB-PORT...: the rules of a DROP chain with the ports of the factory.
drop_rules() {
  local port chain=SCL_IP_DROP$1 icmp=$2
  shift 2
  rule() { echo "-A $chain $1"; }
  rule '-i lo -j RETURN'
  for port in 23 22 21; do rule "-p tcp -m multiport --dports $port -j DROP"; done
  rule '-p udp -m multiport --dports 69 -j DROP'
  for port in "$@"; do rule "-p tcp -m tcp --dport $port -j DROP"; done
  rule '-p udp -m udp --dport 161 -j DROP'
  rule '-p tcp -m multiport --dports 445,139,389,901 -j DROP'
  rule '-p udp -m multiport --dports 137,138 -j DROP'
  rule "$icmp -j DROP"
}
readonly PING_V4='-p icmp -m icmp --icmp-type 8' PING_V6='-p ipv6-icmp -m icmp6 --icmpv6-type 128'

# What is there while access control is off.
off_rules() {
  echo "$HOOKS_V4
-A SCL_IP_FILTER_ACCEPT -j SCL_IP_ACCEPT
$NAT
$HOOKS_V6
-A SCL_IP_FILTER_ACCEPT_V6 -j SCL_IP_ACCEPT_V6"
}

# Telnet for the LAN; the web server for ten addresses of the WAN. That range is no IPv6 one, so
# ip6tables takes no rule.
readonly TELNET_AND_WEB=("TELNET LAN - ACCEPT 1 0" "HTTP WAN 10.0.0.1-10.0.0.9 ACCEPT 3 8080")
telnet_and_web_rules() {
  echo "$HOOKS_V4
-A SCL_IP_ACCEPT -i lo -j RETURN
-A SCL_IP_ACCEPT ! -i br+ -p tcp -m iprange --src-range 10.0.0.1-10.0.0.9 -m tcp --dport 8080 -j ACCEPT
-A SCL_IP_ACCEPT -i br+ -p tcp -m tcp --dport 23 -j ACCEPT"
  drop_rules '' "$PING_V4" 8080
  echo "-A SCL_IP_FILTER_ACCEPT -j SCL_IP_ACCEPT
$NAT
-A service_local_list -p tcp -m iprange --src-range 10.0.0.1-10.0.0.9 -m tcp --dport 8080 -j ACCEPT
$HOOKS_V6
-A SCL_IP_ACCEPT_V6 -i lo -j RETURN"
  drop_rules _V6 "$PING_V6" 8080
  echo "-A SCL_IP_FILTER_ACCEPT_V6 -j SCL_IP_ACCEPT_V6"
}

web_restarted_on() { grep -q "^/usr/sbin/uhttpd .* $1\$" $CALLS; }
web_mark_is() { [ "$(cfgcmd get $DEVICE.X_KVO-RestartWeb)" = "$1" ]; }

@test "the start hooks the chains up and leaves them open" {
  expect 0 "$(off_rules)" rules
}

@test "telnet for the LAN, the web server for some on the WAN; rebuilds change nothing" {
  access_list "${TELNET_AND_WEB[@]}"
  for _ in 1 2 3; do
    expect 0 "$(telnet_and_web_rules)" rules
    cfgcmd set $ACCESS.Enable 1
  done
  # The web server is started again on its new port, and the mark goes.
  until_true web_restarted_on '-p :8080'
  until_true grep -q '^/usr/syscfg/http-check.sh 8080$' $CALLS
  until_true web_mark_is 0
  # A daemon that is started again hooks up once more and leaves the rest the same.
  gateway-daemon restart sysmgr
  expect 0 "$(telnet_and_web_rules | sed -E '/^-A SCL_IP_FILTER_ACCEPT/p')" rules
}

@test "a change of the list rebuilds: add, set, delete" {
  access_list "TELNET LAN - ACCEPT 1 0" "SSH LAN - ACCEPT 1 0"
  iptables -F SCL_IP_ACCEPT
  path=$(cfgcmd add $ACCESS.ServiceCtrlList) # off, as the template says
  expect 0 '-i lo -j RETURN
-i br+ -p tcp -m tcp --dport 23 -j ACCEPT
-i br+ -p tcp -m tcp --dport 22 -j ACCEPT' chain iptables SCL_IP_ACCEPT
  cfgcmd set "$path.ServiceName" TCP "$path.Port" 5000 "$path.Enable" 1
  cfgcmd del "$ACCESS.ServiceCtrlList.$(cfgcmd list $ACCESS.ServiceCtrlList | cut -d, -f1)"
  expect 0 '-i lo -j RETURN
-i br+ -p tcp -m tcp --dport 22 -j ACCEPT
-i br+ -p tcp -m tcp --dport 5000 -j ACCEPT' chain iptables SCL_IP_ACCEPT
}

@test "off opens everything again, and the web server is back on its port" {
  access_list "${TELNET_AND_WEB[@]}"
  cfgcmd set $ACCESS.Enable 0
  expect 0 "$(off_rules)" rules
  until_true web_restarted_on '-p :80'
}
