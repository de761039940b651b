// VPN-lite.
#pragma once

#include "op_rows.h"

extern const Script kVpnLite, kVpnLiteRouteList, kVpnLiteStats, kVpnLiteConnInfo;
