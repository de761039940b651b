// The order of rows that a scan has found; see found.h.
#include "found.h"

#include <endian.h>

#include <algorithm>
#include <cstring>

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
