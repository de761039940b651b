// Logs; see log_file.h.
#include "log_file.h"

#include <sys/stat.h>

#include <algorithm>
#include <fstream>

uint64_t FileSize(const char *path) {
  struct stat status;
  return stat(path, &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
}

std::string AppendedSince(const char *path, uint64_t offset, size_t most) {
  const uint64_t size = FileSize(path);
  std::ifstream file(path, std::ios::binary);
  if (size <= offset || !file.seekg(static_cast<std::streamoff>(offset))) return "";
  std::string text(static_cast<size_t>(std::min<uint64_t>(size - offset, most)), '\0');
  file.read(&text[0], static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<size_t>(file.gcount()));
  return text;
}
