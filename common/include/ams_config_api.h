// Parameters of the data model, straight from the store, for the op functions. Typed views of whole
// objects and tables are in ams_config_tree.h. Calls may come from any thread.
#pragma once

#include <cstdint>

/* Writes status value `val` to `path` (read-only parameters too). The store's result; -1 (logged at
   level 4) when either is NULL. */
int cfgStatusSetStr(const char *path, const char *val);

/* 0 when the node exists, else -1. */
int cfgNodeExists(const char *path);

/* The highest instance number of an array (with or without a "." at its end) into `max`, -1 when it
   is no array. Returns 0. */
int cfgGetArrayMaxIndex(const char *path, int32_t *max);

/* How many rows the array (its path ends in ".") has. -1 (logged at level 4) when it is no array.
 */
int cfgGetTotalInstance(const char *path);

/* ams_get_idxes into a text of any length, counted under `tag`; its result in `result`. The
   caller's, for __tds_free. NULL: no memory. */
char *cfgReadIndexes(const char *url, const char *tag, int *result);
