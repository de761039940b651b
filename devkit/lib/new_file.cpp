// Files whose reader may look at any time; see new_file.h.
#include "new_file.h"

#include <cstdio>

int WriteNewFile(const char *path, const std::string &text) {
  const std::string fresh = std::string(path) + ".new";
  FILE *file = fopen(fresh.c_str(), "we");
  if (file == nullptr) return -1;
  const bool written = fwrite(text.data(), 1, text.size(), file) == text.size();
  return fclose(file) == 0 && written ? rename(fresh.c_str(), path) : -1;
}
