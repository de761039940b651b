// A scan of all that is below a node, with one look-up: it stands right behind it, each node behind
// the one that it is in, the leaves of an object first.
#pragma once

#include <cstdint>
#include <iterator>
#include <vector>

#include "tree.h"

/* Whoever reads rows in turn has the processor fetch what the next page has at the place of this
   row's key, and its list of rows: a load wrote it right behind this page. Inlined, as compilers
   drop the calls of a function that does nothing else. */
[[gnu::always_inline]] inline void FetchAhead(const void *key) {
  constexpr size_t kPage = 4096, kLine = 64, kHead = 8; /* LMDB's, before the key */
  const char *ahead = static_cast<const char *>(key) + kPage;
  for (size_t line = 0; line < 3; ++line) __builtin_prefetch(ahead - kHead + line * kLine);
  __builtin_prefetch(ahead - reinterpret_cast<uintptr_t>(key) % kPage);
}

/* Where a node stands in the file. */
struct NodeOrder {
  uint32_t place;  /* among the nodes beside it */
  uint32_t length; /* of its order, longer than that of the node that it is in */
};

/* `above`: the length of the order of the node that it is in. */
inline NodeOrder OrderIn(const Record &record, size_t above) {
  NodeOrder order = {0, record.head.order_length};
  for (size_t at = above; at < order.length; ++at)
    order.place = order.place << 8 | record.order[at];
  return order;
}

/* The leaves right behind a node. */
inline int LeavesBehind(const Record &node) {
  return node.head.kind == KIND_OBJECT ? RecordChildren(node).leaves : 0;
}

/* Calls `each(key, record, order)` for the nodes below `top`, of which the leaves may be left out.
   0, or -1: there is no such node, or it cannot be read (logged). */
template <class Each>
int TreeScan(MDB_txn *txn, const Key &top, bool leaves, Each each) {
  TreeCursor cursor;
  MDB_val key = KeyVal(top), data;
  Record record = {};
  if (TreeOpenCursor(txn, &cursor) != 0) return -1;
  int rc = mdb_cursor_get(cursor.get(), &key, &data, MDB_SET);
  if (rc != 0) return rc == MDB_NOTFOUND ? -1 : TreeFailed("reading", rc);
  if (RecordParse(data, &record) != 0) return -1;
  size_t above[AMS_PATH_SIZE] = {record.head.order_length}; /* bytes of the orders on the way */
  size_t depth = 0;
  int pass = leaves ? 0 : LeavesBehind(record);
  while (rc == 0 && (rc = mdb_cursor_get(cursor.get(), &key, &data, MDB_NEXT)) == 0) {
    FetchAhead(key.mv_data);
    if (pass > 0 && pass-- > 0) continue;
    if (!KeyBelow(key, top.bytes, top.length)) return 0;
    if (RecordParse(data, &record) != 0 || record.head.order_length <= above[0]) continue;
    while (above[depth] >= record.head.order_length) --depth;
    each(key, record, OrderIn(record, above[depth]));
    if (RecordIsLeaf(record)) continue;
    if (depth + 1 < std::size(above)) above[++depth] = record.head.order_length;
    if (!leaves) pass = LeavesBehind(record);
  }
  return rc == 0 || rc == MDB_NOTFOUND ? 0 : TreeFailed("reading", rc);
}

/* Appends the numbers of nodes, which stand as a scan found them, in the file's order. */
void FileOrder(const std::vector<NodeOrder> &nodes, std::vector<uint32_t> *order);
