// IPsec: the poll of the tunnels' peers.
#pragma once

#include "ams_common_api.h"

/* Handler of the module's poll timer: applies each tunnel anew that is down and whose peer, given
   by host name, has another address than the one in use; then starts the timer again. */
void IpsecPollTunnels(int32_t id, const void *data, uint32_t len);
