// Writing the rows of the stored tree, in the transactions of its users.
#pragma once

#include <lmdb.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "key.h"
#include "record.h"

int TreePut(MDB_txn *txn, const Key &key, const void *data, size_t size); /* 0 or -1, logged */
int TreeDelete(MDB_txn *txn, const Key &key); /* 0 also when there is none; or -1, logged */

/* Writes the row of an object or array with another head and body than `record` has, whose parts
   may lie in the map. 0 or -1 (logged). */
int TreePutRecord(MDB_txn *txn, const Key &key, const Record &record, std::string_view body);

/* Gives a node, also a leaf, other flags. 0 or -1 (logged). */
int TreePutFlags(MDB_txn *txn, const Key &key, uint8_t flags);

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
