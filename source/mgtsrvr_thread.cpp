// The module "sysmgr:mgtsrvr": which handler gets which message.
#include "mgtsrvr_thread.h"

#include "mgtsrvr_func.h"

namespace {

const ApptModule kModule = {"MgtSrvrMsgRevHandle", "source/mgtsrvr_thread", false};

void MgtSrvrMsgRevHandle(int32_t id, const void *data, uint32_t len) {
  appt_MsgRevHandle(&kModule, id, data, len);
}

}  // namespace

const MsgEntry kMgtSrvrMsgTable[] = {
    {TDS_MSG_INIT, MgtSrvrInit},         {EV_APPT_MSG_REQUEST, MgtSrvrMsgRevHandle},
    {EV_WAN_ADDED, MgtSrvrWanPresent},   {EV_WAN_CHANGED, MgtSrvrWanPresent},
    {EV_WAN_REMOVED, MgtSrvrWanRemoved}, {0, nullptr},
};
