// The nodes of the stored tree, in the transactions of its users. Writing them: put.h.
#pragma once

#include <lmdb.h>

#include <cstdint>
#include <string_view>

#include "key.h"
#include "record.h"
#include "transaction.h"

/* 0, or -1: there is no such row (not logged; other errors are). */
int TreeGet(MDB_txn *txn, MDB_val key, MDB_val *data);
inline int TreeGet(MDB_txn *txn, const Key &key, MDB_val *data) {
  return TreeGet(txn, KeyVal(key), data);
}

/* A node; a leaf's key has its separator at `last`. 0, or -1: there is none (not logged), or it
   cannot be read. */
int TreeFind(MDB_txn *txn, const Key &key, Record *record);

/* The same; both kinds of key are tried, and `key` becomes the node's. */
int TreeFindEither(MDB_txn *txn, Key *key, Record *record);
int TreeFindPath(MDB_txn *txn, const char *path, bool log, Key *key, Record *record);

/* The key of a leaf; `object` is that of what it is in. 0 or -1: it is too long, which cannot be.
 */
int TreeLeafKey(const MDB_val &object, const Record &leaf, Key *key);

/* Reads a leaf's value if it stands apart. 0 or -1 (logged). */
int TreeValueApart(MDB_txn *txn, const MDB_val &object, Record *leaf);
inline int TreeValue(MDB_txn *txn, const MDB_val &object, Record *leaf) {
  return leaf->value != nullptr ? 0 : TreeValueApart(txn, object, leaf);
}

/* Calls `each(leaf)` for the leaves of an object, as the file has them. 0 or -1 (logged). */
template <class Each>
int TreeLeaves(MDB_txn *txn, const MDB_val &key, const Record &object, Each each) {
  Leaves leaves;
  Record leaf;
  if (RecordLeaves(object, &leaves) != 0) return TreeFailed("reading", MDB_CORRUPTED);
  while (LeavesNext(&leaves, object, &leaf) == 0) {
    if (TreeValue(txn, key, &leaf) != 0) return -1;
    each(leaf);
  }
  return leaves.left == 0 ? 0 : TreeFailed("reading", MDB_CORRUPTED);
}

/* The leaf that a key names in this object. 0, or -1: there is none (not logged), or it cannot be
   read. */
int TreeLeafIn(MDB_txn *txn, const Key &key, const Record &object, Record *leaf);

/* KeyOfPath, with a record for a path that is too long. 0 or -1. */
int TreeKey(const char *path, uint8_t last_separator, Key *key);

/* First row at or behind `from`: 0, or -1 when it is not below `top` (or there is none). */
int TreeSeek(MDB_cursor *cursor, const Key &from, const Key &top, MDB_val *key, MDB_val *data);

/* Calls `each(key, data)` with the row of each object or array in `parent`, in key order, until it
   returns false; what is below it is stepped over. 0 or -1 (logged). */
template <class Each>
int TreeChildren(MDB_txn *txn, const Key &parent, Each each) {
  TreeCursor cursor;
  MDB_val key, data;
  Key from = parent;
  if (TreeOpenCursor(txn, &cursor) != 0) return -1;
  from.bytes[from.length++] = KEY_NODE;
  while (TreeSeek(cursor.get(), from, parent, &key, &data) == 0 && key.mv_size < kKeyMax) {
    if (!each(key, data)) break;
    memcpy(from.bytes, key.mv_data, key.mv_size);
    from.bytes[key.mv_size] = KEY_END;
    from.length = key.mv_size + 1;
  }
  return 0;
}
