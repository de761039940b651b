#!/usr/bin/env bats
# shellcheck disable=SC2086,SC2030,SC2031 # the paths have no blanks; each test is a subshell
# Service access control with packets: a host on the LAN, one on the WAN and the gateway between
# them, each a network namespace. Runs inside the sandbox, whose own namespace is the gateway's.
load helpers
load access

readonly PEER=$BATS_TEST_DIRNAME/packet_peer.py
# The ports of the known services, one that is none, a port of passive FTP, and a forward's target.
readonly PORTS=(21 22 23 69 80 137 138 139 161 389 445 901 2323 4000 5000 8080 30050)

# link HOST NAME: a host of its own namespace, with its eth0 at the gateway's interface NAME.
link() {
  ip link add "$2" type veth peer name eth0 netns "$1"
  in_host "$1" ip link set lo up
  in_host "$1" ip link set eth0 up
  ip link set "$2" up
}
in_host() { nsenter -t "$1" -n "${@:2}"; }
address() { ip addr add "$1" dev "$2" nodad; }
host_address() { in_host "$1" ip addr add "$2" dev eth0 nodad; }

has_networks() { unshare -n true 2>/dev/null; }

setup() {
  has_networks || skip "this machine allows no network namespaces inside the sandbox"
  needs_filter
}

setup_file() {
  has_networks || return 0 # each test says that it is skipped
  iptables -S >/dev/null 2>&1 || return 0
  unshare -n sleep infinity 3>&- &
  export LAN=$!
  unshare -n sleep infinity 3>&- &
  export WAN=$!
  until_true has_own_network "$LAN"
  until_true has_own_network "$WAN"
  link "$LAN" lan0
  link "$WAN" wan0
  ip link add br0 type bridge
  ip link set lan0 master br0
  ip link set br0 up
  address 192.168.1.1/24 br0
  address 2001:db8:1::1/64 br0
  address 203.0.113.1/24 wan0
  address 2001:db8:2::1/64 wan0
  for last in 10 11; do
    host_address "$LAN" 192.168.1.$last/24
    host_address "$LAN" 2001:db8:1::$last/64
    host_address "$WAN" 203.0.113.$last/24
    host_address "$WAN" 2001:db8:2::$last/64
  done
  python3 "$PEER" serve "${PORTS[@]}" >"$BATS_FILE_TMPDIR/server" 3>&- &
  export SERVER=$!
  until_true grep -q ready "$BATS_FILE_TMPDIR/server"
}
has_own_network() { [ "$(readlink "/proc/$1/ns/net")" != "$(readlink /proc/self/ns/net)" ]; }

teardown_file() {
  [ -z "${SERVER:-}" ] || kill "$SERVER"
  [ -z "${LAN:-}" ] || kill "$LAN"
  [ -z "${WAN:-}" ] || kill "$WAN"
}

# reach: the table on standard input says from where each port can be reached; packet_peer.py tells
# its form. Sources: lan4a lan4b lan6a lan6b wan4a wan4b wan6a wan6b; a ends in 10, b in 11.
reach() {
  local table lan=0 wan=0
  table=$(cat)
  in_host "$LAN" python3 "$PEER" probe lan4a=192.168.1.10=192.168.1.1 lan4b=192.168.1.11=192.168.1.1 \
    lan6a=2001:db8:1::10=2001:db8:1::1 lan6b=2001:db8:1::11=2001:db8:1::1 <<<"$table" &
  in_host "$WAN" python3 "$PEER" probe wan4a=203.0.113.10=203.0.113.1 wan4b=203.0.113.11=203.0.113.1 \
    wan6a=2001:db8:2::10=2001:db8:2::1 wan6b=2001:db8:2::11=2001:db8:2::1 <<<"$table" || wan=$?
  wait $! || lan=$?
  [ $lan$wan = 00 ]
}

@test "what each list of entries lets in, the gateway's own connections, those that stand" { sessions packets; }
