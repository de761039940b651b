#!/usr/bin/env bats
# shellcheck disable=SC2086,SC2030,SC2031 # the paths have no blanks; each test is a subshell
# Every command of the client against the running gateway: answers, exit statuses, refusals.
# Runs inside the sandbox.
load helpers

teardown() { stub_reset && cfgcmd base /; }

json() { python3 -c 'import json,sys; d = json.load(sys.stdin); print(eval(sys.argv[1]))' "$1"; }

@test "sessions of the client" { sessions requests; }
