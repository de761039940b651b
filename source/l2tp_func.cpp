// L2TP. The script reads the data model itself: it gets the action and the node's path. Tunnels are
// set up in the background, since they may take long to come up. Statistics are waited for: the
// script leaves them in the data model, from which the answer is read next.
#include "l2tp_func.h"

const Script kL2tp = {{
    {ON_INIT, "mkdir -p /var/.l2tp"},
    {ON_INIT, "mkdir -p /var/log"},
    {ON_INIT, "touch /tmp/.chap-secrets"},
    {ON_INIT, "touch /tmp/.pap-secrets"},
}};

const Script kL2tpLac = {{
    {ON_SET, "/usr/syscfg/l2tp_cfg.sh action=\"set\" tnllist=\"%s\" &", ARG_PATH},
    {ON_DEL, "/usr/syscfg/l2tp_cfg.sh action=\"del\" tnllist=\"%s\" &", ARG_PATH},
}};

const Script kL2tpLacStats = {
    {{ON_GET, "/usr/syscfg/l2tp_cfg.sh action=\"stats\" tnllist=\"%s\" ", ARG_PATH}}};

const Script kL2tpLacConnInfo = {
    {{ON_GET, "/usr/syscfg/l2tp_cfg.sh action=\"connInfo\" tnllist=\"%s\" ", ARG_PATH}}};

const Script kL2tpLns = {{
    {ON_INIT, "mkdir -p /var/.l2tp/lns"},
    {ON_INIT, "touch  /var/.l2tp/lns/user_db"},
    /* The client's call: the path tells the script which of the two changed. */
    {ON_SET, "/usr/syscfg/l2tp_cfg.sh action=\"set\" tnllist=\"%s\" &", ARG_PATH},
}};

const Script kL2tpLnsStats = {{{ON_GET, "/usr/syscfg/l2tp_cfg.sh action=\"lnsstats\" "}}};

const Script kL2tpLnsConnInfo = {{{ON_GET, "/usr/syscfg/l2tp_cfg.sh action=\"lnsconnInfo\" "}}};

const Script kL2tpUserList = {{
    {ON_ADD, "/usr/syscfg/l2tp_cfg.sh action=\"addu\" tnllist=\"%s\" &", ARG_PATH},
    {ON_DEL, "/usr/syscfg/l2tp_cfg.sh action=\"delu\" tnllist=\"%s\" &", ARG_PATH},
}};
