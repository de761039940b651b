// Parameters straight from the store; see ams_config_api.h.
#include "ams_config_api.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ams_print.h"
#include "ams_store.h"
#include "tds.h"

namespace {

constexpr int kPathRoom = 1024; /* what is longer than the store's limit is refused there */

}  // namespace

int cfgStatusSetStr(const char *path, const char *val) {
  if (path == nullptr || val == nullptr) {
    AMS_PRINT(4, "%s: path or val is NULL.\n", "cfgStatusSetStr");
    return -1;
  }
  AMS_PRINT(1, "%s: path %s val %s\n", "cfgStatusSetStr", path, val);
  return ams_sset_node_value(gptXmlTrees->root, path, val);
}

int cfgNodeExists(const char *path) { return ams_check_node(gptXmlTrees->root, path); }

int cfgGetArrayMaxIndex(const char *path, int *max) {
  char answer[32];
  bool got = ams_get_array_maxIndex(gptXmlTrees->root, path, answer) == 0;
  *max = got ? atoi(answer) : -1;
  return 0;
}

int cfgGetTotalInstance(const char *path) {
  AMS_PRINT(1, "cfgGetTotalInstance url :%s\n", path);
  char answer[256];
  if (ams_get_array_maxIndex(gptXmlTrees->root, path, answer) != 0) {
    AMS_PRINT(4, "ams_get_array_maxIndex failed, url is %s\n", path);
    return -1;
  }
  int total = 0;
  for (int index = 1, max = atoi(answer); index <= max; ++index) {
    char row[kPathRoom];
    snprintf(row, sizeof row, "%s%d.", path, index);
    if (cfgNodeExists(row) == 0) ++total;
  }
  return total;
}

char *cfgReadIndexes(const char *url, const char *tag, int *result) {
  char highest[16] = "0";
  *result = -1;
  /* what is no array has no list, and that is found again below */
  (void)ams_get_array_maxIndex(gptXmlTrees->root, url, highest);
  /* as many numbers as there may be, or as a message holds; the memory behind the list is never
     touched */
  uint64_t most = strtoull(highest, nullptr, 10) * (strlen(highest) + 1);
  size_t room = static_cast<size_t>(std::clamp<uint64_t>(most, 1024, TDS_PAYLOAD_MAX));
  char *list = static_cast<char *>(__tds_malloc(room, tag));
  if (list != nullptr) *result = ams_get_idxes(gptXmlTrees->root, url, list, room);
  return list;
}
