// Rows that a scan of the tree has found.
#pragma once

#include <cstdint>
#include <vector>

#include "record.h"

struct Found {
  uint64_t rank; /* first bytes of the order behind the top node's, big-endian */
  const uint8_t *key;
  size_t key_length;
  Record record;
};

/* Sorts rows as the file has them; `skip` bytes at the start of their orders are the same. */
void TreeSort(std::vector<Found> *found, size_t skip);
