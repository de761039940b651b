// IPsec: the accelerator, and the poll of the tunnels' peers. The tunnels themselves are set up by
// ipsec_cfg.sh, which reads the data model (tunnel_func.cpp).
#include "ipsec_func.h"

#include <arpa/inet.h>

#include <cstring>

#include "ams_config_api.h"
#include "capabinfo_thread.h"
#include "op_rows.h"
#include "tunnel_func.h"

namespace {

#define IPSEC "InternetGatewayDevice.Services.X_KVO_IPSec."

constexpr uint32_t kPollPeriod = 300; /* ms */

using Address = char[16]; /* a dotted quad */

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
  FILE *pipe = popen(command, "re");
  if (pipe == nullptr) {
    AMS_PRINT(4, "cannot run \"%s\": %m", command);
    return;
  }
  if (fgets(line, sizeof line, pipe) != nullptr) {
    line[strcspn(line, "\n")] = '\0';
    if (line[0] != '\0') memcpy(address, line, sizeof line);
  }
  (void)pclose(pipe); /* the process ignores SIGCHLD, so the status says nothing */
}

void ResolveName(const char *name, Address &address) {
  char command[128];
  int length =
      snprintf(command, sizeof command, "resolveip -t 5 %s | tr '\n' ' ' | cut -d ' ' -f 1", name);
  if (length < 0 || static_cast<size_t>(length) >= sizeof command) {
    AMS_PRINT(4, "peer name %s not resolved: it is too long, shorten it", name);
    return;
  }
  ReadAddress(command, address);
}

/* Whether the tunnel `row` is down and its peer is given by name, which is then in `name`. */
bool IsDownByName(const char *row, char (&name)[AMS_PATH_SIZE]) {
  char path[AMS_PATH_SIZE], status[64] = "";
  snprintf(path, sizeof path, "%s.ConnectionStatus", row);
  /* What cannot be read stays empty: such a tunnel counts as down, with an empty name. */
  (void)ams_mxml_get_leaf_value(path, status);
  if (strcmp(status, "Connected") == 0) return false;
  name[0] = '\0';
  snprintf(path, sizeof path, "%s.RemoteGatewayAddress", row);
  (void)ams_mxml_get_leaf_value(path, name);
  return inet_addr(name) == INADDR_NONE;
}

}  // namespace

/* At start the accelerator is off, so there is nothing to take back. */
int FuncServIPSec(OpFuncArg *arg) {
  if (FuncTunnelScripts(arg) != 0) return -1;
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
  if (FuncTunnelScripts(arg) != 0) return -1;
  if (arg->op == TMF_INIT && Tunnels() >= 1) StartPoll();
  if (arg->op == TMF_SET) {
    StopPoll();
    StartPoll();
  }
  if (arg->op == TMF_DEL && Tunnels() == 0) StopPoll();
  return 0;
}

/* As many rows are looked at as there are, from number 1 on: behind a gap that a deleted row left
   the last ones are passed over. Every tunnel is compared with the first "remote" line of racoon's
   file, and an address that cannot be had is the one that the row before it left: tunnels are
   applied rather once too often. All of it is the gateway's known behaviour. */
void IpsecPollTunnels(int32_t, const void *, uint32_t) {
  Address in_use = "", resolved = "";
  for (int i = 1, tunnels = Tunnels(); i <= tunnels; ++i) {
    char row[128], name[AMS_PATH_SIZE];
    snprintf(row, sizeof row, IPSEC "TunnelList.%d", i);
    cfgSystemCmd("/usr/syscfg/ipsec_cfg.sh get %s ", row);
    if (!IsDownByName(row, name)) continue;
    ReadAddress("cat /var/ipsec/racoon.conf | grep remote | cut -d ' ' -f 2", in_use);
    ResolveName(name, resolved);
    if (strcmp(in_use, resolved) != 0) cfgSystemCmd("/usr/syscfg/ipsec_cfg.sh set %s &", row);
  }
  StartPoll();
}
