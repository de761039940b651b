// The module "sysmgr:button_proc": its message table, and its timer.
#pragma once

#include "tds.h"

extern const MsgEntry kButtonMsgTable[];

enum { BUTTON_TIMER_LAN = 0 };
