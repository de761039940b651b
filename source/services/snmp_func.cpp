// SNMP: snmpd runs on a configuration file that is written from the parameters at each apply. Who
// may write the file's texts may run commands as the daemon does: they go into shell lines as they
// are.
#include "snmp_func.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "ams_config_shell.h"
#include "file_handle.h"
#include "free_ports.h"
#include "op_rows.h"
#include "op_values.h"

#define SNMP   "InternetGatewayDevice.Services.ServiceSNMP."
#define CONFIG "/var/snmpd.conf"

namespace {

constexpr int kPort = 161;

/* The parameters as texts; one that is missing is "". */
struct Settings {
  char contact[128], name[128], location[128], read_write[128], read_only[128];
  char trap_version[128], trap_address[128];
  bool traps;
};

template <size_t N>
void Read(const char *path, char (&value)[N]) {
  (void)ams_mxml_get_leaf_value(path, value); /* stays as it is when it is missing */
}

void ReadSettings(Settings *settings) {
  *settings = {};
  /* The port is lost here on purpose: the agent always listens on kPort, which is the one that the
     firewall knows. Only a model without a contact shows it, as the contact. */
  Read(SNMP "Port", settings->contact);
  Read(SNMP "SystemContact", settings->contact);
  Read(SNMP "SystemName", settings->name);
  Read(SNMP "SystemLocation", settings->location);
  Read(SNMP "PublicCommunity", settings->read_only);
  Read(SNMP "PrivateCommunity", settings->read_write);
  Read(SNMP "TrapVersion", settings->trap_version);
  Read(SNMP "TrapAddress", settings->trap_address);
  settings->traps = LeafInt(SNMP "TrapEnabled") != 0;
}

/* The file's lines in order. A version of traps other than these gets no sink line on purpose: the
   agent then makes traps for nobody. */
std::vector<std::string> ConfigLines() {
  Settings settings;
  ReadSettings(&settings);
  auto line = [](const char *key, const char *value) { return std::string(key) + value; };
  std::vector<std::string> lines = {
      "agentAddress udp:" + std::to_string(kPort),
      "sysservices 79",
      line("psysname ", settings.name),
      line("psyscontact ", settings.contact),
      line("psyslocation ", settings.location),
      line("rwcommunity ", settings.read_write),
      line("rocommunity ", settings.read_only),
      "view read_wr included .1 ",
  };
  if (!settings.traps) return lines;
  lines.push_back("authtrapenable 1");
  if (strcmp(settings.trap_version, "SNMPV1") == 0)
    lines.push_back(line("trapsink ", settings.trap_address));
  if (strcmp(settings.trap_version, "SNMPV2") == 0)
    lines.push_back(line("trap2sink ", settings.trap_address));
  return lines;
}

/* Whether a file as large as the configuration can be had now: asked while the agent still runs. */
bool ConfigFits() {
  constexpr size_t kLargest = 4096; /* ten lines of texts that are 127 bytes at most */
  if (WriteOwnFile(CONFIG, std::string(kLargest, '\n')) != 0) {
    AMS_PRINT(4,
              "snmpd not started, cannot write %s: %m; make room in /var or remove what is there\n",
              CONFIG);
    return false;
  }
  (void)unlink(CONFIG); /* the shell makes it anew, with the usual rights */
  return true;
}

/* Whether the file has the beginnings of all lines in order, and a whole last one: what a shell
   line could not write is seen in the file alone. Of the values the shell may make another text. */
bool IsWhole(const std::vector<std::string> &lines) {
  std::string text(64 * 1024, '\0');
  const FileHandle file(fopen(CONFIG, "re"));
  if (file == nullptr) return false;
  text.resize(fread(text.data(), 1, text.size(), file.get()));
  size_t at = 0;
  for (const std::string &line : lines) {
    at = text.find(line.substr(0, line.find(' ') + 1), at);
    if (at == text.npos) return false;
  }
  return text.back() == '\n';
}

/* The board's shell has echo -e. */
int WriteConfig() {
  const std::vector<std::string> lines = ConfigLines();
  const char *to = ">";
  for (const std::string &line : lines) {
    if (cfgSystemCmd("echo -e \"%s\" %s " CONFIG, line.c_str(), to) != 0) return -1;
    to = ">>";
  }
  if (IsWhole(lines)) return 0;
  AMS_PRINT(4, "snmpd not started, %s is not whole: make room in /var\n", CONFIG);
  return -1;
}

int Start() {
  if (!ConfigFits() || cfgSystemCmd("killall snmpd >/dev/null 2>&1") != 0) return -1;
  if (WriteConfig() != 0) return -1;
  AwaitFreePorts(SOCK_DGRAM, {kPort});
  return cfgSystemCmd("/usr/sbin/snmpd -f -q -I -C -c " CONFIG
                      " -Lf /dev/null -p /var/snmpd.pid &");
}

int Stop() {
  if (cfgSystemCmd("killall snmpd >/dev/null 2>&1") != 0) return -1;
  return cfgSystemCmd("rm " CONFIG " >/dev/null 2>&1");
}

}  // namespace

/* At start, too, an agent that is off is killed and its file removed. Values other than 0 and 1
   change nothing. */
int FuncServSNMP(OpFuncArg *arg) {
  if (!IsInitOrSet(arg->op) || ams_check_node(gptXmlTrees->root, SNMP "Enable") != 0) return 0;
  int enable = LeafInt(SNMP "Enable");
  if (enable == 1) return Start();
  return enable == 0 ? Stop() : 0;
}
