// Keeping the configuration: what a write changes of it is gathered while the write is open and
// goes to nvram area 1, by path, before the tree's own commit. Laying it over the tree at the next
// start: persist.cpp.
//
// A leaf's key is its path, an instance's its path and a dot: "1" for one that was added, "0" for
// one of the data-model file's that was deleted. An array's key is its path and a dot: the highest
// number ever used, and before it, if at all, "1,3,7/": the instances there were then. Beside
// them are marks and the list of changes (changes.h).
#include "keep.h"

#include <algorithm>

#include "ams_print.h"
#include "nvram.h"
#include "nvram_desk.h"
#include "tree.h"

namespace {

std::vector<NvramChange> *Changes() {
  ThreadTxns *mine = TreeThread();
  if (mine->kept == nullptr) mine->kept = new std::vector<NvramChange>;
  return mine->kept;
}

std::string PathOf(const Key &key) {
  char path[kKeyMax + 1];
  return {path, KeyToPath(key.bytes, key.length, path)};
}

/* The value that is kept under `key` once the open write is done. 0 or -1 (logged). */
int KeptValue(const std::string &key, std::optional<std::string> *value) {
  const std::vector<NvramChange> &changes = *Changes();
  auto last = std::find_if(changes.rbegin(), changes.rend(),
                           [&](const NvramChange &one) { return one.key == key; });
  if (last == changes.rend()) return nvram_desk_read(NVTYPE_STAGING, key, value);
  *value = last->value;
  return 0;
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

void KeepBeside(const char *prefix, const Key &key, const std::optional<std::string> &value) {
  Changes()->push_back({prefix + PathOf(key), value});
}

/* What was kept below a row of that number, which could not be laid over the tree, is not the new
   row's. */
int KeepAdded(const Key &array, uint32_t number) {
  std::string row = PathOf(array) + "." + std::to_string(number) + ".";
  if (ForgetBelow(row) != 0) return -1;
  Changes()->push_back({row, "1"});
  return 0;
}

int KeepDeleted(const Key &array, uint32_t number, bool of_file, uint32_t highest) {
  std::string above = PathOf(array) + ".", row = above + std::to_string(number) + ".";
  std::optional<std::string> added, list;
  if (KeptValue(row, &added) != 0 || KeptValue(above, &list) != 0 || ForgetBelow(row) != 0 ||
      ForgetBelow(kKeptNotify + row) != 0 || ForgetBelow(kKeptChanges + row) != 0)
    return -1;
  if (of_file || added != "1") Changes()->push_back({row, "0"});
  size_t end = list ? list->rfind('/') : std::string::npos;
  std::string front = end == std::string::npos ? "" : list->substr(0, end + 1);
  Changes()->push_back({above, front + std::to_string(highest)});
  return 0;
}

int KeepRead(const Key &key, std::optional<std::string> *value) {
  return KeptValue(PathOf(key), value);
}

int KeepAgain(const Key &key, const std::optional<std::string> &value) {
  std::optional<std::string> now;
  if (KeepRead(key, &now) != 0) return -1;
  if (now != value) Changes()->push_back({PathOf(key), value});
  return 0;
}

int KeepApply(std::vector<NvramChange> *before) {
  std::vector<NvramChange> *changes = TreeThread()->kept;
  if (changes == nullptr || changes->empty()) return 0;
  int result = nvram_desk_apply(NVTYPE_STAGING, *changes, before);
  if (result != 0)
    AMS_PRINT(4, "store: %s%s not changed: it cannot be kept\n", changes->front().key.c_str(),
              changes->size() > 1 ? " and others" : "");
  changes->clear();
  return result;
}

void KeepTakeBack(const std::vector<NvramChange> &before) {
  if (before.empty() || nvram_desk_apply(NVTYPE_STAGING, before) == 0) return;
  AMS_PRINT(4,
            "store: %s%s is kept, though it was not changed: it will be so from the next start on; "
            "set it once more\n",
            before[0].key.c_str(), before.size() > 1 ? ", with others," : "");
}

void KeepNothing() {
  if (TreeThread()->kept != nullptr) TreeThread()->kept->clear();
}
