// GRE tunnels. The script reads the data model itself: it gets the action and the tunnel's path.
#include "ipgre_func.h"

const Script kGreTunnel = {{{ON_INIT, "mkdir -p /var/.ipgre"}}};

const Script kGreTunnelList = {{
    {ON_SET, "/usr/syscfg/ipgre_cfg.sh action=\"set\" tnllist=\"%s\" &", ARG_PATH},
    {ON_DEL, "/usr/syscfg/ipgre_cfg.sh action=\"del\" tnllist=\"%s\" &", ARG_PATH},
}};
