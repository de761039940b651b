#!/usr/bin/env bats
# shellcheck disable=SC2030,SC2031 # each test is a subshell
# What script/bootstrap and script/test say while they work: a copy of them, with stand-ins for the
# package manager, the build and ctest.
load helpers

setup() {
  folder=$(mktemp -d)
  mkdir -p "$folder"/{bin,source/packaging}
  cp -r "$BATS_TEST_DIRNAME/../../script" "$folder/source"
  cp -r "$BATS_TEST_DIRNAME/../../packaging/deb" "$folder/source/packaging"
  # shellcheck disable=SC2016 # theirs
  {
    stand_in sudo 'exec "$@"'
    stand_in dpkg-query '[ "$4" = "$MISSING" ] || echo installed'
    stand_in apt-get '[ "$1" = update ] || { echo "apt on $*"; [ "$FAILS" != install ]; }'
    stand_in cmake 'case $1 in
      -S) touch "$4/CMakeCache.txt" && echo configured && [ "$FAILS" != configure ] ;;
      *) printf "%s\n" "[0/1] Looking" $STEPS "the end"; [ "$FAILS" != build ] ;;
    esac'
    stand_in ctest 'echo "ctest $*"'
  }
  export MISSING='' FAILS='' STEPS='' PATH=$folder/bin:$PATH
}
teardown() { rm -rf "$folder"; }

stand_in() { printf '#!/bin/sh\n%s\n' "$2" >"$folder/bin/$1" && chmod +x "$folder/bin/$1"; }
bootstrap() { "$folder/source/script/bootstrap"; }

@test "each step that has something to do is a line, and its output is in its log" {
  export MISSING=g++ STEPS='[1/3] [2/3] [3/3]'
  build=$folder/source/build
  expect 0 "bootstrap: installing, about 3 minutes for all of it: g++
bootstrap: configuring $build, some seconds
bootstrap: building, about 3 minutes for all of it on two processors; the log is $build/build.log" bootstrap
  grep -q '^apt on install .* g++$' "$build/install.log" && grep -qx configured "$build/configure.log"
  expect 0 '[0/1] Looking [1/3] [2/3] [3/3] the end ' tr '\n' ' ' <"$build/build.log"
  # A second time there is nothing to do but the tests.
  export MISSING='' STEPS=''
  expect 0 '' bootstrap
  run "$folder/source/script/test"
  [ "$status" -eq 0 ]
  [[ $output == "script/test: all tests, about "*" minutes on two processors"$'\n'"ctest --test-dir build "* ]] || fail "$output"
  run "$folder/source/script/test" -- -R one
  [[ $output == "ctest --test-dir build "*" -R one" ]] || fail "$output"
}

@test "on a terminal the build's count goes on below its line" {
  export STEPS='[1/3] [2/3] [3/3]'
  bootstrap 2>/dev/null # configures
  run script -qec "'$folder/source/script/bootstrap'" /dev/null
  [ "$status" -eq 0 ]
  [[ $output == 'bootstrap: building'*build.log$'\r\n\r[1/3]\r[2/3]\r[3/3]'* ]] || fail "$output"
}

@test "the end of the log of a step that failed is shown" {
  export MISSING=g++
  for step in install configure build; do
    case $step in install) said='apt on install' ;; configure) said=configured ;; build) said='the end' ;; esac
    FAILS=$step run bootstrap
    [ "$status" -eq 2 ] && [[ $output == *"$said"*"bootstrap: this step failed: the lines above are the end of "*"/$step.log" ]] ||
      fail "$step: $status: $output" || return
  done
}
