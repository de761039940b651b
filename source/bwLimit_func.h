// Rate limits, per port and per IP address.
#pragma once

#include "op_rows.h"

extern const Script kRateLimit, kRateLimitPerPort, kRateLimitPerIp;
