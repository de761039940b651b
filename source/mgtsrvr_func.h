// ManagementServer: the FUNC table of the module "sysmgr:mgtsrvr", and its list of the WAN
// connections that carry remote management. On the module's thread.
//
// A path comes as a message's payload: NUL-terminated, `len` its length with the NUL.
#pragma once

#include "ams_common_api.h"

extern const OpFuncEntry kMgtSrvrFuncTable[];

/* What the port manager says of connections. */
enum : uint32_t { EV_WAN_ADDED = 0x100037, EV_WAN_CHANGED = 0x100038, EV_WAN_REMOVED = 0x100039 };

void MgtSrvrInit(int32_t id, const void *data, uint32_t len);

/* A connection that is added or changed is saved when it carries management; one that has changed
   and no longer does is dropped. */
void MgtSrvrWanPresent(int32_t id, const void *data, uint32_t len);
void MgtSrvrWanRemoved(int32_t id, const void *data, uint32_t len);

/* Puts the path in front of the saved list. */
void SaveNodeWANPath(const void *data, uint32_t len);

/* Takes the path's first entry out of the saved list. */
void DelNodeWANPath(const void *data, uint32_t len);
