// A scan of all that is below a node, with one look-up: it stands right behind it, each node behind
// the one that it is in, its own leaves first.
#pragma once

#include <cstdint>
#include <iterator>
#include <vector>

#include "fetch.h"
#include "tree.h"

/* Where a node stands in the file. */
struct NodeOrder {
  uint32_t place;  /* among the nodes beside it */
  uint32_t length; /* of its order, longer than that of the node that it is in */
};

inline NodeOrder OrderOfLeaf(const Record &leaf) {
  return {leaf.place, leaf.head.order_length + uint32_t{sizeof leaf.place}};
}

/* `above`: the length of the order of the node that an object or array is in. */
inline NodeOrder OrderIn(const Record &record, size_t above) {
  NodeOrder order = {0, record.head.order_length};
  for (size_t at = above; at < order.length; ++at)
    order.place = order.place << 8 | record.order[at];
  return order;
}

/* Whether a row of the tree is a leaf's value. */
inline bool KeyIsApart(const MDB_val &key) {
  return memchr(key.mv_data, KEY_LEAF, key.mv_size) != nullptr;
}

/* Calls `each(key, record, order)` for the nodes below `top`, of which the leaves may be left out;
   a leaf's key is its object's. Key and record are good as long as what they point to (record.h).
   0, or -1: there is no such node (not logged), or it cannot be read. */
template <class Each>
int TreeScan(MDB_txn *txn, const Key &top, bool leaves, Each each) {
  TreeCursor cursor;
  MDB_val key = KeyVal(top), data;
  Record record;
  if (TreeOpenCursor(txn, &cursor) != 0) return -1;
  int rc = mdb_cursor_get(cursor.get(), &key, &data, MDB_SET);
  if (rc == MDB_NOTFOUND) return -1;
  if (rc != 0 || RecordParse(data, &record) != 0)
    return TreeFailed("reading", rc != 0 ? rc : MDB_CORRUPTED);
  auto each_leaf = [&](const Record &leaf) { each(key, leaf, OrderOfLeaf(leaf)); };
  if (leaves && TreeLeaves(txn, key, record, each_leaf) != 0) return -1;
  size_t above[AMS_PATH_SIZE] = {record.head.order_length}; /* bytes of the orders on the way */
  size_t depth = 0;
  while ((rc = mdb_cursor_get(cursor.get(), &key, &data, MDB_NEXT)) == 0) {
    FetchAhead(key.mv_data, key.mv_size + data.mv_size);
    if (!KeyBelow(key, top.bytes, top.length)) return 0;
    if (KeyIsApart(key)) continue;
    if (RecordParse(data, &record) != 0 || record.head.order_length <= above[0])
      return TreeFailed("reading", MDB_CORRUPTED);
    while (above[depth] >= record.head.order_length) --depth;
    each(key, record, OrderIn(record, above[depth]));
    if (leaves && TreeLeaves(txn, key, record, each_leaf) != 0) return -1;
    if (depth + 1 < std::size(above)) above[++depth] = record.head.order_length;
  }
  return rc == MDB_NOTFOUND ? 0 : TreeFailed("reading", rc);
}

/* Appends the numbers of nodes, which stand as a scan found them, in the file's order. */
void FileOrder(const std::vector<NodeOrder> &nodes, std::vector<uint32_t> *order);
