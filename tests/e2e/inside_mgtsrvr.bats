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
informs() { [ "$(cat $INFORMS)" = "$1" ]; }

# tell ID PATH...: as the port manager does. The module's messages are handled in order: an answer tells
# that all before it are through.
tell() {
  local path
  for path in "${@:2}"; do cfgcmd send sysmgr:mgtsrvr $1 --text "$path" || return; done
  cfgcmd refresh $SERVER
}
saved() { [ "$(cfgcmd get $SAVED)" = "$1" ]; }

@test "the saved list, informs by hand, the settings script" { sessions mgtsrvr; }

@test "notifications arrive whichever of publisher and daemon starts first" {
  connection TR069
  # The daemon was there first.
  cfgcmd publish portmgr:wan 0x100037 --text "$path"
  until_true saved "$path,"
  # The publisher is there first: its process runs before the daemon does, and after. What the
  # daemon asked for before is forgotten.
  gateway-daemon stop sysmgr
  rm -r /var/run/tds/notify
  mkfifo /tmp/requests
  cfgcmd batch </tmp/requests >/tmp/answers &
  publisher=$!
  exec 9>/tmp/requests
  echo "publish portmgr:wan 0x100038 --text nobody.hears.this" >&9
  answered() { [ "$(grep -cx ok /tmp/answers)" -eq "$1" ]; }
  until_true answered 1
  gateway-daemon start sysmgr 9>&-
  echo "publish portmgr:wan 0x100039 --text $path" >&9
  until_true saved ""
  # And once more after the daemon alone started anew.
  gateway-daemon restart sysmgr 9>&-
  echo "publish portmgr:wan 0x100037 --text $path" >&9
  until_true saved "$path,"
  exec 9>&-
  wait $publisher
  answered 3
}
