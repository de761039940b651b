// L2TP: the client's tunnels (LAC), the server (LNS) and its users.
#pragma once

#include "op_rows.h"

extern const Script kL2tp, kL2tpLac, kL2tpLacStats, kL2tpLacConnInfo, kL2tpLns, kL2tpLnsStats,
    kL2tpLnsConnInfo, kL2tpUserList;
