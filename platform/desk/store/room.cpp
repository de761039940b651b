// Whether the tree may become larger, and the memory for that; see room.h. How the library takes
// pages: lmdb_room.cpp.
#include "room.h"

#include "tree.h"

namespace {

constexpr size_t kCommit = 256; /* pages at most: the list of the map's pages, and the way to it */
constexpr size_t kReserve = 1024; /* of LmdbMayGrow */

/* Counts the pieces of `length` pages in a list of free pages, up to `most`. The list is their
   number and then the pages, the highest first. */
size_t PiecesIn(const MDB_val &list, size_t length, size_t most) {
  const char *words = static_cast<char *>(list.mv_data);
  size_t pieces = 0, run = 0, page, before = 0;
  for (size_t at = sizeof page; at + sizeof page <= list.mv_size && pieces < most;
       at += sizeof page, before = page) {
    memcpy(&page, words + at, sizeof page);
    run = run != 0 && page + 1 == before ? run + 1 : 1;
    if (run != length) continue;
    ++pieces;
    run = 0;
  }
  return pieces;
}

/* Whether `wanted` pieces of `length` pages are in the free pages that the open write may take. 0,
   MDB_MAP_FULL or another error. */
int HasPieces(size_t open_txn, size_t length, size_t wanted) {
  constexpr size_t kLists = 50; /* after so many a page the library gives up its search */
  MDB_txn *txn = nullptr;
  MDB_cursor *cursor = nullptr;
  MDB_val key, list;
  int rc = LmdbBegin(shared_tree.lmdb, MDB_RDONLY, &txn);
  if (rc == 0) rc = mdb_cursor_open(txn, 0, &cursor); /* the library's lists, by transaction */
  size_t pieces = 0, freed_by = 0;
  for (size_t lists = 0; rc == 0 && lists < kLists * length && pieces < wanted; ++lists) {
    if ((rc = mdb_cursor_get(cursor, &key, &list, MDB_NEXT)) != 0) break;
    memcpy(&freed_by, key.mv_data, sizeof freed_by);
    if (freed_by + 1 >= open_txn) break; /* the last commit's are for the next write */
    pieces += PiecesIn(list, length, wanted - pieces);
  }
  if (cursor != nullptr) mdb_cursor_close(cursor);
  if (txn != nullptr) mdb_txn_abort(txn);
  if (rc == MDB_NOTFOUND) rc = 0;
  return rc == 0 && pieces < wanted ? MDB_MAP_FULL : rc;
}

/* A large value that finds no free piece has one from the map's end. A store that grows leaves that
   to what cannot do without; and a write in which the end is reached is lost as a whole. */
int RoomForLarge(MDB_txn *txn, size_t bytes) {
  const LmdbPages &pages = shared_tree.lmdb.pages;
  const size_t piece = LmdbOwnPages(pages, bytes); /* its pages must stand side by side */
  if (piece == 0 || pages.base + pages.taken + kReserve <= pages.map) return 0;
  return HasPieces(mdb_txn_id(txn), piece, pages.taken / piece + 2);
}

}  // namespace

int TreeRoom(MDB_txn *txn, size_t bytes) {
  int rc = LmdbRoom(shared_tree.lmdb, txn, bytes);
  return rc == 0 ? 0 : TreeFailed("writing", rc);
}

int TreeMayGrow(MDB_txn *txn, size_t bytes, bool again) {
  int rc = LmdbMayGrow(shared_tree.lmdb, txn);
  if (rc == 0) rc = RoomForLarge(txn, bytes);
  const LmdbPages &pages = shared_tree.lmdb.pages;
  bool fits = pages.base + pages.taken + bytes / pages.size + kCommit <= pages.map;
  return rc == MDB_MAP_FULL && again && fits ? 0 : rc;
}
