// IPsec, GRE, L2TP, VPN-lite and the rate limit: which script runs when a node changes. The scripts
// read the data model themselves; they get the action and the node's path. IPsec's accelerator and
// the watch over its peers are in ipsec_func.cpp.
#include "tunnel_func.h"

#include "op_rows.h"

namespace {

/* Adding a tunnel script is adding a row. Configuration runs in the background, since a tunnel may
   take long to come up. Statistics are waited for: the script leaves them in the data model, from
   which the answer is read next. */
const ScriptRow kScriptRows[] = {
    {"FuncServIPSec", TMF_INIT, "mkdir -p /var/ipsec/"},
    {"FuncServIPSec", TMF_INIT, "mkdir -p /var/ipsec/Dbg/"},
    {"FuncServIPSec", TMF_INIT, "mkdir -p /var/run"},
    {"FuncServIPSec", TMF_INIT, "mkdir -p /var/racoon/"},
    /* Nobody here makes the inner folder: without it this fails, and that harms nothing. */
    {"FuncServIPSec", TMF_INIT, "touch /var/racoon/racoon/sock"},
    /* At start there is no path yet: the script then sets up every row. */
    {"FuncServIPSecTunnelList", TMF_INIT, "/usr/syscfg/ipsec_cfg.sh init %s &"},
    {"FuncServIPSecTunnelList", TMF_SET, "/usr/syscfg/ipsec_cfg.sh set %s &"},
    {"FuncServIPSecTunnelList", TMF_DEL, "/usr/syscfg/ipsec_cfg.sh del %s &"},
    {"FuncServIPSecCertificateList", TMF_INIT, "/usr/syscfg/ipsec_cert.sh init %s &"},
    {"FuncServIPSecCertificateList", TMF_SET, "/usr/syscfg/ipsec_cert.sh set %s &"},
    {"FuncServIPSecCertificateList", TMF_DEL, "/usr/syscfg/ipsec_cert.sh del %s &"},
    {"FuncServIPSecCaCertificateList", TMF_INIT, "/usr/syscfg/ipsec_cacert.sh init %s &"},
    {"FuncServIPSecCaCertificateList", TMF_SET, "/usr/syscfg/ipsec_cacert.sh set %s &"},
    {"FuncServIPSecCaCertificateList", TMF_DEL, "/usr/syscfg/ipsec_cacert.sh del %s &"},

    {"FuncServGRETunnel", TMF_INIT, "mkdir -p /var/.ipgre"},
    {"FuncServGRETunnelList", TMF_SET, "/usr/syscfg/ipgre_cfg.sh action=\"set\" tnllist=\"%s\" &"},
    {"FuncServGRETunnelList", TMF_DEL, "/usr/syscfg/ipgre_cfg.sh action=\"del\" tnllist=\"%s\" &"},

    {"FuncServL2TP", TMF_INIT, "mkdir -p /var/.l2tp"},
    {"FuncServL2TP", TMF_INIT, "mkdir -p /var/log"},
    {"FuncServL2TP", TMF_INIT, "touch /tmp/.chap-secrets"},
    {"FuncServL2TP", TMF_INIT, "touch /tmp/.pap-secrets"},
    {"FuncServL2TPLac", TMF_SET, "/usr/syscfg/l2tp_cfg.sh action=\"set\" tnllist=\"%s\" &"},
    {"FuncServL2TPLac", TMF_DEL, "/usr/syscfg/l2tp_cfg.sh action=\"del\" tnllist=\"%s\" &"},
    {"FuncServL2TPLacStats", TMF_GET, "/usr/syscfg/l2tp_cfg.sh action=\"stats\" tnllist=\"%s\" "},
    {"FuncServL2TPLacConnInfo", TMF_GET,
     "/usr/syscfg/l2tp_cfg.sh action=\"connInfo\" tnllist=\"%s\" "},
    {"FuncServL2TPLnsStats", TMF_GET, "/usr/syscfg/l2tp_cfg.sh action=\"lnsstats\" "},
    {"FuncServL2TPLnsConnInfo", TMF_GET, "/usr/syscfg/l2tp_cfg.sh action=\"lnsconnInfo\" "},
    {"FuncServL2TPLns", TMF_INIT, "mkdir -p /var/.l2tp/lns"},
    {"FuncServL2TPLns", TMF_INIT, "touch  /var/.l2tp/lns/user_db"},
    /* The client's call: the path tells the script which of the two changed. */
    {"FuncServL2TPLns", TMF_SET, "/usr/syscfg/l2tp_cfg.sh action=\"set\" tnllist=\"%s\" &"},
    {"FuncServL2TPUserList", TMF_ADD, "/usr/syscfg/l2tp_cfg.sh action=\"addu\" tnllist=\"%s\" &"},
    {"FuncServL2TPUserList", TMF_DEL, "/usr/syscfg/l2tp_cfg.sh action=\"delu\" tnllist=\"%s\" &"},

    {"FuncServVpnLite", TMF_INIT, "mkdir -p /var/vpnlite"},
    {"FuncServVpnLite", TMF_SET, "/usr/syscfg/vpnlite_cfg.sh action=\"set\" &"},
    {"FuncServVpnLiteRouteList", TMF_ADD,
     "/usr/syscfg/vpnlite_cfg.sh action=\"route_add\" routelist=\"%s\" &"},
    {"FuncServVpnLiteRouteList", TMF_DEL,
     "/usr/syscfg/vpnlite_cfg.sh action=\"route_del\" routelist=\"%s\" &"},
    {"FuncServVpnLiteStats", TMF_GET, "/usr/syscfg/vpnlite_cfg.sh action=\"stats\""},
    {"FuncServVpnLiteConnInfo", TMF_GET, "/usr/syscfg/vpnlite_cfg.sh action=\"connInfo\""},

    {"FuncRateLimitCfg", TMF_INIT, "mkdir -p /var/.bw_limit"},
    {"FuncRateLimitCfg", TMF_INIT,
     "/usr/syscfg/bw_limit.sh action=\"init\" "
     "rulelist=\"InternetGatewayDevice.Services.X_KVO_RateLimit\" &"},
    {"FuncRateLimitPerPortCfg", TMF_SET,
     "/usr/syscfg/bw_limit.sh action=\"set\" rulelist=\"%s\" &"},
    {"FuncRateLimitPerIPCfg", TMF_ADD, "/usr/syscfg/bw_limit.sh action=\"add\" rulelist=\"%s\" &"},
    {"FuncRateLimitPerIPCfg", TMF_DEL, "/usr/syscfg/bw_limit.sh action=\"del\" rulelist=\"%s\" &"},
};

}  // namespace

int FuncTunnelScripts(OpFuncArg *arg) {
  if (arg == nullptr) return -1;
  OP_LOG(arg);
  return ScriptRowsRun(kScriptRows, arg);
}
