#!/usr/bin/env bats
# shellcheck disable=SC2086,SC2030,SC2031 # the paths have no blanks; each test is a subshell
# The network daemons: real servers answer real clients, as their parameters say. Runs inside the
# sandbox.
load helpers

setup() { : >$CALLS; }

called() { grep -qxF -- "$1" $CALLS; }
calls() { grep -cxF -- "$1" $CALLS || true; }
gone() { ! pgrep -x "$1" >/dev/null; }

# ---- SSH ----

readonly HOST_KEY=/var/dropbear/rsa_host_key
# The host key that a client gets in the key exchange on a port; empty without a server.
offered_key() { ssh-keyscan -T 5 -t rsa -p "$1" 127.0.0.1 2>/dev/null | cut -d ' ' -f 2-; }
offers() { [ "$(offered_key "$1")" = "$2" ]; }

@test "the start makes the host key of ssh once, whether ssh is on or off" {
  expect 0 0 cfgcmd get $SERVICES.ServiceSSH.Enable
  expect 0 600 stat -c %a $HOST_KEY
  first=$(cksum <$HOST_KEY)
  made() { grep -cx "dropbearkey -t rsa -f $HOST_KEY" $COMMANDS; }
  before=$(made)
  gateway-daemon restart sysmgr
  expect 0 $((before + 1)) made
  expect 0 "$first" cksum <$HOST_KEY
}

# runs NAME COUNT
runs() { [ "$(pgrep -cx "$1")" -eq "$2" ]; }

@test "one ssh server answers on all of its ports with the host key; off closes them" {
  key=$(dropbearkey -y -f $HOST_KEY | sed -n 's/^\(ssh-rsa [^ ]*\).*/\1/p')
  [ -n "$key" ]
  cfgcmd set $SERVICES.ServiceSSH.Port 2222,2223,0
  expect 0 "+ killall dropbear >/dev/null 2>&1
+ dropbear -r $HOST_KEY  -p 2222  -p 2223  -p 22 " cfgcmd --calls set $SERVICES.ServiceSSH.Enable 1
  for port in 2222 2223 22; do until_true offers $port "$key"; done
  # Those that served the questions are on their way out.
  until_true runs dropbear 1
  # A client that knows the host key comes as far as the password.
  mkdir -p /var/home/.ssh
  for port in 2222 2223 22; do
    echo "gateway $key" >/var/home/.ssh/known_hosts
    run ssh -v -p $port -o BatchMode=yes -o HostKeyAlias=gateway \
      -o UserKnownHostsFile=/var/home/.ssh/known_hosts root@127.0.0.1 true
    [ "$status" -eq 255 ] && [[ $output == *"remote software version dropbear"* ]] || fail "$output"
    [[ $output == *"Authentications that can continue:"*"Permission denied"* ]] || fail "$output"
  done

  cfgcmd set $SERVICES.ServiceSSH.Port 2224
  until_true offers 2224 "$key"
  until_true listens 2222 0
  expect 0 "+ killall dropbear >/dev/null 2>&1" cfgcmd --calls set $SERVICES.ServiceSSH.Enable 0
  until_true gone dropbear
  until_true listens 2224 0
}

# ---- Telnet ----

@test "telnet on opens its ports, each with the management shell; off closes them" {
  expect 0 "" cfgcmd set $SERVICES.ServiceTelnet.Port 2323,2324
  expect 0 "+ killall telnetd >/dev/null 2>&1
+ telnetd -l /usr/sbin/ams_cli -p 2323 &
+ telnetd -l /usr/sbin/ams_cli -p 2324 &" cfgcmd --calls set $SERVICES.ServiceTelnet.Enable 1
  sessions() { [ "$(calls /usr/sbin/ams_cli)" -eq "$1" ]; }
  started=0
  for port in 2323 2324; do
    until_true listens $port 1
    exec 9<>/dev/tcp/127.0.0.1/$port
    started=$((started + 1))
    until_true sessions $started
    exec 9>&-
  done
  expect 0 "+ killall telnetd >/dev/null 2>&1" cfgcmd --calls set $SERVICES.ServiceTelnet.Enable 0
  until_true listens 2323 0
  until_true listens 2324 0
  expect 0 "" cfgcmd --calls set $SERVICES.ServiceTelnet.Enable 2
}

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
# The agent's answer: query COMMUNITY OID (below 1.3.6.1.2.1.1).
query() { snmpget -v 2c -r 0 -t 1 -Oqv -c "$1" 127.0.0.1 1.3.6.1.2.1.1.$2; }
answers() { [ "$(query "$1" "$2" 2>/dev/null)" = "\"$3\"" ]; }
# The configuration has to be these lines, to the byte.
configuration_is() { printf '%s\n' "$@" | cmp - $SNMP_CONFIG; }

@test "the snmp agent answers with the names, to the communities of the parameters, until it is off" {
  cfgcmd set $SNMP.Port 1161 $SNMP.SystemName gw-7 $SNMP.SystemContact ops@a.example \
    $SNMP.SystemLocation 'rack 3' $SNMP.PublicCommunity look $SNMP.PrivateCommunity touch
  cfgcmd set $SNMP.Enable 1
  configuration_is 'agentAddress udp:161' 'sysservices 79' 'psysname gw-7' \
    'psyscontact ops@a.example' 'psyslocation rack 3' 'rwcommunity touch' 'rocommunity look' \
    'view read_wr included .1 '
  until_true answers look 5.0 gw-7
  called "/usr/sbin/snmpd -f -q -I -C -c $SNMP_CONFIG -Lf /dev/null -p /var/snmpd.pid"
  expect 0 "$(pgrep -x snmpd)" cat /var/snmpd.pid
  expect 0 '"ops@a.example"' query look 4.0
  expect 0 '"rack 3"' query touch 6.0
  expect 0 79 query look 7.0
  expect 1 'Timeout: No Response from 127.0.0.1.' query wrong 5.0
  # Who may read may not write.
  write() { snmpset -v 2c -r 0 -t 5 -Oqv -c "$1" 127.0.0.1 1.3.6.1.2.1.1.5.0 s other; }
  run write look
  [ "$status" -ne 0 ] && [[ $output == *noAccess* ]] || fail "$output"
  expect 0 '"other"' write touch
  # A change starts the agent anew; off stops it and removes its file.
  cfgcmd set $SNMP.SystemName gw-8 $SNMP.PublicCommunity see
  until_true answers see 5.0 gw-8
  expect 1 'Timeout: No Response from 127.0.0.1.' query look 5.0
  expect 0 "+ killall snmpd >/dev/null 2>&1
+ rm $SNMP_CONFIG >/dev/null 2>&1" cfgcmd --calls set $SNMP.Enable 0
  until_true gone snmpd
  [ ! -e $SNMP_CONFIG ]
  expect 1 'Timeout: No Response from 127.0.0.1.' query see 5.0
}

# ---- printer, TFTP, FTP ----

@test "the programs and scripts of printer, tftp and ftp get their parameters" {
  cfgcmd set $SERVICES.X_KVO-ServicePrinter.QueueName laser
  cfgcmd set $SERVICES.X_KVO-ServicePrinter.Enabled 1
  called '/usr/sbin/lpdsrv -n 192.168.1 -o /dev/lp0 -r laser:/dev/lp0'
  cfgcmd set $SERVICES.ServiceTFTP.Port 69,6969
  cfgcmd set $SERVICES.ServiceTFTP.Enable 1
  until_true called '/usr/sbin/tftpd-hpa -lc -s /mnt -P 69'
  until_true called '/usr/sbin/tftpd-hpa -lc -s /mnt -P 6969'
  # A folder that is not there: a set takes it, the next start does not.
  cfgcmd set $SERVICES.ServiceFTP.RootDIR /none $SERVICES.ServiceFTP.Enable 1
  until_true called '/usr/syscfg/vsftpd.sh /none 21'
  gateway-daemon restart sysmgr
  until_true called '/usr/syscfg/vsftpd.sh /mnt 21'
  expect 0 "+ killall -q vsftpd" cfgcmd --calls set $SERVICES.ServiceFTP.Enable 0
}

# ---- Samba ----

applies() { calls '/usr/syscfg/media.sh samba'; }
applied() { [ "$(applies)" -ge "$1" ]; }
# What the kernel has for an interface, in its order.
holes() { for table in filter nat; do iptables -t $table -S | grep -e "-i $1 " || true; done; }
# The holes that Samba needs.
samba_holes() {
  local chain port
  for chain in INPUT PREROUTING; do
    for port in 'tcp 139' 'tcp 389' 'tcp 901' 'tcp 445' 'udp 137' 'udp 138'; do
      printf -- '-A %s -i %s -p %s -m %s --dport %s -j ACCEPT\n' $chain "$1" ${port% *} ${port% *} ${port#* }
    done
  done
}

@test "samba opens its holes once, however often it is applied, and closes them" {
  needs_filter
  cfgcmd set InternetGatewayDevice.ManagementServer.X_KVO_TR069WANIFNAME ppp0
  want=$(samba_holes ppp0)
  for times in 1 2 3 4 5; do
    cfgcmd set $SERVICES.ServiceSamba.Enable 1
    until_true applied $times
    expect 0 "$want" holes ppp0
  done
  expect 0 5 applies
  # The management connection moves: the holes follow it, and close where they are.
  cfgcmd set InternetGatewayDevice.ManagementServer.X_KVO_TR069WANIFNAME ppp1
  cfgcmd set $SERVICES.ServiceSamba.Enable 1
  until_true applied 6
  expect 0 "" holes ppp0
  expect 0 "$(samba_holes ppp1)" holes ppp1
  cfgcmd set InternetGatewayDevice.ManagementServer.X_KVO_TR069WANIFNAME ppp2
  stops=$(grep -c '^killall -q smbd$' $COMMANDS || true)
  cfgcmd set $SERVICES.ServiceSamba.Enable 0
  stopped() { [ "$(grep -c '^killall -q smbd$' $COMMANDS)" -gt "$stops" ]; }
  until_true stopped
  for interface in ppp0 ppp1 ppp2; do expect 0 "" holes $interface; done
}
