// The module "sysmgr:devInfo": its message table, and its timers.
#pragma once

#include "tds.h"

extern const MsgEntry kDevInfoMsgTable[];

enum { DEVINFO_TIMER_RESTORE = 0, DEVINFO_TIMER_UPTIME = 1 };
