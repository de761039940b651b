// The network daemons: the command lines of Telnet, TFTP, SSH, the printer server, FTP, SNMP,
// Samba.
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>

#include "capabinfo_thread.h"
#include "devinfo_func.h"
#include "devinfo_thread.h"
#include "netdaemon_func.h"
#include "services_func.h"
#include "support.h"

namespace {

using Lines = std::vector<std::string>;

const std::string kServices = "InternetGatewayDevice.Services.";
const std::string kLanAddress =
    "InternetGatewayDevice.LANDevice.1.LANHostConfigManagement.IPInterface.1.IPInterfaceIPAddress";
/* Beside Telnet and Samba, which are in every test's model. */
const char kServiceNodes[] = R"(
    <ServiceSSH type="object"><Enable type="boolean"/><Port type="string"/></ServiceSSH>
    <ServiceTFTP type="object">
      <Enable type="boolean"/><Port type="string"/><RootDIR type="string"/>
    </ServiceTFTP>
    <ServiceFTP type="object">
      <Enable type="boolean"/><RootDIR type="string"/><Port type="string">2121</Port>
    </ServiceFTP>
    <X_KVO-ServicePrinter type="object">
      <Enabled type="boolean"/><QueueName type="string"/>
    </X_KVO-ServicePrinter>
    <ServiceSNMP type="object">
      <Enable type="boolean"/>
      <Port type="string">1161</Port>
      <SystemContact type="string">ops@a.example</SystemContact>
      <SystemName type="string">gw-7</SystemName>
      <SystemLocation type="string">rack 3, "left" $HOME</SystemLocation>
      <PublicCommunity type="string">look</PublicCommunity>
      <PrivateCommunity type="string">touch</PrivateCommunity>
      <TrapEnabled type="boolean"/>
      <TrapVersion type="string"/>
      <TrapAddress type="string">192.0.2.9</TrapAddress>
    </ServiceSNMP>)";
const char kLan[] = R"(
  <LANDevice type="array">
    <Template><LANHostConfigManagement type="object"><IPInterface type="array">
      <Template><IPInterfaceIPAddress type="string"/></Template>
      <Instance id="1"/>
    </IPInterface></LANHostConfigManagement></Template>
    <Instance id="1"/>
  </LANDevice>)";

void InsertBehind(std::string *text, const std::string &mark, const std::string &more) {
  text->insert(text->find(mark) + mark.size(), more);
}

/* What a shell makes of the lines that write the agent's file. */
void WriteAsShell(const std::string &line) {
  const std::string echo = "echo -e \"";
  size_t end = line.rfind("\" >");
  if (line.compare(0, echo.size(), echo) != 0 || end == line.npos) return;
  bool append = line[end + 3] == '>';
  std::ofstream("/var/snmpd.conf", append ? std::ios::app : std::ios::trunc)
      << line.substr(echo.size(), end - echo.size()) << '\n';
}

class Daemons : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    OnSystem(WriteAsShell);
  }
  void TearDown() override {
    OnSystem(nullptr);
    remove("/var/snmpd.conf");
    StoreTest::TearDown();
  }
  std::string DataModel() const override {
    std::string model = StoreTest::DataModel();
    InsertBehind(&model, "</ServiceTelnet>", kServiceNodes);
    InsertBehind(&model, "</ManagementServer>", kLan);
    return model;
  }
};

void Call(const std::string &name, int op, const char *what, int result = 0) {
  EXPECT_EQ(RunOp(kCapabInfoFuncTable, name, op), result) << name << ": " << what;
}

std::string Repeated(int count, const std::string &text) {
  std::string all;
  while (count-- > 0) all += text;
  return all;
}

/* ---- daemons with a list of ports ---- */

TEST(PortList, SplitsAtCommas) {
  const std::pair<const char *, std::vector<int>> cases[] = {
      {"", {}},          {"23", {23}},          {"23,2323", {23, 2323}}, {"2323,23", {2323, 23}},
      {"x", {0}},        {"23x, 24", {23, 24}}, {"23,,24", {23, 0, 24}}, {",23", {0, 23}},
      {"-1,0", {-1, 0}}, {"23,", {23, 0}},      {",", {0, 0}},
  };
  for (const auto &[text, ports] : cases) EXPECT_EQ(PortList(text), ports) << "\"" << text << "\"";
}

struct PortCase {
  const char *what;
  int op;
  std::string enable, ports;
  Lines lines;
  int result = 0;
};

/* `daemon`: what the names of the node and of the op function end in. */
template <size_t N>
void Check(const std::string &daemon, const PortCase (&cases)[N]) {
  for (const PortCase &one : cases) {
    SetLeaf(kServices + "Service" + daemon + ".Enable", one.enable);
    SetLeaf(kServices + "Service" + daemon + ".Port", one.ports);
    Call("FuncServ" + daemon, one.op, one.what, one.result);
    EXPECT_EQ(TakeCommands(), one.lines) << daemon << ": " << one.what;
  }
}

const char kKillTelnet[] = "killall telnetd >/dev/null 2>&1";
const char kTelnet23[] = "telnetd -l /usr/sbin/ams_cli -p 23 &";
const char kTelnet2323[] = "telnetd -l /usr/sbin/ams_cli -p 2323 &";

const PortCase kTelnet[] = {
    {"init off runs nothing", TMF_INIT, "0", "23", {}},
    {"init on starts without a kill", TMF_INIT, "1", "23,2323", {kTelnet23, kTelnet2323}},
    {"set on kills, then starts", TMF_SET, "1", "2323,23", {kKillTelnet, kTelnet2323, kTelnet23}},
    {"set off only kills", TMF_SET, "0", "23", {kKillTelnet}},
    {"any other value: nothing", TMF_SET, "2", "23", {}},
    {"on without ports", TMF_SET, "1", "", {kKillTelnet}},
};

TEST_F(Daemons, TelnetFollowsItsParameters) { Check("Telnet", kTelnet); }

const char kKillTftp[] = "killall tftpd-hpa >/dev/null 2>&1";
const char kTftp69[] = "tftpd-hpa -lc -s /mnt/a -P 69 &";

const char kTftp6969[] = "tftpd-hpa -lc -s /mnt/a -P 6969 &";

const PortCase kTftp[] = {
    {"init off runs nothing", TMF_INIT, "0", "69", {}},
    {"init on starts without a kill", TMF_INIT, "1", "69", {kTftp69}},
    {"set on kills, then starts", TMF_SET, "1", "69,6969", {kKillTftp, kTftp69, kTftp6969}},
    {"set off only kills", TMF_SET, "0", "69", {kKillTftp}},
    {"any other value: nothing", TMF_SET, "2", "69", {}},
};

TEST_F(Daemons, TftpFollowsItsParameters) {
  SetLeaf(kServices + "ServiceTFTP.RootDIR", "/mnt/a");
  Check("TFTP", kTftp);
}

const char kKillSsh[] = "killall dropbear >/dev/null 2>&1";
const char kKeyFolder[] = "mkdir -p /var/dropbear";
const char kKey[] = "dropbearkey -t rsa -f /var/dropbear/rsa_host_key";

#define SSH "dropbear -r /var/dropbear/rsa_host_key "

const PortCase kSsh[] = {
    {"init off makes the key all the same", TMF_INIT, "0", "22", {kKeyFolder, kKey}},
    {"init on has no kill", TMF_INIT, "1", "22", {kKeyFolder, kKey, SSH " -p 22 "}},
    {"one for all ports", TMF_SET, "1", "22,2222", {kKillSsh, SSH " -p 22  -p 2222 "}},
    {"below 1 is 22", TMF_SET, "1", "0,-5,x,9", {kKillSsh, SSH " -p 22  -p 22  -p 22  -p 9 "}},
    {"on without ports", TMF_SET, "1", "", {kKillSsh, SSH}},
    {"the longest command has 255 bytes",
     TMF_SET,
     "1",
     Repeated(35, "1,") + "1",
     {kKillSsh, SSH + Repeated(36, " -p 1 ")}},
    {"a longer one leaves what runs", TMF_SET, "1", Repeated(35, "1,") + "11", {}, -1},
    {"off takes any list", TMF_SET, "0", Repeated(35, "1,") + "11", {kKillSsh}},
    {"set off only kills", TMF_SET, "0", "22", {kKillSsh}},
    {"any other value: nothing", TMF_SET, "2", "22", {}},
};

TEST_F(Daemons, SshFollowsItsParameters) {
  const std::string log = LogOf(3, [] { Check("SSH", kSsh); });
  const std::string refused = "dropbear not started, its command has 256 bytes and 255 fit";
  ASSERT_NE(log.find(refused), log.npos) << log;
  EXPECT_EQ(log.find(refused), log.rfind(refused)) << "once";
  EXPECT_NE(log.find("shorten InternetGatewayDevice.Services.ServiceSSH.Port"), log.npos) << log;
}

/* ---- texts that do not fit ---- */

/* `longest` bytes are taken; with one more the op is refused before anything is run. */
TEST_F(Daemons, WhatDoesNotFitLeavesTheServerAlone) {
  const struct {
    std::string service, op_function, leaf;
    size_t longest;
  } cases[] = {
      {"ServiceTelnet.", "FuncServTelnet", "Port", 127},
      {"ServiceTFTP.", "FuncServTFTP", "Port", 127},
      {"ServiceTFTP.", "FuncServTFTP", "RootDIR", 63},
      {"ServiceSSH.", "FuncServSSH", "Port", 127},
      {"ServiceFTP.", "FuncServFTP", "RootDIR", 63},
      {"ServiceFTP.", "FuncServFTP", "Port", 127},
      {"X_KVO-ServicePrinter.", "FuncServPrinter", "QueueName", 255},
  };
  SetLeaf(kLanAddress, "192.168.1.1");
  for (const auto &one : cases) {
    const std::string path = kServices + one.service + one.leaf, before = Leaf(path);
    SetLeaf(kServices + one.service + (one.service[0] == 'X' ? "Enabled" : "Enable"), "1");
    SetLeaf(path, std::string(one.longest - 2, '0') + "23");
    Call(one.op_function, TMF_SET, "fits");
    EXPECT_GE(TakeCommands().size(), 1U) << path;
    SetLeaf(path, std::string(one.longest - 1, '0') + "23");
    const std::string log = LogOf(4, [&] { Call(one.op_function, TMF_SET, "is too long", -1); });
    EXPECT_EQ(TakeCommands(), Lines{}) << path;
    EXPECT_NE(log.find(path), log.npos) << log;
    SetLeaf(path, before);
  }
}

/* ---- ports that are not free yet ---- */

/* What holds a port as a server that runs does, until Close. */
class Holder {
 public:
  Holder(int type, int port) : fd_(socket(AF_INET6, type, 0)), port_(Bind(fd_, type, port)) {
    EXPECT_NE(port_, 0) << "the test needs port " << port << " (0: any)";
  }
  ~Holder() { Close(); }
  int port() const { return port_; }
  void Close() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
  }

 private:
  /* Binds and, for a stream, listens. The port, or 0 when that fails. */
  static int Bind(int fd, int type, int port) {
    const int on = 1;
    sockaddr_in6 address = {};
    socklen_t size = sizeof address;
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(static_cast<uint16_t>(port));
    auto *any = reinterpret_cast<sockaddr *>(&address);
    if (type == SOCK_STREAM) setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(fd, any, size) != 0 || (type == SOCK_STREAM && listen(fd, 1) != 0)) return 0;
    return getsockname(fd, any, &size) == 0 ? ntohs(address.sin6_port) : 0;
  }

  int fd_, port_;
};

struct PortWaitCase {
  std::string op_function, enable, port_leaf; /* port_leaf "": the port is the service's own */
  int type, port;                             /* port 0: any */
  std::string kill, start;                    /* what the lines begin with */
};

const PortWaitCase kPortWaits[] = {
    {"FuncServTelnet", "ServiceTelnet.Enable", "ServiceTelnet.Port", SOCK_STREAM, 0,
     "killall telnetd", "telnetd"},
    {"FuncServTFTP", "ServiceTFTP.Enable", "ServiceTFTP.Port", SOCK_DGRAM, 0, "killall tftpd-hpa",
     "tftpd-hpa"},
    {"FuncServSSH", "ServiceSSH.Enable", "ServiceSSH.Port", SOCK_STREAM, 0, "killall dropbear",
     "dropbear"},
    {"FuncServSNMP", "ServiceSNMP.Enable", "", SOCK_DGRAM, 161, "killall snmpd", "/usr/sbin/snmpd"},
    {"FuncServPrinter", "X_KVO-ServicePrinter.Enabled", "", SOCK_STREAM, 515, "killall lpdsrv",
     "lpdsrv"},
    {"FuncTeleComAccount", "", "", SOCK_STREAM, 80, "killall -9 uhttpd", "uhttpd"},
};

bool BeginsWith(const std::string &text, const std::string &begin) {
  return text.compare(0, begin.size(), begin) == 0;
}

/* Sets the service up on the holder's port, which becomes free at wait `free_at` (0: never), and
   applies it. The waits between its kill and its start, or -1 when it is not started behind a kill.
 */
int WaitsOf(const PortWaitCase &one, Holder *holder, int free_at) {
  if (!one.enable.empty()) SetLeaf(kServices + one.enable, "1");
  if (!one.port_leaf.empty()) SetLeaf(kServices + one.port_leaf, std::to_string(holder->port()));
  int waits = 0, killed_at = -1, started_at = -1;
  OnDelay([&] {
    if (++waits == free_at) holder->Close();
  });
  OnSystem([&](const std::string &line) {
    WriteAsShell(line);
    if (BeginsWith(line, one.kill)) killed_at = waits;
    if (BeginsWith(line, one.start)) started_at = waits;
  });
  const OpFuncEntry *table = one.enable.empty() ? kDevInfoFuncTable : kCapabInfoFuncTable;
  EXPECT_EQ(RunOp(table, one.op_function, TMF_SET), 0) << one.op_function;
  OnSystem(WriteAsShell);
  OnDelay(nullptr);
  return killed_at < 0 ? -1 : started_at - killed_at;
}

TEST_F(Daemons, TheNextServerStartsWhenThePortIsFree) {
  SetLeaf(kLanAddress, "192.168.1.1");
  for (const PortWaitCase &one : kPortWaits) {
    Holder holder(one.type, one.port);
    EXPECT_EQ(WaitsOf(one, &holder, 3), 3) << one.op_function;
  }
}

TEST_F(Daemons, APortThatStaysTakenIsToldAndTheServerStartsAllTheSame) {
  Holder holder(SOCK_STREAM, 0);
  const std::string log = LogOf(4, [&] { EXPECT_EQ(WaitsOf(kPortWaits[0], &holder, 0), 200); });
  EXPECT_NE(log.find("port " + std::to_string(holder.port()) + " is still taken"), log.npos) << log;
}

/* ---- printer ---- */

const char kKillPrinter[] = "killall lpdsrv >/dev/null 2>&1";
const char kPrinter[] = "lpdsrv -n 192.168.1 -o /dev/lp0 -r laser:/dev/lp0";

struct PrinterCase {
  const char *what;
  int op;
  std::string enabled, address;
  Lines lines;
  std::string log; /* at level 4 */
};

const PrinterCase kPrinters[] = {
    {"init off runs nothing", TMF_INIT, "0", "192.168.1.1", {}, ""},
    {"init on starts without a kill", TMF_INIT, "1", "192.168.1.1", {kPrinter}, ""},
    {"set on kills, then starts", TMF_SET, "1", "192.168.1.254", {kKillPrinter, kPrinter}, ""},
    {"so does any other value", TMF_SET, "2", "192.168.1.1", {kKillPrinter}, ""},
    {"off, no address: nobody asks for it", TMF_SET, "0", "", {kKillPrinter}, ""},
    {"no dot in the address", TMF_SET, "1", "localhost", {kKillPrinter}, "bad lan IP localhost\n"},
    {"no address at start", TMF_INIT, "1", "", {}, "bad lan IP \n"},
};

/* Its port stays taken: it is waited for where a server is killed and another one started. */
TEST_F(Daemons, PrinterFollowsItsParameters) {
  Holder holder(SOCK_STREAM, 515);
  SetLeaf(kServices + "X_KVO-ServicePrinter.QueueName", "laser");
  for (const PrinterCase &one : kPrinters) {
    SetLeaf(kServices + "X_KVO-ServicePrinter.Enabled", one.enabled);
    SetLeaf(kLanAddress, one.address);
    int waits = 0;
    OnDelay([&] { ++waits; });
    const std::string log = LogOf(3, [&] { Call("FuncServPrinter", one.op, one.what); });
    EXPECT_EQ(TakeCommands(), one.lines) << one.what;
    EXPECT_EQ(log.find("Fail to start lpdsrv: ") != log.npos, !one.log.empty()) << one.what << log;
    EXPECT_NE(log.find(one.log), log.npos) << one.what << log;
    EXPECT_EQ(waits > 0, one.lines.size() == 2) << one.what;
  }
}

/* ---- FTP ---- */

struct FtpCase {
  const char *what;
  int op;
  std::string enable, folder;
  Lines lines;
};

#define FTP "/usr/syscfg/vsftpd.sh "

const FtpCase kFtp[] = {
    {"init on", TMF_INIT, "1", "/var", {FTP "/var 2121 &"}},
    {"init on, no such folder", TMF_INIT, "1", "/none", {FTP "/mnt 2121 &"}},
    {"init on, a file", TMF_INIT, "1", "/etc/passwd", {FTP "/mnt 2121 &"}},
    {"init on, no folder named", TMF_INIT, "1", "", {FTP "/mnt 2121 &"}},
    {"a set takes the folder as it is", TMF_SET, "1", "/none", {FTP "/none 2121 &"}},
    {"any other value is on", TMF_SET, "2", "/var", {FTP "/var 2121 &"}},
    {"init off kills", TMF_INIT, "0", "/none", {"killall -q vsftpd"}},
    {"set off kills", TMF_SET, "0", "/var", {"killall -q vsftpd"}},
};

TEST_F(Daemons, FtpFollowsItsParameters) {
  for (const FtpCase &one : kFtp) {
    SetLeaf(kServices + "ServiceFTP.Enable", one.enable);
    SetLeaf(kServices + "ServiceFTP.RootDIR", one.folder);
    Call("FuncServFTP", one.op, one.what);
    EXPECT_EQ(TakeCommands(), one.lines) << one.what;
  }
}

/* ---- SNMP ---- */

const char kKillSnmp[] = "killall snmpd >/dev/null 2>&1";

/* Port says 1161, and texts are not quoted. */
Lines SnmpStart(const std::string &contact, const Lines &more) {
  Lines file = {"agentAddress udp:161",
                "sysservices 79",
                "psysname gw-7",
                "psyscontact " + contact,
                "psyslocation rack 3, \"left\" $HOME",
                "rwcommunity touch",
                "rocommunity look",
                "view read_wr included .1 "};
  file.insert(file.end(), more.begin(), more.end());
  Lines lines = {kKillSnmp};
  for (const std::string &line : file)
    lines.push_back("echo -e \"" + line + "\" " + (lines.size() == 1 ? ">" : ">>") +
                    " /var/snmpd.conf");
  lines.push_back(
      "/usr/sbin/snmpd -f -q -I -C -c /var/snmpd.conf -Lf /dev/null -p /var/snmpd.pid &");
  return lines;
}

struct SnmpCase {
  const char *what;
  int op;
  std::string enable, traps, version;
  Lines lines;
};

const char kContact[] = "ops@a.example", kTraps[] = "authtrapenable 1";
const Lines kSnmpStop = {kKillSnmp, "rm /var/snmpd.conf >/dev/null 2>&1"};
const Lines kPlain = SnmpStart(kContact, {}), kNoSink = SnmpStart(kContact, {kTraps});
const Lines kSink1 = SnmpStart(kContact, {kTraps, "trapsink 192.0.2.9"});
const Lines kSink2 = SnmpStart(kContact, {kTraps, "trap2sink 192.0.2.9"});

const SnmpCase kSnmp[] = {
    {"init on", TMF_INIT, "1", "0", "SNMPV1", kPlain},
    {"set on", TMF_SET, "1", "", "SNMPV2", kPlain},
    {"traps of version 1", TMF_SET, "1", "1", "SNMPV1", kSink1},
    {"traps of version 2, any number is on", TMF_SET, "1", "7", "SNMPV2", kSink2},
    {"traps of a version without a sink", TMF_SET, "1", "1", "SNMPV3", kNoSink},
    {"init off", TMF_INIT, "0", "1", "SNMPV1", kSnmpStop},
    {"set off", TMF_SET, "0", "1", "SNMPV1", kSnmpStop},
    {"any other value: nothing", TMF_SET, "2", "1", "SNMPV1", {}},
};

TEST_F(Daemons, SnmpFollowsItsParameters) {
  for (const SnmpCase &one : kSnmp) {
    SetLeaf(kServices + "ServiceSNMP.Enable", one.enable);
    SetLeaf(kServices + "ServiceSNMP.TrapEnabled", one.traps);
    SetLeaf(kServices + "ServiceSNMP.TrapVersion", one.version);
    Call("FuncServSNMP", one.op, one.what);
    EXPECT_EQ(TakeCommands(), one.lines) << one.what;
  }
}

/* One buffer takes both, so the port shows where the contact is missing. */
TEST_F(Daemons, SnmpWithoutAContactNamesThePort) {
  std::string model = DataModel();
  const std::string contact = "<SystemContact type=\"string\">ops@a.example</SystemContact>";
  ASSERT_NE(model.find(contact), model.npos);
  LoadModel(model.erase(model.find(contact), contact.size()));
  SetLeaf(kServices + "ServiceSNMP.Enable", "1");
  Call("FuncServSNMP", TMF_SET, "set on");
  EXPECT_EQ(TakeCommands(), SnmpStart("1161", {}));
}

/* The status of the lines cannot be seen, so the file tells: it is tried before the agent is
   killed, and looked at before the next one starts. */
TEST_F(Daemons, SnmpDoesNotStartOnHalfAFile) {
  const char *config = "/var/snmpd.conf";
  const Lines all = SnmpStart(kContact, {}), unstarted(all.begin(), all.end() - 1);
  const std::string begin = "agentAddress udp:161\n",
                    rest =
                        "sysservices 79\npsysname a\npsyscontact a\npsyslocation a\nrwcommunity "
                        "a\nrocommunity a\n"
                        "view read_wr included .1 ";
  auto nothing = [] {};
  const struct {
    const char *what;
    std::function<void()> prepare;
    std::string left; /* by each line; "": no file */
    Lines lines;
    std::string log; /* "": the agent starts */
  } cases[] = {
      {"a folder is in the way", [=] { ASSERT_EQ(mkdir(config, 0700), 0); }, "", {}, "remove what"},
      {"no room", [] { LimitFiles(1024); }, "", {}, "make room"},
      {"no file", nothing, "", unstarted, "not whole"},
      {"half a line", nothing, begin + rest, unstarted, "not whole"},
      {"a line is missing", nothing, rest + "\n", unstarted, "not whole"},
      {"whole", nothing, begin + rest + "\n", all, ""},
  };
  SetLeaf(kServices + "ServiceSNMP.Enable", "1");
  for (const auto &one : cases) {
    remove(config);
    one.prepare();
    OnSystem([&](const std::string &) {
      if (!one.left.empty()) std::ofstream(config) << one.left;
    });
    const int result = one.log.empty() ? 0 : -1;
    const std::string log = LogOf(4, [&] { Call("FuncServSNMP", TMF_SET, one.what, result); });
    LimitFiles(RLIM_INFINITY);
    EXPECT_EQ(TakeCommands(), one.lines) << one.what;
    EXPECT_NE(log.find(one.log), log.npos) << one.what << ": " << log;
  }
  remove(config);
}

/* ---- Samba ---- */

/* The rules of one interface, deleted ("-D") or added ("-A"), in front of `rest`. */
Lines Rules(const std::string &action, const std::string &interface, const Lines &rest) {
  Lines lines;
  for (const char *port : {"tcp --dport 139", "tcp --dport 389", "tcp --dport 901",
                           "tcp --dport 445", "udp --dport 137", "udp --dport 138"})
    for (const char *chain : {"filter -? INPUT", "nat -? PREROUTING"}) {
      std::string rule = std::string("iptables -t ") + chain + " -i " + interface + " -p " + port;
      lines.push_back(rule.replace(rule.find("-?"), 2, action) + " -j ACCEPT");
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

Lines Reopened(const std::string &interface) {
  return Rules("-D", interface, Rules("-A", interface, kSambaOn));
}

/* One after the other: holes that the one before opened are closed where they are. */
const SambaCase kSamba[] = {
    {"on, one character: no holes", "1", "x", kSambaOn},
    {"on, no interface", "1", "", kSambaOn},
    {"on: holes closed, then opened", "1", "ppp1", Reopened("ppp1")},
    {"on again", "1", "ppp1", Reopened("ppp1")},
    {"on, another interface", "1", "ppp2", Rules("-D", "ppp1", Reopened("ppp2"))},
    {"off, one more", "0", "ppp3", Rules("-D", "ppp2", Rules("-D", "ppp3", kSambaOff))},
    {"off: holes closed", "0", "ppp3", Rules("-D", "ppp3", kSambaOff)},
    {"on for the next", "1", "ppp1", Reopened("ppp1")},
    {"off, same interface", "0", "ppp1", Rules("-D", "ppp1", kSambaOff)},
    {"off, one character: holes closed", "0", "x", Rules("-D", "x", kSambaOff)},
    {"off, no interface", "0", "", kSambaOff},
    {"on for the next again", "1", "ppp1", Reopened("ppp1")},
    {"on, the interface is gone", "1", "", Rules("-D", "ppp1", kSambaOn)},
    {"any other value is off", "2", "", kSambaOff},
};

void ApplySamba(const SambaCase &one) {
  SetLeaf(kServices + "ServiceSamba.Enable", one.enable);
  SetLeaf("InternetGatewayDevice.ManagementServer.X_KVO_TR069WANIFNAME", one.interface);
  RunMessage(kCapabInfoMsgTable, TDS_MSG_TIMER + CAPABINFO_TIMER_SAMBA);
  EXPECT_EQ(TakeCommands(), one.lines) << one.what;
}

TEST_F(Daemons, SambaFollowsItsParameters) {
  for (const SambaCase &one : kSamba) ApplySamba(one);
}

/* A process that runs knows nothing of the one before but what that left in a file. */
TEST_F(Daemons, SambaClosesWhatAnEarlierProcessOpened) {
  const std::string file = "/var/samba_holes", other = "/var/samba_other";
  auto write = [](const std::string &path, const std::string &text) {
    std::ofstream(path) << text;
  };
  const SambaCase off = {"off", "0", "ppp3", Rules("-D", "ppp3", kSambaOff)};
  const struct {
    const char *what;
    std::function<void()> leave;
    bool taken;
  } cases[] = {
      {"its file", [&] { write(file, "ppp2"); }, true},
      {"no file", [] {}, false},
      {"an empty one", [&] { write(file, ""); }, false},
      {"no name", [&] { write(file, "ppp2;reboot"); }, false},
      {"two lines", [&] { write(file, "ppp2\n"); }, false},
      {"too long", [&] { write(file, std::string(64, 'p')); }, false},
      {"a link",
       [&] {
         write(other, "ppp2");
         ASSERT_EQ(symlink(other.c_str(), file.c_str()), 0);
       },
       false},
      {"a pipe", [&] { ASSERT_EQ(mkfifo(file.c_str(), 0600), 0); }, false},
      {"a folder", [&] { ASSERT_EQ(mkdir(file.c_str(), 0700), 0); }, false},
  };
  for (const auto &one : cases) {
    remove(file.c_str());
    one.leave();
    const Lines before = one.taken ? Rules("-D", "ppp2", off.lines) : off.lines;
    ApplySamba({one.what, off.enable, off.interface, before});
    ApplySamba(off);
  }
  remove(file.c_str());
  ApplySamba({"on", "1", "ppp1", Reopened("ppp1")});
  std::ostringstream left;
  left << std::ifstream(file).rdbuf();
  EXPECT_EQ(left.str(), "ppp1");
  ApplySamba({"off", "0", "", Rules("-D", "ppp1", kSambaOff)});
  EXPECT_NE(access(file.c_str(), F_OK), 0) << "nothing is open any more";
  remove(other.c_str());
}

/* Each change starts the time anew: the apply never comes sooner after the last one. */
TEST_F(Daemons, SambaWaitsForTheLastChange) {
  StartModules();
  RunOnModule([] { Call("FuncServSamba", TMF_INIT, "arms the timer"); });
  EXPECT_EQ(AwaitMessage(TDS_MSG_TIMER).peer, "sysmgr:test");
  auto last = std::chrono::steady_clock::now();
  for (int change = 0; change < 4; ++change) {
    if (change > 0) tds_delay(30);
    last = std::chrono::steady_clock::now();
    RunOnModule([] { Call("FuncServSamba", TMF_SET, "arms it anew"); });
  }
  EXPECT_EQ(AwaitMessage(TDS_MSG_TIMER).peer, "sysmgr:test");
  EXPECT_GE(std::chrono::steady_clock::now() - last, std::chrono::milliseconds(50));
  EXPECT_EQ(TakeCommands(), Lines{});
  RunOnModule([] { RunMessage(kCapabInfoMsgTable, 0x100054, "A.1"); });
  EXPECT_EQ(AwaitMessage(TDS_MSG_TIMER).peer, "sysmgr:test") << "told by another module";
}

}  // namespace
