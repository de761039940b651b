// The op functions of "InternetGatewayDevice.DeviceInfo." and its neighbours: each turns an op into
// a script run, a daemon's restart, a message or a status write. All on the module's thread.
#include "devinfo_func.h"

#include <sys/socket.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>

#include "ams_config_api.h"
#include "ams_config_shell.h"
#include "devinfo_thread.h"
#include "download_func.h"
#include "free_ports.h"
#include "nvram.h"
#include "op_rows.h"
#include "op_values.h"

namespace {

#define DEVICE_INFO "InternetGatewayDevice.DeviceInfo."
#define USB_DEVICE  "InternetGatewayDevice.X_CT-COM_USBDevice."

constexpr uint32_t kUptimePeriod = 1000;           /* ms */
constexpr uint32_t kRestoreDelay = 1200;           /* ms; the USB storage is mounted by then */
constexpr uint32_t kLogSettingsChanged = 0x100021; /* to "utils:logmgt" */

const OpForm kNamed = {__FILE__, __LINE__, -1, nullptr};
/* Unlike their neighbours these take a null argument. */
const OpForm kLenient = {__FILE__, __LINE__, 0, nullptr};

const Script kAlgAbility = {{{ON_INIT | ON_SET, "/usr/syscfg/alg.sh set"}}};

const Script kUpnp = {{
    {ON_SET, "/usr/syscfg/miniupnpd.sh remove"},
    {ON_INIT | ON_SET, "/usr/syscfg/miniupnpd.sh upnp_server"},
    {ON_INIT | ON_SET, "/usr/syscfg/miniupnpd.sh blacklist_init"},
    {ON_GET, "/usr/syscfg/miniupnpd.sh blacklist_num"},
}};

const Script kUpnpBlackList = {{
    {ON_ADD, "/usr/syscfg/miniupnpd.sh blacklist_add %d", ARG_INSTANCE},
    {ON_DEL, "/usr/syscfg/miniupnpd.sh blacklist_del %d", ARG_INSTANCE},
    {ON_SET, "/usr/syscfg/miniupnpd.sh blacklist_set %s", ARG_PATH},
}};

/* These two write their values into the store themselves. */
const Script kCpuState = {{{ON_GET, "/usr/syscfg/cpuState.sh path=%s >/dev/null 2>&1", ARG_PATH}}};
const Script kMemoryState = {
    {{ON_GET, "/usr/syscfg/memoryState.sh path=%s >/dev/null 2>&1", ARG_PATH}}};

/* What this process started; both are off after a restart of the process, whatever runs then. */
bool debug_tool_on = false, one_bit_on = false;

void CopyMacAddress() {
  char *address = nvram_get("MAC", NVTYPE_BASIC);
  if (address == nullptr) return;
  (void)cfgStatusSetStr(DEVICE_INFO "MacAddress", address); /* logged by the store */
  free(address);
}

int FuncDeviceInfo(OpFuncArg *arg) {
  switch (arg->op) {
    case TMF_INIT:
      CopyMacAddress();
      return 0;
    case TMF_GET:
    case TMF_SET:
      return 0;
    default:
      return -1;
  }
}

int FuncTeleComAccount(OpFuncArg *arg) {
  if (arg->op != TMF_SET) return 0;
  if (cfgSystemCmd("killall -9 uhttpd") != 0) return -1;
  AwaitFreePorts(SOCK_STREAM, {80});
  return cfgSystemCmd("uhttpd -f -p :80 -h /www &");
}

int FuncSyslog(OpFuncArg *arg) {
  static const char kWho[] = "FuncLogger";
  /* A failure was logged by the runtime: the log service reads its settings at its start. */
  if (arg->op == TMF_SET) (void)SendMsg(kLogSettingsChanged, kWho, sizeof kWho, "utils:logmgt");
  return 0;
}

/* The request holds for one start: it is taken back before the timer is armed. */
int FuncRestore(OpFuncArg *arg) {
  const char *enable = DEVICE_INFO "X_CT-COM_Restore.Enable";
  if (arg->op != TMF_INIT || LeafInt(enable) != 1) return 0;
  (void)ams_set_node_value(gptXmlTrees->root, enable, "0"); /* both log their failures */
  (void)SetTimer(DEVINFO_TIMER_RESTORE, kRestoreDelay);
  return 0;
}

/* Not every board has the script. Run without the log line of cfgSystemCmd. */
void RunNeighbour(const char *line) {
  if (access("/usr/syscfg/neigh/neigh.sh", X_OK) != 0) return;
  cfgShell(line);
}

int FuncPortalManagement(OpFuncArg *arg) {
  if (IsInitOrSet(arg->op)) RunNeighbour("/usr/syscfg/neigh/neigh.sh portal");
  return 0;
}

int FuncServicesMWBAND(OpFuncArg *arg) {
  if (IsInitOrSet(arg->op)) RunNeighbour("/usr/syscfg/neigh/neigh.sh clilmt");
  return 0;
}

/* A text for a command line. One that is cut to this is too long for the line, which is refused. */
using LineText = char[512];

/* Runs what brings a switch from `*on` to the value of its parameter: nothing when it is there
   already. 0, also for a value that is refused (logged); -1 when a line was not taken: the switch
   counts as not moved then. `name` is the parameter's in the log. */
int Switch(const char *path, const char *name, bool *on, std::initializer_list<std::string> start,
           std::initializer_list<std::string> stop) {
  std::string value = "NULL";
  (void)LeafString(path, &value); /* stays without the node */
  if (value != "0" && value != "1") {
    AMS_PRINT(4, "op FuncServiceManage: %s %s, is not a proper value.", name, value.c_str());
    return 0;
  }
  bool wanted = value == "1";
  if (wanted == *on) return 0;
  for (const std::string &line : wanted ? start : stop)
    if (cfgSystemCmd("%s", line.c_str()) != 0) return -1;
  *on = wanted;
  return 0;
}

#define SERVICE_MANAGE DEVICE_INFO "X_CT-COM_ServiceManage."

int FuncServiceManage(OpFuncArg *arg) {
  if (!IsInitOrSet(arg->op)) return 0;
  std::string port; /* stays empty without the node */
  (void)LeafString(SERVICE_MANAGE "X_KVO_DebugToolPort", &port);
  if (Switch(SERVICE_MANAGE "X_KVO_DebugToolEnable", "DebugToolEnable", &debug_tool_on,
             {"xdsldiag_srv --port " + port + " &"}, {"killall xdsldiag_srv"}) != 0)
    return -1; /* the values go back, so the other switch must not move either */
  return Switch(SERVICE_MANAGE "X_KVO_OneBitEnable", "oneBitEn", &one_bit_on,
                {"xdsl_cli set -us0 on &", "xdsl_cli set -1bit on &"},
                {"xdsl_cli set -us0 off &", "xdsl_cli set -1bit off &"});
}

int FuncKVO_TR69Upload(OpFuncArg *arg) {
  if (arg->op != TMF_SET) return 0;
  puts("FuncKVO_TR69Upload ########");
  cfgSystemCmd("/usr/syscfg/tr069_proc.sh Upload &");
  return 0;
}

}  // namespace

/* Whatever storage there is, only the first partition of the first device is used. */
void DevInfoRestoreFromUsb(int32_t, const void *, uint32_t) {
  LineText mount_point = "";
  if (LeafInt(USB_DEVICE "StorageNumberOfEntries") < 1) return;
  if (ams_mxml_get_leaf_value(USB_DEVICE "Storage.1.Partitions.1.MountPoint", mount_point) != 0 ||
      *mount_point == '\0')
    return;
  cfgSystemCmd("%s %s %s &", "/usr/syscfg/backup.sh", "restore", mount_point);
}

/* The timer comes first, so that the value is refreshed for ever whatever the store says. */
void DevInfoUpTimeRefresh(int32_t, const void *, uint32_t) {
  struct sysinfo info = {};
  char seconds[16];
  int up_time = sysinfo(&info) == 0 ? static_cast<int>(info.uptime) : 0;
  snprintf(seconds, sizeof seconds, "%d", up_time);
  (void)SetTimer(DEVINFO_TIMER_UPTIME, kUptimePeriod); /* both log their failures */
  (void)cfgStatusSetStr(DEVICE_INFO "UpTime", seconds);
}

const OpFuncEntry kDevInfoFuncTable[] = {
    {"FuncDeviceInfo", Op<kNamed, FuncDeviceInfo>},
    {"FuncVendorConfigFile", Op<kNamed, LogOnly>},
    {"FuncReConnect", Op<kNamed, LogOnly>},
    {"FuncPing", Op<kNamed, LogOnly>},
    {"FuncPingConfigI", Op<kNamed, LogOnly>},
    {"FuncALGAbility", SCRIPTED(kNamed, kAlgAbility)},
    {"FuncMiddlewareMgt", Op<kNamed, LogOnly>},
    {"FuncMonitor", Op<kNamed, LogOnly>},
    {"FuncMonitorConfigI", Op<kNamed, LogOnly>},
    {"FuncAlarm", Op<kNamed, LogOnly>},
    {"FuncDLNA", Op<kNamed, LogOnly>},
    {"FuncTeleComAccount", Op<kNamed, FuncTeleComAccount>},
    {"FuncSyslog", Op<kLenient, FuncSyslog>},
    {"FuncIPProtocolVersion", Op<kNamed, LogOnly>},
    {"FuncUPNP", SCRIPTED(kLenient, kUpnp)},
    {"FuncUPNPBlackListI", SCRIPTED(kNamed, kUpnpBlackList)},
    {"FuncRestore", Op<kNamed, FuncRestore>},
    {"FuncPortalManagement", Op<kNamed, FuncPortalManagement>},
    {"FuncServiceManage", Op<kNamed, FuncServiceManage>},
    {"FuncKVO_TR69Upload", Op<kNamed, FuncKVO_TR69Upload>},
    {"FuncKVO_TR69Download", Op<kNamed, FuncKVO_TR69Download>},
    {"FuncServicesMWBAND", Op<kNamed, FuncServicesMWBAND>},
    /* Second row of the name: a lookup finds the first, but the start calls both. */
    {"FuncPortalManagement", Op<kNamed, FuncPortalManagement>},
    {"FuncCPUState", SCRIPTED(kNamed, kCpuState)},
    {"FuncMemoryState", SCRIPTED(kNamed, kMemoryState)},
    {nullptr, nullptr},
};

void DevInfoInit(int32_t, const void *, uint32_t) {
  appt_InitFuncTable(kDevInfoFuncTable);
  (void)SetTimer(DEVINFO_TIMER_UPTIME, kUptimePeriod); /* logged by the runtime */
  AMS_PRINT(2, "DeviceInfo init success.");
}
