// Rows that a scan of the tree has found.
#pragma once

#include <cstdint>
#include <vector>

#include "tree.h"

struct Found {
  uint64_t rank; /* first bytes of the order behind that of a node above, as a number */
  const uint8_t *key;
  size_t key_length;
  Record record;
};

/* The object of the last leaf whose path was made; {} at first. */
struct FoundObject {
  const uint8_t *key;
  size_t key_length, length;
  char path[kKeyMax + 1];
};

/* KeyToPath of rows that come in turn: leaves of one object mostly stand one behind the other. */
size_t FoundPath(const uint8_t *key, size_t length, FoundObject *object, char *path);

/* Whoever reads all rows in turn has the processor fetch those that come, with this at each one.
   Inlined, as compilers drop the calls of a function that does nothing else. */
[[gnu::always_inline]] inline void FoundFetch(const std::vector<Found> &found, size_t at) {
  constexpr size_t kAhead = 12, kLine = 64;
  if (at + kAhead >= found.size()) return;
  const Found &coming = found[at + kAhead];
  for (size_t from = 0; from < coming.key_length; from += kLine)
    __builtin_prefetch(coming.key + from);
  __builtin_prefetch(coming.record.value);
}

/* The nodes below `top` of these kinds, as the file has them, with one look-up: they stand right
   behind it. 0, or -1: there is no such node, or it cannot be read (logged). */
enum TreeKinds { TREE_LEAVES, TREE_OBJECTS, TREE_NODES };
int TreeGather(MDB_txn *txn, const Key &top, TreeKinds kinds, std::vector<Found> *found);

/* Sorts rows as the file has them; `skip` bytes at the start of their orders are the same. */
void TreeSort(std::vector<Found> *found, size_t skip);
