// The FUNC table of the module "sysmgr:capabinfo" and its start, and the op functions of
// "InternetGatewayDevice.Services." that are a script call or two.
#pragma once

#include "ams_common_api.h"

extern const OpFuncEntry kCapabInfoFuncTable[];

void CapabInfoInit(int32_t id, const void *data, uint32_t len);

/* Published when the user list changed; carries the node's path with its NUL. */
enum : unsigned { EV_USER_LIST_CHANGED = 0x100054 };
