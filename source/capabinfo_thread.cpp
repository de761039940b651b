// The module "sysmgr:capabinfo": which handler gets which message. What the handlers do is in the
// files of the services.
#include "capabinfo_thread.h"

#include "ipsec_func.h"
#include "samba_func.h"
#include "services_func.h"

namespace {

const ApptModule kModule = {"CapabInfoMsgRevHandle", "source/capabinfo_thread", false};

void CapabInfoMsgRevHandle(int32_t id, const void *data, uint32_t len) {
  appt_MsgRevHandle(&kModule, id, data, len);
}

}  // namespace

const MsgEntry kCapabInfoMsgTable[] = {
    {TDS_MSG_INIT, CapabInfoInit},
    {EV_APPT_MSG_REQUEST, CapabInfoMsgRevHandle},
    {EV_USER_LIST_CHANGED, SambaUserListChanged},
    {TDS_MSG_TIMER + CAPABINFO_TIMER_SAMBA, SambaApply},
    {TDS_MSG_TIMER + CAPABINFO_TIMER_IPSEC, IpsecPollTunnels},
    {0, nullptr},
};
