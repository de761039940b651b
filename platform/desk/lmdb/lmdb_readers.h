// Readers of an environment that keep its old pages for ever.
#pragma once

#include <sys/types.h>

struct LmdbEnv;

/* When there is no room: a reader that goes on finds the pages that it reads, so those of all later
   writes are kept for it, for ever when its process is stopped. Takes back the slots of the dead,
   and ends one process that is stopped when that gives pages back. Returns its number, or 0: there
   is none. */
pid_t LmdbEndStopped(const LmdbEnv &opened);
