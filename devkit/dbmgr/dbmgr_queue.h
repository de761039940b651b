// The requests that modules have, in a queue each, of which a bounded number is in flight: no
// module is ever waited for. All of it on the thread "dbmgr:dbmgt".
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "dbmgr_request.h"

/* Sends the request to the module of its plan, or lets it wait. One that the module cannot take is
   refused. std::bad_alloc: the request is gone, its client has no answer. */
void QueuePut(RequestPtr request);

/* Takes the request out that an acknowledgement is for; NULL: nobody waits for it. */
RequestPtr QueueTake(uint32_t chain);

/* Sends what waits behind a request that its module has acknowledged. The module answers in order:
   what it got before and has not acknowledged is refused. */
void QueueAcknowledged(const Request &request);

/* Whether the endpoint is a module that requests went to. */
bool QueueServes(std::string_view endpoint);

/* Its process has ended: what it had in flight is refused. */
void QueueGone(std::string_view endpoint);

/* The modules, by name, whose requests one for `url` may wait for. */
std::string QueueWaitsFor(const std::string &url);
