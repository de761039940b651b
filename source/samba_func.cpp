// Samba through media.sh, with holes in the firewall on the interface of the management connection.
#include "samba_func.h"

#include <cstring>

#include "ams_config_shell.h"
#include "capabinfo_thread.h"
#include "op_rows.h"

namespace {

constexpr uint32_t kDelay = 50; /* ms from the last change to the apply */

struct SambaPort {
  const char *protocol;
  int port;
};

const SambaPort kPorts[] = {
    {"tcp", 139}, {"tcp", 389}, {"tcp", 901}, {"tcp", 445}, {"udp", 137}, {"udp", 138},
};

using Name = char[64]; /* of an interface */

bool SambaTimerArmed = false;
Name opened_on = ""; /* where the holes are; "": there are none that this process made */

/* `action`: "-A" or "-D". */
void Rules(const char *action, const char *interface) {
  for (const SambaPort &row : kPorts) {
    cfgSystemCmd("iptables -t filter %s INPUT -i %s -p %s --dport %d -j ACCEPT", action, interface,
                 row.protocol, row.port);
    cfgSystemCmd("iptables -t nat %s PREROUTING -i %s -p %s --dport %d -j ACCEPT", action,
                 interface, row.protocol, row.port);
  }
}

/* The management connection may have moved to another interface since the holes were opened. */
void CloseElsewhere(const char *interface) {
  if (opened_on[0] != '\0' && strcmp(opened_on, interface) != 0) Rules("-D", opened_on);
  opened_on[0] = '\0';
}

/* All rules go before the first comes, so there is one copy of each however often this runs. A name
   of one character opens nothing here, while SambaStop closes what is open on it; the difference is
   meant: closing is always safe. */
void SambaStart(const Name &interface) {
  CloseElsewhere(interface);
  if (strlen(interface) > 1) {
    Rules("-D", interface);
    Rules("-A", interface);
    memcpy(opened_on, interface, sizeof opened_on);
  }
  cfgSystemCmd("/usr/syscfg/media.sh samba &");
}

void SambaStop(const Name &interface) {
  CloseElsewhere(interface);
  if (*interface != '\0') Rules("-D", interface);
  cfgSystemCmd("killall -q nmbd");
  cfgSystemCmd("killall -q smbd");
}

}  // namespace

int FuncServSamba(OpFuncArg *arg) {
  if (!IsInitOrSet(arg->op)) return 0;
  if (SambaTimerArmed) (void)KillTimer(CAPABINFO_TIMER_SAMBA); /* it is started anew at once */
  SambaTimerArmed = SetTimer(CAPABINFO_TIMER_SAMBA, kDelay) == 0;
  return 0;
}

void SambaUserListChanged(int32_t, const void *, uint32_t) {
  OpFuncArg arg = {"FuncServSamba", TMF_SET, "", nullptr};
  (void)FuncServSamba(&arg); /* it fails for a null argument only */
}

void SambaApply(int32_t, const void *, uint32_t) {
  Name interface = "";
  SambaTimerArmed = false;
  /* Without the node the name stays empty, which opens and closes nothing. */
  (void)ams_mxml_get_leaf_value("InternetGatewayDevice.ManagementServer.X_KVO_TR069WANIFNAME",
                                interface);
  if (LeafInt("InternetGatewayDevice.Services.ServiceSamba.Enable") == 1)
    SambaStart(interface);
  else
    SambaStop(interface);
}
