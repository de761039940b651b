// What the panel sees of the gateway without asking it: which processes run, the command lines of
// the daemon, the calls of the stubs, and the lamps that these switched.
#pragma once

#include "control.h"

/* Looks four times a second, for ever, and makes events of what is new: "processes", "command",
   "call". One thread. */
[[noreturn]] void WatchForEver();

/* Each process by name, whether it runs. Any thread. */
Json WatchProcesses();

/* The lamps by name with the words that the led script was last called with. Any thread. */
Json WatchLamps();
