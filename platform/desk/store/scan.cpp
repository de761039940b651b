// The file's order of the nodes that a scan has found; see scan.h.
#include "scan.h"

#include <algorithm>

namespace {

/* A node with all that is below it: nodes `at` to before `end`. */
struct Subtree {
  uint32_t place, at, end;
};

struct Ordering {
  const std::vector<NodeOrder> &nodes;
  std::vector<uint32_t> *order;
  std::vector<Subtree> beside; /* those of each level that is open */
};

/* Only nodes beside one another need to be sorted, and mostly are. */
void AppendOrdered(Ordering *ordering, uint32_t at, uint32_t end) {
  const std::vector<NodeOrder> &nodes = ordering->nodes;
  std::vector<Subtree> &beside = ordering->beside;
  const size_t open = beside.size();
  while (at < end) {
    const uint32_t top = at;
    do ++at;
    while (at < end && nodes[at].length > nodes[top].length);
    beside.push_back({nodes[top].place, top, at});
  }
  std::sort(beside.begin() + static_cast<ptrdiff_t>(open), beside.end(),
            [](const Subtree &left, const Subtree &right) { return left.place < right.place; });
  for (size_t one = open; one < beside.size(); ++one) {
    const Subtree subtree = beside[one];
    ordering->order->push_back(subtree.at);
    if (subtree.end > subtree.at + 1) AppendOrdered(ordering, subtree.at + 1, subtree.end);
  }
  beside.resize(open);
}

}  // namespace

void FileOrder(const std::vector<NodeOrder> &nodes, std::vector<uint32_t> *order) {
  Ordering ordering = {nodes, order, {}};
  order->reserve(nodes.size());
  AppendOrdered(&ordering, 0, static_cast<uint32_t>(nodes.size()));
}
