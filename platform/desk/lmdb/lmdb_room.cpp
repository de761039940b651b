// Room for the writes of a memory map; see lmdb_room.h. The map's file is sparse: its pages are
// allocated before a write may reach them.
//
// The library does not tell where an open write stands, so that is bounded from above: by what each
// change can take at most, or, in a long write, by the pages that its tree has by now. Pages of the
// tree are used again within a write, those of large values are not.
#include "lmdb_room.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "lmdb_env.h"

namespace {

constexpr size_t kPathPages = 24; /* from the root to a leaf, each copied or split */
constexpr size_t kStep = 256;     /* pages that are allocated together, if there are as many */
constexpr size_t kReserve = 1024; /* of the map, for deletes and for values that are there */

/* The list of free pages is written at the commit: 512 of them a page, all of it at worst. */
size_t WithFreeList(size_t pages) { return pages + pages / 512 + kPathPages; }

int Allocate(LmdbPages *pages, size_t wanted) {
  const size_t least = std::min(wanted, pages->map);
  if (least <= pages->allocated) return 0;
  for (size_t end : {std::min(least + kStep, pages->map), least}) {
    off_t from = static_cast<off_t>(pages->allocated * pages->size);
    int rc;
    do {
      rc = posix_fallocate(pages->file, from, static_cast<off_t>(end * pages->size) - from);
    } while (rc == EINTR);
    if (rc == 0) pages->allocated = end;
    if (rc != ENOSPC) return rc;
  }
  return ENOSPC;
}

/* Bounds what the open write has taken by the pages of its tree. */
void Count(const LmdbEnv &opened, MDB_txn *txn, LmdbPages *pages) {
  MDB_stat stat;
  if (mdb_stat(txn, opened.dbi, &stat) != 0) return; /* the bound stays as it is */
  pages->peak = std::max(pages->peak, stat.ms_branch_pages + stat.ms_leaf_pages);
  pages->taken = std::min(pages->taken, pages->peak + pages->large + kPathPages);
}

}  // namespace

void LmdbRoomOpen(LmdbEnv *opened, const LmdbPlace &place) {
  MDB_stat stat;
  LmdbPages &pages = opened->pages = LmdbPages{};
  pages.file = -1;
  if ((place.flags & MDB_WRITEMAP) == 0 || mdb_env_stat(opened->env, &stat) != 0) return;
  pages.size = stat.ms_psize;
  pages.map = place.map_size / pages.size;
  if (mdb_env_get_fd(opened->env, &pages.file) != 0) pages.file = -1;
}

int LmdbRoomBegin(const LmdbEnv &opened) {
  MDB_envinfo info;
  LmdbPages &pages = opened.pages;
  if (pages.file < 0) return 0;
  int rc = mdb_env_info(opened.env, &info);
  if (rc != 0) return rc;
  pages.base = info.me_last_pgno + 1;
  pages.taken = pages.large = pages.peak = 0;
  return Allocate(&pages, WithFreeList(pages.base + kStep));
}

/* A page holds two rows at least: what is longer, with its key, has pages of its own, the first
   with a head. */
size_t LmdbOwnPages(const LmdbPages &pages, size_t bytes) {
  constexpr size_t kHead = 16;
  return bytes > pages.size / 3 ? (kHead + bytes - 1) / pages.size + 1 : 0;
}

int LmdbRoom(const LmdbEnv &opened, MDB_txn *txn, size_t bytes) {
  LmdbPages &pages = opened.pages;
  if (pages.file < 0) return 0;
  const size_t own = LmdbOwnPages(pages, bytes);
  pages.large += own;
  pages.taken += kPathPages + own;
  if (bytes == 0) Count(opened, txn, &pages); /* the tree may become smaller: this was its peak */
  if (WithFreeList(pages.base + pages.taken) <= pages.allocated) return 0;
  Count(opened, txn, &pages);
  return Allocate(&pages, WithFreeList(pages.base + pages.taken));
}

int LmdbMayGrow(const LmdbEnv &opened, MDB_txn *txn) {
  LmdbPages &pages = opened.pages;
  size_t free_pages;
  if (pages.file < 0 || pages.base + pages.taken + kReserve <= pages.map) return 0;
  Count(opened, txn, &pages);
  if (pages.base + pages.taken + kReserve <= pages.map) return 0;
  int rc = LmdbFreePages(opened, 0, SIZE_MAX, &free_pages);
  if (rc != 0) return rc;
  return free_pages < pages.taken + kReserve ? MDB_MAP_FULL : 0;
}

int LmdbFreePages(const LmdbEnv &opened, size_t first, size_t end, size_t *count) {
  MDB_txn *txn = nullptr;
  MDB_cursor *cursor = nullptr;
  MDB_val key, list;
  int rc = mdb_txn_begin(opened.env, nullptr, MDB_RDONLY, &txn);
  if (rc == 0) rc = mdb_cursor_open(txn, 0, &cursor); /* the library's list of them */
  *count = 0;
  while (rc == 0 && (rc = mdb_cursor_get(cursor, &key, &list, MDB_NEXT)) == 0) {
    size_t freed_by, in_list;
    memcpy(&freed_by, key.mv_data, sizeof freed_by);
    memcpy(&in_list, list.mv_data, sizeof in_list);
    if (freed_by >= first && freed_by < end) *count += in_list;
  }
  if (cursor != nullptr) mdb_cursor_close(cursor);
  if (txn != nullptr) mdb_txn_abort(txn);
  return rc == MDB_NOTFOUND ? 0 : rc;
}
