// Watching: what passes the data-base manager, noted for whoever asks (watch.h of devkit/lib), and
// for nobody else. All of it on the thread "dbmgr:dbmgt".
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "dbmgr_plan.h"

/* What a request goes through; `client` is the token of its answer that was put off. In this order:
   before it is sent to a module, which may be done with it at once, when that was not taken, and
   behind all others. Lacking memory, one that is watched is forgotten, no more. */
void WatchBegun(uint64_t client, const DbmgrRequest &asked);
void WatchPlanned(uint64_t client, const Plan &plan);
void WatchSent(uint64_t client, const std::string &module);
void WatchUnsent(uint64_t client);
void WatchAcknowledged(uint64_t client, const std::string &module);
void WatchAnswered(uint64_t client, int32_t result, std::string_view text); /* of an answer */

/* Message handlers: a watcher's question, the timers of the answers to it and of what nobody
   watches any more, and messages that have no other handler: notifications, while they are watched.
 */
void WatchAsked(int32_t id, const void *data, uint32_t length);
void WatchTell(int32_t id, const void *data, uint32_t length);
void WatchPause(int32_t id, const void *data, uint32_t length);
void WatchOther(int32_t id, const void *data, uint32_t length);
