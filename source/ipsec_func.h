// IPsec: the accelerator, tunnels, certificates, and the watch over the tunnels' peers. All on the
// thread of "sysmgr:capabinfo".
#pragma once

#include "op_rows.h"

int FuncServIPSec(OpFuncArg *arg);
int FuncServIPSecTunnelList(OpFuncArg *arg);
extern const Script kIpsecCertificates, kIpsecCaCertificates;

/* Handler of the module's poll timer: applies each tunnel anew that is down and whose peer, given
   by host name, has another address than the one in use; then starts the timer again. */
void IpsecPollTunnels(int32_t id, const void *data, uint32_t len);
