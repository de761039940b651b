# shellcheck shell=sh disable=SC2034
# Board file: the numbers under which the key driver reports what a key was pressed for.
MSG_MONITOR_EVT_WPS_INIT=1
MSG_MONITOR_EVT_RESET_REBOOT=2
MSG_MONITOR_EVT_RESET_FACTORY=3
MSG_MONITOR_EVT_RESET_FACTORY_CLEAN=4
MSG_MONITOR_EVT_BLINK=11
