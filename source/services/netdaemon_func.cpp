// The gateway's own network daemons: those with a list of ports (Telnet, TFTP and SSH, whose rows
// are in services_func.cpp), and the printer server. They are not watched: one that dies is started
// again by the next set of its node. SNMP is in snmp_func.cpp, FTP in ftpd_func.cpp, Samba, with
// its holes in the firewall, in samba_func.cpp.
//
// Texts of the parameters go into the command lines as they are: who may write them may run
// commands as the daemon does.
#include "netdaemon_func.h"

#include <sys/socket.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "ams_config_shell.h"
#include "free_ports.h"
#include "op_rows.h"
#include "op_values.h"

#define SERVICES "InternetGatewayDevice.Services."

namespace {

/* ---- daemons with a list of ports ---- */

/* "23,2323" -> {23, 2323}. Pieces go through atoi, so junk and an empty piece read as 0; order is
   kept. An empty text has no piece. */
std::vector<int> PortList(std::string_view text) {
  std::vector<int> ports;
  if (text.empty()) return ports;
  for (size_t at = 0, comma = 0; comma != text.npos; at = comma + 1) {
    comma = text.find(',', at);
    ports.push_back(atoi(std::string(text.substr(at, comma - at)).c_str()));
  }
  return ports;
}

std::string LineOf(std::string each, int port) {
  return each.replace(each.find("%d"), 2, std::to_string(port));
}

/* The daemon's ports and the lines that start it. 0 or -1 (logged). */
int ReadStart(const PortDaemon &daemon, std::vector<int> *ports, PortLines *lines) {
  char text[128] = ""; /* without the node: no ports */
  if (LeafText(daemon.ports, text) != 0) return -1;
  *ports = PortList(text);
  if (daemon.usual_port != 0)
    for (int &port : *ports)
      if (port < 1) port = daemon.usual_port;
  if (daemon.lines == nullptr)
    for (int port : *ports) lines->push_back(LineOf(daemon.each, port));
  else if (daemon.lines(*ports, lines) != 0)
    return -1;
  if (ports->empty()) ports->push_back(daemon.usual_port);
  return 0;
}

/* ---- printer ---- */

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

/* At start there is nothing to kill yet. A value other than 0 and 1 leaves what runs alone, and so
   does a start that cannot be had. */
int ApplyPortDaemon(const PortDaemon &daemon, int op) {
  std::vector<int> ports;
  PortLines lines;
  if (daemon.node_check && ams_check_node(gptXmlTrees->root, daemon.enable) != 0) return 0;
  int enable = LeafInt(daemon.enable);
  if (op == TMF_INIT && daemon.prepare != nullptr) daemon.prepare();
  if (enable == 1 && ReadStart(daemon, &ports, &lines) != 0) return -1;
  if (op == TMF_SET && (enable == 0 || enable == 1)) {
    if (cfgSystemCmd("%s", daemon.kill) != 0) return -1;
    AwaitFreePorts(daemon.type, ports);
  }
  for (const std::string &line : lines)
    if (cfgSystemCmd("%s", line.c_str()) != 0) return -1;
  return 0;
}

/* Unlike the servers above, any set kills. */
int FuncServPrinter(OpFuncArg *arg) {
  if (!IsInitOrSet(arg->op)) return 0;
  Printer printer;
  bool on = LeafInt(SERVICES "X_KVO-ServicePrinter.Enabled") == 1;
  if (on && ReadPrinter(&printer) != 0) return -1;
  if (arg->op == TMF_SET && cfgSystemCmd("killall lpdsrv >/dev/null 2>&1") != 0) return -1;
  return on ? PrinterStart(printer, arg->op == TMF_SET) : 0;
}
