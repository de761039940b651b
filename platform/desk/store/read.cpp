// Reading single values, attributes and instance numbers. Texts of whole objects: text.cpp; walking
// from child to child: children.cpp.
#include <algorithm>
#include <cstdio>

#include "ams_print.h"
#include "ams_store.h"
#include "attributes.h"
#include "instances.h"
#include "tree.h"

namespace {

/* Copies a text into a caller's buffer, cut and terminated. True when it was whole. */
bool CopyOut(std::string_view text, char *out, size_t size) {
  size_t fits = std::min(text.size(), size - 1);
  memcpy(out, text.data(), fits);
  out[fits] = '\0';
  return fits == text.size();
}

/* Numbers and kinds stand in the record; only what is left costs another look-up. */
int CopyAttribute(MDB_txn *txn, const Key &key, const Record &record, std::string_view name,
                  char *out, size_t size) {
  if (name == "type") {
    (void)CopyOut(kKindNames[record.head.kind], out, size); /* cut is all right */
    return 0;
  }
  if (name == "op" && (record.head.flags & RECORD_OP) == 0) return -1;
  if (name == "mod" && (record.head.flags & RECORD_MOD) == 0) return -1;
  std::string notify;
  std::string_view set, value;
  if (name == "notify") {
    if ((record.head.flags & RECORD_NOTIFY) == 0) return -1;
    value = notify = TreeNotify(txn, key, record);
  } else if (TreeAttributes(txn, record.head.attributes, &set) == 0) {
    value = AttributeIn(set, name);
  }
  if (value.data() == nullptr) return -1;
  (void)CopyOut(value, out, size); /* cut is all right */
  return 0;
}

int FindArray(MDB_txn *txn, const char *path, Key *key, Record *record) {
  if (TreeKey(path, KEY_NODE, key) != 0 || TreeFind(txn, *key, record) != 0) return -1;
  return record->head.kind == KIND_ARRAY ? 0 : -1;
}

std::string JoinNumbers(const std::vector<uint32_t> &numbers) {
  std::string list;
  for (uint32_t number : numbers) {
    if (!list.empty()) list += ',';
    list += std::to_string(number);
  }
  return list;
}

/* The last row before the objects beside the instances belongs to the highest instance. */
uint32_t HighestInstance(MDB_cursor *cursor, const Key &array) {
  Key end = array;
  end.bytes[end.length++] = KEY_NODE;
  end.bytes[end.length++] = ' '; /* before every name, behind every number */
  MDB_val key = KeyVal(end), data;
  int rc = mdb_cursor_get(cursor, &key, &data, MDB_SET_RANGE);
  rc = mdb_cursor_get(cursor, &key, &data, rc == 0 ? MDB_PREV : MDB_LAST);
  if (rc != 0 || key.mv_size <= array.length + 1 || !KeyBelow(key, array.bytes, array.length))
    return 0;
  const uint8_t *bytes = static_cast<uint8_t *>(key.mv_data);
  return KeyNumber(bytes + array.length + 1, key.mv_size - array.length - 1);
}

}  // namespace

int ams_check_node(struct AmsTree *root, const char *path) {
  if (root == nullptr) return -1;
  return TreeRead([=](MDB_txn *txn) {
    Key key;
    Record record;
    return TreeFindPath(txn, path, false, &key, &record);
  });
}

int ams_get_node_attr(struct AmsTree *root, const char *path, const char *name, char *value,
                      size_t size) {
  if (value == nullptr || size == 0) return -1;
  value[0] = '\0';
  if (root == nullptr || name == nullptr) return -1;
  return TreeRead([=](MDB_txn *txn) {
    Key key;
    Record record;
    if (TreeFindPath(txn, path, false, &key, &record) != 0) return -1;
    return CopyAttribute(txn, key, record, name, value, size);
  });
}

int ams_mxml_get_leaf(const char *path, char *value, size_t size) {
  Key key;
  MDB_txn *txn;
  Record leaf;
  if (gptXmlTrees == nullptr || gptXmlTrees->root == nullptr) return -1;
  if (value == nullptr || size == 0 || TreeKey(path, KEY_LEAF, &key) != 0) return -1;
  if (TreeReadBegin(&txn) != 0) return -1;
  int result = key.last == 0 ? -1 : TreeFind(txn, key, &leaf);
  bool whole = result != 0 || CopyOut({leaf.value, leaf.length}, value, size);
  TreeReadEnd(txn);
  if (!whole)
    AMS_PRINT(4, "store: the value of %s was cut to %zu bytes: set a shorter one\n", path,
              size - 1);
  return result;
}

int ams_get_idxes(struct AmsTree *root, const char *array, char *list, size_t size) {
  if (list == nullptr || size == 0) return -1;
  list[0] = '\0';
  if (root == nullptr) return -1;
  std::string text;
  int result = TreeRead([&](MDB_txn *txn) {
    Key key;
    Record record;
    std::vector<uint32_t> numbers;
    if (FindArray(txn, array, &key, &record) != 0) return -1;
    int failed = TreeInstances(txn, key, &numbers);
    text = JoinNumbers(numbers);
    return failed;
  });
  if (result == 0 && text.size() >= size) {
    AMS_PRINT(4, "store: the instances of %s do not fit %zu bytes: delete some\n", array, size);
    return -1;
  }
  if (result == 0) memcpy(list, text.c_str(), text.size() + 1);
  return result;
}

int ams_get_array_maxIndex(struct AmsTree *root, const char *array, char *text, size_t size) {
  if (root == nullptr || text == nullptr || size == 0) return -1;
  uint32_t highest = 0;
  int result = TreeRead([&](MDB_txn *txn) {
    Key key;
    Record record;
    TreeCursor cursor;
    if (FindArray(txn, array, &key, &record) != 0 || TreeOpenCursor(txn, &cursor) != 0) return -1;
    highest = HighestInstance(cursor.get(), key);
    return 0;
  });
  if (result == 0 && !CopyOut(std::to_string(highest), text, size)) {
    AMS_PRINT(4, "store: the highest instance of %s does not fit %zu bytes: ask with more room\n",
              array, size);
    text[0] = '\0';
    return -1;
  }
  return result;
}

int ams_mxml_list_array(const char *array, struct AmsArrayList *list) {
  if (list == nullptr || list->slots == nullptr) return -1;
  list->count = 0;
  if (gptXmlTrees == nullptr || gptXmlTrees->root == nullptr) return -1;
  std::vector<uint32_t> numbers;
  char path[kKeyMax];
  int result = TreeRead([&](MDB_txn *txn) {
    Key key;
    Record record;
    if (FindArray(txn, array, &key, &record) != 0) return -1;
    (void)KeyToPath(key.bytes, key.length, path); /* the length is not needed */
    return TreeInstances(txn, key, &numbers);
  });
  if (result != 0) return -1;
  if (numbers.size() > AMS_LIST_SLOTS)
    AMS_PRINT(4, "store: %s has %zu instances, the first %d are listed: delete some\n", path,
              numbers.size(), AMS_LIST_SLOTS);
  for (uint32_t number : numbers) {
    if (list->count == AMS_LIST_SLOTS) break;
    snprintf(list->slots[list->count++], AMS_LIST_SLOT_SIZE, "%s.%u.", path, number);
  }
  return 0;
}

int ams_get_attr(struct AmsTree *root, const char *path, char *value, size_t size) {
  if (root == nullptr || path == nullptr || value == nullptr || size == 0) {
    AMS_PRINT(4, "store: the notify attribute needs a tree, a path and a buffer\n");
    return -1;
  }
  std::string notify;
  int result = TreeRead([&](MDB_txn *txn) {
    Key key;
    Record record;
    if (TreeFindPath(txn, path, true, &key, &record) != 0) return -1;
    notify = TreeNotify(txn, key, record);
    return 0;
  });
  if (result != 0) {
    AMS_PRINT(4, "store: no node %s: check the path\n", path);
    return -1;
  }
  if (!CopyOut(notify, value, size))
    AMS_PRINT(4, "store: the notify attribute of %s was cut: ask with more room\n", path);
  return 0;
}
