#!/usr/bin/env bats
# shellcheck disable=SC2086,SC2030,SC2031 # the paths have no blanks; each test is a subshell
# From a parameter to what really happens on the system. Runs inside the sandbox.
load helpers

teardown() { release; }

@test "the start, a change of a user, busy modules" { sessions services; }
