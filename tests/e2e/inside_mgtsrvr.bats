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

added() { cfgcmd send sysmgr:mgtsrvr 0x100037 "$@"; }
changed() { cfgcmd send sysmgr:mgtsrvr 0x100038 "$@"; }
removed() { cfgcmd send sysmgr:mgtsrvr 0x100039 "$@"; }
saved() { [ "$(cfgcmd get $SAVED)" = "$1" ]; }

# The module's messages are handled in order: an answer tells that all before it are through.
settled() { cfgcmd refresh $SERVER >/dev/null; }

@test "the saved list follows the port manager's messages, and a restart of the daemon keeps it" {
  connection TR069,INTERNET && a=$path
  connection INTERNET,TR069 && b=$path
  connection VOIP && other=$path
  added --text "$a"
  added --text "$b"
  added --text "$b"
  added --text "$other"
  settled
  saved "$b,$a,"
  gateway-daemon restart sysmgr
  saved "$b,$a,"

  cfgcmd set "$a.X_CT-COM_ServiceList" INTERNET "$other.X_CT-COM_ServiceList" VOIP,TR069
  changed --text "$a"
  changed --text "$other"
  settled
  saved "$other,$b,"

  removed --text "$a" # not there: nothing is written
  removed --text "$b"
  removed --text "$other"
  settled
  saved ""
}

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

@test "informs by hand and the settings script" {
  informs() { [ "$(cat $INFORMS)" = "$1" ]; }
  expect 0 '+ /usr/sbin/cfgcmd manully_inform EV MI X_CT-COM_ManualInform &' \
    cfgcmd --calls set $SERVER.X_CT-COM_ManualInform 1
  until_true informs 'manully_inform EV MI X_CT-COM_ManualInform'
  # A read works out why the server cannot be reached.
  expect 0 1 cfgcmd get $SERVER.X_CT-COM_ManualInformState
  expect 0 1 cfgcmd get $SERVER.X_CT-COM_InformState
  cfgcmd sset $SERVER.X_KVO-SucessFlag 1
  expect 0 11 cfgcmd get $SERVER.X_CT-COM_InformState
  : >$INFORMS
  cfgcmd set $SERVER.X_CT-COM_MaintainComplete 1
  until_true informs 'manully_inform EV AC X_CT-COM_MaintainComplete'
  for leaf in 'X_CT-COM_ManualInform 0' 'PeriodicInformInterval 600'; do
    # shellcheck disable=SC2086 # a name and a value
    expect 0 '+ /usr/syscfg/tr069.sh set' cfgcmd --calls set $SERVER.$leaf
  done
}
