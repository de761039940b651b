#!/bin/bash
# Board script: writes the use of the memory into the node. memoryState.sh path=NODE
echo "$0 $*" >>/var/log/devkit/calls
node=${1#path=}
node=${node%.Total}
node=${node%.Free}
while read -r name kib _; do
  case $name in
    MemTotal:) cfgcmd sset "$node.Total" "$kib" ;;
    MemFree:) cfgcmd sset "$node.Free" "$kib" ;;
  esac
done </proc/meminfo
