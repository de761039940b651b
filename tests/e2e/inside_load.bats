#!/usr/bin/env bats
# shellcheck disable=SC2086,SC2030,SC2031 # the paths have no blanks; each test is a subshell
# Eight clients at once: each gets its own answers, and nothing is left behind. Runs inside the sandbox.
load helpers

# Resident KiB of a daemon.
resident() { awk '/VmRSS/ { print $2 }' "/proc/$(pid_of "$1")/status"; }
# What the data-base manager alone has in memory, in KiB; none of the store.
private() { awk '/RssAnon/ { print $2 }' "/proc/$(pid_of dbmgr)/status"; }
private_below() { [ "$(private)" -lt "$1" ]; }
# Live blocks of the daemon, over all tags.
blocks() { cfgcmd mem | sed -n 's/.* holds \([0-9]*\) blocks .*/\1/p'; }

# lines CLIENT COUNT: requests of one client, and behind each "|" its answer, which tells it from all others.
lines() {
  local i row=$FILES.$1
  for ((i = 0; i < $2; i += 10)); do
    printf '%s|%s\n' "set $row.Name client$1-$i" ok \
      "get $row.Name" client$1-$i "get $row.Version" version$1 "get $row.Name" client$1-$i "list $FILES" "$list" \
      "get $row.Nope" "cfgcmd: line $((i + 6)): no parameter \"$row.Nope\": \"$row\" has no \"Nope\"; \"cfgcmd tree $row\" lists what there is" \
      "get $row.Date" 0001-01-01T00:00:00Z "get $row.Version" version$1 "get $row.Name" client$1-$i \
      "get $row.Description" ""
  done
}

# load_all COUNT: eight clients with as many requests each, checked.
load_all() {
  local client pids=()
  for client in {1..8}; do lines $client "$1" >"$BATS_TEST_TMPDIR/$client"; done
  for client in {1..8}; do
    cut -d '|' -f 1 "$BATS_TEST_TMPDIR/$client" | cfgcmd --timeout 120 batch 2>&1 |
      cmp - <(cut -d '|' -f 2- "$BATS_TEST_TMPDIR/$client") 3>&- &
    pids+=($!)
  done
  for client in "${pids[@]}"; do wait "$client" || fail "a client got other answers"; done
}

@test "100,000 requests of eight clients: each gets its own answer, memory stays flat" {
  for client in 2 3 4 5 6 7 8; do cfgcmd add $FILES; done
  for client in 1 2 3 4 5 6 7 8; do cfgcmd set $FILES.$client.Version version$client $FILES.$client.Date 0001-01-01T00:00:00Z; done
  list=1,2,3,4,5,6,7,8
  count=11000
  [ -z "${GATEWAY_SANITIZE:-}" ] || count=1000 # sanitizers keep freed memory: only the answers count

  load_all $((count / 5)) # warm up
  blocks_before=$(blocks)
  daemon=$(resident sysmgr) manager=$(resident dbmgr)
  load_all $count
  [ "$(blocks)" -le "$blocks_before" ] || fail "$blocks_before live blocks before, $(blocks) after"
  [ -z "${GATEWAY_SANITIZE:-}" ] || return 0
  # A request that left 16 bytes behind would show as 1.4 MiB.
  [ $(($(resident sysmgr) - daemon)) -lt 1024 ] || fail "sysmgr grew from $daemon to $(resident sysmgr) KiB"
  [ $(($(resident dbmgr) - manager)) -lt 1024 ] || fail "dbmgr grew from $manager to $(resident dbmgr) KiB"
}

@test "what large answers took is given back" {
  [ -z "${GATEWAY_SANITIZE:-}" ] || skip "sanitizers keep freed memory"
  text=$(printf '%0200d' 0)
  for _ in {1..60000}; do echo "add $FILES"; done | cfgcmd --timeout 120 batch >/dev/null
  for row in $(cfgcmd list $FILES | tr , ' '); do echo "set $FILES.$row.Description $text"; done | cfgcmd --timeout 120 batch >/dev/null
  before=$(private)
  for _ in 1 2 3; do [ "$(cfgcmd get InternetGatewayDevice. | wc -c)" -gt 15000000 ]; done
  until_true private_below $((before + 1024))
}
