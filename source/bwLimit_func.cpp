// Rate limits. The script reads the data model itself: it gets the action and the rule's path.
#include "bwLimit_func.h"

const Script kRateLimit = {{
    {ON_INIT, "mkdir -p /var/.bw_limit"},
    {ON_INIT,
     "/usr/syscfg/bw_limit.sh action=\"init\" "
     "rulelist=\"InternetGatewayDevice.Services.X_KVO_RateLimit\" &"},
}};

const Script kRateLimitPerPort = {
    {{ON_SET, "/usr/syscfg/bw_limit.sh action=\"set\" rulelist=\"%s\" &", ARG_PATH}}};

const Script kRateLimitPerIp = {{
    {ON_ADD, "/usr/syscfg/bw_limit.sh action=\"add\" rulelist=\"%s\" &", ARG_PATH},
    {ON_DEL, "/usr/syscfg/bw_limit.sh action=\"del\" rulelist=\"%s\" &", ARG_PATH},
}};
