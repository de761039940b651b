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

size_t FoundPath(const uint8_t *key, size_t length, FoundObject *object, char *path) {
  const void *mark = memrchr(key, KEY_LEAF, length);
  if (mark == nullptr || mark == key) return KeyToPath(key, length, path);
  const size_t above = static_cast<size_t>(static_cast<const uint8_t *>(mark) - key);
  if (above != object->key_length || memcmp(key, object->key, above) != 0) {
    object->key = key;
    object->key_length = above;
    object->length = KeyToPath(key, above, object->path);
  }
  memcpy(path, object->path, object->length);
  path[object->length] = '.';
  memcpy(path + object->length + 1, key + above + 1, length - above - 1);
  path[object->length + length - above] = '\0';
  return object->length + length - above;
}

namespace {

constexpr size_t kFew = 32; /* rows of an object: its leaves, mostly */

/* A node with all that is below it: rows `at` to before `end`. */
struct Subtree {
  uint64_t place; /* among the nodes beside it */
  size_t at, end;
};

/* Of a node's order, what is behind that of the node above it. */
uint32_t PlaceOf(const Record &record, size_t above) {
  uint32_t place = 0;
  memcpy(&place, record.order + above,
         std::min(sizeof place, static_cast<size_t>(record.head.order_length - above)));
  return be32toh(place);
}

struct Ordering {
  const std::vector<Found> &rows;
  bool leaves_only;
  std::vector<Found> *found;
  std::vector<Subtree> beside; /* those of each level that is open */
};

/* Appends the subtrees in rows `at` to before `end`, which stand in key order and have their places
   as rank, as the file has them: only nodes beside one another need to be sorted. */
void AppendOrdered(Ordering *ordering, size_t at, size_t end) {
  const std::vector<Found> &rows = ordering->rows;
  std::vector<Subtree> &beside = ordering->beside;
  const size_t open = beside.size();
  while (at < end) {
    const size_t top = at, length = rows[at].record.head.order_length;
    do ++at;
    while (at < end && rows[at].record.head.order_length > length);
    beside.push_back({rows[top].rank, top, at});
  }
  std::sort(beside.begin() + static_cast<ptrdiff_t>(open), beside.end(),
            [](const Subtree &left, const Subtree &right) { return left.place < right.place; });
  for (size_t one = open; one < beside.size(); ++one) {
    const Subtree subtree = beside[one];
    const Found &top = rows[subtree.at];
    if (!ordering->leaves_only || RecordIsLeaf(top.record)) ordering->found->push_back(top);
    if (subtree.end > subtree.at + 1) AppendOrdered(ordering, subtree.at + 1, subtree.end);
  }
  beside.resize(open);
}

}  // namespace

int TreeGather(MDB_txn *txn, const Key &top, TreeKinds kinds, std::vector<Found> *found) {
  TreeCursor cursor;
  MDB_val key = KeyVal(top), data;
  Record record;
  std::vector<Found> rows;
  rows.reserve(kFew);
  if (TreeOpenCursor(txn, &cursor) != 0) return -1;
  int rc = mdb_cursor_get(cursor.get(), &key, &data, MDB_SET);
  int result = rc == 0 ? RecordParse(data, &record) : -1;
  size_t above[AMS_PATH_SIZE], depth = 0; /* the bytes of the orders of the nodes above */
  above[0] = result == 0 ? record.head.order_length : 0;
  while (result == 0 && (rc = mdb_cursor_get(cursor.get(), &key, &data, MDB_NEXT)) == 0 &&
         KeyBelow(key, top.bytes, top.length)) {
    Found one = {0, static_cast<uint8_t *>(key.mv_data), key.mv_size, {}};
    if (RecordParse(data, &one.record) != 0 || one.record.head.order_length <= above[0] ||
        (kinds == TREE_OBJECTS && RecordIsLeaf(one.record)))
      continue;
    while (above[depth] >= one.record.head.order_length) --depth;
    one.rank = PlaceOf(one.record, above[depth]);
    if (!RecordIsLeaf(one.record) && depth + 1 < std::size(above))
      above[++depth] = one.record.head.order_length;
    rows.push_back(one);
  }
  if (rc != 0 && rc != MDB_NOTFOUND) return TreeFailed("reading", rc);
  Ordering ordering = {rows, kinds == TREE_LEAVES, found, {}};
  found->reserve(rows.size());
  ordering.beside.reserve(kFew);
  AppendOrdered(&ordering, 0, rows.size());
  return result;
}
