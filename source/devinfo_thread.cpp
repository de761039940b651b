// The module "sysmgr:devInfo": which handler gets which message.
#include "devinfo_thread.h"

#include "devinfo_func.h"

namespace {

const ApptModule kModule = {"DevInfoMsgRevHandle", "source/devinfo_thread", true};

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
