// "InternetGatewayDevice.DeviceInfo." and its neighbours: the FUNC table of the module
// "sysmgr:devInfo", and what it does at its start and when its timers are over.
#pragma once

#include "ams_common_api.h"

extern const OpFuncEntry kDevInfoFuncTable[];

/* Handlers of the module: the start; restore from the first USB partition; refresh of the up-time.
 */
void DevInfoInit(int32_t id, const void *data, uint32_t len);
void DevInfoRestoreFromUsb(int32_t id, const void *data, uint32_t len);
void DevInfoUpTimeRefresh(int32_t id, const void *data, uint32_t len);
