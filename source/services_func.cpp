// The op functions of "InternetGatewayDevice.Services." and of the user list that are a script call
// or two, and the FUNC table of the module. Daemons, tunnels and voice have files of their own.
//
// A handler reads what it needs back from the data model, which has the new values already. What it
// starts is not watched. A line without "&" holds the module until its command is over: that is
// meant wherever the next line must not overtake it.
#include "services_func.h"

#include <unistd.h>

#include <cstring>

#include "ams_config_api.h"
#include "ams_config_shell.h"
#include "capabinfo_thread.h"
#include "ftpd_func.h"
#include "ipsec_func.h"
#include "netdaemon_func.h"
#include "op_rows.h"
#include "samba_func.h"
#include "serviceCtrl_func.h"
#include "sms_func.h"
#include "snmp_func.h"
#include "tunnel_func.h"
#include "voip_func.h"

namespace {

const ScriptRow kScriptRows[] = {
    {"FuncStatusUpdater", TMF_INIT, "killall status_updater.sh >/dev/null 2>&1"},
    {"FuncStatusUpdater", TMF_INIT, "/usr/syscfg/status_updater.sh &"},
    {"FuncStatusUpdater", TMF_SET, "killall status_updater.sh >/dev/null 2>&1"},
    {"FuncStatusUpdater", TMF_SET, "/usr/syscfg/status_updater.sh &"},
    {"FuncDongleWanKeep", TMF_INIT, "killall dongle_wan_keep.sh >/dev/null 2>&1"},
    {"FuncDongleWanKeep", TMF_INIT, "/usr/syscfg/dongle_wan_keep.sh &"},
    {"FuncDongleWanKeep", TMF_SET, "killall dongle_wan_keep.sh >/dev/null 2>&1"},
    {"FuncDongleWanKeep", TMF_SET, "/usr/syscfg/dongle_wan_keep.sh &"},
    {"FuncConnRecovery", TMF_INIT, "killall conn_recovery.sh >/dev/null 2>&1"},
    {"FuncConnRecovery", TMF_INIT, "/usr/syscfg/conn_recovery.sh 1 &"},
    {"FuncConnRecovery", TMF_INIT, "/usr/syscfg/conn_recovery.sh 2 &"},
    {"FuncConnRecovery", TMF_SET, "killall conn_recovery.sh >/dev/null 2>&1"},
    {"FuncConnRecovery", TMF_SET, "/usr/syscfg/conn_recovery.sh 1 &"},
    {"FuncConnRecovery", TMF_SET, "/usr/syscfg/conn_recovery.sh 2 &"},
    /* No kill first: the agents of several sets run side by side. */
    {"FuncZabbix", TMF_INIT, "/usr/syscfg/zabbix_agent.sh &"},
    {"FuncZabbix", TMF_SET, "/usr/syscfg/zabbix_agent.sh &"},
    {"FuncRemoteAccess", TMF_SET, "/usr/syscfg/remote_access.sh &"},
};

/* Services that an Enable parameter switches. A model without the parameter has no such service. */
struct SwitchRow {
  const char *name, *enable;
  const char *stop_first; /* before the start, waited for; may be NULL */
  const char *start, *stop;
};

const SwitchRow kSwitchRows[] = {
    {"FuncIpSla", "InternetGatewayDevice.Services.ServiceIPSLA.Enable", "/usr/syscfg/ipsla.sh stop",
     "/usr/syscfg/ipsla.sh start&", "/usr/syscfg/ipsla.sh stop&"},
    {"FuncVrrp", "InternetGatewayDevice.Services.ServiceVRRP.Enable", "/usr/syscfg/vrrp.sh stop",
     "/usr/syscfg/vrrp.sh start&", "/usr/syscfg/vrrp.sh stop&"},
    {"FuncDlnaServer", "InternetGatewayDevice.Services.ServiceDLNA.Enable", nullptr,
     "/usr/syscfg/media.sh dlna &", "killall minidlna >/dev/null 2>&1"},
};

void SwitchService(const SwitchRow &row) {
  if (ams_check_node(gptXmlTrees->root, row.enable) != 0) return;
  bool on = LeafInt(row.enable) == 1;
  if (on && row.stop_first != nullptr && cfgSystemCmd("%s", row.stop_first) != 0) return;
  cfgSystemCmd("%s", on ? row.start : row.stop);
}

/* The LED tells the result of the registration. Unlike its neighbours it takes a null argument. */
int FuncUserInfo(OpFuncArg *arg) {
  if (arg == nullptr) return 0;
  OP_LOG(arg);
  if (arg->op != TMF_SET) return 0;
  bool on = LeafInt("InternetGatewayDevice.X_CT-COM_UserInfo.Result") == 1;
  cfgSystemCmd(
      "%s", on ? "/usr/syscfg/led.sh internet_wan on 1" : "/usr/syscfg/led.sh internet_wan off 1");
  return 0;
}

/* A change of the user list restarts the web server, and Samba through the notification, which
   comes back to this module. The rows need nothing at start. */
int FuncUserInfoUserListI(OpFuncArg *arg) {
  if (arg == nullptr) return -1;
  OP_LOG_UNNAMED(arg);
  if (arg->op != TMF_SET) return 0;
  if (access("/usr/syscfg/httpd.sh", X_OK) == 0) {
    /* A failure was logged; the restart matters more than its mark. */
    (void)cfgStatusSetStr("InternetGatewayDevice.DeviceInfo.X_KVO-RestartWeb", "1");
    if (cfgSystemCmd("/usr/syscfg/httpd.sh restart &") != 0)
      (void)cfgStatusSetStr("InternetGatewayDevice.DeviceInfo.X_KVO-RestartWeb", "0");
  }
  /* A failure was logged by the runtime; the list itself stands. */
  (void)TDS_NotifyRegistrant(EV_USER_LIST_CHANGED, arg->path,
                             static_cast<uint32_t>(strlen(arg->path) + 1));
  return 0;
}

int FuncSwitch(OpFuncArg *arg) {
  if (arg == nullptr) return -1;
  OP_LOG_UNNAMED(arg);
  if (!IsInitOrSet(arg->op)) return 0;
  for (const SwitchRow &row : kSwitchRows)
    if (strcmp(row.name, arg->name) == 0) SwitchService(row);
  return 0;
}

int FuncWOL(OpFuncArg *arg) {
  if (arg == nullptr) return -1;
  OP_LOG_UNNAMED(arg);
  char address[128] = "";
  /* Without the node the address stays empty, and etherwake says so. */
  (void)ams_mxml_get_leaf_value("InternetGatewayDevice.Services.ServiceWOL.MACAddr", address);
  if (arg->op == TMF_SET) cfgSystemCmd("etherwake -i br0 -b %s &", address);
  return 0;
}

/* Also serves names whose ops all run nothing: they only log. */
int FuncScripts(OpFuncArg *arg) {
  if (arg == nullptr) return -1;
  OP_LOG_UNNAMED(arg);
  return ScriptRowsRun(kScriptRows, arg);
}

}  // namespace

/* The names are the data model's own, misspelt ones included. A NULL handler accepts a name and
   does nothing. One handler serves a family: it tells its cases apart by name or by path. */
const OpFuncEntry kCapabInfoFuncTable[] = {
    {"FuncServicesMWBAND", nullptr},
    {"FuncServIPTV", nullptr},
    {"FuncServIPSec", FuncServIPSec},
    {"FuncServIPSecTunnelList", FuncServIPSecTunnelList},
    {"FuncServIPSecCertificateList", FuncTunnelScripts},
    {"FuncServIPSecCaCertificateList", FuncTunnelScripts},
    {"FuncUserInfo", FuncUserInfo},
    {"FuncUserInfoUserListI", FuncUserInfoUserListI},
    {"FuncServTelnet", FuncPortDaemon},
    {"FuncServSSH", FuncPortDaemon},
    {"FuncServPrinter", FuncServPrinter},
    {"FuncServFTP", FuncServFTP},
    {"FuncServTFTP", FuncPortDaemon},
    {"FuncServSNMP", FuncServSNMP},
    {"FuncServSamba", FuncServSamba},
    {"FuncDlnaServer", FuncSwitch},
    {"FuncRemoteAccess", FuncScripts},
    {"FuncSCL", FuncSCL},
    {"FuncSrvLists", FuncSrvLists},
    {"FuncWOL", FuncWOL},
    {"FuncServVoipServ", FuncHandleVoip},
    {"FuncServVoiceProfile", FuncHandleVoip},
    {"FuncServVoipSIPI", FuncHandleVoip},
    {"FuncServVoipH248I", FuncHandleVoip},
    {"FuncServVoipRTP", FuncHandleVoip},
    {"FuncServVoipNmuPlan", FuncHandleVoip},
    {"FuncServVoipFaxT38", FuncHandleVoip},
    {"FuncServVoipG711Fax", FuncHandleVoip},
    {"FuncServVoipLines", FuncHandleVoip},
    {"FuncServVoipExtComm", FuncHandleVoip},
    {"FuncServVoipIMS", FuncHandleVoip},
    {"FuncServVoipExt", FuncHandleVoip},
    {"FuncServVoipSIP", FuncHandleVoip},
    {"FuncServVoipH248", FuncHandleVoip},
    {"FuncServVoipCodecList", FuncHandleVoip},
    {"FuncServVoipVoiceProcess", FuncHandleVoip},
    {"FuncServVoipFlashHook", FuncHandleVoip},
    {"FuncServVoipLineStats", FuncServVoipLineStats},
    {"FuncServVoipIADDiag", FuncServVoipIADDiag},
    {"FuncServVoipCID", FuncHandleVoip},
    {"FuncServVoipJitter", FuncHandleVoip},
    {"FuncServVoicePhyIf", FuncHandleVoip},
    {"FuncServVoipPhyTest", FuncServVoipPhyTest},
    {"FuncServVoipSimulateTest", FuncServVoipPhyTest},
    {"FuncServVoipStats", FuncHandleVoip},
    {"FuncServVoipPoorQuaList", FuncHandleVoip},
    {"FuncServVoipCapbility", FuncHandleVoip},
    {"FuncServVoipCapCodec", FuncHandleVoip},
    {"FuncServAction", FuncServAction},
    {"FuncServVoipCF", FuncHandleVoip},
    {"FuncServGRETunnel", FuncTunnelScripts},
    {"FuncServGRETunnelList", FuncTunnelScripts},
    {"FuncServL2TP", FuncTunnelScripts},
    {"FuncServL2TPLac", FuncTunnelScripts},
    {"FuncServL2TPLacStats", FuncTunnelScripts},
    {"FuncServL2TPLacConnInfo", FuncTunnelScripts},
    {"FuncServL2TPLnsStats", FuncTunnelScripts},
    {"FuncServL2TPLnsConnInfo", FuncTunnelScripts},
    {"FuncServL2TPLns", FuncTunnelScripts},
    {"FuncServL2TPUserList", FuncTunnelScripts},
    {"FuncServVpnLite", FuncTunnelScripts},
    {"FuncServVpnLiteRouteList", FuncTunnelScripts},
    {"FuncServVpnLiteStats", FuncTunnelScripts},
    {"FuncServVpnLiteConnInfo", FuncTunnelScripts},
    {"FuncRateLimitCfg", FuncTunnelScripts},
    {"FuncRateLimitPerPortCfg", FuncTunnelScripts},
    {"FuncRateLimitPerIPCfg", FuncTunnelScripts},
    {"FuncServShortMsg", FuncServShortMsg},
    {"FuncServShortMsgSend", FuncServShortMsgSend},
    {"FuncServShortMsgUssdSend", FuncServShortMsgUssdSend},
    {"FuncZabbix", FuncScripts},
    {"FuncConnRecovery", FuncScripts},
    {"FuncDongleWanKeep", FuncScripts},
    {"FuncStatusUpdater", FuncScripts},
    {"FuncServFotaUpgrade", FuncScripts},
    {"FuncVrrp", FuncSwitch},
    {"FuncIpSla", FuncSwitch},
    {nullptr, nullptr},
};
