// The op functions of "InternetGatewayDevice.Services." that are a script call or two, and the
// FUNC table of the module "sysmgr:capabinfo".
#pragma once

#include "ams_common_api.h"

extern const OpFuncEntry kCapabInfoFuncTable[];

/* Published when the user list changed; carries the node's path with its NUL. */
enum : unsigned { EV_USER_LIST_CHANGED = 0x100054 };
