// Rate limits. The script reads the data model itself: it gets the action and the rule's path.
#include "bwLimit_func.h"

#define BW_LIMIT "/usr/syscfg/bw_limit.sh "

const Script kRateLimit = {{
    {ON_INIT, "mkdir -p /var/.bw_limit"},
    {ON_INIT,
     BW_LIMIT "action=\"init\" rulelist=\"InternetGatewayDevice.Services.X_KVO_RateLimit\" &"},
}};

const Script kRateLimitPerPort = {
    {{ON_SET, BW_LIMIT "action=\"set\" rulelist=\"%s\" &", ARG_PATH}}};

const Script kRateLimitPerIp = {{
    {ON_ADD, BW_LIMIT "action=\"add\" rulelist=\"%s\" &", ARG_PATH},
    {ON_DEL, BW_LIMIT "action=\"del\" rulelist=\"%s\" &", ARG_PATH},
}};
