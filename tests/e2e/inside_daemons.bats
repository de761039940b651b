#!/usr/bin/env bats
# shellcheck disable=SC2086,SC2030,SC2031,SC2034 # the paths have no blanks; each test is a subshell; sessions use them
# The network daemons: real servers answer real clients, as their parameters say. Runs inside the
# sandbox.
load helpers

setup() { : >$CALLS; }

calls() { grep -cxF -- "$1" $CALLS || true; }
gone() { ! pgrep -x "$1" >/dev/null; }
# runs NAME COUNT
runs() { [ "$(pgrep -cx "$1")" -eq "$2" ]; }

# ---- SSH ----

readonly HOST_KEY=/var/dropbear/rsa_host_key
# The host key that a client gets in the key exchange on a port; empty without a server.
offered_key() { ssh-keyscan -T 5 -t rsa -p "$1" 127.0.0.1 2>/dev/null | cut -d ' ' -f 2-; }
offers() { [ "$(offered_key "$1")" = "$2" ]; }
# A client that knows the host key comes as far as the password.
asks_for_password() {
  local said
  mkdir -p /var/home/.ssh
  echo "gateway $2" >/var/home/.ssh/known_hosts
  said=$(ssh -v -p $1 -o BatchMode=yes -o HostKeyAlias=gateway \
    -o UserKnownHostsFile=/var/home/.ssh/known_hosts root@127.0.0.1 true 2>&1)
  [ $? -eq 255 ] && [[ $said == *"remote software version dropbear"* &&
    $said == *"Authentications that can continue:"*"Permission denied"* ]] || fail "$said"
}

# ---- Telnet ----

# The management shell was started as often, by telnet's clients.
shells() { [ "$(calls /usr/sbin/ams_cli)" -eq "$1" ]; }

@test "a server that is started anew gets its port each time" {
  server='' before=''
  renewed() { server=$(pgrep -x telnetd) && [[ $server =~ ^[0-9]+$ && $server != "$before" ]]; }
  cfgcmd set $SERVICES.ServiceTelnet.Port 2325
  for _ in {1..60}; do
    before=$server
    cfgcmd set $SERVICES.ServiceTelnet.Enable 1
    until_true renewed
    until_true listens 2325 1
  done
  cfgcmd set $SERVICES.ServiceTelnet.Enable 0
}

# ---- SNMP ----

readonly SNMP_CONFIG=/var/snmpd.conf SNMP=$SERVICES.ServiceSNMP
export MIBS= # the clients need no names, and Debian lacks most of their files
# The agent's answer: query COMMUNITY OID (below 1.3.6.1.2.1.1); silent: to who gets none.
query() { snmpget -v 2c -r 0 -t "${limit:-60}" -Oqv -c "$1" 127.0.0.1 1.3.6.1.2.1.1.$2; }
silent() { limit=1 query "$@"; }
answers() { [ "$(silent "$1" "$2" 2>/dev/null)" = "\"$3\"" ]; }
write() { snmpset -v 2c -r 0 -t 60 -Oqv -c "$1" 127.0.0.1 1.3.6.1.2.1.1.5.0 s other; }

# ---- Samba ----

readonly SAMBA=$SERVICES.ServiceSamba WAN_NAME=InternetGatewayDevice.ManagementServer.X_KVO_TR069WANIFNAME
applies() { calls '/usr/syscfg/media.sh samba'; }
applied() { [ "$(applies)" -ge "$1" ]; }
# What the kernel has for an interface, in its order.
holes() { for table in filter nat; do iptables -t $table -S | grep -e "-i $1 " || true; done; }

@test "servers of real clients" { sessions daemons; }

@test "holes in the packet filter" {
  needs_filter
  sessions daemons_filter
}
