#!/usr/bin/env bats
# shellcheck disable=SC2086,SC2030,SC2031 # the paths have no blanks; each test is a subshell
# From a parameter to what really happens on the system. Runs inside the sandbox.
load helpers

teardown() { release; }

@test "the start, a change of a user" { sessions services; }

@test "a busy module delays nobody else, and its own requests come in order" {
  cfgcmd set $SERVICES.ServiceIPSLA.Enable 0 # enabled, "stop" is waited for
  hold ipsla.sh
  (cfgcmd set $SERVICES.ServiceIPSLA.Enable 1; : >"$BATS_TEST_TMPDIR/through") 3>&- &
  slow=$!
  until_true grep -q '^/usr/syscfg/ipsla.sh stop$' $COMMANDS
  cfgcmd get $DEVICE.UpTime
  cfgcmd get InternetGatewayDevice.ManagementServer.URL
  cfgcmd get InternetGatewayDevice.LANDevice
  refused 3 'no answer in 50 ms' cfgcmd --timeout 0.05 get $SERVICES.ServiceTelnet.Enable
  [ ! -e "$BATS_TEST_TMPDIR/through" ]
  # This one waits its turn behind it.
  let_go
  expect 0 1 cfgcmd get $SERVICES.X_CT-COM_IPTV.IGMPEnable
  wait $slow
}

@test "the answer to a client that gave up goes to nobody else" {
  cfgcmd set $SERVICES.ServiceVRRP.Enable 0
  hold vrrp.sh
  (cfgcmd set $SERVICES.ServiceVRRP.Enable 1) 3>&- &
  slow=$!
  until_true grep -q '^/usr/syscfg/vrrp.sh stop$' $COMMANDS
  refused 3 'no answer' cfgcmd --timeout 0.05 get $SERVICES.ServiceDLNA.Enable
  let_go
  expect 0 1 cfgcmd get $SERVICES.X_CT-COM_IPTV.IGMPEnable
  wait $slow
}
