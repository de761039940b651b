// The settings on flash: for each area the last commit and the one before, each a file that is
// checked from end to end before anything of it is used. The callers see to it, with FlashLock,
// that one thread of one process at a time is in here. The working copy in shared memory:
// nvram_desk.cpp.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

constexpr size_t kNvramKeyMax = 400, kNvramValueMax = 32 * 1024;
constexpr size_t kFlashMax = 32 << 20; /* bytes of a file; a working copy has room for two */

/* An area's records are "KEY\0VALUE\0" for each setting, one after the other. Takes the first off
   `rest`; false when it is not whole or not within the limits. */
bool FlashNext(std::string_view *rest, std::string_view *key, std::string_view *value);

/* Waits until flash is this thread's alone, until FlashUnlock or the end of the process. What
   FlashUnlock takes, or -1 with errno. */
int FlashLock();
void FlashUnlock(int lock);

/* The records of the area's last commit; when that is damaged, of the commit before; else none.
   Damaged files are moved aside, and one line of the log tells what is lost. 0, or an errno when it
   cannot be told whether they are damaged, for want of memory or descriptors. */
int FlashLoad(int area, std::string *records);

/* Makes `records` the area's last commit, in one step for a power cut. 1: it is now; 0: it was
   already, nothing is written; -1 (logged): the last commit stands. When flash is full, gives up
   the damaged files that are kept, then the commit before. */
int FlashStore(int area, const std::string &records);

/* Takes back a FlashStore that returned 1: the commit before it is the last one again. */
void FlashUndo(int area);
