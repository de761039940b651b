// Tunnels and the rate limit: script calls.
#pragma once

#include "ams_common_api.h"

/* Serves every name of the IPsec, GRE, L2TP, VPN-lite and rate-limit families; those of IPsec that
   do more than call scripts call it (ipsec_func.cpp). */
int FuncTunnelScripts(OpFuncArg *arg);
