// Status values over a load: the server may start again alone, and what others wrote of the state
// of the gateway is still so then. They wait in this process from the load to the end of
// update_from_nvram, because rows of arrays come back there.
#include "status.h"

#include <cstddef>

#include "ams_print.h"
#include "tree.h"

namespace {

struct Status {
  std::string key, value;
};

/* The server's; under the store's write lock. */
std::vector<Status> taken_values;
bool loaded; /* they were taken by a load, which is not laid over yet */

/* A look at one byte: all rows of the tree are asked. */
bool HasStatus(const MDB_val &data) {
  constexpr size_t flags = offsetof(RecordHead, flags);
  return data.mv_size > flags && (static_cast<uint8_t *>(data.mv_data)[flags] & RECORD_STATUS) != 0;
}

}  // namespace

int StatusTake(MDB_txn *txn) {
  TreeCursor cursor;
  MDB_val key, data;
  Record row;
  taken_values.clear();
  loaded = true;
  if (TreeOpenCursor(txn, &cursor) != 0) return -1;
  int rc = mdb_cursor_get(cursor.get(), &key, &data, MDB_FIRST);
  for (; rc == 0 && static_cast<uint8_t *>(key.mv_data)[0] < KEY_FORMAT;
       rc = mdb_cursor_get(cursor.get(), &key, &data, MDB_NEXT))
    if (HasStatus(data) && RecordParse(data, &row) == 0)
      taken_values.push_back(
          {{static_cast<char *>(key.mv_data), key.mv_size}, {row.value, row.length}});
  return rc == 0 || rc == MDB_NOTFOUND ? 0 : TreeFailed("reading", rc);
}

int StatusTakeUnlessLoaded(MDB_txn *txn) { return loaded ? 0 : StatusTake(txn); }

int StatusLay(MDB_txn *txn) {
  std::vector<Status> taken;
  size_t full = 0;
  loaded = false;
  taken.swap(taken_values);
  for (const Status &status : taken) {
    Key key = {};
    (void)KeyAppend(&key, status.key.data(), status.key.size()); /* it was a key */
    key.last = status.key.rfind(static_cast<char>(KEY_LEAF));
    int result = TreeSetLeaf(txn, key, status.value, SET_READONLY | SET_STATUS | SET_IF_ROOM);
    if (result == -1) return -1;
    if (result == LEAF_FULL) ++full;
  }
  if (full != 0)
    AMS_PRINT(4, "store: %zu status values passed over: no room beside the tree that is replaced\n",
              full);
  return 0;
}
