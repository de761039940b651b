// What the fuzz targets share: their entry, a check that ends the process with its reason, and
// blocks that end where their bytes do.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

inline void Check(bool holds, const char *what) {
  if (holds) return;
  fprintf(stderr, "fuzz: %s\n", what);
  abort();
}

template <size_t... N>
void CheckTexts(const char (&...texts)[N]) {
  (Check(memchr(texts, '\0', N) != nullptr, "a text is not terminated"), ...);
}

/* A block that ends where the text does, so that the sanitizer sees each byte behind it. */
inline std::unique_ptr<char[]> Block(const uint8_t *data, size_t size, size_t with_nul) {
  std::unique_ptr<char[]> block(new char[size + with_nul]);
  memcpy(block.get(), data, size);
  if (with_nul != 0) block[size] = '\0';
  return block;
}
