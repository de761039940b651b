#!/usr/bin/env bats
# shellcheck disable=SC2034,SC2086 # sessions use them; the paths have no blanks
# Boot types, what survives a restart, and starts that fail. Each session starts gateways of its own.
load helpers

setup() {
  state=$(mktemp -d "$BATS_TEST_TMPDIR/state.XXXX")
  log=$BATS_TEST_TMPDIR/log
}

sandbox() { "$BATS_TEST_DIRNAME/../../devkit/sandbox" --build "$GATEWAY_BUILD" "$@"; }
# Commands inside the gateway, with settings that are kept in $state.
gateway() { sandbox --state "$state" -- "$@"; }
# The same before the gateway is started.
prepare() { sandbox --state "$state" --bare -- bash -c "$1"; }

# What a boot type shows: provisioning code, inform interval, server, and a change by hand.
shown() {
  gateway bash -c "cfgcmd get $DEVICE.ProvisioningCode
    cfgcmd get InternetGatewayDevice.ManagementServer.PeriodicInformInterval
    cfgcmd get InternetGatewayDevice.ManagementServer.URL
    cfgcmd get $USERS.1.Username
    nvram --area 2 get factoryType"
}

change() { gateway cfgcmd set $USERS.1.Username changed $DEVICE.ProvisioningCode BYHAND; }

# For the shell inside. crash NAME: the daemon ends as in a crash.
# shellcheck disable=SC2016
readonly CRASH='crash() { local pid; pid=$(cat /var/run/devkit/$1); kill -9 "$pid"; tail --pid="$pid" -s 0.05 -f /dev/null; }'

readonly ACS=http://acs.example.com:7547/acs CUSTOMER=http://acs.example.net:7547/acs

@test "boot types, restarts, damage, what is full, starts that fail" { sessions start; }
