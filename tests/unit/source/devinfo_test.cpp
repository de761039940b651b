// The device-info module: the command lines of its op functions, its timers and its status writes.
#include <sys/sysinfo.h>

#include <chrono>
#include <cstdio>
#include <map>

#include "devinfo_func.h"
#include "devinfo_thread.h"
#include "nvram.h"
#include "support.h"

namespace {

using Lines = std::vector<std::string>;

const std::string kInfo = "InternetGatewayDevice.DeviceInfo.";
const std::string kUsb = "InternetGatewayDevice.X_CT-COM_USBDevice.";

class DevInfo : public StoreTest {};

int Call(const std::string &name, int op, const std::string &path = "") {
  return RunOp(kDevInfoFuncTable, name, op, path);
}

struct ScriptCase {
  const char *what, *name;
  int op;
  std::string path;
  Lines lines;
};

#define SCRIPT "/usr/syscfg/"
#define UPNP   "/usr/syscfg/miniupnpd.sh "
#define QUIET  " >/dev/null 2>&1"

const Lines kWeb = {"killall -9 uhttpd", "uhttpd -f -p :80 -h /www &"};
const char kBlack[] = "FuncUPNPBlackListI";

const ScriptCase kScripts[] = {
    {"ALG at start", "FuncALGAbility", TMF_INIT, "", {SCRIPT "alg.sh set"}},
    {"ALG set", "FuncALGAbility", TMF_SET, "", {SCRIPT "alg.sh set"}},
    {"account set", "FuncTeleComAccount", TMF_SET, "", kWeb},
    {"account at start", "FuncTeleComAccount", TMF_INIT, "", {}},
    {"UPnP at start", "FuncUPNP", TMF_INIT, "", {UPNP "upnp_server", UPNP "blacklist_init"}},
    {"UPnP get", "FuncUPNP", TMF_GET, "", {UPNP "blacklist_num"}},
    {"UPnP set",
     "FuncUPNP",
     TMF_SET,
     "",
     {UPNP "remove", UPNP "upnp_server", UPNP "blacklist_init"}},
    {"row added", kBlack, TMF_ADD, "A.List.12", {UPNP "blacklist_add 12"}},
    {"row deleted", kBlack, TMF_DEL, "A.List.3", {UPNP "blacklist_del 3"}},
    {"a path that ends in a dot", kBlack, TMF_DEL, "A.List.", {UPNP "blacklist_del 0"}},
    {"a path without a dot", kBlack, TMF_DEL, "7", {UPNP "blacklist_del 0"}},
    {"row set", kBlack, TMF_SET, "A.%n%s", {UPNP "blacklist_set A.%n%s"}},
    {"processor", "FuncCPUState", TMF_GET, "A.B", {SCRIPT "cpuState.sh path=A.B" QUIET}},
    {"memory", "FuncMemoryState", TMF_GET, "A.B", {SCRIPT "memoryState.sh path=A.B" QUIET}},
    {"memory state set", "FuncMemoryState", TMF_SET, "A.B", {}},
    {"upload", "FuncKVO_TR69Upload", TMF_SET, "", {SCRIPT "tr069_proc.sh Upload &"}},
    {"upload at start", "FuncKVO_TR69Upload", TMF_INIT, "", {}},
    {"portal", "FuncPortalManagement", TMF_SET, "", {SCRIPT "neigh/neigh.sh portal"}},
    {"portal get", "FuncPortalManagement", TMF_GET, "", {}},
    {"client limit", "FuncServicesMWBAND", TMF_INIT, "", {SCRIPT "neigh/neigh.sh clilmt"}},
};

TEST_F(DevInfo, RunsTheScripts) {
  for (const ScriptCase &one : kScripts) {
    EXPECT_EQ(Call(one.name, one.op, one.path), 0) << one.what;
    EXPECT_EQ(TakeCommands(), one.lines) << one.what;
  }
}

TEST_F(DevInfo, BoardWithoutNeighbourScript) {
  const char *script = "/usr/syscfg/neigh/neigh.sh", *aside = "/usr/syscfg/neigh/aside";
  ASSERT_EQ(rename(script, aside), 0) << "the test needs the gateway's root file system";
  EXPECT_EQ(Call("FuncPortalManagement", TMF_SET), 0);
  EXPECT_EQ(Call("FuncServicesMWBAND", TMF_SET), 0);
  EXPECT_EQ(rename(aside, script), 0);
  EXPECT_EQ(TakeCommands(), Lines{});
}

/* As the data model spells them, in the order in which the start calls them. */
const char kNames[] = R"(
FuncDeviceInfo FuncVendorConfigFile FuncReConnect FuncPing FuncPingConfigI FuncALGAbility
FuncMiddlewareMgt FuncMonitor FuncMonitorConfigI FuncAlarm FuncDLNA FuncTeleComAccount
FuncSyslog FuncIPProtocolVersion FuncUPNP FuncUPNPBlackListI FuncRestore FuncPortalManagement
FuncServiceManage FuncKVO_TR69Upload FuncKVO_TR69Download FuncServicesMWBAND
FuncPortalManagement FuncCPUState FuncMemoryState)";

TEST_F(DevInfo, TableIsWhole) { ExpectNames(kDevInfoFuncTable, kNames); }

TEST_F(DevInfo, NullArgument) {
  const std::map<std::string, int> results = {
      {"FuncDeviceInfo", -1}, {"FuncSyslog", 0}, {"FuncUPNP", 0}};
  for (const OpFuncEntry *row = kDevInfoFuncTable; row->name != nullptr; ++row)
    if (auto one = results.find(row->name); one != results.end()) {
      EXPECT_EQ(row->handler(nullptr), one->second) << row->name;
    }
  EXPECT_EQ(TakeCommands(), Lines{});
}

TEST_F(DevInfo, NamesThatOnlyLog) {
  for (const char *name :
       {"FuncVendorConfigFile", "FuncReConnect", "FuncPing", "FuncPingConfigI", "FuncMiddlewareMgt",
        "FuncMonitor", "FuncMonitorConfigI", "FuncAlarm", "FuncDLNA", "FuncIPProtocolVersion"})
    for (int op : {TMF_INIT, TMF_GET, TMF_SET, TMF_ADD, TMF_DEL}) {
      const std::string log =
          LogOf(2, [&] { EXPECT_EQ(RunOp(kDevInfoFuncTable, name, op, "A.B", "x=1"), 0) << name; });
      const std::string line = std::string(name) + ": op: " + std::to_string(op);
      EXPECT_NE(log.find(line + ", path: A.B, value: x=1\n"), log.npos) << log;
      EXPECT_EQ(TakeCommands(), Lines{}) << name;
    }
}

TEST_F(DevInfo, MacAddressComesFromTheBasicSettings) {
  ASSERT_EQ(nvram_unset("MAC", NVTYPE_BASIC), 0);
  SetLeaf(kInfo + "MacAddress", "before");
  EXPECT_EQ(Call("FuncDeviceInfo", TMF_INIT), 0);
  EXPECT_EQ(Leaf(kInfo + "MacAddress"), "before");
  ASSERT_EQ(nvram_set("MAC", "02:00:00:00:00:01", NVTYPE_BASIC), 0);
  EXPECT_EQ(Call("FuncDeviceInfo", TMF_SET), 0);
  EXPECT_EQ(Leaf(kInfo + "MacAddress"), "before") << "only the start refreshes it";
  EXPECT_EQ(Call("FuncDeviceInfo", TMF_INIT), 0);
  EXPECT_EQ(Leaf(kInfo + "MacAddress"), "02:00:00:00:00:01");
  EXPECT_EQ(Call("FuncDeviceInfo", TMF_ADD), -1);
}

TEST_F(DevInfo, LogServiceIsTold) {
  StartModules();
  EXPECT_EQ(Call("FuncSyslog", TMF_INIT), 0);
  EXPECT_EQ(Call("FuncSyslog", TMF_SET), 0);
  PeerMessage message = AwaitMessage(0x100021);
  EXPECT_EQ(message.peer, "utils:logmgt");
  EXPECT_EQ(message.payload, std::string("FuncLogger", 11));
}

/* ---- service management ---- */

struct SwitchStepCase {
  const char *what;
  std::string debug, one_bit;
  Lines lines;
  const char *complaint;
  int result = 0;
  std::string port = "9000";
};

const Lines kOneBitOn = {"xdsl_cli set -us0 on &", "xdsl_cli set -1bit on &"};
const Lines kAllOff = {"killall xdsldiag_srv", "xdsl_cli set -us0 off &",
                       "xdsl_cli set -1bit off &"};

/* One after the other: each starts from what the one before it left. */
const SwitchStepCase kSwitches[] = {
    {"both off", "0", "0", {}, ""},
    {"a line that does not fit", "1", "1", {}, "command not run", -1, std::string(600, '9')},
    {"off after it stops nothing", "0", "0", {}, ""},
    {"debug tool on", "1", "0", {"xdsldiag_srv --port 9000 &"}, ""},
    {"on again starts nothing", "1", "0", {}, ""},
    {"one-bit mode on", "1", "1", kOneBitOn, ""},
    {"no proper one-bit value", "1", "true", {}, "oneBitEn true, is not a proper value."},
    {"no proper tool value", "01", "1", {}, "DebugToolEnable 01, is not a proper value."},
    {"both off again", "0", "0", kAllOff, ""},
    {"a model without them", "", "", {}, "DebugToolEnable NULL, is not"},
};

TEST_F(DevInfo, ServiceSwitches) {
  for (const SwitchStepCase &one : kSwitches) {
    if (one.debug.empty())
      LoadModel("<InternetGatewayDevice type=\"object\"><A type=\"int\"/></InternetGatewayDevice>");
    else {
      SetLeaf(kInfo + "X_CT-COM_ServiceManage.X_KVO_DebugToolEnable", one.debug);
      SetLeaf(kInfo + "X_CT-COM_ServiceManage.X_KVO_OneBitEnable", one.one_bit);
      SetLeaf(kInfo + "X_CT-COM_ServiceManage.X_KVO_DebugToolPort", one.port);
    }
    const std::string log =
        LogOf(3, [&] { EXPECT_EQ(Call("FuncServiceManage", TMF_SET), one.result) << one.what; });
    EXPECT_EQ(TakeCommands(), one.lines) << one.what;
    EXPECT_NE(log.find(one.complaint), log.npos) << one.what << ": " << log;
    EXPECT_EQ(log.empty(), *one.complaint == '\0') << one.what << ": " << log;
  }
}

/* ---- restore and up-time ---- */

TEST_F(DevInfo, RestoreIsAskedForOnce) {
  StartModules();
  const std::string enable = kInfo + "X_CT-COM_Restore.Enable";
  SetLeaf(enable, "1");
  EXPECT_EQ(Call("FuncRestore", TMF_SET), 0);
  EXPECT_EQ(Leaf(enable), "1") << "only the start looks at it";
  auto start = std::chrono::steady_clock::now();
  RunOnModule([] { EXPECT_EQ(Call("FuncRestore", TMF_INIT), 0); });
  EXPECT_EQ(Leaf(enable), "0");
  EXPECT_EQ(AwaitMessage(TDS_MSG_TIMER).peer, "sysmgr:test");
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1200));
}

/* Adds `storages` devices with a partition each and gives the first a mount point. */
void PlugUsb(int storages, const std::string &mount_point) {
  char url[AMS_PATH_SIZE];
  for (int i = 1; i <= storages; ++i) {
    std::string storage = kUsb + "Storage." + std::to_string(i);
    ASSERT_EQ(ams_add_obj(gptXmlTrees->root, (kUsb + "Storage").c_str(), url), 0);
    ASSERT_EQ(ams_add_obj(gptXmlTrees->root, (storage + ".Partitions").c_str(), url), 0);
    SetLeaf(storage + ".Partitions.1.MountPoint", i == 1 ? mount_point : "/mnt/other");
  }
}

TEST_F(DevInfo, RestoresFromTheFirstPartition) {
  const Lines restore = {"/usr/syscfg/backup.sh restore /mnt/usb1 &"};
  const struct {
    const char *what;
    int storages;
    std::string mount_point;
    Lines lines;
  } cases[] = {
      {"no storage", 0, "", {}},
      {"two: the first counts", 2, "/mnt/usb1", restore},
      {"not mounted", 2, "", {}},
  };
  for (const auto &one : cases) {
    LoadModel(DataModel());
    PlugUsb(one.storages, one.mount_point);
    RunMessage(kDevInfoMsgTable, TDS_MSG_TIMER);
    EXPECT_EQ(TakeCommands(), one.lines) << one.what;
  }
}

TEST_F(DevInfo, UpTimeIsRefreshedAgainAndAgain) {
  StartModules();
  struct sysinfo before, after;
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(sysinfo(&before), 0);
    SetLeaf(kInfo + "UpTime", "unset");
    auto start = std::chrono::steady_clock::now();
    RunOnModule([] { RunMessage(kDevInfoMsgTable, TDS_MSG_TIMER + DEVINFO_TIMER_UPTIME); });
    long up_time = atol(Leaf(kInfo + "UpTime").c_str());
    ASSERT_EQ(sysinfo(&after), 0);
    EXPECT_GE(up_time, before.uptime);
    EXPECT_LE(up_time, after.uptime);
    EXPECT_EQ(AwaitMessage(TDS_MSG_TIMER + DEVINFO_TIMER_UPTIME).peer, "sysmgr:test");
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1000));
  }
}

}  // namespace
