// Paths and small texts; see ams_config_path.h.
#include "ams_config_path.h"

#include <cstdio>
#include <cstring>
#include <string_view>

#include "ams_config_print.h"
#include "hex.h"

namespace {

/* Takes the first component off a path. */
std::string_view NextComponent(std::string_view *path) {
  std::string_view part = path->substr(0, path->find('.'));
  path->remove_prefix(part.size() < path->size() ? part.size() + 1 : part.size());
  return part;
}

/* The number that the component is; -1 when it is not all digits. */
int32_t IndexOf(std::string_view part) {
  if (part.empty() || part.find_first_not_of("0123456789") != part.npos) return -1;
  int64_t number = 0;
  for (char digit : part)
    if (number <= INT32_MAX) number = number * 10 + (digit - '0');
  return number > INT32_MAX ? INT32_MAX : static_cast<int32_t>(number);
}

}  // namespace

int cfgPathLastIndex(const char *path) {
  std::string_view rest = cfgText(path);
  if (rest.size() < 2) return -1;
  int last = -1;
  while (!rest.empty()) {
    int index = IndexOf(NextComponent(&rest));
    if (index >= 0) last = index;
  }
  return last;
}

int cfgPathIndexes(const char *path, int32_t *indexes, size_t room) {
  if (path == nullptr && indexes == nullptr) return -1;
  if (path == nullptr || indexes == nullptr) return 0;
  size_t count = 0;
  for (std::string_view rest = path; !rest.empty() && count < room;) {
    int index = IndexOf(NextComponent(&rest));
    if (index >= 0) indexes[count++] = index;
  }
  return static_cast<int>(count);
}

int cfgWanConnName(const char *path, char *name, size_t size) {
  int32_t part[3] = {};
  if (cfgPathIndexes(path, part) < 1) return -1;
  int length = snprintf(name, size, "%s_%d_%d_%d", strstr(path, "PPP") != nullptr ? "PPP" : "IP",
                        part[0], part[1], part[2]);
  if (static_cast<size_t>(length) >= size)
    CONFIG_PRINT(4, "cfgWanConnName: name of %s cut to %zu bytes\n", path, size);
  return 0;
}

int cfgPathCut(char *path, size_t size, const char *name, int flag) {
  char *end = strstr(path, name);
  if (end == nullptr) return -1;
  end += strlen(name);
  if (flag != 0) end += strcspn(end, ".");
  if (static_cast<size_t>(end - path) + 2 > size) {
    CONFIG_PRINT(4, "cfgPathCut: no room for the \".\" behind %s\n", path);
    return -1;
  }
  strcpy(end, ".");
  return 0;
}

int cfgIsIpv4Addr(const char *text) {
  if (text == nullptr) return 0;
  CONFIG_PRINT(1, "cfgIsIpv4Addr: %s\n", text);
  unsigned part[4]; /* as unsigned numbers the negative ones are too large; 9 digits always fit */
  if (sscanf(text, "%9d.%9d.%9d.%9d", reinterpret_cast<int *>(&part[0]),
             reinterpret_cast<int *>(&part[1]), reinterpret_cast<int *>(&part[2]),
             reinterpret_cast<int *>(&part[3])) != 4)
    return 0;
  return part[0] <= 255 && part[1] <= 255 && part[2] <= 255 && part[3] <= 255 ? 1 : 0;
}

int cfgHexEncode(const char *text, char *hex, size_t size) {
  size_t length = strlen(text);
  if (2 * length + 1 > size) {
    CONFIG_PRINT(4, "cfgHexEncode: %zu bytes as hex digits need more than %zu\n", length, size);
    return -1;
  }
  if (length == 0) return 0;
  PutHex(reinterpret_cast<const uint8_t *>(text), length, kHexLower, hex);
  hex[2 * length] = '\0';
  return 0;
}
