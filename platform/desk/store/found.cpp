// The order of rows that a scan has found; see found.h.
#include "found.h"

#include <endian.h>

#include <algorithm>
#include <cstring>

#include "tree.h"

void TreeSort(std::vector<Found> *found, size_t skip) {
  bool sorted = true;
  for (size_t at = 0; at < found->size(); ++at) {
    Found &one = (*found)[at];
    size_t length = one.record.head.order_length;
    const uint8_t *order = one.record.order + std::min(skip, length);
    length -= std::min(skip, length);
    uint8_t first[sizeof one.rank] = {};
    memcpy(first, order, std::min(length, sizeof first));
    memcpy(&one.rank, first, sizeof first);
    one.rank = be64toh(one.rank);
    sorted = sorted && (at == 0 || ((*found)[at - 1].rank < one.rank));
  }
  if (sorted) return;
  std::sort(found->begin(), found->end(), [](const Found &left, const Found &right) {
    if (left.rank != right.rank) return left.rank < right.rank;
    size_t common = std::min(left.record.head.order_length, right.record.head.order_length);
    int order = memcmp(left.record.order, right.record.order, common);
    return order != 0 ? order < 0 : left.record.head.order_length < right.record.head.order_length;
  });
}

int TreeGather(MDB_txn *txn, const Key &top, TreeKinds kinds, std::vector<Found> *found) {
  MDB_cursor *cursor;
  MDB_val key = KeyVal(top), data;
  Record record;
  if (TreeCursor(txn, &cursor) != 0) return -1;
  int rc = mdb_cursor_get(cursor, &key, &data, MDB_SET);
  int result = rc == 0 ? RecordParse(data, &record) : -1;
  size_t skip = result == 0 ? record.head.order_length : 0;
  while (result == 0 && (rc = mdb_cursor_get(cursor, &key, &data, MDB_NEXT)) == 0 &&
         KeyBelow(key, top.bytes, top.length)) {
    Found one = {0, static_cast<uint8_t *>(key.mv_data), key.mv_size, {}};
    if (RecordParse(data, &one.record) == 0 &&
        (kinds == TREE_NODES || RecordIsLeaf(one.record) == (kinds == TREE_LEAVES)))
      found->push_back(one);
  }
  TreeCursorEnd(cursor);
  if (rc != 0 && rc != MDB_NOTFOUND) return TreeFailed("reading", rc);
  TreeSort(found, skip);
  return result;
}
