// The rows of the stored tree, in the transactions of its users.
#pragma once

#include <lmdb.h>

#include <cstdint>
#include <string_view>

#include "key.h"
#include "record.h"
#include "transaction.h"

/* 0, or -1: there is no such row (not logged; other errors are). */
int TreeGet(MDB_txn *txn, const Key &key, MDB_val *data);
int TreeFind(MDB_txn *txn, const Key &key, Record *record);

/* Both kinds of key are tried. `log` says whether a path that is too long is recorded. */
int TreeFindPath(MDB_txn *txn, const char *path, bool log, Key *key, Record *record);

/* Whether this thread's reads have found last, with TreeFindPath, what the node is in. */
bool TreeFoundAbove(MDB_txn *txn, const Key &key);

/* KeyOfPath, with a record for a path that is too long. 0 or -1. */
int TreeKey(const char *path, uint8_t last_separator, Key *key);

int TreePut(MDB_txn *txn, const Key &key, const void *data, size_t size); /* 0 or -1, logged */
int TreeDelete(MDB_txn *txn, const Key &key); /* 0 also when there is none; or -1, logged */

/* Writes a record with another head and value than `record` has, whose parts may lie in the map. 0
   or -1 (logged). */
int TreePutRecord(MDB_txn *txn, const Key &key, const Record &record, std::string_view value);

/* How a leaf is set, as bits. */
enum : unsigned {
  SET_READONLY = 1, /* also a leaf that is read-only */
  SET_REPORT = 2,   /* the change goes to the change list */
  SET_STATUS = 4,   /* the value is a status */
  SET_AGAIN = 8, /* it was there before (TreeMayGrow), and of that kind also when it is the same */
  SET_IF_ROOM = 16, /* without room the write goes on: LEAF_FULL */
};

/* A leaf's new value, with one look-up. 0, -1 (logged), or the reason why not (not logged). */
enum { LEAF_NONE = -2, LEAF_READONLY = -3, LEAF_FULL = -4 };
int TreeSetLeaf(MDB_txn *txn, const Key &key, std::string_view value, unsigned how);

/* First row at or behind `from`: 0, or -1 when it is not below `top` (or there is none). */
int TreeSeek(MDB_cursor *cursor, const Key &from, const Key &top, MDB_val *key, MDB_val *data);

/* Calls `each(key, data)` with the row of each child of `parent`, in key order, until it returns
   false; what is below a child is stepped over. 0 or -1 (logged). */
template <class Each>
int TreeChildren(MDB_txn *txn, const Key &parent, Each each) {
  TreeCursor cursor;
  MDB_val key, data;
  Key from = parent;
  if (TreeOpenCursor(txn, &cursor) != 0) return -1;
  from.bytes[from.length++] = KEY_LEAF;
  while (TreeSeek(cursor.get(), from, parent, &key, &data) == 0 && key.mv_size < kKeyMax) {
    if (!each(key, data)) break;
    memcpy(from.bytes, key.mv_data, key.mv_size);
    from.bytes[key.mv_size] = KEY_END;
    from.length = key.mv_size + 1;
  }
  return 0;
}
