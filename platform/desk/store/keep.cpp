// Keeping the configuration: what a write changes of it is gathered while the write is open and
// goes to nvram area 1, by path, before the tree's own commit. Laying it over the tree at the next
// start: persist.cpp.
//
// A leaf's key is its path, an instance's its path and a dot: "1" for one that was added, "0" for
// one of the data-model file's that was deleted. An array's key is its path and a dot: the highest
// number ever used, and before it, if at all, "1,3,7/": the instances there were then.
#include <algorithm>
#include <cstdlib>
#include <memory>

#include "ams_print.h"
#include "nvram.h"
#include "nvram_desk.h"
#include "tree.h"

namespace {

using HeapText = std::unique_ptr<char, decltype(&free)>;

std::vector<NvramChange> *Changes() {
  ThreadTxns *mine = TreeThread();
  if (mine->kept == nullptr) mine->kept = new std::vector<NvramChange>;
  return mine->kept;
}

std::string PathOf(const Key &key) {
  char path[KEY_MAX + 1];
  return {path, KeyToPath(key.bytes, key.length, path)};
}

/* The value that is kept under `key` once the open write is done. False: none is. */
bool KeptValue(const std::string &key, std::string *value) {
  const std::vector<NvramChange> &changes = *Changes();
  for (size_t at = changes.size(); at-- > 0;)
    if (changes[at].key == key) {
      *value = changes[at].value.value_or("");
      return changes[at].value.has_value();
    }
  HeapText kept(nvram_get(key.c_str(), NVTYPE_STAGING), free);
  if (kept != nullptr) *value = kept.get();
  return kept != nullptr;
}

int Unset(const char *key, const char *, void *) {
  Changes()->push_back({key, std::nullopt});
  return 0;
}

/* What the open write itself keeps below the instance goes, too. */
int ForgetBelow(const std::string &below) {
  auto is_below = [&](const NvramChange &one) {
    return one.key.compare(0, below.size(), below) == 0;
  };
  std::vector<NvramChange> *changes = Changes();
  changes->erase(std::remove_if(changes->begin(), changes->end(), is_below), changes->end());
  return nvram_walk(NVTYPE_STAGING, below.c_str(), Unset, nullptr);
}

}  // namespace

void KeepLeaf(const Key &key, std::string_view value) {
  Changes()->push_back({PathOf(key), std::string(value)});
}

void KeepAdded(const Key &array, uint32_t number) {
  Changes()->push_back({PathOf(array) + "." + std::to_string(number) + ".", "1"});
}

int KeepDeleted(const Key &array, uint32_t number, uint32_t highest) {
  std::string above = PathOf(array) + ".", row = above + std::to_string(number) + ".", value;
  bool added = KeptValue(row, &value) && value == "1";
  if (ForgetBelow(row) != 0) return -1;
  if (!added) Changes()->push_back({row, "0"});
  size_t list = KeptValue(above, &value) ? value.rfind('/') : std::string::npos;
  value.resize(list == std::string::npos ? 0 : list + 1);
  Changes()->push_back({above, value + std::to_string(highest)});
  return 0;
}

int KeepApply() {
  std::vector<NvramChange> *changes = TreeThread()->kept;
  if (changes == nullptr || changes->empty()) return 0;
  int result = nvram_desk_apply(NVTYPE_STAGING, *changes);
  if (result != 0)
    AMS_PRINT(4, "store: %s%s not changed: it cannot be kept\n", changes->front().key.c_str(),
              changes->size() > 1 ? " and others" : "");
  changes->clear();
  return result;
}

void KeepNothing() {
  if (TreeThread()->kept != nullptr) TreeThread()->kept->clear();
}
