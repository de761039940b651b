// The gateway's own network daemons: Telnet, TFTP, SSH and the printer server. They are not
// watched: one that dies is started again by the next set of its node. SNMP is in snmp_func.cpp,
// FTP in ftpd_func.cpp, Samba, with its holes in the firewall, in samba_func.cpp.
//
// Texts of the parameters go into the command lines as they are: who may write them may run
// commands as the daemon does.
#include "netdaemon_func.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include "ams_config_api.h"
#include "op_rows.h"

#define SERVICES "InternetGatewayDevice.Services."

namespace {

/* ---- daemons with a list of ports: `ports` is their Port parameter ---- */

/* telnetd and the TFTP server listen on a single port: one daemon for each. */
void TelnetStart(const char *ports) {
  for (int port : PortList(ports)) cfgSystemCmd("telnetd -l /usr/sbin/ams_cli -p %d &", port);
}

void TftpStart(const char *ports) {
  char root[64] = "";
  (void)ams_mxml_get_leaf_value(SERVICES "ServiceTFTP.RootDIR", root); /* stays empty without */
  for (int port : PortList(ports)) cfgSystemCmd("tftpd-hpa -lc -s %s -P %d &", root, port);
}

/* At every start, also of a server that is off: a set may switch it on later. A key that is there
   stays, dropbearkey overwrites none. */
void SshPrepare() {
  cfgSystemCmd("mkdir -p /var/dropbear");
  cfgSystemCmd("dropbearkey -t rsa -f /var/dropbear/rsa_host_key");
}

/* One dropbear for all ports, which puts itself into the background. Without any it takes its own,
   22. With part of them it would seem to run, so a list that does not fit starts none. */
void SshStart(const char *ports) {
  constexpr size_t kLongest = 255;
  std::string command = "dropbear -r /var/dropbear/rsa_host_key ";
  for (int port : PortList(ports)) command += " -p " + std::to_string(port < 1 ? 22 : port) + " ";
  if (command.size() > kLongest) {
    AMS_PRINT(4, "dropbear not started, its command has %zu bytes and %zu fit: shorten the ports\n",
              command.size(), kLongest);
    return;
  }
  cfgSystemCmd("%s", command.c_str());
}

struct PortDaemon {
  const char *name, *enable, *ports;
  bool node_check; /* a model without the Enable parameter has no such service */
  const char *kill;
  void (*prepare)(); /* at the start of the module; may be NULL */
  void (*start)(const char *ports);
};

const PortDaemon kPortDaemons[] = {
    {"FuncServTelnet", SERVICES "ServiceTelnet.Enable", SERVICES "ServiceTelnet.Port", false,
     "killall telnetd >/dev/null 2>&1", nullptr, TelnetStart},
    {"FuncServTFTP", SERVICES "ServiceTFTP.Enable", SERVICES "ServiceTFTP.Port", true,
     "killall tftpd-hpa >/dev/null 2>&1", nullptr, TftpStart},
    {"FuncServSSH", SERVICES "ServiceSSH.Enable", SERVICES "ServiceSSH.Port", false,
     "killall dropbear >/dev/null 2>&1", SshPrepare, SshStart},
};

/* At start there is nothing to kill yet. A value other than 0 and 1 leaves what runs alone. */
void Apply(const PortDaemon &daemon, int op) {
  char ports[128] = "";
  if (daemon.node_check && ams_check_node(gptXmlTrees->root, daemon.enable) != 0) return;
  int enable = LeafInt(daemon.enable);
  if (op == TMF_INIT && daemon.prepare != nullptr) daemon.prepare();
  if (op == TMF_SET && (enable == 0 || enable == 1)) cfgSystemCmd("%s", daemon.kill);
  if (enable != 1) return;
  (void)ams_mxml_get_leaf_value(daemon.ports, ports); /* without the node: no ports */
  daemon.start(ports);
}

/* ---- printer ---- */

/* lpdsrv serves the network that the LAN address is in, so it gets the address without its last
   part. It puts itself into the background. */
void PrinterStart() {
  char queue[256] = "", network[64] = "";
  /* Without the nodes both stay empty, which is no address. */
  (void)ams_mxml_get_leaf_value(SERVICES "X_KVO-ServicePrinter.QueueName", queue);
  (void)ams_mxml_get_leaf_value(
      "InternetGatewayDevice.LANDevice.1.LANHostConfigManagement.IPInterface.1."
      "IPInterfaceIPAddress",
      network);
  char *dot = strrchr(network, '.');
  if (dot == nullptr) {
    AMS_PRINT(4, "Fail to start lpdsrv: bad lan IP %s\n", network);
    return;
  }
  *dot = '\0';
  cfgSystemCmd("lpdsrv -n %s -o /dev/lp0 -r %s:/dev/lp0", network, queue);
}

}  // namespace

std::vector<int> PortList(std::string_view text) {
  std::vector<int> ports;
  if (text.empty()) return ports;
  for (size_t at = 0, comma = 0; comma != text.npos; at = comma + 1) {
    comma = text.find(',', at);
    ports.push_back(atoi(std::string(text.substr(at, comma - at)).c_str()));
  }
  return ports;
}

int FuncPortDaemon(OpFuncArg *arg) {
  if (arg == nullptr) return -1;
  OP_LOG(arg);
  if (!IsInitOrSet(arg->op)) return 0;
  for (const PortDaemon &daemon : kPortDaemons)
    if (strcmp(daemon.name, arg->name) == 0) Apply(daemon, arg->op);
  return 0;
}

/* Unlike the servers above, any set kills. */
int FuncServPrinter(OpFuncArg *arg) {
  if (arg == nullptr) return -1;
  OP_LOG(arg);
  if (!IsInitOrSet(arg->op)) return 0;
  if (arg->op == TMF_SET) cfgSystemCmd("killall lpdsrv >/dev/null 2>&1");
  if (LeafInt(SERVICES "X_KVO-ServicePrinter.Enabled") == 1) PrinterStart();
  return 0;
}
