// The services module: its table, the op functions that are a script call or two, the IPsec poll.
#include <cstdio>
#include <cstring>
#include <map>
#include <set>

#include "capabinfo_thread.h"
#include "ipsec_func.h"
#include "services_func.h"
#include "sms_func.h"
#include "support.h"
#include "voip_func.h"

namespace {

using Lines = std::vector<std::string>;

const std::string kServices = "InternetGatewayDevice.Services.";
const std::string kUserInfo = "InternetGatewayDevice.X_CT-COM_UserInfo.";
const std::string kRestartWeb = "InternetGatewayDevice.DeviceInfo.X_KVO-RestartWeb";
class Services : public StoreTest {};

int Call(const std::string &name, int op, const std::string &path = "") {
  return RunOp(kCapabInfoFuncTable, name, op, path);
}

/* As the data model spells them, in the order in which the start calls them. */
const char kNames[] = R"(
FuncServicesMWBAND FuncServIPTV FuncServIPSec FuncServIPSecTunnelList
FuncServIPSecCertificateList FuncServIPSecCaCertificateList FuncUserInfo FuncUserInfoUserListI
FuncServTelnet FuncServSSH FuncServPrinter FuncServFTP FuncServTFTP FuncServSNMP FuncServSamba
FuncDlnaServer FuncRemoteAccess FuncSCL FuncSrvLists FuncWOL FuncServVoipServ
FuncServVoiceProfile FuncServVoipSIPI FuncServVoipH248I FuncServVoipRTP FuncServVoipNmuPlan
FuncServVoipFaxT38 FuncServVoipG711Fax FuncServVoipLines FuncServVoipExtComm FuncServVoipIMS
FuncServVoipExt FuncServVoipSIP FuncServVoipH248 FuncServVoipCodecList FuncServVoipVoiceProcess
FuncServVoipFlashHook FuncServVoipLineStats FuncServVoipIADDiag FuncServVoipCID
FuncServVoipJitter FuncServVoicePhyIf FuncServVoipPhyTest FuncServVoipSimulateTest
FuncServVoipStats FuncServVoipPoorQuaList FuncServVoipCapbility FuncServVoipCapCodec
FuncServAction FuncServVoipCF FuncServGRETunnel FuncServGRETunnelList FuncServL2TP
FuncServL2TPLac FuncServL2TPLacStats FuncServL2TPLacConnInfo FuncServL2TPLnsStats
FuncServL2TPLnsConnInfo FuncServL2TPLns FuncServL2TPUserList FuncServVpnLite
FuncServVpnLiteRouteList FuncServVpnLiteStats FuncServVpnLiteConnInfo FuncRateLimitCfg
FuncRateLimitPerPortCfg FuncRateLimitPerIPCfg FuncServShortMsg FuncServShortMsgSend
FuncServShortMsgUssdSend FuncZabbix FuncConnRecovery FuncDongleWanKeep FuncStatusUpdater
FuncServFotaUpgrade FuncVrrp FuncIpSla)";

TEST_F(Services, TableIsWhole) { ExpectNames(kCapabInfoFuncTable, kNames); }

TEST_F(Services, EveryHandlerLogsWhatItIsAsked) {
  for (const OpFuncEntry *row = kCapabInfoFuncTable; row->name != nullptr; ++row) {
    if (row->handler == nullptr) continue;
    const std::string log = LogOf(2, [row] {
      (void)RunOp(kCapabInfoFuncTable, row->name, TMF_GET, "A.B", "x"); /* each has its own test */
    });
    EXPECT_NE(log.find("op: 1, path: A.B, value: x"), log.npos) << row->name << ": " << log;
  }
}

/* Scripts, voice and the menu of service codes, which have tests of their own. */
bool HasOtherOps(const OpFuncEntry &row) {
  return row.script != nullptr || strstr(row.name, "FuncServVo") == row.name ||
         row.name == std::string("FuncServIPSecTunnelList") ||
         row.name == std::string("FuncServShortMsgUssdSend");
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
  std::vector<int> ops;
  std::string leaf, value; /* set before, when there is one */
  Lines lines;
};

const std::vector<int> kInit = {TMF_INIT}, kSet = {TMF_SET}, kBoth = {TMF_INIT, TMF_SET};
const std::string kSla = kServices + "ServiceIPSLA.Enable";
const std::string kVrrp = kServices + "ServiceVRRP.Enable";
const std::string kMedia = kServices + "ServiceDLNA.Enable";
const std::string kWake = kServices + "ServiceWOL.MACAddr", kMac = "02:00:00:00:00:09";
const std::string kResult = kUserInfo + "Result";

#define SCRIPT "/usr/syscfg/"
#define QUIET  " >/dev/null 2>&1"

const Lines kUpdater = {"killall status_updater.sh" QUIET, SCRIPT "status_updater.sh &"};
const Lines kDongle = {"killall dongle_wan_keep.sh" QUIET, SCRIPT "dongle_wan_keep.sh &"};
const Lines kRecovery = {"killall conn_recovery.sh" QUIET, SCRIPT "conn_recovery.sh 1 &",
                         SCRIPT "conn_recovery.sh 2 &"};

const ServiceCase kCases[] = {
    {"status updater", "FuncStatusUpdater", kBoth, "", "", kUpdater},
    {"dongle", "FuncDongleWanKeep", kBoth, "", "", kDongle},
    {"recovery", "FuncConnRecovery", kBoth, "", "", kRecovery},
    {"zabbix", "FuncZabbix", kBoth, "", "", {SCRIPT "zabbix_agent.sh &"}},
    {"remote access at start", "FuncRemoteAccess", kInit, "", "", {}},
    {"remote access set", "FuncRemoteAccess", kSet, "", "", {SCRIPT "remote_access.sh &"}},
    {"upgrade only logs", "FuncServFotaUpgrade", kBoth, "", "", {}},
    {"registered", "FuncUserInfo", kSet, kResult, "1", {SCRIPT "led.sh internet_wan on 1"}},
    {"other result", "FuncUserInfo", kSet, kResult, "2", {SCRIPT "led.sh internet_wan off 1"}},
    {"registered, at start", "FuncUserInfo", kInit, kResult, "1", {}},
    {"wake", "FuncWOL", kSet, kWake, kMac, {"etherwake -i br0 -b 02:00:00:00:00:09 &"}},
    {"wake at start", "FuncWOL", kInit, kWake, kMac, {}},
    {"SLA on", "FuncIpSla", kBoth, kSla, "1", {SCRIPT "ipsla.sh stop", SCRIPT "ipsla.sh start&"}},
    {"SLA off", "FuncIpSla", kBoth, kSla, "0", {SCRIPT "ipsla.sh stop&"}},
    {"VRRP on", "FuncVrrp", kBoth, kVrrp, "1", {SCRIPT "vrrp.sh stop", SCRIPT "vrrp.sh start&"}},
    {"VRRP off", "FuncVrrp", kBoth, kVrrp, "", {SCRIPT "vrrp.sh stop&"}},
    {"media on", "FuncDlnaServer", kBoth, kMedia, "1", {SCRIPT "media.sh dlna &"}},
    {"media off", "FuncDlnaServer", kBoth, kMedia, "0", {"killall minidlna" QUIET}},
};

TEST_F(Services, RunTheirScripts) {
  for (const ServiceCase &one : kCases)
    for (int op : one.ops) {
      if (!one.leaf.empty()) SetLeaf(one.leaf, one.value);
      EXPECT_EQ(Call(one.name, op), 0) << one.what << ", op " << op;
      EXPECT_EQ(TakeCommands(), one.lines) << one.what << ", op " << op;
    }
}

/* What a service does that the data model has no parameters for. */
TEST_F(Services, ModelWithoutTheParameters) {
  const std::pair<const char *, Lines> cases[] = {
      {"FuncServTelnet", {"killall telnetd" QUIET}},
      {"FuncServSSH", {"killall dropbear" QUIET}},
      {"FuncServPrinter", {"killall lpdsrv" QUIET}},
      {"FuncServTFTP", {}},
      {"FuncServFTP", {}},
      {"FuncServSNMP", {}},
      {"FuncIpSla", {}},
      {"FuncVrrp", {}},
      {"FuncDlnaServer", {}},
      {"FuncUserInfo", {"/usr/syscfg/led.sh internet_wan off 1"}},
      {"FuncWOL", {"etherwake -i br0 -b  &"}},
  };
  LoadModel("<InternetGatewayDevice type=\"object\"><A type=\"int\"/></InternetGatewayDevice>");
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

const std::string kLongest(81, 'n'); /* of a name whose line has 127 bytes */

const Tunnel kDown = {"", "a.example"}, kGone = {"deleted", ""};
const Lines kAsked = {Get(1), kInUse, Resolve("a.example")};
const Lines kMoved = {Get(1), kInUse, Resolve("a.example"), Set(1)};

const PollCase kPolls[] = {
    {"no tunnel", {}, {}, {}},
    {"connected ones and dotted addresses are left alone",
     {{"Connected", "a.example"}, {"Down", "192.0.2.1"}, {"Connected", ""}},
     {},
     {Get(1), Get(2), Get(3)}},
    {"the same address", {{"Down", "a.example"}}, {"192.0.2.1\n", "192.0.2.1\n"}, kAsked},
    {"it changed", {kDown}, {"192.168.200.201\n", "192.168.200.202\n"}, kMoved},
    {"more output is cut off", {kDown}, {"192.168.200.201 x\n", "192.168.200.201\n"}, kAsked},
    {"only the first line", {kDown}, {"192.0.2.1\n192.0.2.2\n", "192.0.2.1\n"}, kAsked},
    {"no address in use", {kDown}, {"", "192.0.2.2\n"}, kMoved},
    {"no shell for it", {kDown}, {"(fails)", "192.0.2.2\n"}, kMoved},
    {"neither address", {kDown}, {"", ""}, kAsked},
    {"a name that does not resolve keeps the row before's address",
     {kDown, {"", "b.example"}},
     {"192.0.2.1\n", "192.0.2.1\n", "192.0.2.1\n", ""},
     {Get(1), kInUse, Resolve("a.example"), Get(2), kInUse, Resolve("b.example")}},
    {"one without a peer is left alone", {{"Down", ""}}, {}, {Get(1)}},
    {"the longest name",
     {{"", kLongest}},
     {"192.0.2.1\n", "192.0.2.1\n"},
     {Get(1), kInUse, Resolve(kLongest)}},
    {"a longer one is left alone, the next is asked for",
     {{"", kLongest + "n"}, kDown},
     {"192.0.2.1\n", "192.0.2.2\n"},
     {Get(1), Get(2), kInUse, Resolve("a.example"), Set(2)}},
    {"rows that are gone",
     {kGone, kDown, kGone, {"Connected", ""}},
     {},
     {Get(2), kInUse, Resolve("a.example"), Get(4)}},
};

void AddTunnel(const Tunnel &tunnel) {
  char url[AMS_PATH_SIZE];
  ASSERT_EQ(ams_add_obj(gptXmlTrees->root, (kIpsec + "TunnelList").c_str(), url), 0);
  SetLeaf(std::string(url) + ".ConnectionStatus", tunnel.status);
  SetLeaf(std::string(url) + ".RemoteGatewayAddress", tunnel.peer);
  if (tunnel.status == kGone.status) {
    ASSERT_EQ(ams_del_obj(gptXmlTrees->root, url), 0);
  }
}

/* How often a pass of the poll tells of each tunnel's peer. */
std::map<int, size_t> ToldByPoll() {
  const std::string log = LogOf(4, [] {
    RunOnModule([] { RunMessage(kCapabInfoMsgTable, TDS_MSG_TIMER + CAPABINFO_TIMER_IPSEC); });
  });
  std::map<int, size_t> told;
  const std::string row = kIpsec + "TunnelList.";
  for (size_t at = 0; (at = log.find(row, at)) != log.npos; at += row.size())
    ++told[atoi(log.c_str() + at + row.size())];
  return told;
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

/* The poll comes three times a second: what it cannot ask for is told when it is new. */
TEST_F(Services, IpsecPollTellsOnceWhatItCannotAskFor) {
  StartModules();
  const std::string peer = kIpsec + "TunnelList.1.RemoteGatewayAddress";
  using Told = std::map<int, size_t>;
  EXPECT_EQ(ToldByPoll(), Told{}) << "a pass without tunnels forgets what was told before";
  for (size_t length : {82, 300}) AddTunnel({"", std::string(length, 'n')});
  EXPECT_EQ(ToldByPoll(), (Told{{1, 1}, {2, 1}}));
  EXPECT_EQ(ToldByPoll(), Told{});
  for (const auto &[name, told] : {std::pair(std::string(83, 'n'), Told{{1, 1}}),
                                   {std::string("192.0.2.1"), Told{}},
                                   {std::string(83, 'n'), Told{{1, 1}}}}) {
    SetLeaf(peer, name);
    EXPECT_EQ(ToldByPoll(), told) << name;
  }
}

}  // namespace
