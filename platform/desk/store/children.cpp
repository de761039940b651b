// Walking the children of a node: instances by a step of the cursor, an object's children from a
// list that the thread keeps while nothing is written.
#include <algorithm>
#include <memory>

#include "ams_store.h"
#include "found.h"
#include "tree.h"

namespace {

/* The children of the object that this thread looked at last, as the file has them. */
struct ChildList {
  Key parent;
  size_t txn_id;
  size_t at; /* the child handed out last */
  std::vector<std::string> keys;
};

ChildList *ThreadList() {
  thread_local std::unique_ptr<ChildList> list(new ChildList{});
  return list.get();
}

int CopyUrl(const uint8_t *key, size_t length, char url[AMS_PATH_SIZE]) {
  char path[kKeyMax + 1];
  size_t size = KeyToPath(key, length, path) + 1;
  if (size > AMS_PATH_SIZE) return -1; /* cannot be: such nodes are refused */
  memcpy(url, path, size);
  return 0;
}

/* The nodes in `parent`, which has this record, as the file has them. */
int FindChildren(MDB_txn *txn, const Key &parent, const Record &record,
                 std::vector<Found> *children) {
  const MDB_val parent_key = KeyVal(parent);
  if (TreeLeaves(txn, parent_key, record, [&](const Record &leaf) {
        children->push_back({0, parent.bytes, parent.length, leaf});
      }) != 0)
    return -1;
  const int failed = TreeChildren(txn, parent, [&](const MDB_val &key, const MDB_val &data) {
    Found child = {0, static_cast<uint8_t *>(key.mv_data), key.mv_size, {}};
    if (RecordParse(data, &child.record) == 0) children->push_back(child);
    return true;
  });
  if (failed == 0) TreeSort(children, record.head.order_length);
  return failed;
}

int FillList(MDB_txn *txn, const Key &parent, const Record &record, ChildList *list) {
  std::vector<Found> children;
  Key key;
  if (FindChildren(txn, parent, record, &children) != 0) return -1;
  list->parent.length = 0; /* nobody's until it is whole */
  list->keys.clear();
  for (const Found &child : children)
    if (FoundKey(child, &key) == 0)
      list->keys.emplace_back(reinterpret_cast<const char *>(key.bytes), key.length);
  list->parent = parent;
  list->txn_id = TreeReadId(txn);
  list->at = 0;
  return 0;
}

bool ListFits(const ChildList &list, MDB_txn *txn, const Key &parent) {
  return list.txn_id != 0 && list.txn_id == TreeReadId(txn) &&
         list.parent.length == parent.length &&
         memcmp(list.parent.bytes, parent.bytes, parent.length) == 0;
}

int HandOut(ChildList *list, size_t at, char url[AMS_PATH_SIZE]) {
  if (at >= list->keys.size()) return -1;
  list->at = at;
  const std::string &key = list->keys[at];
  return CopyUrl(reinterpret_cast<const uint8_t *>(key.data()), key.size(), url);
}

bool IsInstance(const uint8_t *key, size_t length, const Key &array) {
  return KeyNumber(key + array.length + 1, length - array.length - 1) != 0;
}

/* The first of the objects that stand beside the instances. */
int FirstBeside(MDB_txn *txn, const Key &array, char url[AMS_PATH_SIZE]) {
  Record record;
  ChildList *list = ThreadList();
  if (TreeFind(txn, array, &record) != 0) return -1;
  if (!ListFits(*list, txn, array) && FillList(txn, array, record, list) != 0) return -1;
  auto beside = std::find_if(list->keys.begin(), list->keys.end(), [&](const std::string &key) {
    return !IsInstance(reinterpret_cast<const uint8_t *>(key.data()), key.size(), array);
  });
  return HandOut(list, static_cast<size_t>(beside - list->keys.begin()), url);
}

/* The first row of an array at or behind `from` is an instance's own, or behind them all. */
int NextInstance(MDB_txn *txn, const Key &from, const Key &array, char url[AMS_PATH_SIZE]) {
  TreeCursor cursor;
  MDB_val key, data;
  if (TreeOpenCursor(txn, &cursor) != 0) return -1;
  int result = TreeSeek(cursor.get(), from, array, &key, &data);
  const uint8_t *bytes = static_cast<uint8_t *>(key.mv_data);
  bool beside = result == 0 && !IsInstance(bytes, key.mv_size, array);
  if (result == 0 && !beside) result = CopyUrl(bytes, key.mv_size, url);
  cursor.reset();
  return beside ? FirstBeside(txn, array, url) : result;
}

int FirstChild(MDB_txn *txn, const char *path, char url[AMS_PATH_SIZE]) {
  Key parent;
  Record record;
  if (TreeFindPath(txn, path, true, &parent, &record) != 0 || RecordIsLeaf(record)) return -1;
  if (record.head.kind == KIND_ARRAY) {
    Key from = parent;
    from.bytes[from.length++] = KEY_NODE;
    return NextInstance(txn, from, parent, url);
  }
  ChildList *list = ThreadList();
  if (!ListFits(*list, txn, parent) && FillList(txn, parent, record, list) != 0) return -1;
  return HandOut(list, 0, url);
}

int NextOfObject(MDB_txn *txn, const Key &child, const Key &parent, char url[AMS_PATH_SIZE]) {
  ChildList *list = ThreadList();
  if (!ListFits(*list, txn, parent)) {
    Record record;
    if (TreeFind(txn, parent, &record) != 0) return -1;
    if (FillList(txn, parent, record, list) != 0) return -1;
  }
  std::string wanted(reinterpret_cast<const char *>(child.bytes), child.length);
  for (uint8_t separator : {KEY_NODE, KEY_LEAF}) {
    wanted[child.last] = static_cast<char>(separator);
    if (list->at < list->keys.size() && list->keys[list->at] == wanted)
      return HandOut(list, list->at + 1, url);
    auto found = std::find(list->keys.begin(), list->keys.end(), wanted);
    if (found != list->keys.end())
      return HandOut(list, static_cast<size_t>(found - list->keys.begin()) + 1, url);
  }
  return -1;
}

int NextChild(MDB_txn *txn, const char *path, char url[AMS_PATH_SIZE]) {
  Key child, parent;
  if (TreeKey(path, KEY_NODE, &child) != 0 || KeyParent(child, &parent) != 0) return -1;
  if (KeyNumber(child.bytes + child.last + 1, child.length - child.last - 1) == 0)
    return NextOfObject(txn, child, parent, url);
  child.bytes[child.length++] = KEY_END;
  return NextInstance(txn, child, parent, url);
}

}  // namespace

int ams_get_first_child(struct AmsTree *root, const char *parent, char url[AMS_PATH_SIZE]) {
  if (root == nullptr || url == nullptr) return -1;
  return TreeRead([=](MDB_txn *txn) { return FirstChild(txn, parent, url); });
}

int ams_get_next_child(struct AmsTree *root, const char *child, char url[AMS_PATH_SIZE]) {
  if (root == nullptr || url == nullptr) return -1;
  return TreeRead([=](MDB_txn *txn) { return NextChild(txn, child, url); });
}
