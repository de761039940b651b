#!/usr/bin/env bats
# shellcheck disable=SC2086,SC2030,SC2031 # the paths have no blanks; each test is a subshell
# Boot types, what survives a restart, and starts that fail. Each test starts gateways of its own.
load helpers

setup() {
  state=$BATS_TEST_TMPDIR/state
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

@test "burnt image: its defaults, and then an ordinary restart keeps changes" {
  expect 0 "BURNT
86400
$ACS
admin
false" shown
  prepare 'nvram get "InternetGatewayDevice.DeviceInfo.X_KVO-UserChange"' | grep -q '^BurnImage$'
  expect 0 "" change
  expect 0 "BYHAND
86400
$ACS
changed
false" shown
}

@test "clean: factory defaults, the customer's over them, changes are gone" {
  change
  prepare 'nvram --area 2 set factoryType=clean && nvram --area 2 commit'
  expect 0 "FACTORY
43200
$CUSTOMER
admin
false" shown
}

@test "a backup is checked as a client's values are" {
  prepare "nvram --area 2 set factoryType=true && nvram --area 2 commit
    cat >/var/config/backup.conf" <<KEPT
$SERVICES.ServiceSNMP.SystemName=x\" ; touch /tmp/broken ; echo \"
$SERVICES.ServiceSNMP.SystemLocation=kept
$SERVICES.ServiceSNMP.Enable=maybe
$SERVICES.ServiceSNMP.TrapEnabled=2
KEPT
  expect 0 "gateway
kept
0
2
2" gateway bash -c "for leaf in SystemName SystemLocation Enable TrapEnabled; do cfgcmd get $SERVICES.ServiceSNMP.\$leaf; done
    grep -cE 'SNMP.(SystemName|Enable) passed over: .*(form \"text\"|type int)' /var/log/devkit/dbmgr.log"
}

@test "an invalid boot type: dbmgr says so and does not start" {
  prepare 'nvram --area 2 set factoryType=TRUE && nvram --area 2 commit'
  run gateway true
  [ "$status" -eq 1 ]
  [[ $output == *'dbmgr ended while it started'*'invalid boot type=0.'* ]] || fail "$output"
}

@test "sets, adds and deletes that were answered survive a crash of everything; numbers go on" {
  gateway bash -c "$CRASH
    cfgcmd add $USERS; cfgcmd add $USERS; cfgcmd add $FILES; cfgcmd del $USERS.2; cfgcmd del $FILES.1
    cfgcmd set $USERS.3.Username three $FILES.2.Name two
    cfgcmd sset $DEVICE.DeviceLog gone
    crash dbmgr; crash sysmgr"
  expect 0 "1,3
three
2
two

$USERS.4" gateway bash -c "cfgcmd list $USERS; cfgcmd get $USERS.3.Username; cfgcmd list $FILES; cfgcmd get $FILES.2.Name
    cfgcmd get $DEVICE.DeviceLog; cfgcmd add $USERS"
}

@test "damaged flash: the commit before is used, the file kept aside, a line says what is lost" {
  local flash=$state/nvram/area1 value
  gateway bash -c "cfgcmd set $DEVICE.ProvisioningCode before; cfgcmd set $DEVICE.ProvisioningCode last"
  value=$(grep -abo =last "$flash")
  printf '\377' | dd of="$flash" bs=1 seek=${value%%:*} conv=notrunc status=none
  cp "$flash" "$BATS_TEST_TMPDIR/damaged"
  run gateway bash -c "cfgcmd get $DEVICE.ProvisioningCode; grep -h ' 4 nvram: ' /var/log/devkit/*.log"
  [ "$status" -eq 0 ] && [ ${#lines[@]} -eq 2 ] && [ "${lines[0]}" = before ] || fail "$output"
  [[ ${lines[1]} == *'area1 is damaged (its checksum is wrong), kept as area1.bad.1; its last '*' bytes of changes are lost' ]] || fail "$output"
  cmp "$state/nvram/area1.bad.1" "$BATS_TEST_TMPDIR/damaged"
  expect 0 before gateway cfgcmd get $DEVICE.ProvisioningCode
}

@test "a tree of megabytes is answered whole, as lines and as JSON, and listed" {
  # shellcheck disable=SC2016
  run sandbox --bare -- bash -c '"$DEVKIT_SOURCE/bench/model" --rows 4 >/tmp/model.xml
    mount --bind /tmp/model.xml /etc/tr098_data_model.xml && gateway-daemon start dbmgr || exit
    cfgcmd get InternetGatewayDevice >/tmp/lines
    cfgcmd tree | awk "\$2 != \"object\" && \$2 != \"array\" { print \$1 }" >/tmp/leaves
    cut -d= -f1 /tmp/lines | cmp - /tmp/leaves
    cfgcmd --json get InternetGatewayDevice |
      python3 -c "import json, sys; [print(*leaf, sep=\"=\") for leaf in json.load(sys.stdin).items()]" |
      cmp - /tmp/lines
    stat -c "%s bytes" /tmp/lines; grep -c "" /tmp/lines
    gateway-daemon stop dbmgr'
  [ "$status" -eq 0 ] && [ ${#lines[@]} -eq 2 ] || fail "$output"
  [ "${lines[0]% bytes}" -gt 2000000 ] && [ "${lines[1]}" -eq 28993 ] || fail "$output"
}

@test "what the daemon itself sets is kept: the restore is asked for once, and stays done" {
  local enable=$DEVICE.X_CT-COM_Restore.Enable
  expect 0 "0
0" gateway bash -c "$CRASH
    cfgcmd set $enable 1; gateway-daemon restart sysmgr; cfgcmd get $enable
    crash dbmgr; gateway-daemon start dbmgr; cfgcmd get $enable
    crash dbmgr; crash sysmgr"
  expect 0 0 gateway cfgcmd get $enable
}

@test "what is to be told after the boot of a new image is on the flash before it" {
  local order=InternetGatewayDevice.X_TR69_Transfer.X_KVO_Download
  gateway bash -c "$CRASH
    image-server start desk s3cret && vermgtctl image /etc/passwd /var/www/fw.bin
    cfgcmd set $order.URL http://127.0.0.1/digest/fw.bin $order.Username desk $order.Password s3cret \
      $order.CommandKey key $order.FileType '1 Firmware Upgrade Image'
    timeout 120 sh -c 'until grep -qx /usr/sbin/reboot $CALLS; do sleep 0.05; done'
    crash dbmgr; crash sysmgr"
  expect 0 'BT  TC-key Dn-key' sandbox --state "$state" --bare -- nvram get Tr069strap
}

@test "what the daemon writes of the state is there when dbmgr alone restarts, and gone with the power" {
  local server=InternetGatewayDevice.ManagementServer show
  show="cfgcmd get $DEVICE.X_KVO_FWTime && cfgcmd get $SERVICES.VoiceService.1.VoiceProfile.1.DigitMap"
  gateway bash -c "$CRASH
    path=\$(cfgcmd add InternetGatewayDevice.WANDevice.1.WANConnectionDevice.1.WANIPConnection)
    cfgcmd set \$path.X_CT-COM_ServiceList TR069
    cfgcmd send sysmgr:mgtsrvr 0x100037 --text \$path
    cfgcmd refresh $server
    state() { $show && cfgcmd get $server.X_KVO_TR069WANSAVE | tr -d '\n'; echo; }
    state; crash dbmgr; gateway-daemon start dbmgr; state; crash dbmgr; crash sysmgr" >"$log"
  mapfile -t lines <"$log"
  [ ${#lines[@]} -eq 6 ] && [ -n "${lines[0]}" ] && [ -n "${lines[1]}" ] && [ -n "${lines[2]}" ] || fail "$(cat "$log")"
  [ "$(sed -n 1,3p "$log")" = "$(sed -n 4,6p "$log")" ] || fail "$(cat "$log")"
  expect 0 "${lines[0]}
${lines[1]}

end" gateway bash -c "$show && cfgcmd get $server.X_KVO_TR069WANSAVE && echo end"
}

@test "a full flash: what cannot be kept is refused, what was confirmed is there after the boot" {
  run sandbox --bare -- bash -c "$CRASH
    mount -t tmpfs -o size=16k tmpfs /var/nvram && gateway-daemon start dbmgr && gateway-daemon start sysmgr || exit 1
    value=$(printf '%200s' '' | tr ' ' v) refused=0
    for i in {1..30}; do
      row=\$(cfgcmd add $FILES) && cfgcmd set \$row.Name \$value\$i || : \$((++refused))
    done 2>/tmp/refusals
    [ \$refused -gt 0 ] && [ \$refused -lt 30 ] || exit 2
    grep -v 'sysmgr:devInfo refused .*sysmgr.log says why' /tmp/refusals && exit 3
    grep -q 'not changed: it cannot be kept' /var/log/devkit/sysmgr.log || exit 4
    cfgcmd get $FILES >/tmp/before
    crash sysmgr && crash dbmgr && rm -r /dev/shm/*
    gateway-daemon start dbmgr && gateway-daemon start sysmgr && cfgcmd get $FILES >/tmp/after && diff /tmp/before /tmp/after"
  [ "$status" -eq 0 ] || fail "$status $output"
}

@test "/dev/shm full: nobody is killed, writes are done or refused, and work at once when there is room" {
  run sandbox --bare -- bash -c "$CRASH
    mount -t tmpfs -o size=8m tmpfs /dev/shm && gateway-daemon start dbmgr && gateway-daemon start sysmgr || exit 1
    cfgcmd tree | awk '\$2 == \"string\" { print \$1 }' | head -n 200 >/tmp/leaves
    head -c 9M /dev/zero >/dev/shm/fill 2>/dev/null
    crash dbmgr && gateway-daemon start dbmgr || exit 2
    value=$(printf '%30000s' '' | tr ' ' v)
    while read -r leaf; do
      cfgcmd sset \$leaf \$value 2>>/tmp/told
      echo \$?
    done </tmp/leaves | sort | uniq -c | tr -s ' ' | tee /tmp/results
    [ \"\$(cut -d ' ' -f 3 /tmp/results | tr '\n' ' ')\" = '0 1 ' ] || exit 3
    grep -q 'while /dev/shm has room' /tmp/told || exit 4
    cfgcmd set $DEVICE.ProvisioningCode x || [ \$? -eq 1 ] || exit 5
    kill -0 \$(cat /var/run/devkit/dbmgr) \$(cat /var/run/devkit/sysmgr) || exit 6
    rm /dev/shm/fill
    tail -n 1 /tmp/leaves | { read -r leaf; cfgcmd sset \$leaf \$value; } || exit 7
    cfgcmd set $DEVICE.ProvisioningCode room && [ \"\$(cfgcmd get $DEVICE.ProvisioningCode)\" = room ]"
  [ "$status" -eq 0 ] || fail "$status $output"
}

@test "a data-model file that does not parse: file, line and reason, and no start" {
  run sandbox --bare -- bash -c 'mount --version >/dev/null
    sed "s/^<InternetGatewayDevice .*/<broken/" /etc/tr098_data_model.xml >/tmp/broken.xml
    mount --bind /tmp/broken.xml /etc/tr098_data_model.xml && gateway-daemon start dbmgr'
  [ "$status" -eq 1 ]
  [[ $output =~ \.xml:[0-9]+:\ .*[a-z] ]] || fail "$output"
  [[ $output == *'dbmgr: the data model did not load'* ]] || fail "$output"
}

@test "a daemon that does not come up is named, with the end of its log" {
  run sandbox --bare -- gateway-daemon start sysmgr
  [ "$status" -eq 1 ]
  [[ $output == *'sysmgr ended while it started; the end of'*'initShmPool failed'* ]] || fail "$output"
}

@test "who waits for a gateway that has not made the message bus yet, waits" {
  refused 3 'early is not there in time' sandbox --bare -- bash -c 'rmdir /var/run/tds && cfgcmd --timeout 0.1 wait early'
}

@test "values of any form are taken when they are to be trusted, as on the board" {
  sandbox --trust-values -- cfgcmd --calls set $SERVICES.ServiceWOL.MACAddr 1\;id >"$log"
  [ "$(cat "$log")" = '+ etherwake -i br0 -b 1;id &' ] || fail "$(cat "$log")"
}

@test "the status of the command is the sandbox's, and the tour passes" {
  run sandbox -- bash -c 'exit 7'
  [ "$status" -eq 7 ]
  run sandbox </dev/null
  [ "$status" -eq 0 ] || fail "$output"
  [[ $output == *'All of it did what it should.'* ]]
}
