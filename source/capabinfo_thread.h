// The module "sysmgr:capabinfo" (the services): its message table, and its timers.
#pragma once

#include "tds.h"

extern const MsgEntry kCapabInfoMsgTable[];

enum { CAPABINFO_TIMER_SAMBA = 0, CAPABINFO_TIMER_IPSEC = 1 };
