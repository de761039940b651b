#!/usr/bin/env bats
# The device-info module on the running gateway. Runs inside the sandbox.
load helpers

setup() { : >$CALLS; }

above() { [ "$(cfgcmd get $DEVICE.UpTime)" -gt "$1" ]; }
# A second look at the load may come before the next tick of the clock: then the value stands.
measured() { [ "$(cfgcmd get $DEVICE.ProcessStatus.CPUUsage)" -le 100 ]; }

@test "the start, UPnP, the loads" { sessions devinfo; }
