// Rows of the tree in the file's order; see found.h.
#include "found.h"

#include <endian.h>

#include <algorithm>
#include <cstring>

#include "scan.h"

namespace {

/* The next bytes of a node's order, eight at most, as a number. */
uint64_t Rank(const Record &record, size_t skip) {
  uint8_t bytes[sizeof(uint64_t)] = {};
  uint64_t rank;
  skip = std::min(skip, size_t{record.head.order_length});
  const size_t length = std::min(record.head.order_length - skip, sizeof bytes);
  memcpy(bytes, record.order + skip, length);
  if (RecordIsLeaf(record) && length < sizeof bytes)
    bytes[length] = static_cast<uint8_t>(record.place >> 8);
  if (RecordIsLeaf(record) && length + 1 < sizeof bytes)
    bytes[length + 1] = static_cast<uint8_t>(record.place);
  memcpy(&rank, bytes, sizeof rank);
  return be64toh(rank);
}

/* The place of a node in what has the first `above` bytes of its order; -1: it is that itself. */
int PlaceIn(const Record &record, size_t above) {
  if (record.head.order_length == above) return RecordIsLeaf(record) ? record.place : -1;
  return record.order[above] << 8 | record.order[above + 1];
}

bool Before(const Record &left, const Record &right) {
  const size_t common = std::min(left.head.order_length, right.head.order_length);
  const int order = memcmp(left.order, right.order, common);
  return order != 0 ? order < 0 : PlaceIn(left, common) < PlaceIn(right, common);
}

}  // namespace

int FoundKey(const Found &found, Key *key) {
  if (!RecordIsLeaf(found.record)) return KeyOfBytes(found.key, found.key_length, key);
  return TreeLeafKey(LmdbVal(found.key, found.key_length), found.record, key);
}

void TreeSort(std::vector<Found> *found, size_t skip) {
  bool sorted = true;
  for (size_t at = 0; at < found->size(); ++at) {
    Found &one = (*found)[at];
    one.rank = Rank(one.record, skip);
    sorted = sorted && (at == 0 || ((*found)[at - 1].rank < one.rank));
  }
  if (sorted) return;
  std::sort(found->begin(), found->end(), [](const Found &left, const Found &right) {
    return left.rank != right.rank ? left.rank < right.rank : Before(left.record, right.record);
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
