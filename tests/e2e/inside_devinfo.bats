#!/usr/bin/env bats
# shellcheck disable=SC2086,SC2030,SC2031 # the paths have no blanks; each test is a subshell
# The device-info module on the running gateway. Runs inside the sandbox.
load helpers

setup() { : >$CALLS; }

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
