// Transactions and rows of the stored tree. What the rows mean to the store's users is elsewhere.
#include "tree.h"

#include "ams_print.h"
#include "lmdb_readers.h"

AmsTree gTree;

const char *const kKindNames[KIND_COUNT] = {"object",      "array",   "string",  "int",
                                            "unsignedInt", "boolean", "dateTime"};

namespace {

thread_local ThreadTxns tTxns;

constexpr size_t kRecordMax = sizeof(RecordHead) + KEY_MAX * 2 + AMS_VALUE_MAX;

/* Writes a record's bytes with another value. Returns their number, 0: there is no room. */
size_t RecordBuild(const Record &record, std::string_view value, uint8_t bytes[kRecordMax]) {
  size_t front = sizeof record.head + record.head.order_length;
  if (front + value.size() > kRecordMax) return 0;
  memcpy(bytes, &record.head, sizeof record.head);
  memcpy(bytes + sizeof record.head, record.order, record.head.order_length);
  if (!value.empty()) memcpy(bytes + front, value.data(), value.size());
  return front + value.size();
}

/* Gives a thread's transactions back when it ends. */
struct ThreadEnd {
  ~ThreadEnd() {
    if (tTxns.span != nullptr) mdb_txn_abort(tTxns.span);
    if (tTxns.cursor != nullptr) mdb_cursor_close(tTxns.cursor);
    if (tTxns.read != nullptr) mdb_txn_abort(tTxns.read);
    delete tTxns.kept;
    tTxns = ThreadTxns{};
  }
};

void HookThreadEnd() {
  thread_local ThreadEnd end;
  (void)end; /* made here on first use; its end is what counts */
}

}  // namespace

ArrayCounts RecordCounts(const Record &record) {
  ArrayCounts counts = {};
  if (record.length == sizeof counts) memcpy(&counts, record.value, sizeof counts);
  return counts;
}

ThreadTxns *TreeThread() { return &tTxns; }

namespace {

/* The thread's first read, or one inside its writes. */
int OtherReadBegin(ThreadTxns *mine, MDB_txn **txn) {
  if (mine->span != nullptr) {
    *txn = mine->span;
    return mine->failed ? -1 : 0; /* logged when the span went wrong */
  }
  if (gTree.lmdb.env == nullptr) {
    AMS_PRINT(4, "store: not attached; start with ShmPoolCliInit or ShmPoolSrvInit\n");
    return -1;
  }
  HookThreadEnd();
  int rc = LmdbBegin(gTree.lmdb, MDB_RDONLY, txn);
  if (rc != 0) return TreeFailed("reading", rc);
  mine->read = *txn;
  return 0;
}

}  // namespace

int TreeReadBegin(MDB_txn **txn) {
  ThreadTxns *mine = &tTxns;
  if (mine->span != nullptr || mine->read == nullptr) return OtherReadBegin(mine, txn);
  int rc = mdb_txn_renew(*txn = mine->read);
  return rc == 0 ? 0 : TreeFailed("reading", rc);
}

void TreeReadEnd(MDB_txn *txn) {
  if (txn == tTxns.read) mdb_txn_reset(txn);
}

int TreeCursor(MDB_txn *txn, MDB_cursor **cursor) {
  ThreadTxns &mine = tTxns;
  int rc = 0;
  bool keep = txn == mine.read && !mine.cursor_lent;
  if (keep && mine.cursor != nullptr)
    rc = mdb_cursor_renew(txn, *cursor = mine.cursor);
  else
    rc = mdb_cursor_open(txn, gTree.lmdb.dbi, cursor);
  if (rc != 0) return TreeFailed("reading", rc);
  if (keep) {
    mine.cursor = *cursor;
    mine.cursor_lent = true;
  }
  return 0;
}

void TreeCursorEnd(MDB_cursor *cursor) {
  if (cursor == tTxns.cursor)
    tTxns.cursor_lent = false;
  else
    mdb_cursor_close(cursor);
}

int TreeWriteBegin(MDB_txn **txn) {
  ThreadTxns &mine = tTxns;
  if (mine.in_span) {
    *txn = mine.span;
    return mine.span != nullptr && !mine.failed ? 0 : -1; /* logged when the span went wrong */
  }
  if (gTree.lmdb.env == nullptr) {
    AMS_PRINT(4, "store: not attached; start with ShmPoolCliInit or ShmPoolSrvInit\n");
    return -1;
  }
  HookThreadEnd();
  int rc = LmdbBegin(gTree.lmdb, 0, txn);
  if (rc != 0) return TreeFailed("opening a write to", rc);
  mine.span = *txn;
  mine.failed = false;
  return 0;
}

int TreeWriteEnd(MDB_txn *txn, int result) {
  ThreadTxns &mine = tTxns;
  if (mine.in_span) return result;
  std::vector<NvramChange> before;
  if (result != 0 || mine.failed || KeepApply(&before) != 0) {
    mine.span = nullptr;
    KeepNothing();
    mdb_txn_abort(txn);
    return -1;
  }
  mine.span = nullptr;
  int rc = mdb_txn_commit(txn);
  if (rc == 0) return 0;
  KeepTakeBack(before);
  return TreeFailed("committing to", rc);
}

namespace {

/* The next write then finds pages that are free. */
void EndPinningReaders() {
  (void)mdb_reader_check(gTree.lmdb.env, nullptr); /* the dead */
  for (pid_t ended; (ended = LmdbEndStopped(gTree.lmdb)) != 0;)
    AMS_PRINT(4, "store: process %d stood still inside a read and kept all old pages: ended\n",
              ended);
}

}  // namespace

int TreeFailed(const char *what, int rc) {
  tTxns.failed = true;
  if (rc == MDB_MAP_FULL) EndPinningReaders();
  const char *reason = rc == ENOSPC         ? "no memory is left below /dev/shm: free some there"
                       : rc == MDB_MAP_FULL ? "the store is full: delete something"
                                            : mdb_strerror(rc);
  AMS_PRINT(4, "store: %s the tree failed: %s\n", what, reason);
  return -1;
}

int TreeGet(MDB_txn *txn, const Key &key, MDB_val *data) {
  MDB_val wanted = KeyVal(key);
  int rc = mdb_get(txn, gTree.lmdb.dbi, &wanted, data);
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
  return rc == KEY_OK ? 0 : -1;
}

int TreeFindPath(MDB_txn *txn, const char *path, bool log, Key *key, Record *record) {
  if (path == nullptr) return -1;
  int rc = log ? TreeKey(path, KEY_NODE, key) : KeyOfPath(path, KEY_NODE, key);
  if (rc != KEY_OK) return -1;
  if (TreeFind(txn, *key, record) == 0) return 0;
  if (key->last == 0) return -1;
  key->bytes[key->last] = KEY_LEAF;
  return TreeFind(txn, *key, record);
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
  int rc = mdb_put(txn, gTree.lmdb.dbi, &row, &value, 0);
  return rc == 0 ? 0 : TreeFailed("writing", rc);
}

int TreeDelete(MDB_txn *txn, const Key &key) {
  MDB_val row = KeyVal(key);
  if (TreeRoom(txn, 0) != 0) return -1;
  int rc = mdb_del(txn, gTree.lmdb.dbi, &row, nullptr);
  return rc == 0 || rc == MDB_NOTFOUND ? 0 : TreeFailed("writing", rc);
}

int TreePutRecord(MDB_txn *txn, const Key &key, const Record &record, std::string_view value) {
  uint8_t bytes[kRecordMax];
  size_t size = RecordBuild(record, value, bytes);
  return size == 0 ? TreeFailed("writing", MDB_BAD_VALSIZE) : TreePut(txn, key, bytes, size);
}

namespace {

/* Replaces the value of the leaf that the cursor stands on. */
int ReplaceValue(MDB_cursor *cursor, const Key &key, const Record &leaf, std::string_view value) {
  uint8_t bytes[kRecordMax];
  MDB_val row = KeyVal(key), data = LmdbVal(bytes, RecordBuild(leaf, value, bytes));
  int rc = data.mv_size == 0 ? MDB_BAD_VALSIZE : mdb_cursor_put(cursor, &row, &data, MDB_CURRENT);
  return rc == 0 ? 0 : TreeFailed("writing", rc);
}

int RoomForValue(MDB_txn *txn, size_t size, size_t before, unsigned how) {
  int rc = size > before ? TreeMayGrow(txn, size, (how & SET_AGAIN) != 0) : 0;
  if (rc == 0) rc = LmdbRoom(gTree.lmdb, txn, size);
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
  if (ReplaceValue(cursor, key, leaf, value) != 0) return -1;
  if (same || (how & SET_REPORT) == 0 || (leaf.head.flags & RECORD_NOTIFY) == 0) return 0;
  return TreePut(txn, KeyMarked(KEY_CHANGED, key), "", 0);
}

}  // namespace

int TreeSetLeaf(MDB_txn *txn, const Key &key, std::string_view value, unsigned how) {
  MDB_cursor *cursor;
  if (key.last == 0 || key.bytes[key.last] != KEY_LEAF) return LEAF_NONE;
  if (TreeCursor(txn, &cursor) != 0) return -1;
  int result = SetAt(txn, cursor, key, value, how);
  TreeCursorEnd(cursor);
  return result;
}
