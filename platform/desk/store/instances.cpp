// Adding and deleting instances of arrays; see instances.h. What a new one looks like is the
// array's template.
#include "instances.h"

#include <algorithm>
#include <cstdio>

#include "ams_print.h"
#include "ams_store.h"
#include "attributes.h"
#include "keep.h"
#include "put.h"
#include "room.h"
#include "scan.h"
#include "tree.h"

namespace {

/* One row of a new instance, whole: writing would move what a template's row points to. */
struct NewRow {
  std::string key, data;
};

/* What a template is made an instance of. */
struct Making {
  MDB_txn *txn;
  const Record &array;
  uint32_t number;
  Key top, instance; /* the template's key and the instance's */
  std::vector<NewRow> *rows;
};

/* A template's row with the instance's place in its order where the template's own was. */
std::string InstanceRecord(const Making &making, const Record &row) {
  const Record &array = making.array;
  size_t front = array.head.order_length, skip = front + sizeof making.number;
  std::string order(reinterpret_cast<const char *>(array.order), front);
  for (int shift = 24; shift >= 0; shift -= 8) order += static_cast<char>(making.number >> shift);
  if (row.head.order_length > skip)
    order.append(reinterpret_cast<const char *>(row.order) + skip, row.head.order_length - skip);
  RecordHead head = row.head;
  head.order_length = static_cast<uint16_t>(order.size());
  std::string record(RecordSize(head, row.length), '\0');
  RecordWrite(head, order.data(), {row.value, row.length}, &record[0]);
  return record;
}

/* The key in the instance of what has this one in the template. */
std::string KeyIn(const Making &making, const MDB_val &key) {
  const size_t top = making.top.length;
  std::string made(reinterpret_cast<const char *>(making.instance.bytes), making.instance.length);
  return made.append(static_cast<char *>(key.mv_data) + top, key.mv_size - top);
}

/* The paths of an object's leaves must fit; `longest`: bytes of their names with a dot, 0: none. */
int CheckPath(const Making &making, const std::string &key, size_t longest) {
  char path[kKeyMax + 1];
  const uint8_t *bytes = reinterpret_cast<const uint8_t *>(key.data());
  if (key.size() <= kKeyMax && KeyToPath(bytes, key.size(), path) + longest < AMS_PATH_SIZE)
    return 0;
  (void)KeyToPath(making.instance.bytes, making.instance.length, path); /* for the text */
  AMS_PRINT(4, "store: no room for %s: a path has at most %d bytes\n", path, AMS_PATH_SIZE - 1);
  return -1;
}

/* The notify attribute of a node of the template's, `from`, is the instance's, too. */
void MakeNotify(const Making &making, const Key &from, const Record &record) {
  if ((record.head.flags & RECORD_NOTIFY) == 0) return;
  making.rows->push_back({static_cast<char>(KEY_NOTIFY) + KeyIn(making, KeyVal(from)),
                          TreeNotify(making.txn, from, record)});
}

/* Makes a new row of a template's. */
int MakeRow(const Making &making, const MDB_val &key, const MDB_val &data) {
  Key from;
  Record record;
  size_t longest = 0;
  const std::string made = KeyIn(making, key);
  if (KeyIsApart(key)) { /* its object's row was looked at */
    making.rows->push_back({made, std::string(static_cast<char *>(data.mv_data), data.mv_size)});
    return 0;
  }
  if (RecordParse(data, &record) != 0 || KeyOfBytes(key.mv_data, key.mv_size, &from) != 0)
    return TreeFailed("reading", MDB_CORRUPTED);
  making.rows->push_back({made, InstanceRecord(making, record)});
  MakeNotify(making, from, record);
  auto each = [&](const Record &leaf) {
    Key leaf_from;
    longest = std::max(longest, leaf.name_length + size_t{1});
    if (TreeLeafKey(KeyVal(from), leaf, &leaf_from) == 0) MakeNotify(making, leaf_from, leaf);
  };
  if (TreeLeaves(making.txn, key, record, each) != 0) return -1;
  return CheckPath(making, made, longest);
}

bool OfNestedTemplate(const MDB_val &key, size_t behind) {
  const char *bytes = static_cast<char *>(key.mv_data);
  return memchr(bytes + behind, KEY_EACH, key.mv_size - behind) != nullptr;
}

/* Reads the template of `array` as the rows of instance `number`; nested templates stay behind. */
int RowsOfTemplate(MDB_txn *txn, const Key &array, const Record &record, uint32_t number,
                   std::vector<NewRow> *rows) {
  Making making = {txn, record, number, {}, array, rows};
  TreeCursor cursor;
  MDB_val key, data;
  const char each = KEY_EACH;
  const Key &top = making.top;
  KeyGeneral(array.bytes, array.length, &making.top);
  if (KeyAppendNumber(&making.instance, number) != 0) return -1;
  if (KeyAppendName(&making.top, KEY_NODE, {&each, 1}) != 0) return -1;
  if (TreeOpenCursor(txn, &cursor) != 0) return -1;
  int rc = TreeSeek(cursor.get(), top, top, &key, &data), result = 0;
  while (result == 0 && rc == 0 && KeyBelow(key, top.bytes, top.length)) {
    if (!OfNestedTemplate(key, top.length)) result = MakeRow(making, key, data);
    rc = mdb_cursor_get(cursor.get(), &key, &data, MDB_NEXT);
  }
  return result;
}

}  // namespace

int TreeDeleteRun(MDB_txn *txn, const Key &top) {
  TreeCursor cursor;
  MDB_val key, data;
  if (TreeOpenCursor(txn, &cursor) != 0) return -1;
  int rc = 0, room = 0;
  while (rc == 0 && TreeSeek(cursor.get(), top, top, &key, &data) == 0 &&
         (room = TreeRoom(txn, 0)) == 0)
    rc = mdb_cursor_del(cursor.get(), 0);
  return rc == 0 ? room : TreeFailed("writing", rc);
}

namespace {

struct Instance {
  Key array;
  uint32_t number;
  bool of_file; /* the data-model file's */
};

int FindInstance(MDB_txn *txn, const char *path, Instance *instance) {
  Key key;
  Record record;
  if (path == nullptr || KeyOfPath(path, KEY_NODE, &key) != 0) return -1;
  if (KeyParent(key, &instance->array) != 0 || TreeFind(txn, key, &record) != 0) return -1;
  instance->number = KeyNumber(key.bytes + key.last + 1, key.length - key.last - 1);
  instance->of_file = RecordChildren(record).of_file != 0;
  return instance->number == 0 ? -1 : 0;
}

int AddNext(MDB_txn *txn, const char *path, char *url) {
  Key array;
  Record record;
  if (path == nullptr || KeyOfPath(path, KEY_NODE, &array) != 0 ||
      TreeFind(txn, array, &record) != 0 || record.head.kind != KIND_ARRAY) {
    AMS_PRINT(4, "store: nothing added: %.255s is no array\n", path == nullptr ? "" : path);
    return -1;
  }
  uint32_t highest = RecordCounts(record).highest;
  if (highest == UINT32_MAX) {
    AMS_PRINT(4, "store: nothing added: %s has used up its numbers\n", path);
    return -1;
  }
  int rc = TreeMayGrow(txn, 0, false);
  if (rc != 0) return TreeFailed("adding to", rc);
  if (TreeAddInstance(txn, array, highest + 1) != 0) return -1;
  if (KeepAdded(array, highest + 1) != 0) return TreeGivenUp(); /* the row is there already */
  char text[kKeyMax + 16];
  size_t length = KeyToPath(array.bytes, array.length, text);
  snprintf(text + length, sizeof text - length, ".%u", highest + 1);
  memcpy(url, text, strlen(text) + 1); /* the instance's path was checked to fit */
  return 0;
}

int DeleteOne(MDB_txn *txn, const char *path) {
  Instance instance;
  Record record;
  if (FindInstance(txn, path, &instance) != 0) {
    AMS_PRINT(4, "store: nothing deleted: %.255s is no instance\n", path == nullptr ? "" : path);
    return -1;
  }
  const Key &array = instance.array;
  if (TreeDeleteInstance(txn, array, instance.number) != 0) return -1;
  if (TreeFind(txn, array, &record) != 0) return TreeFailed("reading", MDB_NOTFOUND);
  const uint32_t highest = RecordCounts(record).highest;
  if (KeepDeleted(array, instance.number, instance.of_file, highest) == 0) return 0;
  return TreeGivenUp(); /* the row is gone already */
}

}  // namespace

int TreeInstances(MDB_txn *txn, const Key &array, std::vector<uint32_t> *numbers) {
  return TreeChildren(txn, array, [&](const MDB_val &key, const MDB_val &) {
    const uint8_t *component = static_cast<uint8_t *>(key.mv_data) + array.length + 1;
    uint32_t number = KeyNumber(component, key.mv_size - array.length - 1);
    if (number == 0) return false; /* the objects beside the instances */
    numbers->push_back(number);
    return true;
  });
}

int TreePutCounts(MDB_txn *txn, const Key &array, const ArrayCounts &counts) {
  Record record;
  if (TreeFind(txn, array, &record) != 0) return TreeFailed("writing", MDB_NOTFOUND);
  std::string_view bytes(reinterpret_cast<const char *>(&counts), sizeof counts);
  if (TreePutRecord(txn, array, record, bytes) != 0) return -1;
  Key entries = array;
  entries.bytes[entries.last] = KEY_LEAF;
  if (KeyAppend(&entries, kEntriesName, sizeof kEntriesName - 1) != 0) return 0;
  int result = TreeSetLeaf(txn, entries, std::to_string(counts.count),
                           SET_READONLY | SET_REPORT | SET_AGAIN);
  return result == LEAF_NONE ? 0 : result; /* the file need not have it */
}

int TreeAddInstance(MDB_txn *txn, const Key &array, uint32_t number) {
  Record record;
  std::vector<NewRow> rows;
  if (TreeFind(txn, array, &record) != 0) return TreeFailed("writing", MDB_NOTFOUND);
  ArrayCounts counts = RecordCounts(record);
  if (RowsOfTemplate(txn, array, record, number, &rows) != 0) return -1;
  if (rows.empty()) {
    char path[kKeyMax + 1];
    (void)KeyToPath(array.bytes, array.length, path); /* for the text */
    AMS_PRINT(4, "store: nothing added: %s has no Template\n", path);
    return -1;
  }
  for (const NewRow &row : rows) {
    Key key;
    if (KeyOfBytes(row.key.data(), row.key.size(), &key) != 0 ||
        TreePut(txn, key, row.data.data(), row.data.size()) != 0)
      return -1;
  }
  counts.highest = std::max(counts.highest, number);
  ++counts.count;
  return TreePutCounts(txn, array, counts);
}

int TreeDeleteInstance(MDB_txn *txn, const Key &array, uint32_t number) {
  Record record;
  Key instance = array;
  if (TreeFind(txn, array, &record) != 0) return TreeFailed("writing", MDB_NOTFOUND);
  ArrayCounts counts = RecordCounts(record);
  if (KeyAppendNumber(&instance, number) != 0) return TreeFailed("writing", MDB_BAD_VALSIZE);
  if (TreeDeleteRun(txn, instance) != 0) return -1;
  if (TreeDeleteRun(txn, KeyMarked(KEY_NOTIFY, instance)) != 0) return -1;
  if (TreeDeleteRun(txn, KeyMarked(KEY_CHANGED, instance)) != 0) return -1;
  if (counts.count > 0) --counts.count;
  return TreePutCounts(txn, array, counts);
}

int ams_add_obj(struct AmsTree *root, const char *array, char url[AMS_PATH_SIZE]) {
  char added[AMS_PATH_SIZE];
  if (root == nullptr || url == nullptr) {
    AMS_PRINT(4, "store: an add needs a tree and a buffer\n");
    return -1;
  }
  url[0] = '\0';
  if (TreeWrite([&](MDB_txn *txn) { return AddNext(txn, array, added); }) != 0) return -1;
  memcpy(url, added, strlen(added) + 1);
  return 0;
}

int ams_del_obj(struct AmsTree *root, const char *instance) {
  if (root == nullptr) {
    AMS_PRINT(4, "store: a delete needs a tree\n");
    return -1;
  }
  return TreeWrite([=](MDB_txn *txn) { return DeleteOne(txn, instance); });
}
