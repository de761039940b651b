// Routing: requests go to the module that serves their node and come back as acknowledgements; what
// is above several modules becomes a request to each of them.
#pragma once

#include <cstdint>

/* Message handlers: a client's request, one that is only to be checked, its question whom dbmgr
   waits for, a module's acknowledgement, its early word that a node has no usable type, and the end
   of a module. */
void RouteRequest(int32_t id, const void *data, uint32_t length);
void RouteCheck(int32_t id, const void *data, uint32_t length);
void RouteWaits(int32_t id, const void *data, uint32_t length);
void RouteAcknowledgement(int32_t id, const void *data, uint32_t length);
void RouteNoObject(int32_t id, const void *data, uint32_t length);
void RoutePeerGone(int32_t id, const void *data, uint32_t length);
