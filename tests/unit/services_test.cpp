// The services module: its table, the op functions that are a script call or two, the IPsec poll.
#include <cstdio>
#include <set>

#include "capabinfo_thread.h"
#include "ipsec_func.h"
#include "support.h"
#include "tunnel_func.h"
#include "voip_func.h"

namespace {

using Lines = std::vector<std::string>;

const std::string kServices = "InternetGatewayDevice.Services.";
const std::string kUserInfo = "InternetGatewayDevice.X_CT-COM_UserInfo.";
const std::string kRestartWeb = "InternetGatewayDevice.DeviceInfo.X_KVO-RestartWeb";
const char kBare[] =
    "<InternetGatewayDevice type=\"object\"><A type=\"string\"/></InternetGatewayDevice>";

class Services : public StoreTest {};

int Call(const std::string &name, int op, const std::string &path = "") {
  return RunOp(kCapabInfoFuncTable, name, op, path);
}

/* As the data model spells them, in the order in which the start calls them. */
const char *const kNames[] = {"FuncServicesMWBAND",
                              "FuncServIPTV",
                              "FuncServIPSec",
                              "FuncServIPSecTunnelList",
                              "FuncServIPSecCertificateList",
                              "FuncServIPSecCaCertificateList",
                              "FuncUserInfo",
                              "FuncUserInfoUserListI",
                              "FuncServTelnet",
                              "FuncServSSH",
                              "FuncServPrinter",
                              "FuncServFTP",
                              "FuncServTFTP",
                              "FuncServSNMP",
                              "FuncServSamba",
                              "FuncDlnaServer",
                              "FuncRemoteAccess",
                              "FuncSCL",
                              "FuncSrvLists",
                              "FuncWOL",
                              "FuncServVoipServ",
                              "FuncServVoiceProfile",
                              "FuncServVoipSIPI",
                              "FuncServVoipH248I",
                              "FuncServVoipRTP",
                              "FuncServVoipNmuPlan",
                              "FuncServVoipFaxT38",
                              "FuncServVoipG711Fax",
                              "FuncServVoipLines",
                              "FuncServVoipExtComm",
                              "FuncServVoipIMS",
                              "FuncServVoipExt",
                              "FuncServVoipSIP",
                              "FuncServVoipH248",
                              "FuncServVoipCodecList",
                              "FuncServVoipVoiceProcess",
                              "FuncServVoipFlashHook",
                              "FuncServVoipLineStats",
                              "FuncServVoipIADDiag",
                              "FuncServVoipCID",
                              "FuncServVoipJitter",
                              "FuncServVoicePhyIf",
                              "FuncServVoipPhyTest",
                              "FuncServVoipSimulateTest",
                              "FuncServVoipStats",
                              "FuncServVoipPoorQuaList",
                              "FuncServVoipCapbility",
                              "FuncServVoipCapCodec",
                              "FuncServAction",
                              "FuncServVoipCF",
                              "FuncServGRETunnel",
                              "FuncServGRETunnelList",
                              "FuncServL2TP",
                              "FuncServL2TPLac",
                              "FuncServL2TPLacStats",
                              "FuncServL2TPLacConnInfo",
                              "FuncServL2TPLnsStats",
                              "FuncServL2TPLnsConnInfo",
                              "FuncServL2TPLns",
                              "FuncServL2TPUserList",
                              "FuncServVpnLite",
                              "FuncServVpnLiteRouteList",
                              "FuncServVpnLiteStats",
                              "FuncServVpnLiteConnInfo",
                              "FuncRateLimitCfg",
                              "FuncRateLimitPerPortCfg",
                              "FuncRateLimitPerIPCfg",
                              "FuncServShortMsg",
                              "FuncServShortMsgSend",
                              "FuncServShortMsgUssdSend",
                              "FuncZabbix",
                              "FuncConnRecovery",
                              "FuncDongleWanKeep",
                              "FuncStatusUpdater",
                              "FuncServFotaUpgrade",
                              "FuncVrrp",
                              "FuncIpSla"};

TEST_F(Services, TableIsWhole) {
  const OpFuncEntry *row = kCapabInfoFuncTable;
  for (const char *name : kNames) {
    ASSERT_NE(row->name, nullptr) << name;
    EXPECT_STREQ(row->name, name);
    ++row;
  }
  EXPECT_EQ(row->name, nullptr);
}

TEST_F(Services, EveryHandlerLogsWhatItIsAsked) {
  int32_t level = DF_PRT_MAP[0].level;
  for (const OpFuncEntry *row = kCapabInfoFuncTable; row->name != nullptr; ++row) {
    if (row->handler == nullptr) continue;
    DF_PRT_MAP[0].level = 2;
    testing::internal::CaptureStderr();
    (void)RunOp(kCapabInfoFuncTable, row->name, TMF_GET, "A.B", "x"); /* each has its own test */
    std::string log = testing::internal::GetCapturedStderr();
    DF_PRT_MAP[0].level = level;
    EXPECT_NE(log.find("op: 1, path: A.B, value: x"), log.npos) << row->name << ": " << log;
  }
}

/* Tunnels and voice, which have tests of their own. */
bool HasOtherOps(const OpFuncEntry &row) {
  return row.handler == FuncTunnelScripts || row.handler == FuncServIPSecTunnelList ||
         row.handler == FuncHandleVoip || row.handler == FuncServVoipLineStats;
}

TEST_F(Services, OtherOpsRunNothing) {
  SetLeaf(kServices + "ServiceTelnet.Enable", "1");
  for (const OpFuncEntry *row = kCapabInfoFuncTable; row->name != nullptr; ++row) {
    if (row->handler == nullptr || HasOtherOps(*row)) continue;
    for (int op : {TMF_GET, TMF_ADD, TMF_DEL}) {
      if (row->name == std::string("FuncSrvLists") && op != TMF_GET)
        continue; /* it acts on these */
      EXPECT_EQ(Call(row->name, op, "A.1"), 0) << row->name << " op " << op;
    }
  }
  EXPECT_EQ(TakeCommands(), Lines{});
}

const std::set<std::string> kNullIsFine = {"FuncUserInfo", "FuncSCL", "FuncSrvLists"};

TEST_F(Services, NullArgument) {
  for (const OpFuncEntry *row = kCapabInfoFuncTable; row->name != nullptr; ++row) {
    if (row->handler == nullptr) continue;
    int result = kNullIsFine.count(row->name) == 1 ? 0 : -1;
    EXPECT_EQ(row->handler(nullptr), result) << row->name;
  }
}

/* ---- one or two lines ---- */

struct ServiceCase {
  const char *what, *name;
  int op;
  std::string leaf, value; /* set before, when there is one */
  Lines lines;
};

const ServiceCase kCases[] = {
    {"status updater at start",
     "FuncStatusUpdater",
     TMF_INIT,
     "",
     "",
     {"killall status_updater.sh >/dev/null 2>&1", "/usr/syscfg/status_updater.sh &"}},
    {"status updater set",
     "FuncStatusUpdater",
     TMF_SET,
     "",
     "",
     {"killall status_updater.sh >/dev/null 2>&1", "/usr/syscfg/status_updater.sh &"}},
    {"dongle at start",
     "FuncDongleWanKeep",
     TMF_INIT,
     "",
     "",
     {"killall dongle_wan_keep.sh >/dev/null 2>&1", "/usr/syscfg/dongle_wan_keep.sh &"}},
    {"dongle set",
     "FuncDongleWanKeep",
     TMF_SET,
     "",
     "",
     {"killall dongle_wan_keep.sh >/dev/null 2>&1", "/usr/syscfg/dongle_wan_keep.sh &"}},
    {"recovery at start",
     "FuncConnRecovery",
     TMF_INIT,
     "",
     "",
     {"killall conn_recovery.sh >/dev/null 2>&1", "/usr/syscfg/conn_recovery.sh 1 &",
      "/usr/syscfg/conn_recovery.sh 2 &"}},
    {"recovery set",
     "FuncConnRecovery",
     TMF_SET,
     "",
     "",
     {"killall conn_recovery.sh >/dev/null 2>&1", "/usr/syscfg/conn_recovery.sh 1 &",
      "/usr/syscfg/conn_recovery.sh 2 &"}},
    {"zabbix at start", "FuncZabbix", TMF_INIT, "", "", {"/usr/syscfg/zabbix_agent.sh &"}},
    {"zabbix set", "FuncZabbix", TMF_SET, "", "", {"/usr/syscfg/zabbix_agent.sh &"}},
    {"remote access at start", "FuncRemoteAccess", TMF_INIT, "", "", {}},
    {"remote access set", "FuncRemoteAccess", TMF_SET, "", "", {"/usr/syscfg/remote_access.sh &"}},
    {"upgrade only logs", "FuncServFotaUpgrade", TMF_SET, "", "", {}},
    {"registered",
     "FuncUserInfo",
     TMF_SET,
     kUserInfo + "Result",
     "1",
     {"/usr/syscfg/led.sh internet_wan on 1"}},
    {"any other result",
     "FuncUserInfo",
     TMF_SET,
     kUserInfo + "Result",
     "2",
     {"/usr/syscfg/led.sh internet_wan off 1"}},
    {"registered, at start", "FuncUserInfo", TMF_INIT, kUserInfo + "Result", "1", {}},
    {"wake",
     "FuncWOL",
     TMF_SET,
     kServices + "ServiceWOL.MACAddr",
     "02:00:00:00:00:09",
     {"etherwake -i br0 -b 02:00:00:00:00:09 &"}},
    {"wake at start",
     "FuncWOL",
     TMF_INIT,
     kServices + "ServiceWOL.MACAddr",
     "02:00:00:00:00:09",
     {}},
    {"SLA on",
     "FuncIpSla",
     TMF_SET,
     kServices + "ServiceIPSLA.Enable",
     "1",
     {"/usr/syscfg/ipsla.sh stop", "/usr/syscfg/ipsla.sh start&"}},
    {"SLA off",
     "FuncIpSla",
     TMF_INIT,
     kServices + "ServiceIPSLA.Enable",
     "0",
     {"/usr/syscfg/ipsla.sh stop&"}},
    {"VRRP on",
     "FuncVrrp",
     TMF_INIT,
     kServices + "ServiceVRRP.Enable",
     "1",
     {"/usr/syscfg/vrrp.sh stop", "/usr/syscfg/vrrp.sh start&"}},
    {"VRRP off",
     "FuncVrrp",
     TMF_SET,
     kServices + "ServiceVRRP.Enable",
     "",
     {"/usr/syscfg/vrrp.sh stop&"}},
    {"media on",
     "FuncDlnaServer",
     TMF_SET,
     kServices + "ServiceDLNA.Enable",
     "1",
     {"/usr/syscfg/media.sh dlna &"}},
    {"media off",
     "FuncDlnaServer",
     TMF_INIT,
     kServices + "ServiceDLNA.Enable",
     "0",
     {"killall minidlna >/dev/null 2>&1"}},
};

TEST_F(Services, RunTheirScripts) {
  for (const ServiceCase &one : kCases) {
    if (!one.leaf.empty()) SetLeaf(one.leaf, one.value);
    EXPECT_EQ(Call(one.name, one.op), 0) << one.what;
    EXPECT_EQ(TakeCommands(), one.lines) << one.what;
  }
}

/* What a service does that the data model has no parameters for. */
TEST_F(Services, ModelWithoutTheParameters) {
  const std::pair<const char *, Lines> cases[] = {
      {"FuncIpSla", {}},
      {"FuncVrrp", {}},
      {"FuncDlnaServer", {}},
      {"FuncUserInfo", {"/usr/syscfg/led.sh internet_wan off 1"}},
      {"FuncWOL", {"etherwake -i br0 -b  &"}},
  };
  LoadModel(kBare);
  for (const auto &[name, lines] : cases) {
    EXPECT_EQ(Call(name, TMF_SET), 0) << name;
    EXPECT_EQ(TakeCommands(), lines) << name;
  }
}

/* ---- user list ---- */

TEST_F(Services, UserListRestartsTheWebServerAndTellsOthers) {
  StartModules();
  const std::string path = kUserInfo + "UserList.1";
  const char *script = "/usr/syscfg/httpd.sh", *aside = "/usr/syscfg/httpd.aside";
  RunOnModule([&] { EXPECT_EQ(Call("FuncUserInfoUserListI", TMF_INIT, path), 0); });
  EXPECT_EQ(TakeCommands(), Lines{});
  RunOnModule([&] { EXPECT_EQ(Call("FuncUserInfoUserListI", TMF_SET, path), 0); });
  EXPECT_EQ(TakeCommands(), Lines{"/usr/syscfg/httpd.sh restart &"});
  EXPECT_EQ(Leaf(kRestartWeb), "1");
  EXPECT_EQ(AwaitMessage(0x100054).payload, path + '\0');

  SetLeaf(kRestartWeb, "0");
  ASSERT_EQ(rename(script, aside), 0) << "the test needs the gateway's root file system";
  RunOnModule([&] { EXPECT_EQ(Call("FuncUserInfoUserListI", TMF_SET, path), 0); });
  EXPECT_EQ(rename(aside, script), 0);
  EXPECT_EQ(TakeCommands(), Lines{});
  EXPECT_EQ(Leaf(kRestartWeb), "0");
  EXPECT_EQ(AwaitMessage(0x100054).payload, path + '\0') << "also without the script";
}

/* The whole way: request, op function, notification, timer. */
TEST_F(Services, UserListAppliesSamba) {
  StartModules();
  char url[AMS_PATH_SIZE];
  ASSERT_EQ(ams_add_obj(gptXmlTrees->root, (kUserInfo + "UserList").c_str(), url), 0);
  EXPECT_EQ(Request("sysmgr:capabinfo", APPT_CMD_SET, url, "Name=guest").result, 0);
  EXPECT_EQ(AwaitCommand("killall -q smbd"),
            (Lines{"/usr/syscfg/httpd.sh restart &", "killall -q nmbd", "killall -q smbd"}));
}

/* ---- IPsec ---- */

const std::string kIpsec = kServices + "X_KVO_IPSec.";
const char kInUse[] = "cat /var/ipsec/racoon.conf | grep remote | cut -d ' ' -f 2";

std::string Get(int row) {
  return "/usr/syscfg/ipsec_cfg.sh get " + kIpsec + "TunnelList." + std::to_string(row) + " ";
}
std::string Set(int row) {
  return "/usr/syscfg/ipsec_cfg.sh set " + kIpsec + "TunnelList." + std::to_string(row) + " &";
}
std::string Resolve(const std::string &name) {
  return "resolveip -t 5 " + name + " | tr '\n' ' ' | cut -d ' ' -f 1";
}

struct Tunnel {
  std::string status, peer;
};

struct PollCase {
  const char *what;
  std::vector<Tunnel> tunnels;
  Lines answers; /* "(fails)": popen itself fails */
  Lines lines;
};

const std::string kLongName(90, 'n');

const PollCase kPolls[] = {
    {"no tunnel", {}, {}, {}},
    {"a connected tunnel is left alone", {{"Connected", "a.example"}}, {}, {Get(1)}},
    {"so is a dotted address", {{"Down", "192.0.2.1"}}, {}, {Get(1)}},
    {"the address is still the same",
     {{"Down", "a.example"}},
     {"192.0.2.1\n", "192.0.2.1\n"},
     {Get(1), kInUse, Resolve("a.example")}},
    {"the address changed",
     {{"", "a.example"}},
     {"192.0.2.1\n", "192.0.2.2\n"},
     {Get(1), kInUse, Resolve("a.example"), Set(1)}},
    {"longest address",
     {{"", "a.example"}},
     {"192.168.200.201\n", "192.168.200.202\n"},
     {Get(1), kInUse, Resolve("a.example"), Set(1)}},
    {"more output is cut off",
     {{"", "a.example"}},
     {"192.168.200.201 x\n", "192.168.200.201\n"},
     {Get(1), kInUse, Resolve("a.example")}},
    {"only the first remote line counts",
     {{"", "a.example"}},
     {"192.0.2.1\n192.0.2.2\n", "192.0.2.1\n"},
     {Get(1), kInUse, Resolve("a.example")}},
    {"no address in use",
     {{"", "a.example"}},
     {"", "192.0.2.2\n"},
     {Get(1), kInUse, Resolve("a.example"), Set(1)}},
    {"no shell for the address in use",
     {{"", "a.example"}},
     {"(fails)", "192.0.2.2\n"},
     {Get(1), kInUse, Resolve("a.example"), Set(1)}},
    {"neither address", {{"", "a.example"}}, {"", ""}, {Get(1), kInUse, Resolve("a.example")}},
    {"a name that does not resolve keeps the row before's address",
     {{"", "a.example"}, {"", "b.example"}},
     {"192.0.2.1\n", "192.0.2.1\n", "192.0.2.1\n", ""},
     {Get(1), kInUse, Resolve("a.example"), Get(2), kInUse, Resolve("b.example")}},
    {"a name too long for the line is not resolved",
     {{"", kLongName}},
     {"192.0.2.1\n"},
     {Get(1), kInUse, Set(1)}},
    {"every row is polled",
     {{"Connected", ""}, {"", "192.0.2.1"}, {"Connected", ""}},
     {},
     {Get(1), Get(2), Get(3)}},
};

void AddTunnel(const Tunnel &tunnel) {
  char url[AMS_PATH_SIZE];
  ASSERT_EQ(ams_add_obj(gptXmlTrees->root, (kIpsec + "TunnelList").c_str(), url), 0);
  SetLeaf(std::string(url) + ".ConnectionStatus", tunnel.status);
  SetLeaf(std::string(url) + ".RemoteGatewayAddress", tunnel.peer);
}

TEST_F(Services, IpsecPollFollowsThePeers) {
  StartModules();
  for (const PollCase &one : kPolls) {
    LoadModel(DataModel());
    for (const Tunnel &tunnel : one.tunnels) AddTunnel(tunnel);
    for (const std::string &answer : one.answers)
      if (answer == "(fails)")
        FailPopen();
      else
        AnswerPopen(answer);
    RunOnModule([] { RunMessage(kCapabInfoMsgTable, TDS_MSG_TIMER + CAPABINFO_TIMER_IPSEC); });
    EXPECT_EQ(TakeCommands(), one.lines) << one.what;
  }
  EXPECT_EQ(AwaitMessage(TDS_MSG_TIMER + CAPABINFO_TIMER_IPSEC).peer, "sysmgr:test");
}

}  // namespace
