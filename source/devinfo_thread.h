// The module "sysmgr:devInfo": its message and FUNC tables, and its timers.
#pragma once

#include "ams_common_api.h"

extern const MsgEntry kDevInfoMsgTable[];
extern const OpFuncEntry kDevInfoFuncTable[]; /* in devinfo_func.cpp */

enum { DEVINFO_TIMER_RESTORE = 0, DEVINFO_TIMER_UPTIME = 1 };
constexpr uint32_t DEVINFO_UPTIME_PERIOD = 1000; /* ms */
