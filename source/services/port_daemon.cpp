// Network daemons that listen on each port of a list; see port_daemon.h. They are not watched: one
// that dies is started again by the next set of its node.
//
// Texts of the parameters go into the command lines as they are: who may write them may run
// commands as the daemon does.
#include "port_daemon.h"

#include <cstdlib>
#include <string_view>

#include "ams_config_shell.h"
#include "free_ports.h"
#include "op_values.h"

namespace {

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

}  // namespace

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
