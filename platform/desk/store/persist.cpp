// Laying the parameters that nvram area 1 keeps (keep.cpp says in which form) over the tree.
#include <algorithm>
#include <cstdlib>

#include "ams_print.h"
#include "ams_store.h"
#include "attributes.h"
#include "changes.h"
#include "instances.h"
#include "nvram.h"
#include "put.h"
#include "room.h"
#include "status.h"
#include "store_desk.h"
#include "tree.h"

namespace {

struct Kept {
  std::string key, value;
};

constexpr char kNoRoom[] = "there is no room beside the tree that is replaced";

int Collect(const char *key, const char *value, void *context) {
  static_cast<std::vector<Kept> *>(context)->push_back({key, value});
  return 0;
}

void PassOver(const Kept &entry, const char *reason) {
  AMS_PRINT(4, "store: kept parameter %s passed over: %s\n", entry.key.c_str(), reason);
}

/* Reads "9", the highest number ever used, or "1,3,7/9", with the instances before it. -1 when it
   is anything else. */
int ParseInstances(const std::string &text, std::vector<uint32_t> *numbers, bool *listed,
                   uint32_t *highest) {
  const char *at = text.c_str();
  char *end;
  *listed = text.find('/') != std::string::npos;
  while (*listed && *at != '/') {
    unsigned long number = strtoul(at, &end, 10);
    if (*at < '1' || *at > '9' || number > UINT32_MAX || (*end != ',' && *end != '/')) return -1;
    numbers->push_back(static_cast<uint32_t>(number));
    at = *end == ',' ? end + 1 : end;
  }
  at += *listed ? 1 : 0;
  unsigned long last = strtoul(at, &end, 10);
  if (*at < '0' || *at > '9' || *end != '\0' || last > UINT32_MAX) return -1;
  *highest = static_cast<uint32_t>(last);
  std::sort(numbers->begin(), numbers->end());
  numbers->erase(std::unique(numbers->begin(), numbers->end()), numbers->end());
  return 0;
}

/* Deletes the instances that are not wanted, adds those that are missing. 0 or -1 (logged). */
int MatchInstances(MDB_txn *txn, const Key &array, const std::vector<uint32_t> &wanted) {
  std::vector<uint32_t> present;
  if (TreeInstances(txn, array, &present) != 0) return -1;
  for (uint32_t number : present)
    if (!std::binary_search(wanted.begin(), wanted.end(), number) &&
        TreeDeleteInstance(txn, array, number) != 0)
      return -1;
  for (uint32_t number : wanted)
    if (!std::binary_search(present.begin(), present.end(), number) &&
        (TreeMayGrow(txn, 0, true) != 0 || TreeAddInstance(txn, array, number) != 0))
      return -1;
  return 0;
}

int RaiseHighest(MDB_txn *txn, const Key &array, uint32_t highest) {
  Record record;
  if (TreeFind(txn, array, &record) != 0) return TreeFailed("reading", MDB_NOTFOUND);
  ArrayCounts counts = RecordCounts(record);
  if (counts.highest >= highest) return 0;
  counts.highest = highest;
  return TreePutCounts(txn, array, counts);
}

/* What does not fit is passed over. */
void LayArray(MDB_txn *txn, const Kept &entry, const Key &array) {
  std::vector<uint32_t> numbers;
  uint32_t highest;
  bool listed;
  if (ParseInstances(entry.value, &numbers, &listed, &highest) != 0) {
    PassOver(entry, "its value does not read as 9 or 1,3,7/9");
    return;
  }
  int failed = listed ? MatchInstances(txn, array, numbers) : 0;
  failed |= RaiseHighest(txn, array, highest); /* also then: no number is used twice */
  if (failed != 0) PassOver(entry, "its instances cannot be made");
}

uint32_t NumberOf(const Key &key) {
  return KeyNumber(key.bytes + key.last + 1, key.length - key.last - 1);
}

void LayInstance(MDB_txn *txn, const Kept &entry, const Key &array, const Key &instance) {
  Record record;
  uint32_t number = NumberOf(instance);
  bool there = TreeFind(txn, instance, &record) == 0, wanted = entry.value == "1";
  if (!wanted && entry.value != "0")
    PassOver(entry, "its value is neither 1 nor 0");
  else if (wanted && !there && TreeMayGrow(txn, 0, true) != 0) {
    (void)RaiseHighest(txn, array, number); /* no number is used twice; logged */
    PassOver(entry, kNoRoom);
  } else if (there != wanted && (wanted ? TreeAddInstance(txn, array, number)
                                        : TreeDeleteInstance(txn, array, number)) != 0)
    PassOver(entry, "it cannot be made or deleted");
}

bool IsArray(MDB_txn *txn, const Key &key) {
  Record record;
  return TreeFind(txn, key, &record) == 0 && record.head.kind == KIND_ARRAY;
}

/* Only a write that fails ends it. */
int LayRows(MDB_txn *txn, const Kept &entry) {
  Key key, above;
  if (KeyOfPath(entry.key.c_str(), KEY_NODE, &key) != 0)
    PassOver(entry, "its path is none");
  else if (IsArray(txn, key))
    LayArray(txn, entry, key);
  else if (NumberOf(key) != 0 && KeyParent(key, &above) == 0 && IsArray(txn, above))
    LayInstance(txn, entry, above, key);
  else
    PassOver(entry, "there is no such array");
  return TreeThread()->failed ? -1 : 0;
}

/* Whether the leaf may have the value, which becomes what is laid; else why not. */
int CheckKept(MDB_txn *txn, const Kept &entry, const Record &leaf, std::string *value,
              std::string *why) {
  AmsDeskLeaf checked;
  std::string_view set;
  if (ams_desk_check_kept == nullptr || TreeAttributes(txn, leaf.head.attributes, &set) != 0)
    return 0;
  checked.path = entry.key;
  LeafAttributes(set, &checked);
  return ams_desk_check_kept(checked, value, why);
}

bool IsCount(MDB_txn *txn, const Key &leaf) {
  constexpr size_t tail = sizeof kEntriesName - 1;
  std::string_view bytes(reinterpret_cast<const char *>(leaf.bytes), leaf.length);
  if (leaf.length <= leaf.last + 1 + tail || bytes.substr(leaf.length - tail) != kEntriesName)
    return false;
  Key array = leaf;
  array.length -= tail;
  array.bytes[array.last] = KEY_NODE;
  return IsArray(txn, array);
}

int LayLeaf(MDB_txn *txn, const Kept &entry) {
  Key key;
  Record leaf;
  std::string value = entry.value, why;
  if (entry.value.size() > AMS_VALUE_MAX ||
      entry.value.find(static_cast<char>(AMS_SEPARATOR)) != std::string::npos)
    PassOver(entry, "its value is too long or holds byte 0x03");
  else if (KeyOfPath(entry.key.c_str(), KEY_LEAF, &key) != 0 || TreeFind(txn, key, &leaf) != 0)
    PassOver(entry, "there is no such leaf");
  else if (CheckKept(txn, entry, leaf, &value, &why) != 0)
    PassOver(entry, why.c_str());
  else if (IsCount(txn, key))
    PassOver(entry, "it counts the instances of an array");
  else if (int result = TreeSetLeaf(txn, key, value, SET_AGAIN | SET_IF_ROOM);
           result == LEAF_READONLY)
    PassOver(entry, "it is read-only");
  else if (result == LEAF_FULL)
    PassOver(entry, kNoRoom);
  return TreeThread()->failed ? -1 : 0;
}

bool IsRowsKey(const Kept &entry) { return !entry.key.empty() && entry.key.back() == '.'; }

}  // namespace

/* Rows first: in byte order an outer array comes before its instances, these before what is in
   them. */
int update_from_nvram(struct AmsTree *root, int area) {
  std::vector<Kept> entries;
  if (root == nullptr) {
    AMS_PRINT(4, "store: no tree to lay kept parameters over\n");
    return -1;
  }
  /* Whoever keeps a change meanwhile waits for its end. */
  return TreeWrite([&](MDB_txn *txn) {
    const std::string below = std::string(kRootName) + ".";
    if (nvram_walk(area, below.c_str(), Collect, &entries) != 0) return -1;
    if (StatusTakeUnlessLoaded(txn) != 0) return -1;
    for (const Kept &entry : entries)
      if (IsRowsKey(entry) && LayRows(txn, entry) != 0) return -1;
    for (const Kept &entry : entries)
      if (!IsRowsKey(entry) && LayLeaf(txn, entry) != 0) return -1;
    if (ChangesLay(txn) != 0) return -1;
    return StatusLay(txn);
  });
}
