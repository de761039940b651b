// Service access control: the exact command lines, and the bookkeeping of the web server's ports.
#include <algorithm>
#include <numeric>
#include <sstream>

#include "capabinfo_thread.h"
#include "serviceCtrl_func.h"
#include "services_func.h"
#include "support.h"

namespace {

using Lines = std::vector<std::string>;

const std::string kControl = "InternetGatewayDevice.Services.ServiceAccessControl.";
const char kRunScript[] = "sh /tmp/.kvo_restart_uhttpd &";

constexpr char kModel[] = R"(<InternetGatewayDevice type="object">
  <DeviceInfo type="object">
    <X_KVO-RestartWeb type="boolean" writable="0">0</X_KVO-RestartWeb>
  </DeviceInfo>
  <Services type="object">
    <ServiceTelnet type="object"><Port type="string">23</Port></ServiceTelnet>
    <ServiceSSH type="object"><Port type="string">22</Port></ServiceSSH>
    <ServiceFTP type="object"><Port type="string">21</Port></ServiceFTP>
    <ServiceTFTP type="object"><Port type="string">69</Port></ServiceTFTP>
    <ServiceAccessControl type="object" op="FuncSCL">
      <Enable type="boolean">1</Enable>
      <OnlyTr69Wan type="boolean">0</OnlyTr69Wan>
      <ServiceCtrlList type="array" op="FuncSrvLists">
        <Template>
          <Enable type="boolean">1</Enable>
          <ServiceName type="string"/>
          <AccessDirection type="string"/>
          <SrcIpRange type="string"/>
          <Action type="string">ACCEPT</Action>
          <IPMode type="int">1</IPMode>
          <Port type="int">0</Port>
        </Template>
      </ServiceCtrlList>
    </ServiceAccessControl>
  </Services>
</InternetGatewayDevice>)";

const Lines kFlush = {
    "iptables -F SCL_IP_ACCEPT",
    "iptables -F SCL_IP_DROP",
    "iptables -t nat -F service_local_list",
    "iptables -t nat -A service_local_list -i br+ -j RETURN",
    "iptables -t nat -A service_local_list -i lo -j RETURN",
    "ip6tables -F SCL_IP_ACCEPT_V6",
    "ip6tables -F SCL_IP_DROP_V6",
};
const Lines kAcceptLo = {"iptables -I SCL_IP_ACCEPT -i lo -j RETURN",
                         "ip6tables -I SCL_IP_ACCEPT_V6 -i lo -j RETURN"};
const Lines kDropLo = {"iptables -I SCL_IP_DROP -i lo -j RETURN",
                       "ip6tables -I SCL_IP_DROP_V6 -i lo -j RETURN"};

Lines operator+(Lines one, const Lines &other) {
  one.insert(one.end(), other.begin(), other.end());
  return one;
}

class Access : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    WebPortList = {1, {80}};
    WebRestartForced = 0;
  }
  std::string DataModel() const override { return kModel; }
};

/* Entry: "SERVICE DIRECTION RANGE ACTION IPMODE PORT [ENABLE]", "-" for an empty text. */
void AddEntries(const Lines &entries) {
  for (const std::string &entry : entries) {
    char url[AMS_PATH_SIZE] = "";
    ASSERT_EQ(ams_add_obj(gptXmlTrees->root, (kControl + "ServiceCtrlList").c_str(), url), 0);
    std::istringstream words(entry);
    std::string word;
    for (const char *leaf :
         {"ServiceName", "AccessDirection", "SrcIpRange", "Action", "IPMode", "Port", "Enable"})
      if (words >> word) SetLeaf(std::string(url) + "." + leaf, word == "-" ? "" : word);
  }
}

struct Outcome {
  Lines lines;
  std::string log; /* what went to standard error */
};

Outcome RunHandler(const std::string &name, int op) {
  const std::string log =
      LogOf(3, [&] { EXPECT_EQ(RunOp(kCapabInfoFuncTable, name, op), 0) << name << " op " << op; });
  return {TakeCommands(), log};
}

Lines Rebuild() { return RunHandler("FuncSCL", TMF_SET).lines; }

/* The lines behind the flush, up to those for the loop-back interface: what the entries make. */
Lines EntryLines() {
  Lines all = Rebuild(), entries;
  for (size_t i = kFlush.size(); i < all.size() && all[i] != kAcceptLo[0]; ++i)
    entries.push_back(all[i]);
  return entries;
}

/* ---- rules of an entry ---- */

#define V4    "iptables  -A  SCL_IP_ACCEPT  "
#define V6    "ip6tables  -A  SCL_IP_ACCEPT_V6  "
#define FROM4 "iptables  -I  SCL_IP_ACCEPT -m iprange --src-range 10.0.0.1-10.0.0.9 "
#define FROM6 "ip6tables  -I  SCL_IP_ACCEPT_V6 -m iprange --src-range 2001:db8::1-2001:db8::2 "
#define NAT   "iptables -t nat -A service_local_list "

struct EntryCase {
  const char *what;
  Lines entries, lines;
};

const EntryCase kEntryCases[] = {
    {"no entry", {}, {}},
    {"one that is off", {"TELNET LAN - ACCEPT 3 0 0"}, {}},
    {"on is exactly 1", {"TELNET LAN - ACCEPT 3 0 2"}, {}},
    {"no IP version", {"TELNET LAN - ACCEPT 0 0", "TELNET LAN - ACCEPT 4 0"}, {}},
    {"names are exact", {"telnet LAN - ACCEPT 3 0", "- LAN - ACCEPT 3 0"}, {}},
    {"both IP versions, another port",
     {"TELNET LAN - ACCEPT 7 2323"},
     {V4 "-p tcp -m tcp --dport 2323 -i br+ -j ACCEPT",
      V6 "-p tcp -m tcp --dport 2323 -i br+ -j ACCEPT"}},
    {"the WAN: nat for IPv4",
     {"SSH WAN - ACCEPT 3 0"},
     {V4 "-p tcp -m tcp --dport 22 ! -i br+ -j ACCEPT", NAT " -p tcp -m tcp --dport 22 -j ACCEPT",
      V6 "-p tcp -m tcp --dport 22 ! -i br+ -j ACCEPT"}},
    {"what is dropped has no nat",
     {"SSH WAN - DROP 1 0"},
     {V4 "-p tcp -m tcp --dport 22 ! -i br+ -j DROP"}},
    {"any other direction is both",
     {"TFTP lan - ACCEPT 1 0", "TFTP - - ACCEPT 1 0"},
     {V4 "-p udp -m udp --dport 69  -j ACCEPT", V4 "-p udp -m udp --dport 69  -j ACCEPT"}},
    {"SNMP has its port", {"SNMP LAN - ACCEPT 1 1161"}, {V4 "-p udp --dport 161 -i br+ -j ACCEPT"}},
    {"ports of Samba",
     {"SAMBA LAN - ACCEPT 1 0"},
     {V4 "-p tcp -m multiport --dports 445,139,389,901 -i br+ -j ACCEPT",
      V4 "-p udp -m multiport --dports 137,138 -i br+ -j ACCEPT"}},
    {"echo requests",
     {"ICMP LAN - DROP 3 0"},
     {V4 "-p icmp -m icmp --icmp-type 8 -i br+ -j DROP",
      V6 "-p icmpv6 -m icmpv6 --icmpv6-type 128 -i br+ -j DROP"}},
    {"any port, any target",
     {"TCP LAN - REJECT 1 7", "UDP LAN - ACCEPT 1 53"},
     {V4 "-p tcp -m tcp --dport 7 -i br+ -j REJECT", V4 "-p udp --dport 53 -i br+ -j ACCEPT"}},
    {"a range of IPv6",
     {"TCP LAN 2001:db8::1-2001:db8::2 ACCEPT 2 7"},
     {FROM6 "-p tcp -m tcp --dport 7 -i br+ -j ACCEPT"}},
    {"passive FTP with a range, and its nat rules",
     {"FTP WAN 10.0.0.1-10.0.0.9 ACCEPT 1 2121"},
     {FROM4 "-p tcp -m tcp --dport 2121 ! -i br+ -j ACCEPT",
      FROM4 "-p tcp -m tcp --dport 30000:30099  ! -i br+ -j ACCEPT",
      NAT "-m iprange --src-range 10.0.0.1-10.0.0.9 -p tcp -m tcp --dport 2121 -j ACCEPT",
      NAT "-m iprange --src-range 10.0.0.1-10.0.0.9 -p tcp -m tcp --dport 30000:30099  -j ACCEPT"}},
    {"no passive FTP from the LAN",
     {"FTP LAN - ACCEPT 2 0"},
     {V6 "-p tcp -m tcp --dport 21 -i br+ -j ACCEPT"}},
    {"order of the list, an unknown one in it",
     {"SSH LAN - ACCEPT 1 0", "RDP LAN - ACCEPT 3 0", "TELNET LAN - ACCEPT 1 0"},
     {V4 "-p tcp -m tcp --dport 22 -i br+ -j ACCEPT",
      V4 "-p tcp -m tcp --dport 23 -i br+ -j ACCEPT"}},
    {"HTTP that is not accepted has a default port for IPv6 only",
     {"HTTP WAN - DROP 3 0"},
     {V4 "-p tcp -m tcp --dport 0 ! -i br+ -j DROP",
      V6 "-p tcp -m tcp --dport 80 ! -i br+ -j DROP"}},
    {"HTTP that is accepted has 80 for both",
     {"HTTP - - ACCEPT 3 0"},
     {V4 "-p tcp -m tcp --dport 80  -j ACCEPT", V6 "-p tcp -m tcp --dport 80  -j ACCEPT"}},
    {"a line that would be too long is left out, the next one is not",
     {"TCP LAN " + std::string(600, '1') + " ACCEPT 1 7", "TCP LAN - ACCEPT 1 8"},
     {V4 "-p tcp -m tcp --dport 8 -i br+ -j ACCEPT"}},
    {"fifty entries are handled", Lines(51, "TCP LAN - ACCEPT 1 7"),
     Lines(50, V4 "-p tcp -m tcp --dport 7 -i br+ -j ACCEPT")},
};

TEST_F(Access, Entries) {
  for (const EntryCase &one : kEntryCases) {
    LoadModel(kModel);
    AddEntries(one.entries);
    EXPECT_EQ(EntryLines(), one.lines) << one.what;
  }
}

/* ---- whole rebuilds ---- */

/* The DROP lines of one version, with these texts for the ports. */
Lines Drops(bool ipv6, const Lines &daemons, const Lines &web) {
  const std::string to = ipv6 ? "ip6tables -A SCL_IP_DROP_V6 " : "iptables -A SCL_IP_DROP ";
  Lines lines;
  for (int i = 0; i < 3; ++i)
    lines.push_back(to + "-p tcp -m multiport --dports  " + daemons[i] + " -j DROP");
  lines.push_back(to + "-p udp -m multiport --dports  " + daemons[3] + " -j DROP");
  for (const std::string &port : web)
    lines.push_back(to + "-p tcp -m tcp --dport " + port + " -j DROP");
  lines.push_back(to + "-p udp --dport 161 -j DROP");
  lines.push_back(to + "-p tcp -m multiport --dports 445,139,389,901 -j DROP");
  lines.push_back(to + "-p udp -m multiport --dports 137,138 -j DROP");
  lines.push_back(to + (ipv6 ? "-p icmpv6 -m icmpv6 --icmpv6-type 128 -j DROP"
                             : "-p icmp -m icmp --icmp-type 8 -j DROP"));
  return lines;
}

const Lines kDaemons = {"23", "22", "21", "69"};

TEST_F(Access, ARebuildIsFlushRulesAndDrops) {
  const Lines rule = {V4 "-p tcp -m tcp --dport 8080 -i br+ -j ACCEPT"};
  const Lines drops = Drops(false, kDaemons, {"8080"}) + Drops(true, kDaemons, {"8080"}) + kDropLo;
  AddEntries({"HTTP LAN - ACCEPT 1 8080"});
  EXPECT_EQ(Rebuild(), kFlush + rule + kAcceptLo + Lines{kRunScript} + drops);
  EXPECT_EQ(Rebuild(), kFlush + rule + kAcceptLo + drops) << "the ports have not changed";
}

struct EnableCase {
  const char *what;
  std::string enable;
  WebPorts before;
  Lines behind_flush;
};

const Lines kNothingOpen =
    kAcceptLo + Drops(false, kDaemons, {"80"}) + Drops(true, kDaemons, {"80"}) + kDropLo;

const EnableCase kEnableCases[] = {
    {"off", "0", {1, {80}}, {}},
    {"off, not a number", "x", {1, {80}}, {}},
    {"off, other port", "0", {1, {8080}}, {kRunScript}},
    {"off, no port", "0", {0, {80}}, {kRunScript}},
    {"anything but 0 is on", "2", {1, {80}}, kNothingOpen},
};

TEST_F(Access, SwitchedOnAndOff) {
  AddEntries({"HTTP - - ACCEPT 0 0"});
  for (const EnableCase &one : kEnableCases) {
    SetLeaf(kControl + "Enable", one.enable);
    WebPortList = one.before;
    EXPECT_EQ(Rebuild(), kFlush + one.behind_flush) << one.what;
    EXPECT_EQ(WebPortList.count, 1U) << one.what;
    EXPECT_EQ(WebPortList.ports[0], 80) << one.what;
  }
}

/* The model without the parameters is a gateway without access control. */
TEST_F(Access, ModelWithoutAccessControl) {
  LoadModel("<InternetGatewayDevice type=\"object\"><A type=\"string\"/></InternetGatewayDevice>");
  EXPECT_EQ(Rebuild(), kFlush);
}

struct PortCase {
  const char *what;
  Lines without;      /* services whose Port parameter is not there */
  Lines texts;        /* for Telnet, SSH, FTP, TFTP */
  std::string telnet; /* value of Telnet's, when not empty */
};

const PortCase kPortCases[] = {
    {"a list of ports", {}, {"23,2323", "22", "21", "69"}, "23,2323"},
    {"what cannot be read keeps the row's before", {"FTP"}, {"23", "22", "22", "69"}, ""},
    {"none at all", {"Telnet", "SSH", "FTP", "TFTP"}, {"", "", "", ""}, ""},
    {"the longest list", {}, {std::string(127, '1'), "22", "21", "69"}, std::string(127, '1')},
    {"half of a longer one is not taken", {}, {"", "22", "21", "69"}, std::string(128, '1')},
};

TEST_F(Access, PortsOfTheDaemons) {
  for (const PortCase &one : kPortCases) {
    std::string model = kModel;
    for (const std::string &service : one.without) {
      model.replace(model.find("<Service" + service + " "), 8, "<Without");
      model.replace(model.find("</Service" + service), 9, "</Without");
    }
    LoadModel(model);
    if (!one.telnet.empty())
      SetLeaf("InternetGatewayDevice.Services.ServiceTelnet.Port", one.telnet);
    WebPortList = {};
    EXPECT_EQ(Rebuild(), kFlush + kAcceptLo + Drops(false, one.texts, {}) +
                             Drops(true, one.texts, {}) + kDropLo)
        << one.what;
  }
}

/* ---- ops ---- */

struct HookCase {
  std::string only_tr069;
  Lines lines;
};

const Lines kHookAll = {"iptables -t filter -A SCL_IP_FILTER_ACCEPT -j SCL_IP_ACCEPT",
                        "ip6tables -t filter -A SCL_IP_FILTER_ACCEPT_V6 -j SCL_IP_ACCEPT_V6"};
const HookCase kHooks[] = {
    {"0", kHookAll},
    {"2", kHookAll},
    {"1",
     {"iptables -t nat -D service_list -j service_local_list",
      "iptables -t filter -A SCL_IP_FILTER_ACCEPT -i br+ -j SCL_IP_ACCEPT",
      "ip6tables -t filter -A SCL_IP_FILTER_ACCEPT_V6 -i br+ -j SCL_IP_ACCEPT_V6"}},
};

TEST_F(Access, TheStartHooksUpTheChains) {
  SetLeaf(kControl + "Enable", "0");
  for (const HookCase &one : kHooks) {
    SetLeaf(kControl + "OnlyTr69Wan", one.only_tr069);
    EXPECT_EQ(RunHandler("FuncSCL", TMF_INIT).lines, one.lines + kFlush) << one.only_tr069;
    EXPECT_EQ(Rebuild(), kFlush) << one.only_tr069 << ", set";
  }
}

TEST_F(Access, OpsThatRebuild) {
  SetLeaf(kControl + "Enable", "0");
  for (int op : {-1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 16, 34, 0x102}) {
    bool list = op == TMF_SET || op == TMF_ADD || op == TMF_DEL;
    EXPECT_EQ(RunHandler("FuncSrvLists", op).lines, list ? kFlush : Lines{}) << "list, op " << op;
    if (op == TMF_INIT) continue;
    EXPECT_EQ(RunHandler("FuncSCL", op).lines, op == TMF_SET ? kFlush : Lines{}) << "op " << op;
  }
}

/* ---- ports of the web server ---- */

/* Entries of accepted ports, from `first` on. */
Lines HttpRange(int first, int count) {
  Lines entries;
  for (int i = 0; i < count; ++i)
    entries.push_back("HTTP LAN - ACCEPT 1 " + std::to_string(first + i));
  return entries;
}

std::vector<int> PortRange(int first, int count) {
  std::vector<int> ports(static_cast<size_t>(count));
  std::iota(ports.begin(), ports.end(), first);
  return ports;
}

struct WebCase {
  const char *what;
  std::vector<int> before;
  int forced;
  Lines entries;
  std::vector<int> after;
  bool restarted;
  const char *log = ""; /* "": nothing is left out */
};

const char k0[] = "HTTP LAN - ACCEPT 1 0", k80[] = "HTTP LAN - ACCEPT 1 80";
const char k81[] = "HTTP LAN - ACCEPT 1 81", k82[] = "HTTP LAN - ACCEPT 1 82";

const WebCase kWebCases[] = {
    {"0 and 80 are one", {80}, 0, {k80, k0}, {80}, false},
    {"another port, twice is once", {80}, 0, {k81, k81}, {81}, true},
    {"one more", {80}, 0, {k0, k81}, {80, 81}, true},
    {"one less", {80, 81}, 0, {k81}, {81}, true},
    {"one changed", {80, 81}, 0, {k80, k82}, {80, 82}, true},
    {"another order is no change", {80, 81}, 0, {k81, k80}, {80, 81}, false},
    {"also with no IP version", {80}, 0, {"HTTP LAN - ACCEPT 0 81"}, {81}, true},
    {"only accepted ones", {80}, 0, {"HTTP WAN - DROP 1 81"}, {}, true},
    {"only those that are on", {80}, 0, {"HTTP LAN - ACCEPT 1 80 0"}, {}, true},
    {"only HTTP", {80}, 0, {"TCP LAN - ACCEPT 1 80"}, {}, true},
    {"none before, none now", {}, 0, {}, {}, false},
    {"every slot", {80}, 0, HttpRange(81, 16), PortRange(81, 16), true},
    {"one over", {80}, 0, HttpRange(81, 17), PortRange(81, 16), true, "web port 97 left out"},
    {"full, and one of them again", PortRange(81, 16), 0, HttpRange(81, 16), PortRange(81, 16),
     false},
    {"forced", {80}, 1, {k0}, {80}, true},
    {"forced is exactly 1", {80}, 2, {k0}, {80}, false},
    {"a change ends forcing", {80}, 2, {k81}, {81}, true},
};

TEST_F(Access, PortsOfTheWebServer) {
  for (const WebCase &one : kWebCases) {
    LoadModel(kModel);
    AddEntries(one.entries);
    WebPortList = {};
    WebPortList.count = static_cast<uint32_t>(one.before.size());
    std::copy(one.before.begin(), one.before.end(), WebPortList.ports);
    WebRestartForced = one.forced;
    Outcome outcome = RunHandler("FuncSCL", TMF_SET);
    EXPECT_EQ(std::vector<int>(WebPortList.ports, WebPortList.ports + WebPortList.count), one.after)
        << one.what;
    EXPECT_EQ(std::count(outcome.lines.begin(), outcome.lines.end(), kRunScript), one.restarted)
        << one.what;
    EXPECT_EQ(WebRestartForced, one.restarted ? 0 : one.forced) << one.what;
    size_t left_out = outcome.log.find("left out");
    EXPECT_EQ(left_out != outcome.log.npos, *one.log != '\0') << one.what << outcome.log;
    EXPECT_NE(outcome.log.find(one.log), outcome.log.npos) << one.what << outcome.log;
  }
}

}  // namespace
