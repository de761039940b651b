#!/bin/bash
# Board script: writes the load of the processor since the last call into the node. cpuState.sh path=NODE
echo "$0 $*" >>/var/log/devkit/calls
readonly last=/var/run/devkit/cpu_state
node=${1#path=}
node=${node%.CPUUsage}

# Ticks since the start of the system: all of them, and those without work.
read -r _ user nice system idle iowait irq softirq steal _ </proc/stat
total=$((user + nice + system + idle + iowait + irq + softirq + steal)) spare=$((idle + iowait))
read -r old_total old_spare 2>/dev/null <"$last" || old_total=0 old_spare=0
echo "$total $spare" >"$last"
ticks=$((total - old_total))
[ $ticks -gt 0 ] || exit 0 # too soon to tell: the last value stands
busy=$((ticks - (spare - old_spare)))
[ $busy -le $ticks ] || busy=$ticks # the kernel's count of waiting may go back
cfgcmd sset "$node.CPUUsage" $((100 * busy / ticks))
