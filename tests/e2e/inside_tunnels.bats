#!/usr/bin/env bats
# shellcheck disable=SC2086,SC2030,SC2031 # the paths have no blanks; each test is a subshell
# Tunnels and the rate limit: their scripts, and the poll of the IPsec peers with a real name server.
# Runs inside the sandbox.
load helpers

readonly IPSEC=$SERVICES.X_KVO_IPSec
readonly TUNNELS=$IPSEC.TunnelList RACOON=/var/ipsec/racoon.conf

setup() { mark=$(wc -l <$COMMANDS); }
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

@test "the poll applies a tunnel whose peer's name has another address, while there are rows" {
  name-server a.example=192.0.2.1
  in_use 192.0.2.1
  tunnel=$(cfgcmd add $TUNNELS)
  row=${tunnel##*.}
  cfgcmd set $tunnel.RemoteGatewayAddress a.example
  [ "$(applies $row)" -eq 1 ]
  after_passes $row 2
  expect 0 0 applies $row
  [ "$(resolves a.example)" -ge 2 ]

  name-server a.example=192.0.2.22
  after_passes $row 1 # the pass in which it changes
  after_passes $row 3
  # Between two looks at the row stands one apply.
  order=$(since | sed -n "s/.*ipsec_cfg.sh \([gs]\)et .*/\1/p" | tr -d '\n')
  [[ $order =~ ^s?(gs)+g?$ ]] || fail "$order"
  in_use 192.0.2.22 # as the script would do
  after_passes $row 1
  after_passes $row 2
  expect 0 0 applies $row

  # The last row's end stops the poll. The module is busy for longer than the poll's period, then
  # takes what has come meanwhile.
  cfgcmd del $tunnel
  quiet=$(wc -l <$COMMANDS)
  stub_sleep led.sh 1
  cfgcmd set InternetGatewayDevice.X_CT-COM_UserInfo.Result 1
  cfgcmd refresh $SERVICES.ServiceTelnet
  expect 0 '/usr/syscfg/led.sh internet_wan on 1' tail -n "+$((quiet + 1))" $COMMANDS
}

@test "the accelerator is switched on and off" {
  accelerate=$IPSEC.X_KVO_IPSec_Hardware_Accelate_Enable
  expect 0 '+ insmod /lib/ko/hi_kipsec.ko
+ cs_cli /home/cli/api/ipsec/enable' cfgcmd --calls set $accelerate 1
  expect 0 '+ cs_cli /home/cli/api/ipsec/disable
+ rmmod hi_kipsec >/dev/null 2>&1' cfgcmd --calls set $accelerate 0
}

@test "the start makes the run-time files" {
  for file in /var/ipsec/Dbg /var/racoon /var/.ipgre /var/.l2tp/lns/user_db /tmp/.chap-secrets \
    /tmp/.pap-secrets /var/vpnlite /var/.bw_limit; do
    [ -e $file ] || fail "no $file"
  done
}

@test "tunnels and limits: rows that come, change and go reach their script" {
  : >$CALLS
  called() { grep -qxF -- "/usr/syscfg/$1" $CALLS; }
  lac=$(cfgcmd add $SERVICES.X_KVO_L2TP.Lac)
  cfgcmd set $lac.ServerAddress lns.example $lac.Enable 1
  until_true called "l2tp_cfg.sh action=set tnllist=$lac"
  expect 0 "$lac.Stats.BytesSent=0
$lac.Stats.BytesReceived=0
+ /usr/syscfg/l2tp_cfg.sh action=\"stats\" tnllist=\"$lac.Stats\" " cfgcmd --calls get $lac.Stats
  called "l2tp_cfg.sh action=stats tnllist=$lac.Stats"
  cfgcmd del $lac
  until_true called "l2tp_cfg.sh action=del tnllist=$lac"

  user=$(cfgcmd add $SERVICES.X_KVO_L2TP.Lns.UserList)
  until_true called "l2tp_cfg.sh action=addu tnllist=$user"
  gre=$(cfgcmd add $SERVICES.X_KVO_GRE.TunnelList)
  cfgcmd set $gre.Enable 1
  until_true called "ipgre_cfg.sh action=set tnllist=$gre"
  cfgcmd set $SERVICES.X_KVO_VpnLite.Enable 1
  until_true called "vpnlite_cfg.sh action=set"
  route=$(cfgcmd add $SERVICES.X_KVO_VpnLite.RouteList)
  until_true called "vpnlite_cfg.sh action=route_add routelist=$route"
  cfgcmd set $SERVICES.X_KVO_RateLimit.PerPort.2.UpRate 512
  until_true called "bw_limit.sh action=set rulelist=$SERVICES.X_KVO_RateLimit.PerPort.2"
  limit=$(cfgcmd add $SERVICES.X_KVO_RateLimit.PerIP)
  until_true called "bw_limit.sh action=add rulelist=$limit"
  cfgcmd del $limit
  until_true called "bw_limit.sh action=del rulelist=$limit"
}
