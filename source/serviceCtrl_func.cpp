// Service access control: the list of entries becomes ACCEPT rules, every known service DROP rules
// behind them. The firewall's start creates the chains and hooks them into INPUT and PREROUTING.
// The HTTP entries also say on which ports the web server listens.
//
// Texts of the entries go into the command lines as they are: who may write the list may run
// commands as the daemon does.
#include "serviceCtrl_func.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "ams_config_shell.h"
#include "op_rows.h"
#include "op_values.h"

#define SCL "InternetGatewayDevice.Services.ServiceAccessControl."

WebPorts WebPortList = {1, {80}};
int WebRestartForced = 0;

namespace {

enum { SCL_KIND_FIXED = 1, SCL_KIND_TCP = 2, SCL_KIND_UDP = 4 };
enum { SCL_IPV4 = 0, SCL_IPV6 = 1, SCL_VERSIONS = 2, SCL_SERVICES = 8 };

/* A service that entries can name, and whose packets are dropped where no entry lets them in. */
struct SclServiceRow {
  const char *name;
  const char *match1, *match2; /* iptables' words for its packets, of SCL_KIND_FIXED; or NULL */
  int32_t kind;                /* SCL_KIND_... */
  const char *port_path;       /* parameter with the daemon's ports, separated by commas; or NULL */
  int32_t default_port;        /* of an entry with port 0; 0 or less: none */
};

/* The copies differ in ICMP and in the default of HTTP. That one is told apart on purpose: an entry
   that does not accept HTTP and has port 0 closes port 80 to IPv6 only. */
const SclServiceRow SclServiceTable[SCL_VERSIONS][SCL_SERVICES] = {
    {
        {"TELNET", nullptr, nullptr, SCL_KIND_TCP,
         "InternetGatewayDevice.Services.ServiceTelnet.Port", 23},
        {"SSH", nullptr, nullptr, SCL_KIND_TCP, "InternetGatewayDevice.Services.ServiceSSH.Port",
         22},
        {"FTP", nullptr, nullptr, SCL_KIND_TCP, "InternetGatewayDevice.Services.ServiceFTP.Port",
         21},
        {"TFTP", nullptr, nullptr, SCL_KIND_UDP, "InternetGatewayDevice.Services.ServiceTFTP.Port",
         69},
        {"HTTP", nullptr, nullptr, SCL_KIND_TCP, nullptr, -1},
        {"SNMP", "-p udp --dport 161", nullptr, SCL_KIND_FIXED, nullptr, -1},
        {"SAMBA", "-p tcp -m multiport --dports 445,139,389,901",
         "-p udp -m multiport --dports 137,138", SCL_KIND_FIXED, nullptr, -1},
        {"ICMP", "-p icmp -m icmp --icmp-type 8", nullptr, SCL_KIND_FIXED, nullptr, -1},
    },
    {
        {"TELNET", nullptr, nullptr, SCL_KIND_TCP,
         "InternetGatewayDevice.Services.ServiceTelnet.Port", 23},
        {"SSH", nullptr, nullptr, SCL_KIND_TCP, "InternetGatewayDevice.Services.ServiceSSH.Port",
         22},
        {"FTP", nullptr, nullptr, SCL_KIND_TCP, "InternetGatewayDevice.Services.ServiceFTP.Port",
         21},
        {"TFTP", nullptr, nullptr, SCL_KIND_UDP, "InternetGatewayDevice.Services.ServiceTFTP.Port",
         69},
        {"HTTP", nullptr, nullptr, SCL_KIND_TCP, nullptr, 80},
        {"SNMP", "-p udp --dport 161", nullptr, SCL_KIND_FIXED, nullptr, -1},
        {"SAMBA", "-p tcp -m multiport --dports 445,139,389,901",
         "-p udp -m multiport --dports 137,138", SCL_KIND_FIXED, nullptr, -1},
        {"ICMP", "-p icmpv6 -m icmpv6 --icmpv6-type 128", nullptr, SCL_KIND_FIXED, nullptr, -1},
    },
};

struct Version {
  const char *tool, *accept, *drop;
  const SclServiceRow (&services)[SCL_SERVICES];
};

const Version kVersions[SCL_VERSIONS] = {
    {"iptables", "SCL_IP_ACCEPT", "SCL_IP_DROP", SclServiceTable[SCL_IPV4]},
    {"ip6tables", "SCL_IP_ACCEPT_V6", "SCL_IP_DROP_V6", SclServiceTable[SCL_IPV6]},
};

const char *const kFlush[] = {
    "iptables -F SCL_IP_ACCEPT",
    "iptables -F SCL_IP_DROP",
    "iptables -t nat -F service_local_list",
    "iptables -t nat -A service_local_list -i br+ -j RETURN",
    "iptables -t nat -A service_local_list -i lo -j RETURN",
    "ip6tables -F SCL_IP_ACCEPT_V6",
    "ip6tables -F SCL_IP_DROP_V6",
};

/* ---- entries ---- */

struct Entry {
  std::string service, direction, range, action;
  int ip_mode; /* bit n: rules of kVersions[n] */
  int port;    /* 0: the service's own */
};

std::string EntryText(const std::string &path) {
  char value[1024] = ""; /* a parameter that is not there reads as "" */
  (void)ams_mxml_get_leaf_value(path.c_str(), value);
  return value;
}

/* `row`: the entry's path with its ".". */
Entry ReadEntry(const std::string &row) {
  Entry entry = {EntryText(row + "ServiceName"),    EntryText(row + "AccessDirection"),
                 EntryText(row + "SrcIpRange"),     EntryText(row + "Action"),
                 LeafInt((row + "IPMode").c_str()), LeafInt((row + "Port").c_str())};
  AMS_PRINT(1, "ServiceName=%s, AccessDirection=%s, SrcIpRange=%s, Action=%s, IPMode=%d, Port=%d\n",
            entry.service.c_str(), entry.direction.c_str(), entry.range.c_str(),
            entry.action.c_str(), entry.ip_mode, entry.port);
  return entry;
}

/* Calls `take` for each entry that is switched on, in order of the list. */
template <typename Take>
void ForEachEntry(Take take) {
  auto slots = std::make_unique<char[][AMS_LIST_SLOT_SIZE]>(AMS_LIST_SLOTS);
  AmsArrayList list = {0, slots.get()};
  if (ams_mxml_list_array(SCL "ServiceCtrlList", &list) != 0) list.count = 0; /* no such list */
  AMS_PRINT(1, "total list:%d\n", static_cast<int>(list.count));
  for (uintptr_t i = 0; i < list.count; ++i) {
    std::string row = slots[i];
    AMS_PRINT(1, "service path is %s\n", row.c_str());
    if (LeafInt((row + "Enable").c_str()) == 1) take(ReadEntry(row));
  }
}

/* ---- rules of one entry ---- */

/* What the rules match, in iptables' words; protocol2 is empty when one match tells all. */
struct Matches {
  std::string source, protocol1, protocol2, interface;
};

const SclServiceRow *FindService(const Version &version, const std::string &name) {
  for (const SclServiceRow &row : version.services)
    if (name == row.name) return &row;
  return nullptr;
}

/* 0, or -1: there is no such service. */
int ProtocolMatches(const Entry &entry, const Version &version, Matches *matches) {
  std::string port = std::to_string(entry.port);
  if (entry.service == "TCP") {
    matches->protocol1 = "-p tcp -m tcp --dport " + port;
    return 0;
  }
  if (entry.service == "UDP") {
    matches->protocol1 = "-p udp --dport " + port;
    return 0;
  }
  const SclServiceRow *row = FindService(version, entry.service);
  if (row == nullptr) return -1;
  if (entry.port == 0 && row->default_port > 0) port = std::to_string(row->default_port);
  if (row->kind == SCL_KIND_TCP) {
    matches->protocol1 = "-p tcp -m tcp --dport " + port;
    /* The data connections of passive clients; on the LAN nothing stops them. */
    if (entry.service == "FTP" && entry.direction == "WAN" && entry.action == "ACCEPT")
      matches->protocol2 = "-p tcp -m tcp --dport 30000:30099 ";
  } else if (row->kind == SCL_KIND_UDP) {
    matches->protocol1 = "-p udp -m udp --dport " + port;
  } else {
    matches->protocol1 = row->match1;
    if (row->match2 != nullptr) matches->protocol2 = row->match2;
  }
  return 0;
}

int EntryMatches(const Entry &entry, const Version &version, Matches *matches) {
  if (ProtocolMatches(entry, version, matches) != 0) return -1;
  if (entry.direction == "LAN") matches->interface = "-i br+";
  if (entry.direction == "WAN") matches->interface = "! -i br+";
  if (!entry.range.empty()) matches->source = "-m iprange --src-range " + entry.range;
  return 0;
}

/* Entries with a source range go to the head of the chain: they are tried before the open ones.
   What the gateway itself answers on the WAN must not be forwarded to a host, so it has a nat rule,
   too; the IPv6 side has no nat. */
std::vector<std::string> EntryLines(const Entry &entry, const Version &version,
                                    const Matches &matches) {
  std::vector<std::string> filter, nat;
  const char *placement = matches.source.empty() ? " -A " : " -I ";
  bool has_nat = &version == &kVersions[SCL_IPV4] && entry.direction == "WAN";
  for (const std::string &protocol : {matches.protocol1, matches.protocol2}) {
    if (protocol.empty()) continue;
    filter.push_back(std::string(version.tool) + " " + placement + " " + version.accept + " " +
                     matches.source + " " + protocol + " " + matches.interface + " -j " +
                     entry.action);
    if (has_nat && entry.action == "ACCEPT")
      nat.push_back("iptables -t nat -A service_local_list " + matches.source + " " + protocol +
                    " -j " + entry.action);
  }
  filter.insert(filter.end(), nat.begin(), nat.end());
  return filter;
}

/* The rules of one entry; none for a service that is not known, since a model may let any name in.
 */
void BuildEntry(const Entry &entry, const Version &version) {
  Matches matches;
  if (EntryMatches(entry, version, &matches) != 0) return;
  AMS_PRINT(1, "strIp=%s, strProtocol1=%s, strProtocol2=%s, strIf=%s\n", matches.source.c_str(),
            matches.protocol1.c_str(), matches.protocol2.c_str(), matches.interface.c_str());
  for (const std::string &line : EntryLines(entry, version, matches))
    cfgSystemCmd("%s", line.c_str());
}

/* ---- ports of the web server ---- */

bool HasPort(const WebPorts &web, int port) {
  const int32_t *end = web.ports + web.count;
  return std::find(web.ports, end, port) != end;
}

void AddPort(WebPorts *web, int port) {
  if (HasPort(*web, port)) return;
  if (web->count == kWebPortSlots) {
    AMS_PRINT(4, "web port %d left out: %u fit, delete some HTTP entries\n", port, kWebPortSlots);
    return;
  }
  web->ports[web->count++] = port;
}

/* The same ports in another order are no change. */
bool SamePorts(const WebPorts &one, const WebPorts &other) {
  if (one.count != other.count) return false;
  return std::all_of(one.ports, one.ports + one.count,
                     [&](int32_t port) { return HasPort(other, port); });
}

/* Without access control the web server is on its usual port alone. */
void ResetWebPorts() {
  if (WebPortList.count == 1 && WebPortList.ports[0] == 80) return;
  WebPortList = {1, {80}};
  WebServerRestart(WebPortList);
}

/* What the entries make: the ACCEPT chains, the nat chain and the web server's ports. */
void SclBuildAcceptRules() {
  WebPorts web = {};
  ForEachEntry([&web](Entry entry) {
    if (entry.service == "HTTP" && entry.action == "ACCEPT") {
      if (entry.port == 0) entry.port = 80;
      AddPort(&web, entry.port); /* also when the IP mode asks for no rules */
    }
    for (int i = 0; i < SCL_VERSIONS; ++i)
      if ((entry.ip_mode & 1 << i) != 0) BuildEntry(entry, kVersions[i]);
  });
  for (const Version &version : kVersions)
    cfgSystemCmd("%s -I %s -i lo -j RETURN", version.tool, version.accept);
  if (SamePorts(WebPortList, web) && WebRestartForced != 1) return;
  WebPortList = web;
  WebRestartForced = 0;
  WebServerRestart(WebPortList);
}

/* ---- DROP rules ---- */

/* The match of the service's daemon. `ports` is the text of the row before when the parameter
   cannot be read: a gateway without that service gets a rule twice, or one that iptables refuses.
   It refuses the one for a text that is too long, too: half of it would close another port. */
std::string DaemonMatch(const SclServiceRow &row, char (&ports)[128]) {
  if (LeafText(row.port_path, ports) != 0) ports[0] = '\0';
  const char *protocol = row.kind == SCL_KIND_UDP ? "udp" : "tcp";
  return std::string("-p ") + protocol + " -m multiport --dports  " + ports;
}

void DropService(const Version &version, const SclServiceRow &row, char (&ports)[128]) {
  if (strcmp(row.name, "HTTP") == 0) {
    for (uint32_t i = 0; i < WebPortList.count; ++i)
      cfgSystemCmd("%s -A %s -p tcp -m tcp --dport %d -j DROP", version.tool, version.drop,
                   WebPortList.ports[i]);
  } else if (row.kind == SCL_KIND_FIXED) {
    for (const char *match : {row.match1, row.match2})
      if (match != nullptr) cfgSystemCmd("%s -A %s %s -j DROP", version.tool, version.drop, match);
  } else {
    cfgSystemCmd("%s -A %s %s -j DROP", version.tool, version.drop,
                 DaemonMatch(row, ports).c_str());
  }
}

/* ---- start ---- */

struct HookRow {
  bool only_tr069; /* the WAN is for the management connection only: entries open the LAN side */
  const char *line;
};

/* Appended once a start: a daemon that is started again has them twice. Another OnlyTr69Wan than
   at the start before it takes a start of the firewall, which makes the chains anew. */
const HookRow kHooks[] = {
    {true, "iptables -t nat -D service_list -j service_local_list"},
    {true, "iptables -t filter -A SCL_IP_FILTER_ACCEPT -i br+ -j SCL_IP_ACCEPT"},
    {true, "ip6tables -t filter -A SCL_IP_FILTER_ACCEPT_V6 -i br+ -j SCL_IP_ACCEPT_V6"},
    {false, "iptables -t filter -A SCL_IP_FILTER_ACCEPT -j SCL_IP_ACCEPT"},
    {false, "ip6tables -t filter -A SCL_IP_FILTER_ACCEPT_V6 -j SCL_IP_ACCEPT_V6"},
};

void HookUp() {
  bool only_tr069 = LeafInt(SCL "OnlyTr69Wan") == 1;
  for (const HookRow &row : kHooks)
    if (row.only_tr069 == only_tr069) cfgSystemCmd("%s", row.line);
}

}  // namespace

int SclRebuild() {
  for (const char *line : kFlush) cfgSystemCmd("%s", line);
  if (LeafInt(SCL "Enable") == 0) {
    ResetWebPorts();
    return 0;
  }
  SclBuildAcceptRules();
  char ports[128] = ""; /* one for both walks; DaemonMatch says why */
  for (const Version &version : kVersions)
    for (const SclServiceRow &row : version.services) DropService(version, row, ports);
  for (const Version &version : kVersions)
    cfgSystemCmd("%s -I %s -i lo -j RETURN", version.tool, version.drop);
  return 0;
}

int FuncSCL(OpFuncArg *arg) {
  if (!IsInitOrSet(arg->op)) return 0;
  if (arg->op == TMF_INIT) HookUp();
  return SclRebuild();
}

/* Its rows need nothing at start: FuncSCL has built them. */
int FuncSrvLists(OpFuncArg *arg) {
  bool changes = arg->op == TMF_SET || arg->op == TMF_ADD || arg->op == TMF_DEL;
  return changes ? SclRebuild() : 0;
}
