// The next server starts when the port of the one before is free.
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>

#include "devinfo_func.h"
#include "services_func.h"
#include "support.h"

namespace {

const std::string kServices = "InternetGatewayDevice.Services.";

/* What snmpd reads, and how the start looks for it to be. */
const char kSnmpConfig[] = "/var/snmpd.conf";
const char kSnmpText[] =
    "agentAddress udp:161\nsysservices 79\npsysname a\npsyscontact a\npsyslocation a\n"
    "rwcommunity a\nrocommunity a\nview read_wr included .1 \n";

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
    if (line.find(one.kill) == 0) std::ofstream(kSnmpConfig) << kSnmpText;
    if (line.find(one.kill) == 0) killed_at = waits;
    if (line.find(one.start) == 0) started_at = waits;
  });
  const OpFuncEntry *table = one.enable.empty() ? kDevInfoFuncTable : kCapabInfoFuncTable;
  EXPECT_EQ(RunOp(table, one.op_function, TMF_SET), 0) << one.op_function;
  OnSystem(nullptr);
  OnDelay(nullptr);
  return killed_at < 0 ? -1 : started_at - killed_at;
}

TEST_F(GatewayTest, TheNextServerStartsWhenThePortIsFree) {
  for (const PortWaitCase &one : kPortWaits) {
    Holder holder(one.type, one.port);
    EXPECT_EQ(WaitsOf(one, &holder, 3), 3) << one.op_function;
  }
}

TEST_F(GatewayTest, APortThatStaysTakenIsToldAndTheServerStartsAllTheSame) {
  Holder holder(SOCK_STREAM, 0);
  const std::string log = LogOf(4, [&] { EXPECT_EQ(WaitsOf(kPortWaits[0], &holder, 0), 200); });
  EXPECT_NE(log.find("port " + std::to_string(holder.port()) + " is still taken"), log.npos) << log;
}

}  // namespace
