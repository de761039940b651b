#!/usr/bin/env bats
# shellcheck disable=SC2086,SC2030,SC2031 # the paths have no blanks; each test is a subshell
# From a parameter to what really happens on the system. Runs inside the sandbox.
load helpers

# hold SCRIPT: it stands until the end of the test, or until it is let go.
hold() {
  held=/usr/syscfg/$1
  rm -f /tmp/go $held
  printf '#!/bin/sh\nuntil [ -e /tmp/go ]; do sleep 0.02; done\n' >$held
  chmod +x $held
}
let_go() { touch /tmp/go; }

teardown() {
  let_go
  [ -z "${held:-}" ] || ln -sf "$DEVKIT_BUILD/bin/stub" $held
}

# Samba's apply ends with these; it comes a timer's period after the change.
samba_stops() { grep -c '^killall -q smbd$' $COMMANDS || true; }
samba_stopped_after() { [ "$(samba_stops)" -gt "$1" ]; }

@test "the start ran the scripts of the enabled services, in order of the table" {
  grep -q '^/usr/syscfg/alg.sh set$' $COMMANDS
  order=$(grep -n -e conn_recovery.sh -e dongle_wan_keep.sh -e status_updater.sh $COMMANDS | grep -v killall | sed 's/^[0-9]*://')
  [ "$order" = '/usr/syscfg/conn_recovery.sh 1 &
/usr/syscfg/conn_recovery.sh 2 &
/usr/syscfg/dongle_wan_keep.sh &
/usr/syscfg/status_updater.sh &' ] || fail "$order"
}

@test "a change of a user restarts the web server and re-applies samba" {
  stops=$(samba_stops)
  expect 0 "+ /usr/syscfg/httpd.sh restart &" cfgcmd --calls set $USERS.1.Password secret
  expect 0 1 cfgcmd get $DEVICE.X_KVO-RestartWeb
  until_true samba_stopped_after "$stops"
}

@test "a busy module delays nobody else, and its own requests come in order" {
  cfgcmd set $SERVICES.ServiceIPSLA.Enable 0 # enabled, "stop" is waited for
  hold ipsla.sh
  (cfgcmd --timeout 60 set $SERVICES.ServiceIPSLA.Enable 1; : >"$BATS_TEST_TMPDIR/through") 3>&- &
  slow=$!
  until_true grep -q '^/usr/syscfg/ipsla.sh stop$' $COMMANDS
  cfgcmd get $DEVICE.UpTime
  cfgcmd get InternetGatewayDevice.ManagementServer.URL
  cfgcmd get InternetGatewayDevice.LANDevice
  refused 3 'no answer in 50 ms' cfgcmd --timeout 0.05 get $SERVICES.ServiceTelnet.Enable
  [ ! -e "$BATS_TEST_TMPDIR/through" ]
  # This one waits its turn behind it.
  let_go
  expect 0 1 cfgcmd --timeout 60 get $SERVICES.X_CT-COM_IPTV.IGMPEnable
  wait $slow
}

@test "the answer to a client that gave up goes to nobody else" {
  cfgcmd set $SERVICES.ServiceVRRP.Enable 0
  hold vrrp.sh
  (cfgcmd --timeout 60 set $SERVICES.ServiceVRRP.Enable 1) 3>&- &
  slow=$!
  until_true grep -q '^/usr/syscfg/vrrp.sh stop$' $COMMANDS
  refused 3 'no answer' cfgcmd --timeout 0.05 get $SERVICES.ServiceDLNA.Enable
  let_go
  expect 0 1 cfgcmd --timeout 60 get $SERVICES.X_CT-COM_IPTV.IGMPEnable
  wait $slow
}
