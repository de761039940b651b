// The services module: the command lines of its op functions, Telnet, Samba and the IPsec poll.
#include <cstdio>
#include <set>

#include "capabinfo_thread.h"
#include "netdaemon_func.h"
#include "support.h"

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

TEST_F(Services, TableHasEveryNameOnce) {
  std::set<std::string> names;
  int rows = 0;
  for (const OpFuncEntry *row = kCapabInfoFuncTable; row->name != nullptr; ++row, ++rows)
    EXPECT_TRUE(names.insert(row->name).second) << row->name;
  EXPECT_EQ(rows, 77);
}

TEST_F(Services, OtherOpsRunNothing) {
  SetLeaf(kServices + "ServiceTelnet.Enable", "1");
  for (const OpFuncEntry *row = kCapabInfoFuncTable; row->name != nullptr; ++row) {
    if (row->handler == nullptr) continue;
    for (int op : {TMF_GET, TMF_ADD, TMF_DEL})
      EXPECT_EQ(Call(row->name, op, "A.1"), 0) << row->name << " op " << op;
  }
  EXPECT_EQ(TakeCommands(), Lines{});
}

TEST_F(Services, NullArgument) {
  for (const OpFuncEntry *row = kCapabInfoFuncTable; row->name != nullptr; ++row) {
    if (row->handler == nullptr) continue;
    int result = row->name == std::string("FuncUserInfo") ? 0 : -1;
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
      {"FuncServTelnet", {"killall telnetd >/dev/null 2>&1"}},
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

/* ---- Telnet ---- */

const char kKillTelnet[] = "killall telnetd >/dev/null 2>&1";

std::string Telnet(int port) {
  return "telnetd -l /usr/sbin/ams_cli -p " + std::to_string(port) + " &";
}

struct TelnetCase {
  const char *what;
  int op;
  std::string enable, ports;
  Lines lines;
};

const TelnetCase kTelnet[] = {
    {"init off runs nothing", TMF_INIT, "0", "23", {}},
    {"init on starts without a kill", TMF_INIT, "1", "23,2323", {Telnet(23), Telnet(2323)}},
    {"set on kills, then starts", TMF_SET, "1", "2323,23", {kKillTelnet, Telnet(2323), Telnet(23)}},
    {"set off only kills", TMF_SET, "0", "23", {kKillTelnet}},
    {"any other value: nothing", TMF_SET, "2", "23", {}},
    {"on without ports", TMF_SET, "1", "", {kKillTelnet}},
    {"get: nothing", TMF_GET, "1", "23", {}},
};

TEST_F(Services, TelnetFollowsItsParameters) {
  for (const TelnetCase &one : kTelnet) {
    SetLeaf(kServices + "ServiceTelnet.Enable", one.enable);
    SetLeaf(kServices + "ServiceTelnet.Port", one.ports);
    EXPECT_EQ(Call("FuncServTelnet", one.op), 0) << one.what;
    EXPECT_EQ(TakeCommands(), one.lines) << one.what;
  }
}

TEST(PortList, SplitsAtCommas) {
  const std::pair<const char *, std::vector<int>> cases[] = {
      {"", {}},          {"23", {23}},          {"23,2323", {23, 2323}}, {"2323,23", {2323, 23}},
      {"x", {0}},        {"23x, 24", {23, 24}}, {"23,,24", {23, 0, 24}}, {",23", {0, 23}},
      {"-1,0", {-1, 0}},
  };
  for (const auto &[text, ports] : cases) EXPECT_EQ(PortList(text), ports) << "\"" << text << "\"";
}

/* ---- Samba ---- */

const char *const kRules[] = {
    "iptables -t filter -D INPUT -i IF -p tcp --dport 139 -j ACCEPT",
    "iptables -t nat -D PREROUTING -i IF -p tcp --dport 139 -j ACCEPT",
    "iptables -t filter -D INPUT -i IF -p tcp --dport 389 -j ACCEPT",
    "iptables -t nat -D PREROUTING -i IF -p tcp --dport 389 -j ACCEPT",
    "iptables -t filter -D INPUT -i IF -p tcp --dport 901 -j ACCEPT",
    "iptables -t nat -D PREROUTING -i IF -p tcp --dport 901 -j ACCEPT",
    "iptables -t filter -D INPUT -i IF -p tcp --dport 445 -j ACCEPT",
    "iptables -t nat -D PREROUTING -i IF -p tcp --dport 445 -j ACCEPT",
    "iptables -t filter -D INPUT -i IF -p udp --dport 137 -j ACCEPT",
    "iptables -t nat -D PREROUTING -i IF -p udp --dport 137 -j ACCEPT",
    "iptables -t filter -D INPUT -i IF -p udp --dport 138 -j ACCEPT",
    "iptables -t nat -D PREROUTING -i IF -p udp --dport 138 -j ACCEPT",
};

/* The rules of one interface, deleted ("-D") or added ("-A"), in front of `rest`. */
Lines Rules(const std::string &action, const std::string &interface, const Lines &rest) {
  Lines lines;
  for (std::string rule : kRules) {
    rule.replace(rule.find("-D"), 2, action);
    lines.push_back(rule.replace(rule.find("IF"), 2, interface));
  }
  lines.insert(lines.end(), rest.begin(), rest.end());
  return lines;
}

const Lines kSambaOn = {"/usr/syscfg/media.sh samba &"};
const Lines kSambaOff = {"killall -q nmbd", "killall -q smbd"};

struct SambaCase {
  const char *what;
  std::string enable, interface;
  Lines lines;
};

const SambaCase kSamba[] = {
    {"on: holes closed, then opened", "1", "ppp1",
     Rules("-D", "ppp1", Rules("-A", "ppp1", kSambaOn))},
    {"on, one character: no holes", "1", "x", kSambaOn},
    {"on, no interface", "1", "", kSambaOn},
    {"off: holes closed", "0", "ppp1", Rules("-D", "ppp1", kSambaOff)},
    {"off, one character: holes closed", "0", "x", Rules("-D", "x", kSambaOff)},
    {"off, no interface", "0", "", kSambaOff},
    {"any other value is off", "2", "", kSambaOff},
};

TEST_F(Services, SambaFollowsItsParameters) {
  for (const SambaCase &one : kSamba) {
    SetLeaf(kServices + "ServiceSamba.Enable", one.enable);
    SetLeaf("InternetGatewayDevice.ManagementServer.X_KVO_TR069WANIFNAME", one.interface);
    RunMessage(kCapabInfoMsgTable, TDS_MSG_TIMER + CAPABINFO_TIMER_SAMBA);
    EXPECT_EQ(TakeCommands(), one.lines) << one.what;
  }
}

TEST_F(Services, SambaIsAppliedLater) {
  StartModules();
  for (int op : {TMF_INIT, TMF_SET, TMF_SET}) {
    RunOnModule([op] { EXPECT_EQ(Call("FuncServSamba", op), 0); });
    EXPECT_EQ(AwaitMessage(TDS_MSG_TIMER).peer, "sysmgr:test") << "op " << op;
  }
  EXPECT_EQ(TakeCommands(), Lines{});
  RunOnModule([] { RunMessage(kCapabInfoMsgTable, 0x100054, "A.1"); });
  EXPECT_EQ(AwaitMessage(TDS_MSG_TIMER).peer, "sysmgr:test");
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
