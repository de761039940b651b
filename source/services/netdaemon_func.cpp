// What the network daemons whose rows are in services_func.cpp need beyond them, and the printer
// server. SNMP is in snmp_func.cpp, FTP in ftpd_func.cpp, Samba, with its holes in the firewall, in
// samba_func.cpp.
#include "netdaemon_func.h"

#include <sys/socket.h>

#include <cstring>
#include <string>

#include "ams_config_shell.h"
#include "free_ports.h"
#include "op_values.h"

#define SERVICES "InternetGatewayDevice.Services."

namespace {

constexpr int kPrinterPort = 515;

/* Without the nodes both stay empty, which is no address. */
struct Printer {
  char queue[256], address[64];
};

int ReadPrinter(Printer *printer) {
  *printer = {};
  if (LeafText(SERVICES "X_KVO-ServicePrinter.QueueName", printer->queue) != 0) return -1;
  return LeafText(
      "InternetGatewayDevice.LANDevice.1.LANHostConfigManagement.IPInterface.1."
      "IPInterfaceIPAddress",
      printer->address);
}

/* lpdsrv serves the network that the LAN address is in, so it gets the address without its last
   part. It puts itself into the background. Without an address the set stands: the server comes
   with the next one. `killed`: one that ran may still have the port. */
int PrinterStart(const Printer &printer, bool killed) {
  const char *dot = strrchr(printer.address, '.');
  if (dot == nullptr) {
    AMS_PRINT(4, "Fail to start lpdsrv: bad lan IP %s\n", printer.address);
    return 0;
  }
  if (killed) AwaitFreePorts(SOCK_STREAM, {kPrinterPort});
  return cfgSystemCmd("lpdsrv -n %.*s -o /dev/lp0 -r %s:/dev/lp0",
                      static_cast<int>(dot - printer.address), printer.address, printer.queue);
}

}  // namespace

/* The folder is in the line, so that the row alone is not enough. */
int TftpLines(const std::vector<int> &ports, PortLines *lines) {
  char root[64] = "";
  if (LeafText(SERVICES "ServiceTFTP.RootDIR", root) != 0) return -1;
  for (int port : ports)
    lines->push_back(std::string("tftpd-hpa -lc -s ") + root + " -P " + std::to_string(port) +
                     " &");
  return 0;
}

/* At every start, also of a server that is off: a set may switch it on later. A key that is there
   stays, dropbearkey overwrites none. */
void SshPrepare() {
  cfgSystemCmd("mkdir -p /var/dropbear");
  cfgSystemCmd("dropbearkey -t rsa -f /var/dropbear/rsa_host_key");
}

/* One dropbear for all ports, which puts itself into the background. Without any it takes its own,
   22. With part of them it would seem to run, so a list that does not fit is refused. */
int SshLines(const std::vector<int> &ports, PortLines *lines) {
  constexpr size_t kLongest = 255;
  std::string command = "dropbear -r /var/dropbear/rsa_host_key ";
  for (int port : ports) command += " -p " + std::to_string(port) + " ";
  if (command.size() > kLongest) {
    AMS_PRINT(4,
              "dropbear not started, its command has %zu bytes and %zu fit: shorten " SERVICES
              "ServiceSSH.Port\n",
              command.size(), kLongest);
    return -1;
  }
  lines->push_back(command);
  return 0;
}

/* Unlike the daemons with a list of ports, any set kills. */
int FuncServPrinter(OpFuncArg *arg) {
  if (!IsInitOrSet(arg->op)) return 0;
  Printer printer;
  bool on = LeafInt(SERVICES "X_KVO-ServicePrinter.Enabled") == 1;
  if (on && ReadPrinter(&printer) != 0) return -1;
  if (arg->op == TMF_SET && cfgSystemCmd("killall lpdsrv >/dev/null 2>&1") != 0) return -1;
  return on ? PrinterStart(printer, arg->op == TMF_SET) : 0;
}
