// The clock of the benchmarks that take their own time.
#pragma once

#include <time.h>

#include <cstdint>

inline uint64_t Nanoseconds() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000000000U + static_cast<uint64_t>(now.tv_nsec);
}
