// The module "sysmgr:mgtsrvr": init, agent requests, and what the port manager says of WAN
// connections. The list of connections and the op function are in mgtsrvr_func.cpp.
#include "mgtsrvr_thread.h"

#include <cstring>
#include <string>

#include "mgtsrvr_func.h"

namespace {

enum : uint32_t { EV_WAN_ADDED = 0x100037, EV_WAN_CHANGED = 0x100038, EV_WAN_REMOVED = 0x100039 };

void OnInit(int32_t, const void *, uint32_t) {
  appt_InitFuncTable(kMgtSrvrFuncTable);
  for (uint32_t id : {EV_WAN_ADDED, EV_WAN_CHANGED, EV_WAN_REMOVED})
    (void)TDS_RegisterNotifyList(id, "portmgr:wan"); /* logged; the list then stays as it is */
  AMS_PRINT(2, "MgtSrvr init success.");
}

void MgtSrvrMsgRevHandle(int32_t id, const void *data, uint32_t len) {
  static const ApptModule kModule = {"MgtSrvrMsgRevHandle", "source/mgtsrvr_thread", false};
  appt_MsgRevHandle(&kModule, id, data, len);
}

/* Whether the connection's services include remote management. The digits tell: the letters before
   them are not the same on all boards. */
bool CarriesManagement(const char *connection) {
  char services[1024] = "";
  std::string path = std::string(connection) + ".X_CT-COM_ServiceList";
  if (ams_mxml_get_leaf_value(path.c_str(), services) != 0)
    AMS_PRINT(4, "Get X_CT-COM_ServiceList  Value Fail\n");
  AMS_PRINT(1, "X_CT-COM_ServiceList_Value=%s\n", services);
  return strstr(services, "069") != nullptr;
}

/* A connection that is added or changed is saved when it carries management; one that has changed
   and no longer does is dropped. */
void OnWanPresent(int32_t id, const void *data, uint32_t len) {
  const char *path = static_cast<const char *>(data);
  if (!WanPathFits(data, len)) {
    AMS_PRINT(4, "wancPath does not exit\n"); /* spelled so: log readers look for it */
    return;
  }
  AMS_PRINT(1, "wancPath=%s\n", path);
  if (CarriesManagement(path))
    SaveNodeWANPath(data, len);
  else if (id == static_cast<int32_t>(EV_WAN_CHANGED))
    DelNodeWANPath(data, len);
  else
    AMS_PRINT(1, "%s is not the tr069 wan \n", path);
}

void OnWanRemoved(int32_t id, const void *data, uint32_t len) {
  if (id != static_cast<int32_t>(EV_WAN_REMOVED) || !WanPathFits(data, len)) {
    AMS_PRINT(4, "MgtSrvrMsgDelSaveNode Parameters Error");
    return;
  }
  DelNodeWANPath(data, len);
}

}  // namespace

const MsgEntry kMgtSrvrMsgTable[] = {
    {TDS_MSG_INIT, OnInit},         {EV_APPT_MSG_REQUEST, MgtSrvrMsgRevHandle},
    {EV_WAN_ADDED, OnWanPresent},   {EV_WAN_CHANGED, OnWanPresent},
    {EV_WAN_REMOVED, OnWanRemoved}, {0, nullptr},
};
