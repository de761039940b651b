// The client of the version manager, which checks and flashes images.
#pragma once

/* A state word of the version manager, or the result of an upgrade. */
using VersionWord = char[128];

enum { VERSION_NAME_SIZE = 128 }; /* an image's name with its NUL, as the manager takes it */

/* Has the version manager check and flash the image `name` below /tmp. 0, and "success" in
   `*result`; else -1 with "upg_failed", "fwchk_failed" or another word of failure there, logged
   when it is not the manager's own. -1 at once when either is NULL. Waits 20 s and longer; any
   thread. */
int upgradeVer(const char *name, VersionWord *result);
