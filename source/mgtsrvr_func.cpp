// ManagementServer: the saved list of management WAN connections, the inform states that follow
// from it, and informs started by hand.
#include "mgtsrvr_func.h"

#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>
#include <string_view>

#include "ams_config_shell.h"
#include "op_rows.h"
#include "op_values.h"

namespace {

const OpForm kNamed = {__FILE__, __LINE__, -1, nullptr};

#define SERVER "InternetGatewayDevice.ManagementServer."

constexpr char kSaved[] = SERVER "X_KVO_TR069WANSAVE";
constexpr char kInformState[] = SERVER "X_CT-COM_InformState";
constexpr char kManualInformState[] = SERVER "X_CT-COM_ManualInformState";

enum { INFORM_NO_WAN = 1, INFORM_NO_WAN_UP = 2, INFORM_NO_URL = 4, INFORM_DONE = 11 };

using SavedList = char[1024]; /* each path followed by a comma, newest first */

/* A status write whose failure the store has logged; the state then is an old one. */
void SetState(const char *path, int state) { (void)ams_mxml_sset_leaf_int(path, state); }

void WriteSaved(const char *list) {
  if (ams_sset_node_value(gptXmlTrees->root, kSaved, list) != 0)
    AMS_PRINT(4, "X_KVO_TR069WANSAVE Set Fail\n");
}

/* The list without its first entry that equals `path`. False: there is none. */
bool WithoutEntry(std::string_view list, std::string_view path, std::string *without) {
  size_t start = 0;
  while (start < list.size()) {
    size_t comma = list.find(',', start);
    if (comma == std::string_view::npos) return false;
    if (list.substr(start, comma - start) == path) {
      *without = std::string(list.substr(0, start)) + std::string(list.substr(comma + 1));
      return true;
    }
    start = comma + 1;
  }
  return false;
}

/* A leaf that cannot be read counts as empty. */
bool IsEmpty(const char *path) {
  std::string value;
  (void)LeafString(path, &value);
  return value.empty();
}

/* Why the server cannot be reached, from what is configured; 0 when nothing is missing. */
int MissingForInform() {
  if (IsEmpty(kSaved)) return INFORM_NO_WAN;
  if (IsEmpty(SERVER "X_KVO_TR069UpWAN")) return INFORM_NO_WAN_UP;
  return IsEmpty(SERVER "URL") ? INFORM_NO_URL : 0;
}

/* The flag of the last inform counts only while nothing is saved; else the management client, which
   has a connection then, writes the state itself. "Sucess" is the data model's spelling. */
void RefreshInformState() {
  int missing = MissingForInform();
  if (missing == 0) return;
  if (missing == INFORM_NO_WAN && LeafInt(SERVER "X_KVO-SucessFlag") == 1) {
    SetState(kInformState, INFORM_DONE);
    SetState(kManualInformState, INFORM_DONE);
    return;
  }
  SetState(kInformState, missing);
}

/* Not through cfgSystemCmd: informs are the client's to log. "manully_inform" is its spelling. */
void ApplySet(const char *value) {
  if (strcmp(value, "X_CT-COM_MaintainComplete=1") == 0) {
    cfgShell("/usr/sbin/cfgcmd manully_inform EV AC X_CT-COM_MaintainComplete &");
    return;
  }
  if (strcmp(value, "X_CT-COM_ManualInform=1") != 0) {
    cfgSystemCmd("/usr/syscfg/tr069.sh set");
    return;
  }
  int missing = MissingForInform();
  if (missing != 0) SetState(kManualInformState, missing);
  cfgShell("/usr/sbin/cfgcmd manully_inform EV MI X_CT-COM_ManualInform &");
}

int FuncManagementServer(OpFuncArg *arg) {
  if (arg->op == TMF_GET) RefreshInformState();
  if (arg->op == TMF_SET) ApplySet(arg->value == nullptr ? "" : arg->value);
  return 0;
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

/* Whether the payload is a path with its NUL and nothing behind. */
bool WanPathFits(const void *data, uint32_t len) {
  if (data == nullptr || len == 0) return false;
  return strnlen(static_cast<const char *>(data), len) + 1 == len;
}

}  // namespace

void SaveNodeWANPath(const void *data, uint32_t len) {
  SavedList saved = "";
  const char *path = static_cast<const char *>(data);
  if (!WanPathFits(data, len)) {
    AMS_PRINT(4, "SaveNodeWANPath Parameters Error");
    return;
  }
  if (ams_mxml_get_leaf_value(kSaved, saved) != 0) {
    AMS_PRINT(4, "Get X_KVO_TR069WANSAVE Value Fail\n");
    return;
  }
  AMS_PRINT(3, "X_KVO_TR069WANSAVE_Value=%s\n", saved);
  /* Any part of the list counts, so "Wan.1" passes for saved when "Wan.10" is. Leave it: the port
     manager reckons with it. */
  if (strstr(saved, path) != nullptr) {
    AMS_PRINT(1, "%s have alread been saved \n", path);
    return;
  }
  std::string list = std::string(path) + "," + saved;
  AMS_PRINT(1, "ServiceList=%s  \n", list.c_str());
  if (list.size() >= sizeof saved) {
    AMS_PRINT(4, "%s not saved: the list of management WANs holds %zu bytes", path,
              sizeof saved - 1);
    return;
  }
  WriteSaved(list.c_str());
}

void DelNodeWANPath(const void *data, uint32_t len) {
  SavedList saved = "";
  std::string list;
  if (!WanPathFits(data, len)) {
    AMS_PRINT(4, "DelNodeWANPath Parameters Error");
    return;
  }
  if (ams_mxml_get_leaf_value(kSaved, saved) != 0)
    AMS_PRINT(4, "X_KVO_TR069WANSAVE  Get Value Failed\n");
  AMS_PRINT(1, "X_KVO_TR069WANSAVE  Value = %s\n", saved);
  if (!WithoutEntry(saved, static_cast<const char *>(data), &list)) return;
  WriteSaved(list.c_str());
  AMS_PRINT(1, "X_KVO_TR069WANSAVE Value:%s\n", list.c_str());
}

void MgtSrvrWanPresent(int32_t id, const void *data, uint32_t len) {
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

void MgtSrvrWanRemoved(int32_t id, const void *data, uint32_t len) {
  if (id != static_cast<int32_t>(EV_WAN_REMOVED) || !WanPathFits(data, len)) {
    AMS_PRINT(4, "MgtSrvrMsgDelSaveNode Parameters Error");
    return;
  }
  DelNodeWANPath(data, len);
}

const OpFuncEntry kMgtSrvrFuncTable[] = {
    {"FuncManagementServer", Op<kNamed, FuncManagementServer>},
    {"FuncManagementServerEventsI", nullptr},
    {"FuncManagementServerCTUserIPAddressI", nullptr},
    {nullptr, nullptr},
};

void MgtSrvrInit(int32_t, const void *, uint32_t) {
  appt_InitFuncTable(kMgtSrvrFuncTable);
  for (uint32_t id : {EV_WAN_ADDED, EV_WAN_CHANGED, EV_WAN_REMOVED})
    (void)TDS_RegisterNotifyList(id, "portmgr:wan"); /* logged; the list then stays as it is */
  AMS_PRINT(2, "MgtSrvr init success.");
}
