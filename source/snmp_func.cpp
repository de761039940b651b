// SNMP: snmpd runs on a configuration file that is written from the parameters at each apply. Who
// may write the file's texts may run commands as the daemon does: they go into shell lines as they
// are.
#include "snmp_func.h"

#include <cstring>

#include "ams_config_api.h"
#include "op_rows.h"

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

/* The board's shell has echo -e. A result of -1 was logged; no text here is that long. */
void AddLine(const char *key, const char *value) {
  (void)cfgSystemCmd("echo -e \"%s%s\" >> " CONFIG, key, value);
}

/* A version other than these gets no sink line on purpose: the agent then makes traps for nobody.
 */
void AddTraps(const Settings &settings) {
  AddLine("authtrapenable 1", "");
  if (strcmp(settings.trap_version, "SNMPV1") == 0) AddLine("trapsink ", settings.trap_address);
  if (strcmp(settings.trap_version, "SNMPV2") == 0) AddLine("trap2sink ", settings.trap_address);
}

void WriteConfig() {
  Settings settings;
  ReadSettings(&settings);
  cfgSystemCmd("echo -e \"agentAddress udp:%d\" > " CONFIG, kPort);
  AddLine("sysservices 79", "");
  AddLine("psysname ", settings.name);
  AddLine("psyscontact ", settings.contact);
  AddLine("psyslocation ", settings.location);
  AddLine("rwcommunity ", settings.read_write);
  AddLine("rocommunity ", settings.read_only);
  AddLine("view read_wr included .1 ", "");
  if (settings.traps) AddTraps(settings);
}

void Start() {
  cfgSystemCmd("killall snmpd >/dev/null 2>&1");
  WriteConfig();
  cfgSystemCmd("/usr/sbin/snmpd -f -q -I -C -c " CONFIG " -Lf /dev/null -p /var/snmpd.pid &");
}

void Stop() {
  cfgSystemCmd("killall snmpd >/dev/null 2>&1");
  cfgSystemCmd("rm " CONFIG " >/dev/null 2>&1");
}

}  // namespace

/* At start, too, an agent that is off is killed and its file removed. Values other than 0 and 1
   change nothing. */
int FuncServSNMP(OpFuncArg *arg) {
  if (arg == nullptr) return -1;
  OP_LOG(arg);
  if (!IsInitOrSet(arg->op) || ams_check_node(gptXmlTrees->root, SNMP "Enable") != 0) return 0;
  int enable = LeafInt(SNMP "Enable");
  if (enable == 1) Start();
  if (enable == 0) Stop();
  return 0;
}
