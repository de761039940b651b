// Has the processor fetch rows of the map before they are read. All are inlined: compilers drop the
// calls of a function that does nothing else. Where pages have another size they fetch in vain.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

constexpr size_t kFetchPage = 4096, kFetchLine = 64;

/* The bytes of a row, of a long one the first. */
[[gnu::always_inline]] inline void FetchRow(const void *row, size_t length) {
  constexpr size_t kMost = 1024;
  length = std::min(length, kMost);
  for (size_t at = 0; at < length; at += kFetchLine)
    __builtin_prefetch(static_cast<const char *>(row) + at);
}

/* What the next page has at the place of the row that has this key, and its list of rows, for who
   reads rows in turn: a load wrote that page right behind this one. */
[[gnu::always_inline]] inline void FetchAhead(const void *key, size_t row_length) {
  constexpr size_t kHead = 8; /* LMDB's, before the key */
  const char *ahead = static_cast<const char *>(key) + kFetchPage;
  FetchRow(ahead - kHead, kHead + row_length);
  __builtin_prefetch(ahead - reinterpret_cast<uintptr_t>(key) % kFetchPage);
}
