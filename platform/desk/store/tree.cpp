// Reading and writing rows; see tree.h. What they mean to the store's users is elsewhere.
#include "tree.h"

#include <memory>

#include "ams_print.h"
#include "changes.h"
#include "room.h"

int TreeGet(MDB_txn *txn, const Key &key, MDB_val *data) {
  MDB_val wanted = KeyVal(key);
  int rc = mdb_get(txn, shared_tree.lmdb.dbi, &wanted, data);
  if (rc == 0) return 0;
  return rc == MDB_NOTFOUND ? -1 : TreeFailed("reading", rc);
}

int TreeFind(MDB_txn *txn, const Key &key, Record *record) {
  MDB_val data;
  return TreeGet(txn, key, &data) == 0 ? RecordParse(data, record) : -1;
}

int TreeKey(const char *path, uint8_t last_separator, Key *key) {
  if (path == nullptr) return -1;
  int rc = KeyOfPath(path, last_separator, key);
  if (rc == KEY_TOO_LONG)
    AMS_PRINT(4, "store: path \"%.64s...\" has more than %d bytes\n", path, AMS_PATH_SIZE - 1);
  return rc == 0 ? 0 : -1;
}

namespace {

/* The node that this thread's reads have found last: of one node several things are asked in turn.
   What it points to stays as long as the tree has the same number: no write takes the pages of the
   last commit, and the environment is opened once. */
struct LastFound {
  size_t txn_id; /* of the tree that it was found in; 0: none */
  char path[AMS_PATH_SIZE];
  Key key;
  Record record;
};
thread_local LastFound last_found;

void KeepFound(size_t txn_id, const char *path, const Key &key, const Record &record) {
  const size_t size = strlen(path) + 1;
  if (size > sizeof last_found.path) return;
  last_found.txn_id = txn_id;
  memcpy(last_found.path, path, size);
  KeyCopy(key, &last_found.key);
  last_found.record = record;
}

int LookUp(MDB_txn *txn, const char *path, bool log, Key *key, Record *record) {
  int rc = log ? TreeKey(path, KEY_NODE, key) : KeyOfPath(path, KEY_NODE, key);
  if (rc != 0) return -1;
  if (TreeFind(txn, *key, record) == 0) return 0;
  if (key->last == 0) return -1;
  key->bytes[key->last] = KEY_LEAF;
  return TreeFind(txn, *key, record);
}

}  // namespace

int TreeFindPath(MDB_txn *txn, const char *path, bool log, Key *key, Record *record) {
  if (path == nullptr) return -1;
  const size_t txn_id = TreeReadId(txn);
  if (txn_id != 0 && last_found.txn_id == txn_id && strcmp(last_found.path, path) == 0) {
    KeyCopy(last_found.key, key);
    *record = last_found.record;
    return 0;
  }
  if (LookUp(txn, path, log, key, record) != 0) return -1;
  if (txn_id != 0) KeepFound(txn_id, path, *key, *record);
  return 0;
}

bool TreeFoundAbove(MDB_txn *txn, const Key &key) {
  const Key &above = last_found.key;
  const size_t txn_id = TreeReadId(txn);
  return txn_id != 0 && last_found.txn_id == txn_id && above.length == key.last &&
         memcmp(above.bytes, key.bytes, key.last) == 0;
}

int TreeSeek(MDB_cursor *cursor, const Key &from, const Key &top, MDB_val *key, MDB_val *data) {
  *key = KeyVal(from);
  int rc = mdb_cursor_get(cursor, key, data, MDB_SET_RANGE);
  if (rc != 0 && rc != MDB_NOTFOUND) return TreeFailed("reading", rc);
  return rc == 0 && KeyBelow(*key, top.bytes, top.length) ? 0 : -1;
}

int TreePut(MDB_txn *txn, const Key &key, const void *data, size_t size) {
  MDB_val row = KeyVal(key), value = LmdbVal(data, size);
  if (TreeRoom(txn, size) != 0) return -1;
  int rc = mdb_put(txn, shared_tree.lmdb.dbi, &row, &value, 0);
  return rc == 0 ? 0 : TreeFailed("writing", rc);
}

int TreeDelete(MDB_txn *txn, const Key &key) {
  MDB_val row = KeyVal(key);
  if (TreeRoom(txn, 0) != 0) return -1;
  int rc = mdb_del(txn, shared_tree.lmdb.dbi, &row, nullptr);
  return rc == 0 || rc == MDB_NOTFOUND ? 0 : TreeFailed("writing", rc);
}

namespace {

/* Calls `put(data)` with the bytes of a record that has another value. A short one's are on the
   stack, of which each thread that writes would else keep as much as for the longest. */
template <class Put>
int PutBuilt(const Record &record, std::string_view value, Put put) {
  uint8_t few[1024];
  std::unique_ptr<uint8_t[]> many;
  const size_t size = RecordSize(record.head, value.size());
  if (size > kRecordMax) return TreeFailed("writing", MDB_BAD_VALSIZE);
  if (size > sizeof few) many.reset(new uint8_t[size]);
  uint8_t *bytes = many == nullptr ? few : many.get();
  RecordWrite(record.head, record.order, value, bytes);
  return put(LmdbVal(bytes, size));
}

}  // namespace

int TreePutRecord(MDB_txn *txn, const Key &key, const Record &record, std::string_view value) {
  return PutBuilt(record, value, [&](const MDB_val &data) {
    return TreePut(txn, key, data.mv_data, data.mv_size);
  });
}

namespace {

/* Replaces the value of the leaf that the cursor stands on. */
int ReplaceValue(MDB_cursor *cursor, const Key &key, const Record &leaf, std::string_view value) {
  return PutBuilt(leaf, value, [&](MDB_val data) {
    MDB_val row = KeyVal(key);
    int rc = mdb_cursor_put(cursor, &row, &data, MDB_CURRENT);
    return rc == 0 ? 0 : TreeFailed("writing", rc);
  });
}

int RoomForValue(MDB_txn *txn, size_t size, size_t before, unsigned how) {
  int rc = size > before ? TreeMayGrow(txn, size, (how & SET_AGAIN) != 0) : 0;
  if (rc == 0) rc = LmdbRoom(shared_tree.lmdb, txn, size);
  if (rc == 0) return 0;
  return (how & SET_IF_ROOM) != 0 ? LEAF_FULL : TreeFailed("writing", rc);
}

int SetAt(MDB_txn *txn, MDB_cursor *cursor, const Key &key, std::string_view value, unsigned how) {
  MDB_val row = KeyVal(key), data;
  Record leaf;
  int rc = mdb_cursor_get(cursor, &row, &data, MDB_SET);
  if (rc != 0 && rc != MDB_NOTFOUND) return TreeFailed("reading", rc);
  if (rc != 0 || RecordParse(data, &leaf) != 0) return LEAF_NONE;
  if ((how & SET_READONLY) == 0 && (leaf.head.flags & RECORD_READONLY) != 0) return LEAF_READONLY;
  bool same = value == std::string_view(leaf.value, leaf.length), status = (how & SET_STATUS) != 0;
  bool same_kind = status == ((leaf.head.flags & RECORD_STATUS) != 0);
  if (same && (same_kind || (status && (how & SET_AGAIN) == 0))) return 0;
  leaf.head.flags &= static_cast<uint8_t>(~RECORD_STATUS);
  if (status) leaf.head.flags |= RECORD_STATUS;
  int room = RoomForValue(txn, value.size(), leaf.length, how);
  if (room != 0) return room;
  const bool report = !same && (how & SET_REPORT) != 0 && (leaf.head.flags & RECORD_NOTIFY) != 0;
  const std::string before = report ? std::string(leaf.value, leaf.length) : std::string();
  if (ReplaceValue(cursor, key, leaf, value) != 0) return -1;
  return report ? ChangeNote(txn, key, before) : 0;
}

}  // namespace

int TreeSetLeaf(MDB_txn *txn, const Key &key, std::string_view value, unsigned how) {
  TreeCursor cursor;
  if (key.last == 0 || key.bytes[key.last] != KEY_LEAF) return LEAF_NONE;
  if (TreeOpenCursor(txn, &cursor) != 0) return -1;
  int result = SetAt(txn, cursor.get(), key, value, how);
  return result;
}
