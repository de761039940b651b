// Writing leaves, taking that back, and notify attributes. Instances: instances.cpp; whole files:
// load.cpp.
#include <memory>

#include "ams_print.h"
#include "ams_store.h"
#include "changes.h"
#include "keep.h"
#include "put.h"
#include "tree.h"

namespace {

constexpr size_t kNotifyMax = 64;
constexpr unsigned kConfiguration = SET_REPORT, kStatus = SET_REPORT | SET_READONLY | SET_STATUS;

/* Text forms end a value at the separator, so no value may hold it. */
int CheckValue(const char *path, const char *value, std::string_view *checked) {
  *checked = {value, strnlen(value, AMS_VALUE_MAX + 1)};
  if (checked->size() > AMS_VALUE_MAX) {
    AMS_PRINT(4, "store: %s not set: a value has at most %d bytes\n", path, AMS_VALUE_MAX);
    return -1;
  }
  if (checked->find(static_cast<char>(AMS_SEPARATOR)) != std::string_view::npos) {
    AMS_PRINT(4, "store: %s not set: a value must not hold byte 0x03\n", path);
    return -1;
  }
  return 0;
}

int Set(struct AmsTree *root, const char *path, const char *value, bool status) {
  Key key;
  std::string_view checked;
  if (root == nullptr || path == nullptr) {
    AMS_PRINT(4, "store: a set needs a tree and a path\n");
    return -1;
  }
  if (CheckValue(path, value == nullptr ? "" : value, &checked) != 0) return -1;
  if (KeyOfPath(path, KEY_LEAF, &key) != 0) key.last = key.length = 0; /* logged as no leaf */
  return TreeWrite([&](MDB_txn *txn) {
    int result = TreeSetLeaf(txn, key, checked, status ? kStatus : kConfiguration);
    if (result == LEAF_NONE)
      AMS_PRINT(4, "store: %.255s not set: it is no leaf of the tree\n", path);
    if (result == LEAF_READONLY) AMS_PRINT(4, "store: %s not set: it is read-only\n", path);
    if (result == 0 && !status) KeepLeaf(key, checked);
    return result == 0 ? 0 : -1;
  });
}

AmsTree *SharedRoot() { return gptXmlTrees == nullptr ? nullptr : gptXmlTrees->root; }

}  // namespace

int ams_set_node_value(struct AmsTree *root, const char *path, const char *value) {
  return Set(root, path, value, false);
}

int ams_sset_node_value(struct AmsTree *root, const char *path, const char *value) {
  return Set(root, path, value, true);
}

int ams_mxml_fset_leaf(const char *path, const char *value) {
  return Set(SharedRoot(), path, value, true);
}

int ams_mxml_sset_leaf_int(const char *path, int value) {
  return Set(SharedRoot(), path, std::to_string(value).c_str(), true);
}

/* The leaves in the order in which they were noted: the same one may be there more than once. */
struct AmsUndo {
  struct Leaf {
    Key key;
    bool status;
    std::string value;
    std::optional<std::string> kept;
  };
  std::vector<Leaf> leaves;
};

int ams_undo_note(struct AmsTree *root, struct AmsUndo **undo, const char *path) {
  if (root == nullptr || undo == nullptr || path == nullptr) return -1;
  return TreeRead([=](MDB_txn *txn) {
    AmsUndo::Leaf leaf = {};
    Record record;
    if (KeyOfPath(path, KEY_LEAF, &leaf.key) != 0 || TreeFind(txn, leaf.key, &record) != 0 ||
        !RecordIsLeaf(record)) {
      AMS_PRINT(4, "store: %.255s is no leaf of the tree\n", path);
      return -1;
    }
    leaf.status = (record.head.flags & RECORD_STATUS) != 0;
    leaf.value.assign(record.value, record.length);
    if (KeepRead(leaf.key, &leaf.kept) != 0) return TreeGivenUp(); /* else it would stay unset */
    if (*undo == nullptr) *undo = new AmsUndo;
    (*undo)->leaves.push_back(std::move(leaf));
    return 0;
  });
}

namespace {

int PutBack(MDB_txn *txn, const AmsUndo::Leaf &leaf) {
  unsigned how = SET_REPORT | SET_READONLY | SET_AGAIN | (leaf.status ? SET_STATUS : 0U);
  int result = TreeSetLeaf(txn, leaf.key, leaf.value, how);
  return result == 0 ? KeepAgain(leaf.key, leaf.kept) : result == LEAF_NONE ? 0 : -1;
}

}  // namespace

int ams_undo_end(struct AmsUndo *undo, int put_back) {
  std::unique_ptr<AmsUndo> owned(undo);
  if (undo == nullptr || put_back == 0) return 0;
  return TreeWrite([=](MDB_txn *txn) {
    int result = 0;
    for (auto leaf = undo->leaves.rbegin(); leaf != undo->leaves.rend() && result == 0; ++leaf)
      result = PutBack(txn, *leaf);
    return result;
  });
}

int ams_set_attr(struct AmsTree *root, const char *path, const char *value) {
  if (root == nullptr || path == nullptr || value == nullptr) {
    AMS_PRINT(4, "store: the notify attribute needs a tree, a path and a value\n");
    return -1;
  }
  if (value[0] == '\0' || strnlen(value, kNotifyMax + 1) > kNotifyMax) {
    AMS_PRINT(4, "store: the notify attribute of %.255s needs 1 to %zu bytes\n", path, kNotifyMax);
    return -1;
  }
  return TreeWrite([=](MDB_txn *txn) {
    Key key;
    Record record;
    if (TreeFindPath(txn, path, false, &key, &record) == 0) {
      KeepBeside(kKeptNotify, key, value);
      return NotifyPut(txn, key, record, value);
    }
    AMS_PRINT(4, "store: no node %.255s\n", path);
    return -1;
  });
}
