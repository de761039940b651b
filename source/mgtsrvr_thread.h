// The module "sysmgr:mgtsrvr": its message table.
#pragma once

#include "tds.h"

extern const MsgEntry kMgtSrvrMsgTable[];
