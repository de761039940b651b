#!/usr/bin/env bats
# shellcheck disable=SC2086,SC2030,SC2031 # the paths have no blanks; each test is a subshell
# The device-info module on the running gateway. Runs inside the sandbox.
load helpers

setup() { : >$CALLS; }
teardown() { stub_reset; }

called() { grep -qxF -- "$1" $CALLS; }
calls_are() { [ "$(cat $CALLS)" = "$1" ] || fail "calls: $(cat $CALLS)"; }

@test "the start wrote the build time of the firmware and counts the seconds since" {
  expect 0 "$(sed 's/.*SMP //' /proc/version)" cfgcmd get $DEVICE.X_KVO_FWTime
  above() { [ "$(cfgcmd get $DEVICE.UpTime)" -gt "$1" ]; }
  until_true above 0 # a second after the start
  until_true above "$(cfgcmd get $DEVICE.UpTime)"
}

@test "the start runs the scripts of the device, in order of the table" {
  gateway-daemon restart sysmgr
  expect 0 '/usr/syscfg/alg.sh set
/usr/syscfg/miniupnpd.sh upnp_server
/usr/syscfg/miniupnpd.sh blacklist_init
/usr/syscfg/neigh/neigh.sh portal
/usr/syscfg/neigh/neigh.sh clilmt
/usr/syscfg/neigh/neigh.sh portal' grep -E 'alg|miniupnpd|neigh' $CALLS
}

@test "the start copies the MAC address of the basic settings" {
  nvram --area 2 set MAC=02:00:5e:00:53:01
  expect 0 "" cfgcmd get $DEVICE.MacAddress
  gateway-daemon restart sysmgr
  expect 0 02:00:5e:00:53:01 cfgcmd get $DEVICE.MacAddress
}

@test "a restore from USB is asked for once, for the first partition, and waits for the start" {
  usb=InternetGatewayDevice.X_CT-COM_USBDevice
  restored() { grep -c '^/usr/syscfg/backup.sh restore' $CALLS || true; }
  cfgcmd set $DEVICE.X_CT-COM_Restore.Enable 1
  gateway-daemon restart sysmgr
  expect 0 0 cfgcmd get $DEVICE.X_CT-COM_Restore.Enable
  # Nothing is plugged in: the timer comes and goes. Two refreshes of the up-time are later than it.
  for _ in 1 2; do
    cfgcmd sset $DEVICE.UpTime 0
    refreshed() { [ "$(cfgcmd get $DEVICE.UpTime)" -gt 0 ]; }
    until_true refreshed
  done
  expect 0 0 restored

  for mount in /mnt/usb1_1 /mnt/usb2_1; do
    storage=$(cfgcmd add $usb.Storage)
    partition=$(cfgcmd add $storage.Partitions)
    cfgcmd sset $partition.MountPoint $mount
  done
  cfgcmd set $DEVICE.X_CT-COM_Restore.Enable 1
  expect 0 0 restored
  gateway-daemon restart sysmgr
  until_true called '/usr/syscfg/backup.sh restore /mnt/usb1_1'
  expect 0 1 restored
}

@test "the switches for technicians start and stop once each" {
  manage=$DEVICE.X_CT-COM_ServiceManage
  expect 0 "+ xdsldiag_srv --port 9000 &" \
    cfgcmd --calls set $manage.X_KVO_DebugToolPort 9000 $manage.X_KVO_DebugToolEnable 1
  expect 0 "" cfgcmd --calls set $manage.X_KVO_DebugToolEnable 1
  expect 0 "+ xdsl_cli set -us0 on &
+ xdsl_cli set -1bit on &" cfgcmd --calls set $manage.X_KVO_OneBitEnable 1
  expect 0 "+ killall xdsldiag_srv" cfgcmd --calls set $manage.X_KVO_DebugToolEnable 0
  expect 0 "" cfgcmd --calls set $manage.X_KVO_DebugToolEnable 0
  until_true called '/usr/sbin/xdsldiag_srv --port 9000'
  until_true called '/usr/sbin/xdsl_cli set -1bit on'
  complaints() { grep -c 'oneBitEn true, is not a proper value.' /var/log/devkit/sysmgr.log || true; }
  before=$(complaints)
  expect 0 "" cfgcmd --calls set $manage.X_KVO_OneBitEnable true
  [ "$(complaints)" -eq $((before + 1)) ]
  expect 0 "+ xdsl_cli set -us0 off &
+ xdsl_cli set -1bit off &" cfgcmd --calls set $manage.X_KVO_OneBitEnable 0
}

@test "UPnP and its black list" {
  upnp=$DEVICE.X_CT-COM_UPNP
  cfgcmd set $upnp.Enable 1
  calls_are '/usr/syscfg/miniupnpd.sh remove
/usr/syscfg/miniupnpd.sh upnp_server
/usr/syscfg/miniupnpd.sh blacklist_init'
  : >$CALLS
  host=$(cfgcmd add $upnp.X_KVO_BlackList)
  number=${host##*.}
  cfgcmd set $host.IPAddress 192.168.1.66
  cfgcmd del $host
  calls_are "/usr/syscfg/miniupnpd.sh blacklist_add $number
/usr/syscfg/miniupnpd.sh blacklist_set $host
/usr/syscfg/miniupnpd.sh blacklist_del $number"
  : >$CALLS
  cfgcmd get $upnp.X_KVO_BlackListNum
  calls_are '/usr/syscfg/miniupnpd.sh blacklist_num'
}

@test "scripts of the portal, the client limit, the gateways of the translation and the upload" {
  cfgcmd set $DEVICE.X_CT-COM_PortalManagement.Enable 1
  cfgcmd set $SERVICES.X_CT-COM_MWBAND.Mode 1
  cfgcmd set $DEVICE.X_CT-COM_ALGAbility.H323Enable 1
  calls_are '/usr/syscfg/neigh/neigh.sh portal
/usr/syscfg/neigh/neigh.sh clilmt
/usr/syscfg/alg.sh set'
  cfgcmd set InternetGatewayDevice.X_TR69_Transfer.X_KVO_Upload.FileType '1 Vendor Configuration File'
  until_true called '/usr/syscfg/tr069_proc.sh Upload'
  cfgcmd set $DEVICE.X_CT-COM_TeleComAccount.Enable 0
  until_true called '/usr/sbin/uhttpd -f -p :80 -h /www'
}

@test "reading the loads has their scripts write them" {
  total=$(sed -n 's/^MemTotal: *\([0-9]*\) kB/\1/p' /proc/meminfo)
  cfgcmd sset $DEVICE.MemoryStatus.Total 1
  expect 0 "$total" cfgcmd get $DEVICE.MemoryStatus.Total
  free=$(cfgcmd get $DEVICE.MemoryStatus | sed -n 's/.*Free=//p')
  [ "$free" -gt 0 ]
  [ "$free" -le "$total" ]
  cfgcmd sset $DEVICE.ProcessStatus.CPUUsage 101
  # A second look may come before the next tick of the clock: then the value stands.
  measured() { [ "$(cfgcmd get $DEVICE.ProcessStatus.CPUUsage)" -le 100 ]; }
  until_true measured
  called "/usr/syscfg/memoryState.sh path=$DEVICE.MemoryStatus"
  called "/usr/syscfg/cpuState.sh path=$DEVICE.ProcessStatus"
}

@test "the log service is told that its settings changed" {
  cfgcmd listen utils:logmgt 1 >"$BATS_TEST_TMPDIR/log" 3>&- &
  listener=$!
  cfgcmd wait utils:logmgt
  cfgcmd set $DEVICE.X_CT-COM_Syslog.Level 4
  wait $listener
  expect 0 'sysmgr:devInfo 0x100021 11 FuncLogger' cat "$BATS_TEST_TMPDIR/log"
  # Without the service the settings are taken all the same.
  expect 0 "" cfgcmd set $DEVICE.X_CT-COM_Syslog.Level 3
}
