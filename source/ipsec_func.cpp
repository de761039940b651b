// IPsec: the accelerator, the scripts that set up tunnels and certificates, and the poll of the
// tunnels' peers. The scripts read the data model themselves: they get the action and the node's
// path.
#include "ipsec_func.h"

#include <arpa/inet.h>

#include <cstring>
#include <set>
#include <string>

#include "ams_config_shell.h"
#include "capabinfo_thread.h"
#include "op_values.h"

namespace {

#define IPSEC "InternetGatewayDevice.Services.X_KVO_IPSec."

constexpr uint32_t kPollPeriod = 300; /* ms */

using Address = char[16]; /* a dotted quad */

const Script kFolders = {{
    {ON_INIT, "mkdir -p /var/ipsec/"},
    {ON_INIT, "mkdir -p /var/ipsec/Dbg/"},
    {ON_INIT, "mkdir -p /var/run"},
    {ON_INIT, "mkdir -p /var/racoon/"},
    /* The inner folder is the board's: without it this fails, and that harms nothing. */
    {ON_INIT, "touch /var/racoon/racoon/sock"},
}};

/* At start there is no path yet: the script then sets up every row. In the background, since a
   tunnel may take long to come up. */
const Script kTunnels = {{
    {ON_INIT, "/usr/syscfg/ipsec_cfg.sh init %s &", ARG_PATH},
    {ON_SET, "/usr/syscfg/ipsec_cfg.sh set %s &", ARG_PATH},
    {ON_DEL, "/usr/syscfg/ipsec_cfg.sh del %s &", ARG_PATH},
}};

/* The data model spells it so. */
bool Accelerated() { return LeafInt(IPSEC "X_KVO_IPSec_Hardware_Accelate_Enable") == 1; }

void StartAccelerator() {
  cfgSystemCmd("insmod /lib/ko/hi_kipsec.ko");
  cfgSystemCmd("cs_cli /home/cli/api/ipsec/enable");
}

void StopAccelerator() {
  cfgSystemCmd("cs_cli /home/cli/api/ipsec/disable");
  cfgSystemCmd("rmmod hi_kipsec >/dev/null 2>&1");
}

int Tunnels() { return LeafInt(IPSEC "TunnelListNumberOfEntries"); }

/* A failure was logged by the runtime; the tunnels stay as they are then. */
void StartPoll() { (void)SetTimer(CAPABINFO_TIMER_IPSEC, kPollPeriod); }
void StopPoll() { (void)KillTimer(CAPABINFO_TIMER_IPSEC); }

/* The first line that `command` prints, cut to a dotted quad. Without any text `address` stays as
   it is. */
void ReadAddress(const char *command, Address &address) {
  Address line;
  if (cfgShellRead(command, line) < 0) return;
  line[strcspn(line, "\n")] = '\0';
  if (line[0] != '\0') memcpy(address, line, sizeof line);
}

/* The host name of the peer of tunnel `row` while the tunnel is down, else "": also when it has no
   peer yet, or one that is given by address. */
std::string NameOfLostPeer(const std::string &row) {
  std::string status, peer; /* what cannot be read stays empty: the tunnel counts as down */
  (void)LeafString((row + ".ConnectionStatus").c_str(), &status);
  (void)LeafString((row + ".RemoteGatewayAddress").c_str(), &peer);
  return status == "Connected" || inet_addr(peer.c_str()) != INADDR_NONE ? "" : peer;
}

/* The poll goes on, also when memory has lacked for a pass. */
struct PollAgain {
  ~PollAgain() { StartPoll(); }
};

/* The peers that the pass before could not ask for: the log has each while it is there once. */
std::set<std::string> refused_peers;

/* The line that resolves a name; "" when it does not fit. */
std::string ResolveCommand(const std::string &name) {
  constexpr size_t kLongest = 127;
  std::string command = "resolveip -t 5 " + name + " | tr '\n' ' ' | cut -d ' ' -f 1";
  return command.size() > kLongest ? "" : command;
}

}  // namespace

const Script kIpsecCertificates = {{
    {ON_INIT, "/usr/syscfg/ipsec_cert.sh init %s &", ARG_PATH},
    {ON_SET, "/usr/syscfg/ipsec_cert.sh set %s &", ARG_PATH},
    {ON_DEL, "/usr/syscfg/ipsec_cert.sh del %s &", ARG_PATH},
}};

const Script kIpsecCaCertificates = {{
    {ON_INIT, "/usr/syscfg/ipsec_cacert.sh init %s &", ARG_PATH},
    {ON_SET, "/usr/syscfg/ipsec_cacert.sh set %s &", ARG_PATH},
    {ON_DEL, "/usr/syscfg/ipsec_cacert.sh del %s &", ARG_PATH},
}};

/* At start the accelerator is off, so there is nothing to take back. */
int FuncServIPSec(OpFuncArg *arg) {
  (void)RunScript(kFolders, arg); /* the framework knows of a line that was not run */
  if (!IsInitOrSet(arg->op)) return 0;
  if (Accelerated())
    StartAccelerator();
  else if (arg->op == TMF_SET)
    StopAccelerator();
  return 0;
}

/* The poll runs while there are rows. A set starts its period anew: the script has just applied
   what the row says. An added row has no peer yet, so the set that gives it one counts. */
int FuncServIPSecTunnelList(OpFuncArg *arg) {
  (void)RunScript(kTunnels, arg); /* the framework knows of a line that was not run */
  if (arg->op == TMF_INIT && Tunnels() >= 1) StartPoll();
  if (arg->op == TMF_SET) {
    StopPoll();
    StartPoll();
  }
  if (arg->op == TMF_DEL && Tunnels() == 0) StopPoll();
  return 0;
}

/* Every tunnel is compared with the first "remote" line of racoon's file, and an address that
   cannot be had is the one that the row before it left: tunnels are applied rather once too often.
   That is the gateway's known behaviour. A peer whose name is too long to ask for is passed over.
 */
void IpsecPollTunnels(int32_t, const void *, uint32_t) {
  const PollAgain at_the_end;
  Address in_use = "", resolved = "";
  std::set<std::string> refused;
  char row[AMS_PATH_SIZE], next[AMS_PATH_SIZE];
  for (int more = ams_get_first_child(gptXmlTrees->root, IPSEC "TunnelList", next); more == 0;
       more = ams_get_next_child(gptXmlTrees->root, row, next)) {
    memcpy(row, next, sizeof row);
    cfgSystemCmd("/usr/syscfg/ipsec_cfg.sh get %s ", row);
    std::string name = NameOfLostPeer(row), command = ResolveCommand(name);
    if (name.empty()) continue;
    if (command.empty()) {
      refused.insert(row + name);
      if (refused_peers.count(row + name) == 0)
        AMS_PRINT(4, "peer of %s not watched, its name has %zu bytes: shorten it\n", row,
                  name.size());
      continue;
    }
    ReadAddress("cat /var/ipsec/racoon.conf | grep remote | cut -d ' ' -f 2", in_use);
    ReadAddress(command.c_str(), resolved);
    if (strcmp(in_use, resolved) != 0) cfgSystemCmd("/usr/syscfg/ipsec_cfg.sh set %s &", row);
  }
  refused_peers.swap(refused);
}
