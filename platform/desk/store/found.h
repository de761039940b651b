// Rows of the tree, to be put into the file's order.
#pragma once

#include <cstdint>
#include <vector>

#include "tree.h"

struct Found {
  uint64_t rank;      /* TreeSort's */
  const uint8_t *key; /* of a leaf: of its object */
  size_t key_length;
  Record record;
};

/* The node's own key, behind a mark if the row has one. 0 or -1: it is too long, which cannot be.
 */
int FoundKey(const Found &found, Key *key);

/* The nodes below `top` of these kinds, as the file has them. 0, or -1: there is no such node (not
   logged), or it cannot be read. */
enum TreeKinds { TREE_LEAVES, TREE_OBJECTS, TREE_NODES };
int TreeGather(MDB_txn *txn, const Key &top, TreeKinds kinds, std::vector<Found> *found);

/* Sorts rows as the file has them; `skip` bytes at the start of their orders are the same. */
void TreeSort(std::vector<Found> *found, size_t skip);
