// Service access control: the exact command lines, and the bookkeeping of the web server's ports.
#include <algorithm>
#include <cstring>

#include "capabinfo_thread.h"
#include "serviceCtrl_func.h"
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

struct Entry {
  std::string service, direction, range, action, mode, port;
  std::string enable = "1";
};

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

void SetEntry(const std::string &row, const Entry &entry) {
  SetLeaf(row + "Enable", entry.enable);
  SetLeaf(row + "ServiceName", entry.service);
  SetLeaf(row + "AccessDirection", entry.direction);
  SetLeaf(row + "SrcIpRange", entry.range);
  SetLeaf(row + "Action", entry.action);
  SetLeaf(row + "IPMode", entry.mode);
  SetLeaf(row + "Port", entry.port);
}

/* The path of a new entry, with a "." behind. */
std::string AddEntry() {
  char url[AMS_PATH_SIZE] = "";
  EXPECT_EQ(ams_add_obj(gptXmlTrees->root, (kControl + "ServiceCtrlList").c_str(), url), 0);
  return std::string(url) + ".";
}

void AddEntries(const std::vector<Entry> &entries) {
  for (const Entry &entry : entries) SetEntry(AddEntry(), entry);
}

struct Outcome {
  Lines lines;
  std::string log; /* what went to standard error */
};

Outcome RunHandler(const std::string &name, int op) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(RunOp(kCapabInfoFuncTable, name, op), 0) << name << " op " << op;
  std::string log = testing::internal::GetCapturedStderr();
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

bool Has(const std::string &text, const std::string &part) { return text.find(part) != text.npos; }

/* ---- rules of an entry ---- */

struct Service {
  const char *name, *port;
  Lines ipv4, ipv6; /* matches */
};

const Service kServices[] = {
    {"TELNET", "0", {"-p tcp -m tcp --dport 23"}, {"-p tcp -m tcp --dport 23"}},
    {"TELNET", "2323", {"-p tcp -m tcp --dport 2323"}, {"-p tcp -m tcp --dport 2323"}},
    {"SSH", "0", {"-p tcp -m tcp --dport 22"}, {"-p tcp -m tcp --dport 22"}},
    {"FTP", "0", {"-p tcp -m tcp --dport 21"}, {"-p tcp -m tcp --dport 21"}},
    {"TFTP", "0", {"-p udp -m udp --dport 69"}, {"-p udp -m udp --dport 69"}},
    {"HTTP", "8080", {"-p tcp -m tcp --dport 8080"}, {"-p tcp -m tcp --dport 8080"}},
    {"SNMP", "0", {"-p udp --dport 161"}, {"-p udp --dport 161"}},
    {"SNMP", "1161", {"-p udp --dport 161"}, {"-p udp --dport 161"}},
    {"SAMBA",
     "0",
     {"-p tcp -m multiport --dports 445,139,389,901", "-p udp -m multiport --dports 137,138"},
     {"-p tcp -m multiport --dports 445,139,389,901", "-p udp -m multiport --dports 137,138"}},
    {"ICMP", "0", {"-p icmp -m icmp --icmp-type 8"}, {"-p icmpv6 -m icmpv6 --icmpv6-type 128"}},
    {"TCP", "5000", {"-p tcp -m tcp --dport 5000"}, {"-p tcp -m tcp --dport 5000"}},
    {"UDP", "53", {"-p udp --dport 53"}, {"-p udp --dport 53"}},
    {"RDP", "3389", {}, {}},
    {"telnet", "0", {}, {}},
    {"", "0", {}, {}},
};

const std::pair<const char *, const char *> kDirections[] = {
    {"LAN", "-i br+"}, {"WAN", "! -i br+"}, {"", ""}, {"lan", ""}};

/* A source range and the head of the lines that it makes. */
const std::pair<const char *, const char *> kRanges[] = {
    {"", " -A  CHAIN "},
    {"10.0.0.1-10.0.0.9", " -I  CHAIN -m iprange --src-range 10.0.0.1-10.0.0.9"}};

Lines Expected(const Entry &entry, const Service &service, std::string head,
               const std::string &interface) {
  Lines lines;
  for (bool ipv6 : {false, true}) {
    int mode = std::stoi(entry.mode);
    if ((mode & (ipv6 ? 2 : 1)) == 0) continue;
    bool wan_accept = entry.direction == "WAN" && entry.action == "ACCEPT";
    Lines matches = ipv6 ? service.ipv6 : service.ipv4, nat;
    if (entry.service == "FTP" && wan_accept)
      matches.push_back("-p tcp -m tcp --dport 30000:30099 ");
    for (const std::string &match : matches) {
      std::string line = head;
      line.replace(line.find("CHAIN"), 5, ipv6 ? "SCL_IP_ACCEPT_V6" : "SCL_IP_ACCEPT");
      lines.push_back((ipv6 ? "ip6tables " : "iptables ") + line + " " + match + " " + interface +
                      " -j " + entry.action);
      std::string source = entry.range.empty() ? "" : "-m iprange --src-range " + entry.range;
      if (wan_accept && !ipv6)
        nat.push_back("iptables -t nat -A service_local_list " + source + " " + match +
                      " -j ACCEPT");
    }
    lines = lines + nat;
  }
  return lines;
}

TEST_F(Access, EveryKindOfEntry) {
  std::string row = AddEntry();
  for (const Service &service : kServices)
    for (const auto &[direction, interface] : kDirections)
      for (const auto &[range, head] : kRanges)
        for (const char *action : {"ACCEPT", "DROP"})
          for (const char *mode : {"0", "1", "2", "3", "4", "7"}) {
            Entry entry = {service.name, direction, range, action, mode, service.port};
            SetEntry(row, entry);
            EXPECT_EQ(EntryLines(), Expected(entry, service, head, interface))
                << service.name << " port " << service.port << ", direction \"" << direction
                << "\", range \"" << range << "\", " << action << ", mode " << mode;
          }
}

struct EntryCase {
  const char *what;
  std::vector<Entry> entries;
  Lines lines;
};

const EntryCase kEntryCases[] = {
    {"no entry", {}, {}},
    {"one that is off", {{"TELNET", "LAN", "", "ACCEPT", "3", "0", "0"}}, {}},
    {"on is exactly 1", {{"TELNET", "LAN", "", "ACCEPT", "3", "0", "2"}}, {}},
    {"order of the list",
     {{"SSH", "LAN", "", "ACCEPT", "1", "0"}, {"TELNET", "", "", "ACCEPT", "1", "0"}},
     {"iptables  -A  SCL_IP_ACCEPT  -p tcp -m tcp --dport 22 -i br+ -j ACCEPT",
      "iptables  -A  SCL_IP_ACCEPT  -p tcp -m tcp --dport 23  -j ACCEPT"}},
    {"an unknown one between others",
     {{"SSH", "LAN", "", "ACCEPT", "1", "0"},
      {"RDP", "LAN", "", "ACCEPT", "3", "0"},
      {"SSH", "LAN", "", "ACCEPT", "2", "0"}},
     {"iptables  -A  SCL_IP_ACCEPT  -p tcp -m tcp --dport 22 -i br+ -j ACCEPT",
      "ip6tables  -A  SCL_IP_ACCEPT_V6  -p tcp -m tcp --dport 22 -i br+ -j ACCEPT"}},
    {"HTTP that is not accepted has a default port for IPv6 only",
     {{"HTTP", "WAN", "", "DROP", "3", "0"}},
     {"iptables  -A  SCL_IP_ACCEPT  -p tcp -m tcp --dport 0 ! -i br+ -j DROP",
      "ip6tables  -A  SCL_IP_ACCEPT_V6  -p tcp -m tcp --dport 80 ! -i br+ -j DROP"}},
    {"HTTP that is accepted has 80 for both",
     {{"HTTP", "", "", "ACCEPT", "3", "0"}},
     {"iptables  -A  SCL_IP_ACCEPT  -p tcp -m tcp --dport 80  -j ACCEPT",
      "ip6tables  -A  SCL_IP_ACCEPT_V6  -p tcp -m tcp --dport 80  -j ACCEPT"}},
    {"passive FTP with a range, and its nat rules",
     {{"FTP", "WAN", "192.0.2.1-192.0.2.2", "ACCEPT", "1", "2121"}},
     {"iptables  -I  SCL_IP_ACCEPT -m iprange --src-range 192.0.2.1-192.0.2.2 -p tcp -m tcp "
      "--dport 2121 ! -i br+ -j ACCEPT",
      "iptables  -I  SCL_IP_ACCEPT -m iprange --src-range 192.0.2.1-192.0.2.2 -p tcp -m tcp "
      "--dport 30000:30099  ! -i br+ -j ACCEPT",
      "iptables -t nat -A service_local_list -m iprange --src-range 192.0.2.1-192.0.2.2 -p tcp "
      "-m tcp --dport 2121 -j ACCEPT",
      "iptables -t nat -A service_local_list -m iprange --src-range 192.0.2.1-192.0.2.2 -p tcp "
      "-m tcp --dport 30000:30099  -j ACCEPT"}},
    {"any target",
     {{"TCP", "LAN", "", "REJECT", "1", "7"}},
     {"iptables  -A  SCL_IP_ACCEPT  -p tcp -m tcp --dport 7 -i br+ -j REJECT"}},
    {"a line that would be too long is left out, the next one is not",
     {{"TCP", "LAN", std::string(600, '1'), "ACCEPT", "1", "7"},
      {"TCP", "LAN", "", "ACCEPT", "1", "8"}},
     {"iptables  -A  SCL_IP_ACCEPT  -p tcp -m tcp --dport 8 -i br+ -j ACCEPT"}},
};

TEST_F(Access, Entries) {
  for (const EntryCase &one : kEntryCases) {
    LoadModel(kModel);
    AddEntries(one.entries);
    EXPECT_EQ(EntryLines(), one.lines) << one.what;
  }
}

TEST_F(Access, FiftyEntriesAreHandled) {
  AddEntries(std::vector<Entry>(51, {"TCP", "LAN", "", "ACCEPT", "1", "7"}));
  EXPECT_EQ(EntryLines().size(), 50U);
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

TEST_F(Access, TelnetOnTheLanAndWebFromSomeOnTheWan) {
  const std::vector<Entry> entries = {{"TELNET", "LAN", "", "ACCEPT", "1", "0"},
                                      {"HTTP", "WAN", "10.0.0.1-10.0.0.9", "ACCEPT", "3", "8080"}};
  const Lines rules = {
      "iptables  -A  SCL_IP_ACCEPT  -p tcp -m tcp --dport 23 -i br+ -j ACCEPT",
      "iptables  -I  SCL_IP_ACCEPT -m iprange --src-range 10.0.0.1-10.0.0.9 -p tcp -m tcp --dport "
      "8080 ! -i br+ -j ACCEPT",
      "iptables -t nat -A service_local_list -m iprange --src-range 10.0.0.1-10.0.0.9 -p tcp -m "
      "tcp --dport 8080 -j ACCEPT",
      "ip6tables  -I  SCL_IP_ACCEPT_V6 -m iprange --src-range 10.0.0.1-10.0.0.9 -p tcp -m tcp "
      "--dport 8080 ! -i br+ -j ACCEPT"};
  const Lines behind = Drops(false, kDaemons, {"8080"}) + Drops(true, kDaemons, {"8080"}) + kDropLo;
  AddEntries(entries);
  EXPECT_EQ(Rebuild(), kFlush + rules + kAcceptLo + Lines{kRunScript} + behind);
  EXPECT_EQ(Rebuild(), kFlush + rules + kAcceptLo + behind) << "the ports have not changed";
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
    {"off, one port more", "0", {2, {80, 8080}}, {kRunScript}},
    {"off, no port", "0", {0, {80}}, {kRunScript}},
    {"on", "1", {1, {80}}, kNothingOpen},
    {"anything but 0 is on", "2", {1, {80}}, kNothingOpen},
};

TEST_F(Access, SwitchedOnAndOff) {
  AddEntries({{"HTTP", "", "", "ACCEPT", "0", "0"}});
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
  Lines ipv4, ipv6;   /* texts for Telnet, SSH, FTP, TFTP */
  std::string telnet; /* value of Telnet's, when not empty */
};

const PortCase kPortCases[] = {
    {"a list of ports",
     {},
     {"23,2323", "22", "21", "69"},
     {"23,2323", "22", "21", "69"},
     "23,2323"},
    {"what cannot be read keeps the row's before",
     {"FTP"},
     {"23", "22", "22", "69"},
     {"23", "22", "22", "69"},
     ""},
    {"the first row has none at first, then the last one's",
     {"Telnet"},
     {"", "22", "21", "69"},
     {"69", "22", "21", "69"},
     ""},
    {"none at all", {"Telnet", "SSH", "FTP", "TFTP"}, {"", "", "", ""}, {"", "", "", ""}, ""},
    {"a long list is cut",
     {},
     {std::string(127, '1'), "22", "21", "69"},
     {std::string(127, '1'), "22", "21", "69"},
     std::string(200, '1')},
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
    EXPECT_EQ(Rebuild(),
              kFlush + kAcceptLo + Drops(false, one.ipv4, {}) + Drops(true, one.ipv6, {}) + kDropLo)
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

Entry Http(const std::string &port, const std::string &mode = "1") {
  return {"HTTP", "LAN", "", "ACCEPT", mode, port};
}

std::vector<Entry> HttpRange(int first, int count) {
  std::vector<Entry> entries;
  for (int i = 0; i < count; ++i) entries.push_back(Http(std::to_string(first + i)));
  return entries;
}

WebPorts PortRange(int first) {
  WebPorts web = {WEB_PORT_SLOTS, {}};
  for (int32_t &port : web.ports) port = first++;
  return web;
}

struct WebCase {
  const char *what;
  WebPorts before;
  int forced;
  std::vector<Entry> entries;
  WebPorts after;
  bool restarted;
  const char *log; /* part of it; NULL: nothing is left out */
};

const WebCase kWebCases[] = {
    {"0 is 80", {1, {80}}, 0, {Http("0")}, {1, {80}}, false, nullptr},
    {"another port", {1, {80}}, 0, {Http("8080")}, {1, {8080}}, true, nullptr},
    {"twice is once", {1, {80}}, 0, {Http("8080"), Http("8080")}, {1, {8080}}, true, nullptr},
    {"0 and 80 are one", {1, {80}}, 0, {Http("80"), Http("0")}, {1, {80}}, false, nullptr},
    {"one more", {1, {80}}, 0, {Http("0"), Http("8080")}, {2, {80, 8080}}, true, nullptr},
    {"one less", {2, {80, 8080}}, 0, {Http("8080")}, {1, {8080}}, true, nullptr},
    {"one changed", {2, {80, 81}}, 0, {Http("80"), Http("82")}, {2, {80, 82}}, true, nullptr},
    {"another order is no change",
     {2, {80, 81}},
     0,
     {Http("81"), Http("80")},
     {2, {80, 81}},
     false,
     nullptr},
    {"also with no IP version", {1, {80}}, 0, {Http("8080", "0")}, {1, {8080}}, true, nullptr},
    {"only accepted ones",
     {1, {80}},
     0,
     {{"HTTP", "WAN", "", "DROP", "1", "81"}},
     {0, {}},
     true,
     nullptr},
    {"only those that are on",
     {1, {80}},
     0,
     {{"HTTP", "", "", "ACCEPT", "1", "80", "0"}},
     {0, {}},
     true,
     nullptr},
    {"only HTTP", {1, {80}}, 0, {{"TCP", "LAN", "", "ACCEPT", "1", "80"}}, {0, {}}, true, nullptr},
    {"none before, none now", {0, {}}, 0, {}, {0, {}}, false, nullptr},
    {"every slot", {1, {80}}, 0, HttpRange(81, 16), PortRange(81), true, nullptr},
    {"a port over is left out",
     {1, {80}},
     0,
     HttpRange(81, 17),
     PortRange(81),
     true,
     "web port 97 left out"},
    {"many are left out", PortRange(81), 0, HttpRange(81, 50), PortRange(81), false,
     "web port 130 left out"},
    {"full, and one of them again", PortRange(81), 0, HttpRange(81, 16), PortRange(81), false,
     nullptr},
    {"forced", {1, {80}}, 1, {Http("0")}, {1, {80}}, true, nullptr},
    {"forced is exactly 1", {1, {80}}, 2, {Http("0")}, {1, {80}}, false, nullptr},
    {"a change ends forcing", {1, {80}}, 2, {Http("81")}, {1, {81}}, true, nullptr},
};

TEST_F(Access, PortsOfTheWebServer) {
  for (const WebCase &one : kWebCases) {
    LoadModel(kModel);
    AddEntries(one.entries);
    WebPortList = one.before;
    WebRestartForced = one.forced;
    Outcome outcome = RunHandler("FuncSCL", TMF_SET);
    EXPECT_EQ(WebPortList.count, one.after.count) << one.what;
    EXPECT_EQ(memcmp(WebPortList.ports, one.after.ports, sizeof one.after.ports), 0) << one.what;
    size_t restarts =
        static_cast<size_t>(std::count(outcome.lines.begin(), outcome.lines.end(), kRunScript));
    EXPECT_EQ(restarts, one.restarted ? 1U : 0U) << one.what;
    EXPECT_EQ(WebRestartForced, one.restarted ? 0 : one.forced) << one.what;
    EXPECT_EQ(Has(outcome.log, one.log == nullptr ? "left out" : one.log), one.log != nullptr)
        << one.what << outcome.log;
  }
}

TEST_F(Access, ForcedOnce) {
  AddEntries({Http("0")});
  WebRestartForced = 1;
  Lines forced = Rebuild(), calm = Rebuild();
  EXPECT_EQ(forced.size(), calm.size() + 1);
}

}  // namespace
