// What op functions read and write; see op_values.h.
#include "op_values.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "ams_common_api.h"

int LeafInt(const char *path, int without) {
  char value[128];
  return ams_mxml_get_leaf_value(path, value) == 0 ? atoi(value) : without;
}

int LeafString(const char *path, std::string *value) {
  std::string text(AMS_VALUE_MAX + 1, '\0');
  if (ams_mxml_get_leaf(path, text.data(), text.size()) != 0) return -1;
  *value = text.c_str();
  return 0;
}

int LeafText(const char *path, char *value, size_t size) {
  std::string text;
  if (LeafString(path, &text) != 0) return 0;
  if (text.size() >= size) {
    AMS_PRINT(4, "%s not taken, it has %zu bytes and %zu fit: shorten it\n", path, text.size(),
              size - 1);
    return -1;
  }
  memcpy(value, text.c_str(), text.size() + 1);
  return 0;
}

std::string PrintableText(std::string_view text) {
  std::string printable;
  for (char character : text) {
    auto byte = static_cast<unsigned char>(character);
    if (byte < 0x20 || byte == 0x7F)
      printable += "\uFFFD";
    else
      printable += character;
  }
  return printable;
}

namespace {

/* 0 or an errno. */
int WriteAll(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t put = write(fd, text.data(), text.size());
    if (put < 0 && errno != EINTR) return errno;
    if (put > 0) text.remove_prefix(static_cast<size_t>(put));
  }
  return 0;
}

}  // namespace

int WriteOwnFile(const char *path, const std::string &text) {
  (void)unlink(path); /* may not exist yet; what stays in the way fails the open */
  int fd = open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd < 0) return -1;
  int error = WriteAll(fd, text);
  if (close(fd) != 0 && error == 0) error = errno;
  if (error == 0) return 0;
  (void)unlink(path); /* half a file; that it cannot be written is told */
  errno = error;
  return -1;
}
