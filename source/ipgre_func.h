// GRE tunnels.
#pragma once

#include "op_rows.h"

extern const Script kGreTunnel, kGreTunnelList;
