// Changed parameters in nvram area 1, by path: keeping them, and laying them over the tree at
// start. An array's key is its path and a dot, its value "1,3,7/9": instances / highest ever used.
#include <algorithm>
#include <cstdlib>

#include "ams_store.h"
#include "nvram.h"
#include "store_desk.h"
#include "tree.h"

namespace {

struct Kept {
  std::string key, value;
};

AmsDeskCheck gCheck; /* set before any thread reads it */

int Collect(const char *key, const char *value, void *context) {
  static_cast<std::vector<Kept> *>(context)->push_back({key, value});
  return 0;
}

void PassOver(const Kept &entry, const char *reason) {
  STORE_LOG("store: kept parameter %s passed over: %s\n", entry.key.c_str(), reason);
}

/* Reads "1,3,7/9". -1 when it is anything else. */
int ParseInstances(const std::string &text, std::vector<uint32_t> *numbers, uint32_t *highest) {
  const char *at = text.c_str();
  char *end;
  while (*at != '/') {
    unsigned long number = strtoul(at, &end, 10);
    if (*at < '1' || *at > '9' || number > UINT32_MAX || (*end != ',' && *end != '/')) return -1;
    numbers->push_back(static_cast<uint32_t>(number));
    at = *end == ',' ? end + 1 : end;
  }
  unsigned long last = strtoul(at + 1, &end, 10);
  if (at[1] < '0' || at[1] > '9' || *end != '\0' || last > UINT32_MAX) return -1;
  *highest = static_cast<uint32_t>(last);
  std::sort(numbers->begin(), numbers->end());
  numbers->erase(std::unique(numbers->begin(), numbers->end()), numbers->end());
  return 0;
}

/* Deletes the instances that are not wanted, adds those that are missing. 0 or -1 (logged). */
int MatchInstances(MDB_txn *txn, const Key &array, const std::vector<uint32_t> &wanted,
                   uint32_t highest) {
  std::vector<uint32_t> present;
  Record record;
  if (TreeInstances(txn, array, &present) != 0) return -1;
  for (uint32_t number : present)
    if (!std::binary_search(wanted.begin(), wanted.end(), number) &&
        TreeDeleteInstance(txn, array, number) != 0)
      return -1;
  for (uint32_t number : wanted)
    if (!std::binary_search(present.begin(), present.end(), number) &&
        TreeAddInstance(txn, array, number) != 0)
      return -1;
  if (TreeFind(txn, array, &record) != 0) return TreeFailed("reading", MDB_NOTFOUND);
  ArrayCounts counts = RecordCounts(record);
  counts.highest = std::max(counts.highest, highest);
  return TreePutCounts(txn, array, counts);
}

/* What does not fit is passed over; only a write that fails ends it. */
int LayArray(MDB_txn *txn, const Kept &entry) {
  Key array;
  Record record;
  std::vector<uint32_t> numbers;
  uint32_t highest;
  if (KeyOfPath(entry.key.c_str(), KEY_NODE, &array) != KEY_OK ||
      TreeFind(txn, array, &record) != 0 || record.head.kind != KIND_ARRAY)
    PassOver(entry, "there is no such array");
  else if (ParseInstances(entry.value, &numbers, &highest) != 0)
    PassOver(entry, "its value does not read as 1,3,7/9");
  else if (MatchInstances(txn, array, numbers, highest) != 0)
    PassOver(entry, "its instances cannot be made");
  return TreeThread()->failed ? -1 : 0;
}

/* Whether the check of the leaf's kind takes the value; else why not. */
int CheckKept(MDB_txn *txn, const Kept &entry, const Record &leaf, std::string *why) {
  std::string_view set;
  if (gCheck == nullptr || TreeAttributes(txn, leaf.head.attributes, &set) != 0) return 0;
  std::string form(AttributeIn(set, "check"));
  return form.empty() ? 0 : gCheck(entry.key, form, entry.value, why);
}

int LayLeaf(MDB_txn *txn, const Kept &entry) {
  Key key;
  Record leaf;
  std::string why;
  if (entry.value.size() > AMS_VALUE_MAX ||
      entry.value.find(static_cast<char>(AMS_SEPARATOR)) != std::string::npos)
    PassOver(entry, "its value is too long or holds byte 0x03");
  else if (KeyOfPath(entry.key.c_str(), KEY_LEAF, &key) != KEY_OK || TreeFind(txn, key, &leaf) != 0)
    PassOver(entry, "there is no such leaf");
  else if (CheckKept(txn, entry, leaf, &why) != 0)
    PassOver(entry, why.c_str());
  else if (TreeSetLeaf(txn, key, entry.value, false, false) == LEAF_READONLY)
    PassOver(entry, "it is read-only");
  return TreeThread()->failed ? -1 : 0;
}

bool IsArrayKey(const Kept &entry) { return !entry.key.empty() && entry.key.back() == '.'; }

/* Reads `path` as a node of the wanted sort and makes its key in nvram. 0 or -1 (logged). */
int FindKept(MDB_txn *txn, const char *path, bool array, Key *key, Record *record,
             std::string *kept) {
  char text[KEY_MAX + 1];
  if (path == nullptr || KeyOfPath(path, array ? KEY_NODE : KEY_LEAF, key) != KEY_OK ||
      key->last == 0 || TreeFind(txn, *key, record) != 0 ||
      (record->head.kind == KIND_ARRAY) != array) {
    STORE_LOG("store: %.255s not kept: it is no %s\n", path == nullptr ? "" : path,
              array ? "array" : "leaf");
    return -1;
  }
  kept->assign(text, KeyToPath(key->bytes, key->length, text));
  if (array) *kept += '.';
  return 0;
}

std::string InstancesText(const std::vector<uint32_t> &numbers, uint32_t highest) {
  std::string text;
  for (uint32_t number : numbers) text += (text.empty() ? "" : ",") + std::to_string(number);
  return text + "/" + std::to_string(highest);
}

/* What is kept of one row; false when it says no more than its template. */
bool KeptOf(MDB_txn *txn, const Key &key, const Record &row, Kept *kept) {
  Key general;
  Record shape;
  char path[KEY_MAX + 1];
  bool array = row.head.kind == KIND_ARRAY;
  if (!array && (!RecordIsLeaf(row) || (row.head.flags & RECORD_READONLY) != 0)) return false;
  KeyGeneral(key.bytes, key.length, &general);
  std::string_view value(row.value, row.length);
  if (TreeFind(txn, general, &shape) == 0 && value == std::string_view(shape.value, shape.length))
    return false;
  kept->key.assign(path, KeyToPath(key.bytes, key.length, path));
  kept->value = value;
  if (!array) return true;
  std::vector<uint32_t> numbers;
  if (TreeInstances(txn, key, &numbers) != 0) return false;
  kept->key += '.';
  kept->value = InstancesText(numbers, RecordCounts(row).highest);
  return true;
}

int GatherKept(MDB_txn *txn, const Key &top, std::vector<Kept> *kept) {
  MDB_cursor *cursor;
  MDB_val at, data;
  if (TreeCursor(txn, &cursor) != 0) return -1;
  int rc = TreeSeek(cursor, top, top, &at, &data);
  for (; rc == 0 && KeyBelow(at, top.bytes, top.length);
       rc = mdb_cursor_get(cursor, &at, &data, MDB_NEXT)) {
    Record row;
    Kept one;
    Key key;
    key.length = key.last = 0;
    if (RecordParse(data, &row) == 0 && KeyAppend(&key, at.mv_data, at.mv_size) == 0 &&
        KeptOf(txn, key, row, &one))
      kept->push_back(one);
  }
  TreeCursorEnd(cursor);
  return 0;
}

int Unset(const char *key, const char *, void *) { return nvram_unset(key, NVTYPE_STAGING); }

}  // namespace

/* Arrays first: in byte order an outer array comes before what is in its instances. */
int update_from_nvram(struct AmsTree *root, int area) {
  std::vector<Kept> entries;
  if (root == nullptr) {
    STORE_LOG("store: no tree to lay kept parameters over\n");
    return -1;
  }
  std::string below = std::string(kRootName) + ".";
  if (nvram_walk(area, below.c_str(), Collect, &entries) != 0) return -1;
  return TreeWrite([&](MDB_txn *txn) {
    for (const Kept &entry : entries)
      if (IsArrayKey(entry) && LayArray(txn, entry) != 0) return -1;
    for (const Kept &entry : entries)
      if (!IsArrayKey(entry) && LayLeaf(txn, entry) != 0) return -1;
    return 0;
  });
}

int ams_desk_persist_leaf(const char *path) {
  std::string key, value;
  int result = TreeRead([&](MDB_txn *txn) {
    Key found;
    Record leaf;
    if (FindKept(txn, path, false, &found, &leaf, &key) != 0) return -1;
    value.assign(leaf.value, leaf.length);
    return 0;
  });
  return result != 0 ? -1 : nvram_set(key.c_str(), value.c_str(), NVTYPE_STAGING);
}

int ams_desk_persist_array(const char *array) {
  std::string key, value;
  int result = TreeRead([&](MDB_txn *txn) {
    Key found;
    Record record;
    std::vector<uint32_t> numbers;
    if (FindKept(txn, array, true, &found, &record, &key) != 0) return -1;
    if (TreeInstances(txn, found, &numbers) != 0) return -1;
    value = InstancesText(numbers, RecordCounts(record).highest);
    return 0;
  });
  return result != 0 ? -1 : nvram_set(key.c_str(), value.c_str(), NVTYPE_STAGING);
}

int ams_desk_persist_instance(const char *instance) {
  std::vector<Kept> kept;
  int result = TreeRead([&](MDB_txn *txn) {
    Key key;
    if (instance == nullptr || TreeKey(instance, KEY_NODE, &key) != 0) return -1;
    return GatherKept(txn, key, &kept);
  });
  for (const Kept &one : kept)
    if (nvram_set(one.key.c_str(), one.value.c_str(), NVTYPE_STAGING) != 0) result = -1;
  return result;
}

int ams_desk_forget(const char *instance) {
  size_t length = instance == nullptr ? 0 : strnlen(instance, AMS_PATH_SIZE);
  if (length == 0 || length == AMS_PATH_SIZE) {
    STORE_LOG("store: nothing forgotten: an instance's path has 1 to 255 bytes\n");
    return -1;
  }
  std::string below(instance, length);
  if (below.back() != '.') below += '.';
  return nvram_walk(NVTYPE_STAGING, below.c_str(), Unset, nullptr);
}

void ams_desk_check_kept(AmsDeskCheck check) { gCheck = check; }
