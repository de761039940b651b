// Status values over a load: the server may start again alone, and what others wrote of the state
// of the gateway is still so then. They wait in this process from the load to the end of
// update_from_nvram, because rows of arrays come back there.
#include "status.h"

#include "ams_print.h"
#include "put.h"
#include "scan.h"
#include "tree.h"

namespace {

struct Status {
  std::string key, value;
};

/* The server's; under the store's write lock. */
std::vector<Status> taken_values;
bool loaded; /* they were taken by a load, which is not laid over yet */

void TakeLeaf(MDB_txn *txn, const MDB_val &object, const Record &leaf) {
  Key key;
  MDB_val value = LmdbVal(leaf.value, leaf.length);
  if ((leaf.head.flags & RECORD_STATUS) == 0) return;
  if (TreeLeafKey(object, leaf, &key) != 0 ||
      (leaf.value == nullptr && TreeGet(txn, key, &value) != 0))
    return;
  taken_values.push_back({{reinterpret_cast<const char *>(key.bytes), key.length},
                          {static_cast<char *>(value.mv_data), value.mv_size}});
}

/* What is damaged is passed over: a new tree is about to take its place. */
void TakeLeaves(MDB_txn *txn, const MDB_val &key, const MDB_val &data) {
  Record object, leaf;
  Leaves leaves;
  if (KeyIsApart(key) || RecordParse(data, &object) != 0 || RecordLeaves(object, &leaves) != 0)
    return;
  while (LeavesNext(&leaves, object, &leaf) == 0) TakeLeaf(txn, key, leaf);
}

}  // namespace

int StatusTake(MDB_txn *txn) {
  TreeCursor cursor;
  MDB_val key, data;
  taken_values.clear();
  loaded = true;
  if (TreeOpenCursor(txn, &cursor) != 0) return -1;
  int rc = mdb_cursor_get(cursor.get(), &key, &data, MDB_FIRST);
  for (; rc == 0 && static_cast<uint8_t *>(key.mv_data)[0] < KEY_FORMAT;
       rc = mdb_cursor_get(cursor.get(), &key, &data, MDB_NEXT))
    TakeLeaves(txn, key, data);
  return rc == 0 || rc == MDB_NOTFOUND ? 0 : TreeFailed("reading", rc);
}

int StatusTakeUnlessLoaded(MDB_txn *txn) { return loaded ? 0 : StatusTake(txn); }

int StatusLay(MDB_txn *txn) {
  std::vector<Status> taken;
  size_t full = 0;
  loaded = false;
  taken.swap(taken_values);
  for (const Status &status : taken) {
    Key key;
    (void)KeyOfBytes(status.key.data(), status.key.size(), &key); /* it was a key */
    int result = TreeSetLeaf(txn, key, status.value, SET_READONLY | SET_STATUS | SET_IF_ROOM);
    if (result == -1) return -1;
    if (result == LEAF_FULL) ++full;
  }
  if (full != 0)
    AMS_PRINT(4, "store: %zu status values passed over: no room beside the tree that is replaced\n",
              full);
  return 0;
}
