// The FUNC table of the module, the rows of its daemons with ports, and the op functions of
// "InternetGatewayDevice.Services." and of the user list that are a script call or two. How a
// daemon is started is in services/port_daemon.cpp; the others, tunnels and voice have files of
// their own.
//
// A handler reads what it needs back from the data model, which has the new values already. What it
// starts is not watched. A line without "&" holds the module until its command is over: that is
// meant wherever the next line must not overtake it.
#include "services_func.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "ams_config_api.h"
#include "ams_config_shell.h"
#include "bwLimit_func.h"
#include "ftpd_func.h"
#include "ipgre_func.h"
#include "ipsec_func.h"
#include "l2tp_func.h"
#include "netdaemon_func.h"
#include "op_rows.h"
#include "op_values.h"
#include "samba_func.h"
#include "serviceCtrl_func.h"
#include "sms_func.h"
#include "snmp_func.h"
#include "voip_func.h"
#include "vpnlite_func.h"

namespace {

const OpForm kPlain = {__FILE__, __LINE__, -1, ""}, kNamed = {__FILE__, __LINE__, -1, nullptr};
/* Unlike their neighbours these take a null argument. */
const OpForm kLenient = {__FILE__, __LINE__, 0, nullptr};

const Script kStatusUpdater = {{
    {ON_INIT | ON_SET, "killall status_updater.sh >/dev/null 2>&1"},
    {ON_INIT | ON_SET, "/usr/syscfg/status_updater.sh &"},
}};

const Script kDongleWanKeep = {{
    {ON_INIT | ON_SET, "killall dongle_wan_keep.sh >/dev/null 2>&1"},
    {ON_INIT | ON_SET, "/usr/syscfg/dongle_wan_keep.sh &"},
}};

const Script kConnRecovery = {{
    {ON_INIT | ON_SET, "killall conn_recovery.sh >/dev/null 2>&1"},
    {ON_INIT | ON_SET, "/usr/syscfg/conn_recovery.sh 1 &"},
    {ON_INIT | ON_SET, "/usr/syscfg/conn_recovery.sh 2 &"},
}};

/* No kill first: the agents of several sets run side by side. */
const Script kZabbix = {{{ON_INIT | ON_SET, "/usr/syscfg/zabbix_agent.sh &"}}};

const Script kRemoteAccess = {{{ON_SET, "/usr/syscfg/remote_access.sh &"}}};

/* Services that an Enable parameter switches. A model without the parameter has no such service. */
struct SwitchedService {
  const char *enable;
  const char *stop_first; /* before the start, waited for; may be NULL */
  const char *start, *stop;
};

const SwitchedService kIpSla = {"InternetGatewayDevice.Services.ServiceIPSLA.Enable",
                                "/usr/syscfg/ipsla.sh stop", "/usr/syscfg/ipsla.sh start&",
                                "/usr/syscfg/ipsla.sh stop&"};
const SwitchedService kVrrp = {"InternetGatewayDevice.Services.ServiceVRRP.Enable",
                               "/usr/syscfg/vrrp.sh stop", "/usr/syscfg/vrrp.sh start&",
                               "/usr/syscfg/vrrp.sh stop&"};
const SwitchedService kDlna = {"InternetGatewayDevice.Services.ServiceDLNA.Enable", nullptr,
                               "/usr/syscfg/media.sh dlna &", "killall minidlna >/dev/null 2>&1"};

void SwitchService(const SwitchedService &service) {
  if (ams_check_node(gptXmlTrees->root, service.enable) != 0) return;
  bool on = LeafInt(service.enable) == 1;
  if (on && service.stop_first != nullptr && cfgSystemCmd("%s", service.stop_first) != 0) return;
  cfgSystemCmd("%s", on ? service.start : service.stop);
}

template <const SwitchedService &Service>
int FuncSwitch(OpFuncArg *arg) {
  if (IsInitOrSet(arg->op)) SwitchService(Service);
  return 0;
}

/* Daemons that listen on each port of a list. telnetd and the TFTP server listen on a single port:
   one process for each. */
const PortDaemon kTelnet = {"InternetGatewayDevice.Services.ServiceTelnet.Enable",
                            "InternetGatewayDevice.Services.ServiceTelnet.Port",
                            false,
                            "killall telnetd >/dev/null 2>&1",
                            SOCK_STREAM,
                            "telnetd -l /usr/sbin/ams_cli -p %d &"};
const PortDaemon kTftp = {"InternetGatewayDevice.Services.ServiceTFTP.Enable",
                          "InternetGatewayDevice.Services.ServiceTFTP.Port",
                          true,
                          "killall tftpd-hpa >/dev/null 2>&1",
                          SOCK_DGRAM,
                          nullptr,
                          TftpLines};
const PortDaemon kSsh = {"InternetGatewayDevice.Services.ServiceSSH.Enable",
                         "InternetGatewayDevice.Services.ServiceSSH.Port",
                         false,
                         "killall dropbear >/dev/null 2>&1",
                         SOCK_STREAM,
                         nullptr,
                         SshLines,
                         22,
                         SshPrepare};

/* The LED tells the result of the registration. */
int FuncUserInfo(OpFuncArg *arg) {
  if (arg->op != TMF_SET) return 0;
  bool on = LeafInt("InternetGatewayDevice.X_CT-COM_UserInfo.Result") == 1;
  cfgSystemCmd(
      "%s", on ? "/usr/syscfg/led.sh internet_wan on 1" : "/usr/syscfg/led.sh internet_wan off 1");
  return 0;
}

/* A change of the user list restarts the web server, and Samba through the notification, which
   comes back to this module. The rows need nothing at start. */
int FuncUserInfoUserListI(OpFuncArg *arg) {
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

int FuncWOL(OpFuncArg *arg) {
  char address[128] = "";
  /* Without the node the address stays empty, and etherwake says so. */
  (void)ams_mxml_get_leaf_value("InternetGatewayDevice.Services.ServiceWOL.MACAddr", address);
  if (arg->op == TMF_SET) cfgSystemCmd("etherwake -i br0 -b %s &", address);
  return 0;
}

}  // namespace

/* The names are the data model's own, misspelt ones included. A NULL handler accepts a name and
   does nothing.  */
const OpFuncEntry kCapabInfoFuncTable[] = {
    {"FuncServicesMWBAND", nullptr},
    {"FuncServIPTV", nullptr},
    {"FuncServIPSec", Op<kNamed, FuncServIPSec>},
    {"FuncServIPSecTunnelList", Op<kNamed, FuncServIPSecTunnelList>},
    {"FuncServIPSecCertificateList", SCRIPTED(kNamed, kIpsecCertificates)},
    {"FuncServIPSecCaCertificateList", SCRIPTED(kNamed, kIpsecCaCertificates)},
    {"FuncUserInfo", Op<kLenient, FuncUserInfo>},
    {"FuncUserInfoUserListI", Op<kPlain, FuncUserInfoUserListI>},
    {"FuncServTelnet", PORT_DAEMON(kNamed, kTelnet)},
    {"FuncServSSH", PORT_DAEMON(kNamed, kSsh)},
    {"FuncServPrinter", Op<kNamed, FuncServPrinter>},
    {"FuncServFTP", Op<kNamed, FuncServFTP>},
    {"FuncServTFTP", PORT_DAEMON(kNamed, kTftp)},
    {"FuncServSNMP", Op<kNamed, FuncServSNMP>},
    {"FuncServSamba", Op<kNamed, FuncServSamba>},
    {"FuncDlnaServer", Op<kPlain, FuncSwitch<kDlna>>},
    {"FuncRemoteAccess", SCRIPTED(kPlain, kRemoteAccess)},
    {"FuncSCL", Op<kLenient, FuncSCL>},
    {"FuncSrvLists", Op<kLenient, FuncSrvLists>},
    {"FuncWOL", Op<kPlain, FuncWOL>},
    {"FuncServVoipServ", Op<kNamed, FuncHandleVoip>},
    {"FuncServVoiceProfile", Op<kNamed, FuncHandleVoip>},
    {"FuncServVoipSIPI", Op<kNamed, FuncHandleVoip>},
    {"FuncServVoipH248I", Op<kNamed, FuncHandleVoip>},
    {"FuncServVoipRTP", Op<kNamed, FuncHandleVoip>},
    {"FuncServVoipNmuPlan", Op<kNamed, FuncHandleVoip>},
    {"FuncServVoipFaxT38", Op<kNamed, FuncHandleVoip>},
    {"FuncServVoipG711Fax", Op<kNamed, FuncHandleVoip>},
    {"FuncServVoipLines", Op<kNamed, FuncHandleVoip>},
    {"FuncServVoipExtComm", Op<kNamed, FuncHandleVoip>},
    {"FuncServVoipIMS", Op<kNamed, FuncHandleVoip>},
    {"FuncServVoipExt", Op<kNamed, FuncHandleVoip>},
    {"FuncServVoipSIP", Op<kNamed, FuncHandleVoip>},
    {"FuncServVoipH248", Op<kNamed, FuncHandleVoip>},
    {"FuncServVoipCodecList", Op<kNamed, FuncHandleVoip>},
    {"FuncServVoipVoiceProcess", Op<kNamed, FuncHandleVoip>},
    {"FuncServVoipFlashHook", Op<kNamed, FuncHandleVoip>},
    {"FuncServVoipLineStats", Op<kNamed, FuncServVoipLineStats>},
    {"FuncServVoipIADDiag", Op<kNamed, FuncServVoipIADDiag>},
    {"FuncServVoipCID", Op<kNamed, FuncHandleVoip>},
    {"FuncServVoipJitter", Op<kNamed, FuncHandleVoip>},
    {"FuncServVoicePhyIf", Op<kNamed, FuncHandleVoip>},
    {"FuncServVoipPhyTest", Op<kNamed, FuncServVoipPhyTest>},
    {"FuncServVoipSimulateTest", Op<kNamed, FuncServVoipPhyTest>},
    {"FuncServVoipStats", Op<kNamed, FuncHandleVoip>},
    {"FuncServVoipPoorQuaList", Op<kNamed, FuncHandleVoip>},
    {"FuncServVoipCapbility", Op<kNamed, FuncHandleVoip>},
    {"FuncServVoipCapCodec", Op<kNamed, FuncHandleVoip>},
    {"FuncServAction", Op<kNamed, FuncServAction>},
    {"FuncServVoipCF", Op<kNamed, FuncHandleVoip>},
    {"FuncServGRETunnel", SCRIPTED(kNamed, kGreTunnel)},
    {"FuncServGRETunnelList", SCRIPTED(kNamed, kGreTunnelList)},
    {"FuncServL2TP", SCRIPTED(kNamed, kL2tp)},
    {"FuncServL2TPLac", SCRIPTED(kNamed, kL2tpLac)},
    {"FuncServL2TPLacStats", SCRIPTED(kNamed, kL2tpLacStats)},
    {"FuncServL2TPLacConnInfo", SCRIPTED(kNamed, kL2tpLacConnInfo)},
    {"FuncServL2TPLnsStats", SCRIPTED(kNamed, kL2tpLnsStats)},
    {"FuncServL2TPLnsConnInfo", SCRIPTED(kNamed, kL2tpLnsConnInfo)},
    {"FuncServL2TPLns", SCRIPTED(kNamed, kL2tpLns)},
    {"FuncServL2TPUserList", SCRIPTED(kNamed, kL2tpUserList)},
    {"FuncServVpnLite", SCRIPTED(kNamed, kVpnLite)},
    {"FuncServVpnLiteRouteList", SCRIPTED(kNamed, kVpnLiteRouteList)},
    {"FuncServVpnLiteStats", SCRIPTED(kNamed, kVpnLiteStats)},
    {"FuncServVpnLiteConnInfo", SCRIPTED(kNamed, kVpnLiteConnInfo)},
    {"FuncRateLimitCfg", SCRIPTED(kNamed, kRateLimit)},
    {"FuncRateLimitPerPortCfg", SCRIPTED(kNamed, kRateLimitPerPort)},
    {"FuncRateLimitPerIPCfg", SCRIPTED(kNamed, kRateLimitPerIp)},
    {"FuncServShortMsg", Op<kShortMsg, FuncServShortMsg>},
    {"FuncServShortMsgSend", Op<kShortMsgSend, FuncServShortMsgSend>},
    {"FuncServShortMsgUssdSend", Op<kShortMsgUssdSend, FuncServShortMsgUssdSend>},
    {"FuncZabbix", SCRIPTED(kPlain, kZabbix)},
    {"FuncConnRecovery", SCRIPTED(kPlain, kConnRecovery)},
    {"FuncDongleWanKeep", SCRIPTED(kPlain, kDongleWanKeep)},
    {"FuncStatusUpdater", SCRIPTED(kPlain, kStatusUpdater)},
    {"FuncServFotaUpgrade", Op<kPlain, LogOnly>},
    {"FuncVrrp", Op<kPlain, FuncSwitch<kVrrp>>},
    {"FuncIpSla", Op<kPlain, FuncSwitch<kIpSla>>},
    {nullptr, nullptr},
};

void CapabInfoInit(int32_t, const void *, uint32_t) {
  appt_InitFuncTable(kCapabInfoFuncTable);
  AMS_PRINT(2, "CapabInfo init success.");
}
