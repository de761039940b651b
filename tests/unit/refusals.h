// Memory that this thread does not get, at the allocation that a test names. Each one counts: the
// code's own, the C++ library's and those of the libraries below. With a sanitizer, or another C
// library, those count that the program itself has linked.
#pragma once

#include <cstddef>
#include <utility>

struct MemoryRefusals {
  bool counting;
  size_t count;       /* allocations so far */
  size_t first, last; /* those that are refused, from 1 */
};
inline thread_local MemoryRefusals refusals = {};

/* What a test's own stand-ins take is not counted. */
struct MemoryOfTheTest {
  bool counting = std::exchange(refusals.counting, false);
  ~MemoryOfTheTest() { refusals.counting = counting; }
};

/* The allocations `first` to `last` of the work are refused. How many there were. */
template <typename Work>
size_t WithoutMemory(size_t first, size_t last, Work work) {
  refusals = {true, 0, first, last};
  work();
  refusals.counting = false;
  return refusals.count;
}
