// The gateway's own network daemons. They are not watched: one that dies is started again by the
// next set of its node. Samba, with its holes in the firewall, is in samba_func.cpp.
#include "netdaemon_func.h"

#include <cstdlib>
#include <string>

#include "ams_config_api.h"
#include "op_rows.h"

namespace {

#define TELNET "InternetGatewayDevice.Services.ServiceTelnet."

/* One daemon for each port: telnetd listens on a single one. */
void TelnetStart() {
  char ports[128] = "";
  if (ams_mxml_get_leaf_value(TELNET "Port", ports) != 0) return;
  for (int port : PortList(ports)) cfgSystemCmd("telnetd -l /usr/sbin/ams_cli -p %d &", port);
}

}  // namespace

std::vector<int> PortList(std::string_view text) {
  std::vector<int> ports;
  while (!text.empty()) {
    size_t comma = text.find(',');
    ports.push_back(atoi(std::string(text.substr(0, comma)).c_str()));
    text.remove_prefix(comma == text.npos ? text.size() : comma + 1);
  }
  return ports;
}

/* At start there is nothing to kill yet. A value other than 0 and 1 leaves what runs alone. */
int FuncServTelnet(OpFuncArg *arg) {
  if (arg == nullptr) return -1;
  OP_LOG(arg);
  if (!IsInitOrSet(arg->op)) return 0;
  int enable = LeafInt(TELNET "Enable");
  if (arg->op == TMF_SET && (enable == 0 || enable == 1))
    cfgSystemCmd("killall telnetd >/dev/null 2>&1");
  if (enable == 1) TelnetStart();
  return 0;
}
