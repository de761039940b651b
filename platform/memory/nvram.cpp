// The settings: a map an area, gone with the process; see platform/include/nvram.h.
#include "nvram.h"

#include <cstring>
#include <map>
#include <mutex>
#include <string>

#include "ams_print.h"

namespace {

using Settings = std::map<std::string, std::string>;

/* For ever: threads may read them while the process ends. */
Settings *const areas = new Settings[NVTYPE_BASIC + 1];
std::mutex &mutex = *new std::mutex;

bool Refused(const char *key, int type) {
  const bool wrong = type < NVTYPE_STAGING || type > NVTYPE_BASIC || key == nullptr ||
                     key[0] == '\0' || strlen(key) > NVRAM_KEY_MAX;
  if (wrong) AMS_PRINT(4, "nvram: no such area (%d) or no such key\n", type);
  return wrong;
}

}  // namespace

int nvram_init_semaphore(void) { return 0; }

char *nvram_get(const char *key, int type) {
  if (Refused(key, type)) return nullptr;
  std::lock_guard<std::mutex> lock(mutex);
  const auto found = areas[type].find(key);
  return found == areas[type].end() ? nullptr : strdup(found->second.c_str());
}

int nvram_set(const char *key, const char *value, int type) {
  if (Refused(key, type)) return -1;
  if (value == nullptr || strlen(value) > NVRAM_VALUE_MAX) {
    AMS_PRINT(4, "nvram: %s: no value, or more than %d bytes\n", key, NVRAM_VALUE_MAX);
    return -1;
  }
  std::lock_guard<std::mutex> lock(mutex);
  areas[type][key] = value;
  return 0;
}

int nvram_unset(const char *key, int type) {
  if (Refused(key, type)) return -1;
  std::lock_guard<std::mutex> lock(mutex);
  areas[type].erase(key);
  return 0;
}

/* Memory is all the flash that there is. */
int nvram_commit(int type) { return Refused("any", type) ? -1 : 0; }

int nvram_clean(int type) {
  if (Refused("any", type)) return -1;
  std::lock_guard<std::mutex> lock(mutex);
  areas[type].clear();
  return 0;
}

int nvram_walk(int type, const char *prefix,
               int (*visit)(const char *key, const char *value, void *context), void *context) {
  if (Refused("any", type)) return -1;
  Settings snapshot;
  {
    std::lock_guard<std::mutex> lock(mutex);
    snapshot = areas[type];
  }
  for (auto at = snapshot.lower_bound(prefix); at != snapshot.end(); ++at) {
    if (at->first.compare(0, strlen(prefix), prefix) != 0) break;
    if (const int end = visit(at->first.c_str(), at->second.c_str(), context); end != 0) return end;
  }
  return 0;
}
