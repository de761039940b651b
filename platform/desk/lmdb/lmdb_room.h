// Room for the writes of an environment with MDB_WRITEMAP: whoever touches a page of a full file
// system is killed, so its memory is taken before.
#pragma once

#include <lmdb.h>

#include <cstddef>

struct LmdbEnv;
struct LmdbPlace;

/* Where an environment with MDB_WRITEMAP stands, in pages. */
struct LmdbPages {
  int file;          // -1: the library writes the file itself and finds out when it is full
  size_t size, map;  // bytes of a page; pages of the whole map
  size_t allocated;  // from the file's start, as far as this process knows
  size_t base;       // used before the open write
  size_t taken;      // at most, by the open write
  size_t large;      // of these, of values with pages of their own
  size_t peak;       // pages of the tree when they were counted last, in the open write
};

/* The pages that a value of so many bytes has of its own, at most; 0: it stands beside others. */
size_t LmdbOwnPages(const LmdbPages &pages, size_t bytes);

/* What LmdbOpen and LmdbBegin do about room. */
void LmdbRoomOpen(LmdbEnv *opened, const LmdbPlace &place);
int LmdbRoomBegin(const LmdbEnv &opened);

/* Before a change of at most `bytes`: takes the memory for it. 0; ENOSPC or another errno: give the
   write up. */
int LmdbRoom(const LmdbEnv &opened, MDB_txn *txn, size_t bytes);

/* The free pages of the last commit that the commits from `first` to before `end` have freed. 0 or
   an error. */
int LmdbFreePages(const LmdbEnv &opened, size_t first, size_t end, size_t *count);

/* Whether a change that makes more of the data may be made: near the end of the map a reserve is
   left to deletes and to the values that are there. 0, MDB_MAP_FULL or another error. */
int LmdbMayGrow(const LmdbEnv &opened, MDB_txn *txn);
