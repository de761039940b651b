// The module "sysmgr:mgtsrvr": which handler gets which message.
#include "mgtsrvr_thread.h"

#include <initializer_list>

#include "mgtsrvr_func.h"

namespace {

const ApptModule kModule = {"MgtSrvrMsgRevHandle", "source/mgtsrvr_thread", false};

void MgtSrvrInit(int32_t, const void *, uint32_t) {
  appt_InitFuncTable(kMgtSrvrFuncTable);
  for (uint32_t id : {EV_WAN_ADDED, EV_WAN_CHANGED, EV_WAN_REMOVED})
    (void)TDS_RegisterNotifyList(id, "portmgr:wan"); /* logged; the list then stays as it is */
  AMS_PRINT(2, "MgtSrvr init success.");
}

void MgtSrvrMsgRevHandle(int32_t id, const void *data, uint32_t len) {
  appt_MsgRevHandle(&kModule, id, data, len);
}

}  // namespace

const MsgEntry kMgtSrvrMsgTable[] = {
    {TDS_MSG_INIT, MgtSrvrInit},         {EV_APPT_MSG_REQUEST, MgtSrvrMsgRevHandle},
    {EV_WAN_ADDED, MgtSrvrWanPresent},   {EV_WAN_CHANGED, MgtSrvrWanPresent},
    {EV_WAN_REMOVED, MgtSrvrWanRemoved}, {0, nullptr},
};
