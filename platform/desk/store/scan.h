// A scan of all that is below a node, with one look-up: it stands right behind it, each node behind
// the one that it is in, the leaves of an object first.
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

/* `above`: the length of the order of the node that it is in. */
inline NodeOrder OrderIn(const Record &record, size_t above) {
  NodeOrder order = {0, record.head.order_length};
  if (order.length == above + 2) { /* all but an instance's: most of what a reader goes over */
    order.place = static_cast<uint32_t>(record.order[above] << 8 | record.order[above + 1]);
    return order;
  }
  for (size_t at = above; at < order.length; ++at)
    order.place = order.place << 8 | record.order[at];
  return order;
}

/* The leaves right behind a node. */
inline int LeavesBehind(const Record &node) {
  return node.head.kind == KIND_OBJECT ? RecordChildren(node).leaves : 0;
}

/* Calls `each(key, record, order)` for the nodes below `top`, of which the leaves may be left out;
   key and record are good as long as what they point to (record.h). 0, or -1: there is no such node
   (not logged), or it cannot be read. */
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
  size_t above[AMS_PATH_SIZE] = {record.head.order_length}; /* bytes of the orders on the way */
  size_t depth = 0;
  int pass = leaves ? 0 : LeavesBehind(record); /* rows that need not be looked at */
  while ((rc = mdb_cursor_get(cursor.get(), &key, &data, MDB_NEXT)) == 0) {
    FetchAhead(key.mv_data);
    if (pass > 0) {
      --pass;
      continue;
    }
    if (!KeyBelow(key, top.bytes, top.length)) return 0;
    if (RecordParse(data, &record) != 0 || record.head.order_length <= above[0])
      return TreeFailed("reading", MDB_CORRUPTED);
    while (above[depth] >= record.head.order_length) --depth;
    each(key, record, OrderIn(record, above[depth]));
    if (RecordIsLeaf(record)) continue;
    if (depth + 1 < std::size(above)) above[++depth] = record.head.order_length;
    if (!leaves) pass = LeavesBehind(record);
  }
  return rc == MDB_NOTFOUND ? 0 : TreeFailed("reading", rc);
}

/* Appends the numbers of nodes, which stand as a scan found them, in the file's order. */
void FileOrder(const std::vector<NodeOrder> &nodes, std::vector<uint32_t> *order);
