// Samba through media.sh, with holes in the firewall on the interface of the management connection.
#include "samba_func.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <string>

#include "ams_config_shell.h"
#include "capabinfo_thread.h"
#include "op_rows.h"
#include "op_values.h"

namespace {

/* Has `opened_on`: the kernel keeps the holes when this process ends. A boot clears both. */
constexpr char kOpenedOn[] = "/var/samba_holes";
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
Name opened_on = ""; /* where the holes are; "": there are none, or an earlier process knows */

/* `action`: "-A" or "-D". 0; -1 (logged) when one of the commands was not run. */
int Rules(const char *action, const char *interface) {
  int failed = 0;
  for (const SambaPort &row : kPorts) {
    failed |= cfgSystemCmd("iptables -t filter %s INPUT -i %s -p %s --dport %d -j ACCEPT", action,
                           interface, row.protocol, row.port);
    failed |= cfgSystemCmd("iptables -t nat %s PREROUTING -i %s -p %s --dport %d -j ACCEPT", action,
                           interface, row.protocol, row.port);
  }
  return failed;
}

bool IsInterface(const char *name) {
  for (const char *at = name; *at != '\0'; ++at)
    if (isalnum(static_cast<unsigned char>(*at)) == 0 && strchr("._-:@", *at) == nullptr)
      return false;
  return *name != '\0';
}

/* Takes what an earlier process wrote; anything else than a name of an interface in a file of our
   own is none, since it goes into command lines. */
void Recall() {
  struct stat found;
  Name name = "";
  int fd = open(kOpenedOn, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return; /* it is seldom there */
  bool ours = fstat(fd, &found) == 0 && S_ISREG(found.st_mode) && found.st_uid == geteuid();
  ssize_t length = ours ? read(fd, name, sizeof name) : 0;
  close(fd);
  if (length >= static_cast<ssize_t>(sizeof name) || !IsInterface(name)) return;
  memcpy(opened_on, name, sizeof opened_on);
}

/* Before the first hole is there. */
void Remember(const Name &interface) {
  if (strcmp(opened_on, interface) == 0) return;
  memcpy(opened_on, interface, sizeof opened_on);
  if (WriteOwnFile(kOpenedOn, opened_on) != 0)
    AMS_PRINT(4,
              "%s not written: %m; make room there, or disable Samba before the management "
              "connection moves while sysmgr restarts\n",
              kOpenedOn);
}

/* After the last hole is gone. */
void Forget() {
  opened_on[0] = '\0';
  (void)unlink(kOpenedOn); /* it is there when something was open */
}

/* The management connection may have moved to another interface since the holes were opened. */
void CloseElsewhere(const char *interface) {
  if (opened_on[0] == '\0') Recall();
  if (opened_on[0] == '\0' || strcmp(opened_on, interface) == 0) return;
  if (Rules("-D", opened_on) == 0) Forget();
}

/* All rules go before the first comes, so there is one copy of each however often this runs. A name
   of one character opens nothing here, while SambaStop closes what is open on it; the difference is
   meant: closing is always safe. */
void SambaStart(const Name &interface) {
  CloseElsewhere(interface);
  if (strlen(interface) > 1) {
    Remember(interface);
    Rules("-D", interface);
    Rules("-A", interface);
  }
  cfgSystemCmd("/usr/syscfg/media.sh samba &");
}

void SambaStop(const Name &interface) {
  CloseElsewhere(interface);
  int failed = *interface == '\0' ? 0 : Rules("-D", interface);
  bool elsewhere = opened_on[0] != '\0' && strcmp(opened_on, interface) != 0;
  if (failed == 0 && !elsewhere) Forget();
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
