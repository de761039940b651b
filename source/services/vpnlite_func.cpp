// VPN-lite. The script reads the data model itself. Statistics are waited for: the script leaves
// them in the data model, from which the answer is read next.
#include "vpnlite_func.h"

const Script kVpnLite = {{
    {ON_INIT, "mkdir -p /var/vpnlite"},
    {ON_SET, "/usr/syscfg/vpnlite_cfg.sh action=\"set\" &"},
}};

const Script kVpnLiteRouteList = {{
    {ON_ADD, "/usr/syscfg/vpnlite_cfg.sh action=\"route_add\" routelist=\"%s\" &", ARG_PATH},
    {ON_DEL, "/usr/syscfg/vpnlite_cfg.sh action=\"route_del\" routelist=\"%s\" &", ARG_PATH},
}};

const Script kVpnLiteStats = {{{ON_GET, "/usr/syscfg/vpnlite_cfg.sh action=\"stats\""}}};

const Script kVpnLiteConnInfo = {{{ON_GET, "/usr/syscfg/vpnlite_cfg.sh action=\"connInfo\""}}};
