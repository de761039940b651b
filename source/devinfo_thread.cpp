// The module "sysmgr:devInfo": which handler gets which message.
#include "devinfo_thread.h"

#include "devinfo_func.h"

namespace {

const ApptModule kModule = {"DevInfoMsgRevHandle", "source/devinfo_thread", true};

void DevInfoInit(int32_t, const void *, uint32_t) {
  appt_InitFuncTable(kDevInfoFuncTable);
  (void)SetTimer(DEVINFO_TIMER_UPTIME, kUptimePeriod); /* logged by the runtime */
  AMS_PRINT(2, "DeviceInfo init success.");
}

void DevInfoMsgRevHandle(int32_t id, const void *data, uint32_t len) {
  appt_MsgRevHandle(&kModule, id, data, len);
}

}  // namespace

const MsgEntry kDevInfoMsgTable[] = {
    {TDS_MSG_INIT, DevInfoInit},
    {EV_APPT_MSG_REQUEST, DevInfoMsgRevHandle},
    {TDS_MSG_TIMER + DEVINFO_TIMER_RESTORE, DevInfoRestoreFromUsb},
    {TDS_MSG_TIMER + DEVINFO_TIMER_UPTIME, DevInfoUpTimeRefresh},
    {0, nullptr},
};
