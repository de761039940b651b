// The requests that modules have, in a queue each, of which a bounded number is in flight: no
// module is ever waited for.
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

/* Goes on behind a request that its module has acknowledged and that was handed out: a module
   answers in order, so an acknowledgement that it could not send does not come any more. */
void QueueGoOn(const Request &acknowledged);

/* Whether requests ever went to the process; it has ended: what it had in flight is refused. */
bool QueueServes(std::string_view module);
void QueueGone(std::string_view module);

/* The modules, by name, whose requests one for `url` may wait for. */
std::string QueueWaitsFor(const std::string &url);
