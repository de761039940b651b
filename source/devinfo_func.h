// "InternetGatewayDevice.DeviceInfo." and its neighbours: what the module does when its timers are
// over. The FUNC table (in devinfo_thread.h) is in devinfo_func.cpp too.
#pragma once

#include "ams_common_api.h"

/* Handlers of the module's timers: restore from the first USB partition; refresh of the up-time. */
void DevInfoRestoreFromUsb(int32_t id, const void *data, uint32_t len);
void DevInfoUpTimeRefresh(int32_t id, const void *data, uint32_t len);
