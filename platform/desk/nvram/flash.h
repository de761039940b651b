// The settings on flash: a file for each area, to which commits are added, and which is written
// anew when it is much longer than the settings are. All of it is checked before anything of it is
// used. The callers see to it, with the working copy's write transaction, and with FlashLock before
// there is one, that one thread of one process at a time is in here. The working copy in shared
// memory: nvram_desk.cpp.
#pragma once

#include <string>

#include "flash_form.h"

/* Waits until flash is this thread's alone, until FlashUnlock or the end of the process; -1
   with errno: there is no folder for it. */
int FlashLock();
void FlashUnlock(int lock);

/* The settings of an area's last commit, and how its file ends. Damaged files are kept aside, and
   one line of the log tells what is used instead and what is lost. 0, or an errno when it cannot be
   told whether they are damaged, for want of memory or descriptors. */
int FlashLoad(int area, std::string *settings, FlashEnd *end);

/* Adds the changes of a commit to a file that ends at `end`, in one step for a power cut;
   `settings` is what all settings take with them. 0, also when there are none: `end` is how it ends
   now. -1 (logged): the last commit stands. FLASH_ANEW: the file does not end there, or is too
   long and there is room for another: it is to be written anew first. When flash is full, gives up
   the damaged files that are kept, then the copy.
 */
enum { FLASH_ANEW = 1 };
int FlashAdd(int area, const std::string &changes, size_t settings, FlashEnd *end);

/* Takes back what FlashAdd did to a file that ended at `before`. */
void FlashUndo(int area, const FlashEnd &before);

/* Writes a file, and its copy, anew, with the settings of the last commit. 0, or -1 (logged): the
   file is as it was. When flash is full, as FlashAdd. */
int FlashStore(int area, const std::string &settings, FlashEnd *end);
