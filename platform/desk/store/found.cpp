// Rows of the tree in the file's order; see found.h.
#include "found.h"

#include <endian.h>

#include <algorithm>
#include <cstring>

#include "scan.h"

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
  std::vector<Found> rows;
  std::vector<NodeOrder> nodes;
  std::vector<uint32_t> order;
  const int result =
      TreeScan(txn, top, kinds != TREE_OBJECTS,
               [&](const MDB_val &key, const Record &record, NodeOrder node) {
                 rows.push_back({0, static_cast<uint8_t *>(key.mv_data), key.mv_size, record});
                 nodes.push_back(node);
               });
  if (result != 0) return -1;
  FileOrder(nodes, &order);
  found->reserve(rows.size());
  for (uint32_t row : order)
    if (kinds != TREE_LEAVES || RecordIsLeaf(rows[row].record)) found->push_back(rows[row]);
  return 0;
}
