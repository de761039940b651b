# shellcheck shell=bash
# shellcheck disable=SC2034 # the tests use them
# Shared by the end-to-end tests, which drive the running gateway with cfgcmd alone.

readonly DEVICE=InternetGatewayDevice.DeviceInfo
readonly SERVICES=InternetGatewayDevice.Services
readonly USERS=InternetGatewayDevice.X_CT-COM_UserInfo.UserList
readonly FILES=$DEVICE.VendorConfigFile COMMANDS=/var/log/devkit/commands CALLS=/var/log/devkit/calls

# No outcome hangs on how fast the machine is: what is sure to come may take a minute, or as many seconds
# as the caller says.
export GATEWAY_TIMEOUT=${GATEWAY_TIMEOUT:-60}

# fail TEXT: ends the test with the text.
fail() {
  printf '%s\n' "$*" >&2
  return 1
}

# expect STATUS TEXT COMMAND...: runs the command; its status and its whole output have to be these.
expect() {
  local want_status=$1 want=$2 got status=0
  shift 2
  got=$("$@" 2>&1) || status=$?
  [ "$status" -eq "$want_status" ] || fail "$*: status $status, not $want_status; it said: $got" || return
  [ "$got" = "$want" ] || fail "$*: said: $got"$'\n'"it should say: $want"
}

# refused STATUS PATTERN COMMAND...: the command ends with the status, prints nothing on standard
# output, and one line on standard error that matches the extended regular expression.
refused() {
  local want_status=$1 pattern=$2 out status=0 error
  shift 2
  error=$(mktemp)
  out=$("$@" 2>"$error") || status=$?
  [ "$status" -eq "$want_status" ] || fail "$*: status $status, not $want_status: $(cat "$error")" || return
  [ -z "$out" ] || fail "$*: said on standard output: $out" || return
  [ "$(wc -l <"$error")" -eq 1 ] || fail "$*: not one line: $(cat "$error")" || return
  grep -Eq -- "$pattern" "$error" || fail "$*: said: $(cat "$error")"$'\n'"it should match: $pattern" || return
  rm -f "$error"
}

# in_background NAME REQUEST...: a request of the client; told NAME STATUS PATTERN waits for its end, when
# it has that status and said what matches.
in_background() {
  local name=$BATS_TEST_TMPDIR/$1
  { cfgcmd --timeout 600 "${@:2}" >"$name" 2>&1 && echo 0 >"$name.status" || echo $? >"$name.status"; } 3>&- &
}
told() {
  until_true test -s "$BATS_TEST_TMPDIR/$1.status"
  [ "$(cat "$BATS_TEST_TMPDIR/$1.status")" = "$2" ] && grep -Eq -- "$3" "$BATS_TEST_TMPDIR/$1" ||
    fail "$1: not status $2 and $3: $(cat "$BATS_TEST_TMPDIR/$1"*)"
}

# until_true COMMAND...: waits until it succeeds.
until_true() {
  local end=$((SECONDS + GATEWAY_TIMEOUT))
  until "$@"; do
    [ $SECONDS -lt $end ] || fail "in time this was never true: $*" || return
    sleep 0.02
  done
}

# Skips where the kernel gives a sandbox no packet filter at all; a filter without the gateway's
# chains is a fault.
needs_filter() {
  if ! iptables -S >/dev/null 2>&1 || ! ip6tables -S >/dev/null 2>&1; then
    skip "this machine's kernel has no packet filter for the sandbox"
  fi
}

# Listening sockets on a port.
listeners() { ss -Hltn "sport = :$1" | wc -l; }
listens() { [ "$(listeners "$1")" -eq "$2" ]; }

# called LINE: a stub was, with these words.
called() { grep -qxF -- "$1" "$CALLS"; }

# Samba's apply ends with these; it comes a timer's period after the change.
samba_stops() { grep -c '^killall -q smbd$' "$COMMANDS" || true; }
samba_stopped_after() { [ "$(samba_stops)" -gt "$1" ]; }

# Stubs: stub_sleep NAME SECONDS makes the script of that name take as long; stub_reset forgets it.
stub_sleep() { echo "$2" >"/var/devkit/stub/$1.sleep"; }
stub_reset() { rm -f /var/devkit/stub/*; }

# hold SCRIPT: it stands until it is let go; release, for teardown, lets go and puts its stub back.
hold() {
  held=/usr/syscfg/$1
  rm -f /tmp/go "$held"
  printf '#!/bin/sh\nuntil [ -e /tmp/go ]; do sleep 0.02; done\n' >"$held"
  chmod +x "$held"
}
let_go() { touch /tmp/go; }
release() {
  let_go
  [ -z "${held:-}" ] || ln -sf "$DEVKIT_BUILD/bin/stub" "$held"
}

# The pid of a daemon.
pid_of() { cat "/var/run/devkit/$1"; }

# does COMMAND SAID: the command ends well and says that, all of it; with "STATUS= SAID" it ends with
# that status, with "STATUS~ PATTERN" it is refused as above.
does() {
  case $2 in
  [0-9]'~ '*) refused "${2%%'~'*}" "${2#*'~ '}" eval "$1" ;;
  [0-9]= | [0-9]'= '*) expect "${2%%=*}" "${2:3}" eval "$1" ;;
  *) expect 0 "$2" eval "$1" ;;
  esac
}

# session: a session on standard input; how one is written is in tests/data/client/README.md.
session() {
  local line more command='' said=''
  while IFS= read -r line || [ -n "$command" ]; do
    while [[ $line == *\\ ]] && IFS= read -r more; do line=${line%\\}$'\n'$more; done
    if [[ -z $line || $line == ['$%']' '* ]]; then
      [ -z "$command" ] || does "$command" "$said" </dev/null || return
      command='' said=''
      [[ $line != '$ '* ]] || command=${line#'$ '}
      [[ $line != '% '* ]] || eval "${line#'% '}" </dev/null || fail "$line" || return
    elif [[ $line != '# '* ]]; then
      while [[ $line =~ \$([A-Za-z_]+) && -n ${!BASH_REMATCH[1]:-} ]]; do
        line=${line/"${BASH_REMATCH[0]}"/${!BASH_REMATCH[1]}}
      done
      said+=${said:+$'\n'}$line
    fi
  done
}

# sessions FOLDER: those of the folder of tests/data/client, each with a setup and a teardown of its own.
# GATEWAY_SESSION names the one to run alone. Each runs, whatever another one said.
sessions() {
  local file failed=''
  for file in "$BATS_TEST_DIRNAME/../data/client/$1"/${GATEWAY_SESSION:-*}.txt; do
    [ -e "$file" ] || continue
    setup && session <"$file" || failed+=" $file"
    teardown
  done
  [ -z "$failed" ] || fail "failed:$failed"
}
