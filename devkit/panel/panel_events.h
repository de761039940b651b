// What happens, for the pages that look on: the last events, each with its number. A page that
// comes back says which it had last; one that is slower than the events misses some and is told how
// many. Any thread.
#pragma once

#include <memory>
#include <string>

#include "control.h"

constexpr size_t kEventsKept = 1000;             /* events */
constexpr size_t kEventsBytes = 2 * 1024 * 1024; /* of all that are kept */
constexpr size_t kEventReaders = 8;              /* pages at a time */

/* The event is an object with a "kind". */
void EventAdd(const Json &event);

/* One page's place in the events; it is free for another when the last owner lets go. */
struct EventReader;

/* `after`: the number that the page had last, "" for all that is kept. Null: too many read. */
std::shared_ptr<EventReader> EventsRead(const std::string &after);

/* Waits for events behind the reader's place, 10 s at most, and gives them as a stream of events is
   written; in vain a remark, which shows whether somebody still reads. */
std::string EventsNext(EventReader *reader);

/* Whether any page looks on: what costs something is not made for nobody. */
bool EventsWanted();
