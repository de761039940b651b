// Samba: a burst of changes is applied once, a timer period after the last of them. All on the
// thread of "sysmgr:capabinfo".
#pragma once

#include "ams_common_api.h"

int FuncServSamba(OpFuncArg *arg);

/* Handlers of the module: the user list changed, so Samba is to be applied; the timer is over. */
void SambaUserListChanged(int32_t id, const void *data, uint32_t len);
void SambaApply(int32_t id, const void *data, uint32_t len);
