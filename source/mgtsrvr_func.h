// The list of WAN connections that carry remote management. Module thread of "sysmgr:mgtsrvr".
//
// A path comes as a message's payload: NUL-terminated, `len` its length with the NUL.
#pragma once

#include <cstdint>

/* Whether the payload is a path as told above. */
bool WanPathFits(const void *data, uint32_t len);

/* Puts the path in front of the saved list. */
void SaveNodeWANPath(const void *data, uint32_t len);

/* Takes the path's first entry out of the saved list. */
void DelNodeWANPath(const void *data, uint32_t len);
