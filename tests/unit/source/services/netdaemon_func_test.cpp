// The network daemons beside their command lines: ports that are not free yet, a configuration that
// cannot be written, what an earlier process left.
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "capabinfo_thread.h"
#include "devinfo_func.h"
#include "services_func.h"
#include "support.h"

namespace {

using Lines = std::vector<std::string>;

const std::string kServices = "InternetGatewayDevice.Services.";
const char kSnmpConfig[] = "/var/snmpd.conf";
const char kSnmpText[] =
    "agentAddress udp:161\nsysservices 79\npsysname a\npsyscontact a\npsyslocation a\n"
    "rwcommunity a\nrocommunity a\nview read_wr included .1 \n";

class Daemons : public StoreTest {
  std::string DataModel() const override { return FileText("/etc/tr098_data_model.xml"); }
};

bool BeginsWith(const std::string &text, const std::string &begin) {
  return text.compare(0, begin.size(), begin) == 0;
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
    if (BeginsWith(line, one.kill)) std::ofstream(kSnmpConfig) << kSnmpText;
    if (BeginsWith(line, one.kill)) killed_at = waits;
    if (BeginsWith(line, one.start)) started_at = waits;
  });
  const OpFuncEntry *table = one.enable.empty() ? kDevInfoFuncTable : kCapabInfoFuncTable;
  EXPECT_EQ(RunOp(table, one.op_function, TMF_SET), 0) << one.op_function;
  OnSystem(nullptr);
  OnDelay(nullptr);
  return killed_at < 0 ? -1 : started_at - killed_at;
}

TEST_F(Daemons, TheNextServerStartsWhenThePortIsFree) {
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

/* ---- SNMP ---- */

/* The status of the lines cannot be seen, so the file tells: it is tried before the agent is
   killed, and looked at before the next one starts. */
TEST_F(Daemons, SnmpDoesNotStartOnHalfAFile) {
  const std::string text = kSnmpText, first = text.substr(0, text.find('\n') + 1);
  auto nothing = [] {};
  const struct {
    const char *what;
    std::function<void()> prepare;
    std::string left; /* by each line; "": no file */
    const char *last; /* what the last line begins with; "": there is none */
    std::string log;
  } cases[] = {
      {"a folder is in the way", [] { ASSERT_EQ(mkdir(kSnmpConfig, 0700), 0); }, "", "",
       "remove what"},
      {"no room", [] { LimitFiles(1024); }, "", "", "make room"},
      {"no file", nothing, "", "echo", "not whole"},
      {"half a line", nothing, text.substr(0, text.size() - 1), "echo", "not whole"},
      {"a line is missing", nothing, text.substr(first.size()), "echo", "not whole"},
      {"whole", nothing, text, "/usr/sbin/snmpd", ""},
  };
  SetLeaf(kServices + "ServiceSNMP.Enable", "1");
  for (const auto &one : cases) {
    remove(kSnmpConfig);
    one.prepare();
    OnSystem([&](const std::string &) {
      if (!one.left.empty()) std::ofstream(kSnmpConfig) << one.left;
    });
    const std::string log = LogOf(4, [&] {
      EXPECT_EQ(RunOp(kCapabInfoFuncTable, "FuncServSNMP", TMF_SET), one.log.empty() ? 0 : -1)
          << one.what;
    });
    LimitFiles(RLIM_INFINITY);
    const Lines lines = TakeCommands();
    EXPECT_TRUE(BeginsWith(lines.empty() ? "" : lines.back(), one.last)) << one.what;
    EXPECT_NE(log.find(one.log), log.npos) << one.what << ": " << log;
  }
  remove(kSnmpConfig);
}

/* ---- Samba ---- */

/* Where the apply closes holes, in order: the interfaces of the deleted rules. */
std::string Closed() {
  std::string interfaces;
  for (const std::string &line : TakeCommands())
    if (BeginsWith(line, "iptables -t filter -D INPUT -i "))
      if (line.find("--dport 139 ") != line.npos)
        interfaces += line.substr(31, line.find(" -p") - 30);
  return interfaces;
}

/* A process that runs knows nothing of the one before but what that left in a file. */
TEST_F(Daemons, SambaClosesWhatAnEarlierProcessOpened) {
  const std::string file = "/var/samba_holes", other = "/var/samba_other";
  auto write = [](const std::string &path, const std::string &text) {
    std::ofstream(path) << text;
  };
  const struct {
    const char *what;
    std::function<void()> leave;
    std::string closed;
  } cases[] = {
      {"its file", [&] { write(file, "ppp2"); }, "ppp2 ppp3 "},
      {"no file", [] {}, "ppp3 "},
      {"an empty one", [&] { write(file, ""); }, "ppp3 "},
      {"no name", [&] { write(file, "ppp2;reboot"); }, "ppp3 "},
      {"two lines", [&] { write(file, "ppp2\n"); }, "ppp3 "},
      {"too long", [&] { write(file, std::string(64, 'p')); }, "ppp3 "},
      {"a link",
       [&] {
         write(other, "ppp2");
         ASSERT_EQ(symlink(other.c_str(), file.c_str()), 0);
       },
       "ppp3 "},
      {"a pipe", [&] { ASSERT_EQ(mkfifo(file.c_str(), 0600), 0); }, "ppp3 "},
      {"a folder", [&] { ASSERT_EQ(mkdir(file.c_str(), 0700), 0); }, "ppp3 "},
  };
  SetLeaf("InternetGatewayDevice.ManagementServer.X_KVO_TR069WANIFNAME", "ppp3");
  for (const auto &one : cases) {
    remove(file.c_str());
    one.leave();
    for (const std::string &closed : {one.closed, std::string("ppp3 ")}) {
      RunMessage(kCapabInfoMsgTable, TDS_MSG_TIMER + CAPABINFO_TIMER_SAMBA);
      EXPECT_EQ(Closed(), closed) << one.what;
    }
  }
  remove(file.c_str());
  remove(other.c_str());
  write(file, "ppp2");
  AnswerSystem(-1, EAGAIN); /* the first rule stays */
  for (const char *closed : {"ppp2 ppp3 ", "ppp2 ppp3 ", "ppp3 "}) {
    RunMessage(kCapabInfoMsgTable, TDS_MSG_TIMER + CAPABINFO_TIMER_SAMBA);
    EXPECT_EQ(Closed(), closed);
  }
}

}  // namespace
