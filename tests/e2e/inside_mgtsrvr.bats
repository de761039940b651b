#!/usr/bin/env bats
# The management server: the connections that the port manager tells of, the inform states, informs
# by hand. Runs inside the sandbox.
load helpers

readonly SERVER=InternetGatewayDevice.ManagementServer INFORMS=/var/log/devkit/informs
readonly SAVED=$SERVER.X_KVO_TR069WANSAVE
readonly DEVICES=InternetGatewayDevice.WANDevice.1.WANConnectionDevice

setup() {
  : >$CALLS
  : >$INFORMS
  cfgcmd sset $SAVED ''
  cfgcmd sset $SERVER.X_KVO-SucessFlag 0
}

# A new connection with these services; its path is in $path.
connection() {
  path=$(cfgcmd add $DEVICES.1.WANIPConnection)
  cfgcmd set "$path.X_CT-COM_ServiceList" "$1"
}
answered() { [ "$(grep -cx ok /tmp/answers)" -eq "$1" ]; }
informs() { [ "$(cat $INFORMS)" = "$1" ]; }

# tell ID PATH...: as the port manager does. The module's messages are handled in order: an answer tells
# that all before it are through.
tell() {
  local path
  for path in "${@:2}"; do cfgcmd send sysmgr:mgtsrvr $1 --text "$path" || return; done
  cfgcmd refresh $SERVER
}
saved() { [ "$(cfgcmd get $SAVED)" = "$1" ]; }

@test "the saved list, who starts first, informs by hand, the settings script" { sessions mgtsrvr; }
