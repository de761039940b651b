// The module "sysmgr:capabinfo" (the services): its message and FUNC tables, and its timers.
#pragma once

#include "ams_common_api.h"

extern const MsgEntry kCapabInfoMsgTable[];
extern const OpFuncEntry kCapabInfoFuncTable[]; /* in services_func.cpp */

enum { CAPABINFO_TIMER_SAMBA = 0, CAPABINFO_TIMER_IPSEC = 1 };
