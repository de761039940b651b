// The module "sysmgr:mgtsrvr": its message and FUNC tables.
#pragma once

#include "ams_common_api.h"

extern const MsgEntry kMgtSrvrMsgTable[];
extern const OpFuncEntry kMgtSrvrFuncTable[]; /* in mgtsrvr_func.cpp */
