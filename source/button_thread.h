// The module "sysmgr:button_proc": its message table.
#pragma once

#include "tds.h"

extern const MsgEntry kButtonMsgTable[];
