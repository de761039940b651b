// Opening LMDB environments the way the desk's stores need them: private folder, closed on exec,
// slots of dead readers given back. What is kept in an environment is its owner's business.
#pragma once

#include <lmdb.h>
#include <sys/types.h>

#include <cstddef>
#include <string>

struct LmdbPlace {
  const char *folder;  // made with mode 0700; refused when it belongs to somebody else
  size_t map_size;     // most bytes the environment may take
  unsigned flags;      // of mdb_env_open; MDB_NOTLS is always added
};

/* Where an environment with MDB_WRITEMAP stands, in pages (lmdb_room.cpp). */
struct LmdbPages {
  int file;          // -1: the library writes the file itself and finds out when it is full
  size_t size, map;  // bytes of a page; pages of the whole map
  size_t allocated;  // from the file's start, as far as this process knows
  size_t base;       // used before the open write
  size_t taken;      // at most, by the open write
  size_t large;      // of these, of values with pages of their own
  size_t peak;       // pages of the tree when they were counted last, in the open write
};

struct LmdbEnv {
  MDB_env *env;
  MDB_dbi dbi;              // the one database that each environment has
  mutable LmdbPages pages;  // under the environment's own lock for writing
};

/* Makes the place's folder when it is not there. 0 or an errno. */
int LmdbMakeFolder(const LmdbPlace &place);

/* Opens the environment; with `create`, makes it when it is not there. 0, an errno or an LMDB
   error (ENOENT: not there); logs nothing. A process opens a place once. */
int LmdbOpen(const LmdbPlace &place, bool create, LmdbEnv *opened);
void LmdbClose(LmdbEnv *opened);

/* Removes the files of a place. Processes that have them open go on with what they have. */
void LmdbRemove(const LmdbPlace &place);

/* mdb_txn_begin that gives back the slots of dead readers when there is none left. A write has room
   for some 100 small changes of a map; larger ones ask for it with LmdbRoom. */
int LmdbBegin(const LmdbEnv &opened, unsigned flags, MDB_txn **txn);

/* When there is no room: a reader that goes on finds the pages that it reads, so those of all later
   writes are kept for it, for ever when its process is stopped. Takes back the slots of the dead,
   and ends one process that is stopped when that gives pages back. Returns its number, or 0: there
   is none. */
pid_t LmdbEndStopped(const LmdbEnv &opened);

/* What LmdbOpen and LmdbBegin do about room. */
void LmdbRoomOpen(LmdbEnv *opened, const LmdbPlace &place);
int LmdbRoomBegin(const LmdbEnv &opened);

/* Before a change of at most `bytes` to an environment with MDB_WRITEMAP: takes the memory for it,
   since whoever touches a page of a full file system is killed. 0; ENOSPC or another errno: give
   the write up. */
int LmdbRoom(const LmdbEnv &opened, MDB_txn *txn, size_t bytes);

/* The free pages of the last commit that the commits from `first` to before `end` have freed. 0 or
   an error. */
int LmdbFreePages(const LmdbEnv &opened, size_t first, size_t end, size_t *count);

/* Whether a change that makes more of the data may be made: near the end of the map a reserve is
   left to deletes and to the values that are there. 0, MDB_MAP_FULL or another error. */
int LmdbMayGrow(const LmdbEnv &opened, MDB_txn *txn);

/* Reads a place that may be damaged from end to end, in a process of its own: damage may well kill
   it. Sound: all of it can be read and `key` has `value`. Unknown: it could not be looked at, or
   the look was cut off, which says nothing about the place. */
enum LmdbState { LMDB_SOUND, LMDB_DAMAGED, LMDB_UNKNOWN };
LmdbState LmdbCheck(const LmdbPlace &place, const char *key, const char *value);

/* Who has the place open and what to do about it, for people; empty: nobody. Says so when that
   cannot be told: the place may be in use. Not for a place that this process has open: its own hold
   would be lost. */
std::string LmdbUser(const LmdbPlace &place);

inline MDB_val LmdbVal(const void *data, size_t size) {
  return MDB_val{size, const_cast<void *>(data)};
}
