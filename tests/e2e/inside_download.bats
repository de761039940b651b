#!/usr/bin/env bats
# shellcheck disable=SC2086,SC2034,SC2154 # the paths have no blanks; sessions use and set them
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
# What is watched goes into a file, with the status at the end.
watch_download() {
  watch=$(mktemp)
  { vermgtctl watch >"$watch" 2>&1 3>&-; echo "status $?" >>"$watch"; } 3>&- &
}
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

# ran LINE...: these command lines, and no others.
ran() {
  local IFS=$'\n'
  until_true ran_is "$*" || fail "it ran: $(cat $COMMANDS)"$'\n'"it should run: $*"
}

# ended LINE...: the order comes to its end, which is when it has run exactly these command lines, the
# reboot to its end, and has given back all it had.
ended() { ran "$@" && until_true given_back && { [[ $* != *reboot ]] || until_true called /usr/sbin/reboot; }; }

# failed_with CODE FETCH [KEY]: and has reported that failure.
failed_with() {
  local inform="EV TC-${3:-} Dn-${3:-}"
  ended "$PRE" "$DROP" "$FREE" "$2" "$TOLD $inform" "$POST failed" && reported "$1" "$inform"
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

# unflashed: no image, nor half of one.
unflashed() { ! ls $FLASHED/image* >/dev/null 2>&1 || fail "an image was flashed, or half of one"; }

# succeeds FETCH URL [KEY]: an order of the image is done, to the reboot.
succeeds() {
  nvram unset Tr069strap 2>/dev/null
  order URL=$2 CommandKey=$3 Username=desk Password=s3cret
  ended "$PRE" "$DROP" "$FREE" "$($1 $2 desk:s3cret)" "nvram set Tr069strap=\"BT  TC-$3 Dn-$3\"" "$POST success" reboot &&
    reported 0 && cmp /var/www/fw.bin $FLASHED/image && [ ! -e $FLASHED/image.new ] &&
    expect 0 "BT  TC-$3 Dn-$3" nvram get Tr069strap &&
    cmp /tmp/zorp_image.bin /var/www/fw.bin && # stays there
    state_has 'order zorp_image.bin of sysmgr: success after'
}

# fails KEY BEHAVIOUR FILE CODE STATE CREDENTIALS URL: an order ends in a fault; an image of an earlier order,
# which nobody ordered now, is not flashed.
fails() {
  vermgtctl behave $2
  rm -rf $FLASHED
  [ $1 != unwritable ] || : >$FLASHED
  cp --remove-destination /var/www/fw.bin /tmp/$3
  order URL=$7 CommandKey=$1 TargetFileName=$3 Username=${6%:*} Password=${6#*:}
  failed_with $4 "$(plain $7 $6 $3)" $1 && unflashed &&
    state_has $'free\norder '"$3 of sysmgr: $5 after "
}

# A version manager's order, from here; the image is not there, which matters at its end only.
readonly OF_OTHERS=$(repeat 0 384)612e62696e$(repeat 0 246)
readonly POLL=646f776e6c6f6164696e6700 CONFIRM=7375636365737300 GIVE_UP=74696d656f757400

# Whether each thread of the daemon stands still.
stopped() { ! grep -h '^State:' /proc/$daemon/task/*/status | grep -qv '(stopped)'; }

# in_zone FILE: with this one in use, times of an order and of a record are its times.
in_zone() {
  local before after record time
  cp --remove-destination $1 /etc/localtime
  before=$(date +%FT%T)
  order TargetFileName=.refused
  ended "$PRE" "$TOLD EV TC- Dn-" "$POST failed" || return
  ask 0xfff05 $POLL >/dev/null # a process that only logs
  record=$(grep 'is about no order' /var/log/devkit/vermgt.log | tail -n 1)
  after=$(date +%FT%T)
  for time in "$(field StartTime)" "$(field CompleteTime)" "${record:0:10}T${record:11:8}"; do
    [[ ! $time < $before && ! $time > $after ]] || fail "$time is not from $before to $after" || return
  done
}

answers() { [ "$(ask $1 $2)" = $3 ]; }
# The code of a fetch: code USER:PASSWORD FOLDER.
code() { curl -s -o /dev/null -w '%{http_code}' --anyauth -u "$1" $WEB/$2/fw.bin; }

@test "outcomes of orders, delays, other orders, what makes no sense" { sessions download; }
