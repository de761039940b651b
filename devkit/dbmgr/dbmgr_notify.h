// Watching notifications: the data-base manager asks for those that others have asked for. On the
// thread "dbmgr:dbmgt".
#pragma once

#include <cstdint>
#include <string>

/* Asks for what others have asked for meanwhile; and for no more of all of it. */
void NotifyWatch();
void NotifyWatchEnd();

/* Whether the message is one. One that was asked for and is not watched any more is not, and does
   not come again. */
bool NotifyIsWatched(uint32_t id, const char *publisher);
