// Opening LMDB environments the way the desk's stores need them: private folder, closed on exec,
// slots of dead readers given back. What is kept in an environment is its owner's business.
#pragma once

#include <lmdb.h>

#include <cstddef>
#include <string>

#include "lmdb_room.h"

struct LmdbPlace {
  const char *folder;  // made with mode 0700; refused when it belongs to somebody else
  size_t map_size;     // most bytes the environment may take
  unsigned flags;      // of mdb_env_open; MDB_NOTLS is always added
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

/* Copies it, as it is at one moment, into an empty folder. 0 or an errno. */
int LmdbCopy(const LmdbEnv &opened, const char *folder);

/* Removes the files of a place. Processes that have them open go on with what they have. */
void LmdbRemove(const LmdbPlace &place);

/* mdb_txn_begin that gives back the slots of dead readers when there is none left. A write has room
   for some 100 small changes of a map; larger ones ask for it with LmdbRoom. */
int LmdbBegin(const LmdbEnv &opened, unsigned flags, MDB_txn **txn);

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
