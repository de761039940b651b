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

@test "the start's files, the accelerator, what reaches the scripts" { sessions tunnels; }
