// What the fuzz targets share: a check that ends the process with its reason.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>

inline void Check(bool holds, const char *what) {
  if (holds) return;
  fprintf(stderr, "fuzz: %s\n", what);
  abort();
}

template <size_t N>
void CheckText(const char (&text)[N], const char *what) {
  Check(memchr(text, '\0', N) != nullptr, what);
}
