// VPN-lite. The script reads the data model itself. Statistics are waited for: the script leaves
// them in the data model, from which the answer is read next.
#include "vpnlite_func.h"

#define VPNLITE "/usr/syscfg/vpnlite_cfg.sh "

const Script kVpnLite = {{
    {ON_INIT, "mkdir -p /var/vpnlite"},
    {ON_SET, VPNLITE "action=\"set\" &"},
}};

const Script kVpnLiteRouteList = {{
    {ON_ADD, VPNLITE "action=\"route_add\" routelist=\"%s\" &", ARG_PATH},
    {ON_DEL, VPNLITE "action=\"route_del\" routelist=\"%s\" &", ARG_PATH},
}};

const Script kVpnLiteStats = {{{ON_GET, VPNLITE "action=\"stats\""}}};

const Script kVpnLiteConnInfo = {{{ON_GET, VPNLITE "action=\"connInfo\""}}};
