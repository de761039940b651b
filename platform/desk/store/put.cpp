// Writing nodes and other rows; see put.h.
#include "put.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "changes.h"
#include "room.h"
#include "tree.h"

namespace {

/* Room was made for these. */
int PutRow(MDB_txn *txn, const Key &key, MDB_val data) {
  MDB_val row = KeyVal(key);
  int rc = mdb_put(txn, shared_tree.lmdb.dbi, &row, &data, 0);
  return rc == 0 ? 0 : TreeFailed("writing", rc);
}

int DeleteRow(MDB_txn *txn, const Key &key) {
  MDB_val row = KeyVal(key);
  int rc = mdb_del(txn, shared_tree.lmdb.dbi, &row, nullptr);
  return rc == 0 || rc == MDB_NOTFOUND ? 0 : TreeFailed("writing", rc);
}

}  // namespace

int TreePut(MDB_txn *txn, const Key &key, const void *data, size_t size) {
  return TreeRoom(txn, size) == 0 ? PutRow(txn, key, LmdbVal(data, size)) : -1;
}

int TreeDelete(MDB_txn *txn, const Key &key) {
  return TreeRoom(txn, 0) == 0 ? DeleteRow(txn, key) : -1;
}

namespace {

/* Room for a row that is built. A short one is on the stack, of which each thread that writes would
   else keep as much as for the longest. */
struct Built {
  explicit Built(size_t wanted) : size(wanted) {
    if (size > sizeof few) many.reset(new uint8_t[size]);
  }
  uint8_t *bytes() { return many == nullptr ? few : many.get(); }
  size_t size;
  uint8_t few[1024];
  std::unique_ptr<uint8_t[]> many;
};

/* A leaf that is to be written, in the row that the cursor stands on. */
struct Writing {
  MDB_txn *txn;
  const Key &key;
  TreeCursor cursor;
  Record object, leaf;
};

MDB_val RowOf(const Writing &writing) { return LmdbVal(writing.key.bytes, writing.key.last); }

/* 0, -1 (logged) or LEAF_NONE. */
int FindLeaf(Writing *writing) {
  MDB_val row = RowOf(*writing), data;
  if (TreeOpenCursor(writing->txn, &writing->cursor) != 0) return -1;
  int rc = mdb_cursor_get(writing->cursor.get(), &row, &data, MDB_SET);
  if (rc == 0 && RecordParse(data, &writing->object) != 0) rc = MDB_CORRUPTED;
  if (rc == MDB_NOTFOUND) return LEAF_NONE;
  if (rc != 0) return TreeFailed("reading", rc);
  if (TreeLeafIn(writing->txn, writing->key, writing->object, &writing->leaf) == 0) return 0;
  return TreeThread()->failed ? -1 : LEAF_NONE; /* logged, if it is damaged */
}

/* The pages that the row has of its own by the open write, 0 at first. */
size_t *WidePages(const MDB_val &key) {
  ThreadTxns *mine = TreeThread();
  const std::string_view text(static_cast<char *>(key.mv_data), key.mv_size);
  if (mine->wide == nullptr) mine->wide = new std::vector<WideRow>;
  for (auto row = mine->wide->rbegin(); row != mine->wide->rend(); ++row)
    if (row->key == text) return &row->pages;
  mine->wide->push_back({std::string(text), 0});
  return &mine->wide->back().pages;
}

/* Room for the row and for a value apart, when the row is to have `size` bytes. 0 or an error. */
int TakeRoom(const Writing &writing, size_t size, size_t apart) {
  const size_t pages = LmdbOwnPages(shared_tree.lmdb.pages, size);
  size_t *wide = pages != 0 ? WidePages(RowOf(writing)) : nullptr;
  const size_t row = wide != nullptr && pages <= *wide ? 1 : size;
  int rc = LmdbRoom(shared_tree.lmdb, writing.txn, row);
  if (rc == 0 && (apart != 0 || LeafIsApart(writing.leaf)))
    rc = LmdbRoom(shared_tree.lmdb, writing.txn, apart);
  if (rc == 0 && wide != nullptr) *wide = std::max(*wide, pages);
  return rc;
}

/* Writes the row anew, which has room, with other flags and another value of the leaf. */
int PutInRow(const Writing &writing, unsigned flags, std::string_view value) {
  Built built(RecordSizeWith(writing.object, writing.leaf, value));
  RecordWriteWith(writing.object, writing.leaf, static_cast<uint8_t>(flags), value, built.bytes());
  MDB_val row = RowOf(writing), data = LmdbVal(built.bytes(), built.size);
  int rc = mdb_cursor_put(writing.cursor.get(), &row, &data, MDB_CURRENT);
  return rc == 0 ? 0 : TreeFailed("writing", rc);
}

/* A value that is short again leaves its own row. */
int PutApart(const Writing &writing, std::string_view value) {
  if (value.size() > kShortValue)
    return PutRow(writing.txn, writing.key, LmdbVal(value.data(), value.size()));
  return LeafIsApart(writing.leaf) ? DeleteRow(writing.txn, writing.key) : 0;
}

int RoomForValue(const Writing &writing, std::string_view value, unsigned how) {
  const size_t row = RecordSizeWith(writing.object, writing.leaf, value);
  const size_t apart = value.size() > kShortValue ? value.size() : 0;
  int rc = 0;
  if (value.size() > writing.leaf.length)
    rc = TreeMayGrow(writing.txn, std::max(row, apart), (how & SET_AGAIN) != 0);
  if (rc == 0) rc = TakeRoom(writing, row, apart);
  if (rc == 0) return 0;
  return (how & SET_IF_ROOM) != 0 ? LEAF_FULL : TreeFailed("writing", rc);
}

int Set(const Writing &writing, std::string_view value, unsigned how) {
  const Record &leaf = writing.leaf;
  if ((how & SET_READONLY) == 0 && (leaf.head.flags & RECORD_READONLY) != 0) return LEAF_READONLY;
  bool same = value == std::string_view(leaf.value, leaf.length), status = (how & SET_STATUS) != 0;
  bool same_kind = status == ((leaf.head.flags & RECORD_STATUS) != 0);
  if (same && (same_kind || (status && (how & SET_AGAIN) == 0))) return 0;
  const unsigned flags = leaf.head.flags & ~unsigned{RECORD_STATUS};
  int room = RoomForValue(writing, value, how);
  if (room != 0) return room;
  const bool report = !same && (how & SET_REPORT) != 0 && (leaf.head.flags & RECORD_NOTIFY) != 0;
  const std::string before = report ? std::string(leaf.value, leaf.length) : std::string();
  if (PutInRow(writing, status ? flags | RECORD_STATUS : flags, value) != 0 ||
      PutApart(writing, value) != 0)
    return -1;
  return report ? ChangeNote(writing.txn, writing.key, before) : 0;
}

int PutLeafFlags(MDB_txn *txn, const Key &key, uint8_t flags) {
  Writing writing = {txn, key, {}, {}, {}};
  if (FindLeaf(&writing) != 0) return TreeFailed("writing", MDB_NOTFOUND);
  const std::string_view value(writing.leaf.value, writing.leaf.length);
  int rc = TakeRoom(writing, RecordSizeWith(writing.object, writing.leaf, value), 0);
  return rc == 0 ? PutInRow(writing, flags, value) : TreeFailed("writing", rc);
}

}  // namespace

int TreePutRecord(MDB_txn *txn, const Key &key, const Record &record, std::string_view body) {
  Built built(RecordSize(record.head, body.size()));
  RecordWrite(record.head, record.order, body, built.bytes());
  return TreePut(txn, key, built.bytes(), built.size);
}

int TreePutFlags(MDB_txn *txn, const Key &key, uint8_t flags) {
  Record record;
  if (KeyIsLeaf(key)) return PutLeafFlags(txn, key, flags);
  if (TreeFind(txn, key, &record) != 0) return TreeFailed("writing", MDB_NOTFOUND);
  record.head.flags = flags;
  return TreePutRecord(txn, key, record, {record.value, record.length});
}

int TreeSetLeaf(MDB_txn *txn, const Key &key, std::string_view value, unsigned how) {
  Writing writing = {txn, key, {}, {}, {}};
  if (!KeyIsLeaf(key)) return LEAF_NONE;
  const int result = FindLeaf(&writing);
  return result == 0 ? Set(writing, value, how) : result;
}
