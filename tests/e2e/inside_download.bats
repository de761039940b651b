#!/usr/bin/env bats
# shellcheck disable=SC2086,SC2030,SC2031 # the paths have no blanks; each test is a subshell
# Ordered downloads from the server to the flash: fields, settings, informs and command lines of
# every outcome. Runs inside the sandbox.
load helpers

readonly ORDER=InternetGatewayDevice.X_TR69_Transfer.X_KVO_Download
readonly INFORMS=/var/log/devkit/informs FLASHED=/var/persist/firmware WEB=http://127.0.0.1
readonly IMAGE='1 Firmware Upgrade Image' TOLD=cfgcmd\ manully_inform
readonly PRE=/usr/syscfg/project_pre_tr069_download.sh POST=/usr/syscfg/project_post_tr069_upgrade.sh
readonly DROP='sync;echo 3 >/proc/sys/vm/drop_caches' FREE="free | grep Mem | awk '{print \$4}'"

setup_file() {
  ln -s "$DEVKIT_BUILD/bin/stub" /usr/sbin/free # before the real one on the PATH
  image-server start desk s3cret
  printf 'firmware %s\n' {1..20000} >/tmp/content
  vermgtctl image /tmp/content /var/www/fw.bin
  sed 's/firmware 19999/firmware 1999!/' /var/www/fw.bin >/var/www/damaged.bin
  # The last that the start runs.
  until_true grep -q '^killall -q smbd$' $COMMANDS
}

teardown_file() {
  image-server stop
  rm /usr/sbin/free
}

# A version manager that never gives up an order whose orderer is slow.
setup() {
  gateway-daemon restart vermgt --patience 86400
  free_memory 51200
  rm -rf $FLASHED /tmp/*.bin
}

teardown() { release; }

free_memory() { printf '       total used free\nMem: 900000 1 %s 2\nSwap: 0 0 1\n' "$1" >/var/devkit/stub/free.out; }
field() { cfgcmd get $ORDER.$1; }
# state_has TEXT: the version manager's state, such as "order NAME of WHOM: WORD after N polls".
state_has() { [[ $(vermgtctl state) == *"$1"* ]]; }
# polled N: the order was polled as often, whether it still runs or not.
polled() { [[ $(vermgtctl state) =~ after\ ([0-9]+)\ polls ]] && [ ${BASH_REMATCH[1]} -ge $1 ]; }
# ask ID HEX: what the version manager answers.
ask() { cfgcmd send tdsmgr:vermgt $1 --wait --hex "$2" | tr -d '\0'; }
holds() { grep -qF -- "$1" "$2"; }
repeat() { head -c "$2" /dev/zero | tr '\0' "$1"; }

# order NAME=VALUE...: a fresh order; what is not named is absent. The client writes most of it
# straight to the store, and the set of the type starts it. Forgets command lines and informs.
order() {
  local -A leaf=([CommandKey]='' [FileType]=$IMAGE [URL]=$WEB/open/fw.bin [Username]='' [Password]=''
    [TargetFileName]='' [DelaySeconds]='' [StartTime]=before [CompleteTime]=before
    [FaultCode]=before [FaultString]=before)
  local pair name
  for pair in "$@"; do leaf[${pair%%=*}]=${pair#*=}; done
  for name in "${!leaf[@]}"; do echo "sset $ORDER.$name '${leaf[$name]}'"; done >"$BATS_TEST_TMPDIR/order"
  cfgcmd batch "$BATS_TEST_TMPDIR/order" >/dev/null
  : >$COMMANDS
  : >$CALLS
  : >$INFORMS
  expect 0 "" cfgcmd set $ORDER.FileType "${leaf[FileType]}"
}

# Whether nothing that an order allocates is live; the command itself has one block for its answer.
given_back() {
  local blocks
  blocks=$(cfgcmd mem) && [ -n "$blocks" ] &&
    ! grep -Eq '^(tr069_download_image_thread|ams_text|SendMsg_syn_lib) ' <<<"$blocks"
}
ran_is() { [ "$(cat $COMMANDS)" = "$1" ]; }
is_time() { [[ $1 =~ ^20[0-9]{2}-[01][0-9]-[0-3][0-9]T[0-2][0-9]:[0-5][0-9]:[0-6][0-9]$ ]]; }

ran() { until_true ran_is "$1" || fail "it ran: $(cat $COMMANDS)"$'\n'"it should run: $1"; }

# ended LINES: the order comes to its end, which is when it has run exactly these command lines, the
# reboot to its end, and has given back all it had.
ended() { ran "$1" && until_true given_back && { [[ $1 != *reboot ]] || until_true called /usr/sbin/reboot; }; }

# failed_with CODE FETCH [KEY]: and has reported that failure.
failed_with() {
  local lines=$PRE$'\n'$DROP$'\n'$FREE
  [ -z "$2" ] || lines+=$'\n'$2
  ended "$lines
$TOLD EV TC-${3:-} Dn-${3:-}
$POST failed" || return
  reported "$1" "EV TC-${3:-} Dn-${3:-}"
}

# reported CODE [INFORM]: the fields of the order, and the inform of a failure.
reported() {
  [ "$(field FaultCode)" = "$1" ] || fail "FaultCode $(field FaultCode), not $1" || return
  [ "$(field FaultString)" = "$([ "$1" = 0 ] || echo before)" ] || fail "FaultString $(field FaultString)" || return
  is_time "$(field StartTime)" || fail "StartTime $(field StartTime)" || return
  is_time "$(field CompleteTime)" || fail "CompleteTime $(field CompleteTime)" || return
  [[ ! $(field CompleteTime) < $(field StartTime) ]] || fail "the end is before the start" || return
  expect 0 "${2:+manully_inform $2}" cat $INFORMS
}

plain() { echo "curl --globoff --anyauth --connect-timeout 20 -u ${2:-anonymous:anonymous} -o '/tmp/${3:-zorp_image.bin}' '$1'"; }
secure() { echo "curl --globoff --digest --insecure --connect-timeout 20 -u ${2:-anonymous:anonymous} -o '/tmp/${3:-zorp_image.bin}' '$1'"; }

# flashed YES|NO: the image of the server, or nothing, and nothing half done.
flashed() {
  if [ $1 = yes ]; then
    cmp /var/www/fw.bin $FLASHED/image || return
  else
    [ ! -e $FLASHED/image ] || fail "something was flashed" || return
  fi
  [ ! -e $FLASHED/image.new ] || fail "half an image is left"
}

@test "success over each scheme: fields, record, script, and a reboot" {
  while read -r what fetch url key; do
    rm -rf $FLASHED
    nvram unset Tr069strap 2>/dev/null || true
    order URL=$url CommandKey=$key Username=desk Password=s3cret
    ended "$PRE
$DROP
$FREE
$($fetch $url desk:s3cret)
nvram set Tr069strap=\"BT  TC-$key Dn-$key\"
$POST success
reboot" || fail "$what" || return
    reported 0 || fail "$what" || return
    flashed yes || fail "$what" || return
    expect 0 "BT  TC-$key Dn-$key" nvram get Tr069strap || fail "$what" || return
    cmp /tmp/zorp_image.bin /var/www/fw.bin || fail "$what: the image below /tmp stays" || return
    state_has 'order zorp_image.bin of sysmgr: success after' || fail "$what" || return
  done <<CASES
http-digest plain $WEB/digest/fw.bin k1
http-basic plain $WEB/basic/fw.bin
https-digest secure https://127.0.0.1/digest/fw.bin k-3
CASES
}

@test "what the server or the version manager does not give ends in a fault" {
  while read -r what how target code word credentials url; do
    vermgtctl behave $how
    rm -rf $FLASHED
    [ $what != unwritable ] || : >$FLASHED
    cp --remove-destination /var/www/fw.bin /tmp/$target # of an earlier order: nobody ordered it now
    order URL=$url CommandKey=$what TargetFileName=$target Username=${credentials%:*} Password=${credentials#*:}
    failed_with $code "$(plain $url $credentials $target)" $what || fail "$what" || return
    flashed no || fail "$what" || return
    state_has "free
order $target of sysmgr: $word after " || fail "$what: $(vermgtctl state)" || return
  done <<CASES
wrong-password normal fw.bin 9001 fwchk_failed desk:wrong $WEB/digest/fw.bin
missing-file   normal fw.bin 9001 fwchk_failed desk:s3cret $WEB/basic/none.bin
no-server      normal fw.bin 9001 fwchk_failed desk:s3cret http://127.0.0.1:81/fw.bin
damaged-image  normal fw.bin 9001 fwchk_failed desk:s3cret $WEB/digest/damaged.bin
unwritable     normal fw.bin 9002 upg_failed   desk:s3cret $WEB/digest/fw.bin
rejected       reject fw.bin 9001 fwchk_failed desk:s3cret $WEB/digest/fw.bin
failed-flash   fail   fw.bin 9002 upg_failed   desk:s3cret $WEB/digest/fw.bin
CASES
}

@test "a version manager that is occupied, slow, or dies half-way" {
  vermgtctl behave occupied
  order
  failed_with 9001 "$(plain $WEB/open/fw.bin)"
  vermgtctl behave die 2
  order
  failed_with 9001 "$(plain $WEB/open/fw.bin)"
  refused 3 'gateway-daemon start vermgt' vermgtctl state
  tail --pid="$(pid_of vermgt)" -s 0.02 -f /dev/null
  holds 'zorp_image.bin: dies' /var/log/devkit/vermgt.log
  order
  failed_with 9001 "$(plain $WEB/open/fw.bin)"
  gateway-daemon start vermgt
  flashed no
  vermgtctl behave slow 5
  order URL=$WEB/open/damaged.bin
  failed_with 9001 "$(plain $WEB/open/damaged.bin)"
  state_has fwchk_failed
  polled 6
}

# A version manager's order, from here; the image is not there, which matters at its end only.
readonly OF_OTHERS=$(repeat 0 384)612e62696e$(repeat 0 246)
readonly POLL=646f776e6c6f6164696e6700 CONFIRM=7375636365737300 GIVE_UP=74696d656f757400

@test "an order waits its delay between the start and the fetch, and nobody waits for it" {
  order CommandKey=late DelaySeconds=86400 TargetFileName=late.bin
  ran "$PRE"
  order URL=$WEB/open/damaged.bin
  ran "$PRE
$DROP
$FREE
$(plain $WEB/open/damaged.bin)
$TOLD EV TC- Dn-
$POST failed"
  [ ! -e /tmp/late.bin ]
  : >$COMMANDS
  gateway-daemon restart sysmgr # it would wait all day
  until_true grep -q '^killall -q smbd$' $COMMANDS
}

# Whether each thread of the daemon stands still.
stopped() { ! grep -h '^State:' /proc/$daemon/task/*/status | grep -qv '(stopped)'; }

@test "the order of a daemon that stands still, as at a breakpoint, is nobody else's, and goes on" {
  daemon=$(pid_of sysmgr)
  hold ${PRE##*/}
  order
  vermgtctl behave halt $daemon
  let_go
  until_true stopped
  state_has 'order zorp_image.bin of sysmgr: downloading'
  for word in $POLL $CONFIRM $GIVE_UP; do expect 0 occupied ask 0xfff05 $word; done
  expect 0 occupied ask 0xfff04 $OF_OTHERS
  holds 'zorp_image.bin of sysmgr keeps another order waiting' /var/log/devkit/vermgt.log
  vermgtctl behave normal
  kill -CONT $daemon
  ended "$PRE
$DROP
$FREE
$(plain $WEB/open/fw.bin)
nvram set Tr069strap=\"BT  TC- Dn-\"
$POST success
reboot"
  reported 0
}

@test "times are those of the zone that /etc/localtime has now" {
  echo $'Zone East 9 - EAST\nZone West -7 - WEST' | /opt/sbin/zic -d "$BATS_TEST_TMPDIR" -
  for zone in East West; do
    cp --remove-destination "$BATS_TEST_TMPDIR/$zone" /etc/localtime
    before=$(date +%FT%T)
    order TargetFileName=.refused
    ended "$PRE
$TOLD EV TC- Dn-
$POST failed"
    ask 0xfff05 $POLL # a process that only logs
    record=$(grep 'is about no order' /var/log/devkit/vermgt.log | tail -n 1)
    after=$(date +%FT%T)
    for time in "$(field StartTime)" "$(field CompleteTime)" "${record:0:10}T${record:11:8}"; do
      [[ ! $time < $before && ! $time > $after ]] || fail "$zone: $time is not from $before to $after"
    done
  done
  rm /etc/localtime
}

@test "the version manager is not held by who is gone" {
  answers() { [ "$(ask $1 $2)" = $3 ]; }
  # A pipe holds up nobody, and is no image.
  mkfifo /tmp/a.bin
  name=$OF_OTHERS
  expect 0 downloading ask 0xfff04 $name
  expect 0 occupied ask 0xfff04 $name
  expect 0 other_failed ask 0xfff05 ''
  expect 0 other_failed ask 0xfff05 646f776e6c6f6164696e67
  until_true answers 0xfff05 $POLL fwchk_failed
  state_has free
  # Confirmed too early: nothing is flashed.
  vermgtctl behave hang
  cp --remove-destination /var/www/fw.bin /tmp/a.bin
  expect 0 downloading ask 0xfff04 $name
  expect 0 upg_failed ask 0xfff05 $CONFIRM
  # Nobody asks any more: the next one takes over, but not at once.
  until_true answers 0xfff04 $name downloading
  expect 0 occupied ask 0xfff04 $name
  holds 'a.bin of cfgcmd keeps another order waiting' /var/log/devkit/vermgt.log
  gateway-daemon restart vermgt --patience 1
  expect 0 downloading ask 0xfff04 $name
  until_true answers 0xfff04 $name downloading
  holds 'a.bin of cfgcmd is given up for another order' /var/log/devkit/vermgt.log
  expect 0 timeout ask 0xfff05 $GIVE_UP
  until_true state_has free
  flashed no
}

# The code of a fetch: code USER:PASSWORD FOLDER.
code() { curl -s -o /dev/null -w '%{http_code}' --anyauth -u "$1" $WEB/$2/fw.bin; }

@test "what makes no sense, to the version manager and to the tools" { sessions download; }
