// Who serves a node, what a leaf takes, and the check of kept values; see store_desk.h.
#include "store_desk.h"

#include <cerrno>
#include <cstring>

#include "attributes.h"
#include "tree.h"

AmsDeskCheck ams_desk_check_kept;

int ams_desk_mod(const char *path, char *mod, size_t size) {
  if (path == nullptr || mod == nullptr || size == 0) return -1;
  mod[0] = '\0';
  return TreeRead([=](MDB_txn *txn) {
    Key key;
    Record record;
    int rc = TreeFindPath(txn, path, false, &key, &record);
    while (rc == 0 && (record.head.flags & RECORD_MOD) == 0) {
      Key parent;
      rc = KeyParent(key, &parent);
      if (rc == 0) rc = TreeFind(txn, key = parent, &record);
    }
    std::string_view set;
    if (rc != 0 || TreeAttributes(txn, record.head.attributes, &set) != 0) return -1;
    std::string_view value = AttributeIn(set, "mod");
    if (value.size() >= size) return -1;
    memcpy(mod, value.data(), value.size());
    mod[value.size()] = '\0';
    return 0;
  });
}

bool ams_desk_has_op(const char *path) {
  return TreeRead([=](MDB_txn *txn) {
           Key key;
           Record record;
           int rc = TreeFindPath(txn, path, false, &key, &record);
           return rc == 0 && (record.head.flags & RECORD_OP) != 0 ? 0 : -1;
         }) == 0;
}

int ams_desk_copy(const char *folder) {
  return shared_tree.lmdb.env == nullptr ? ENOENT : LmdbCopy(shared_tree.lmdb, folder);
}

int ams_desk_leaf(const char *path, AmsDeskLeaf *leaf) {
  if (path == nullptr) return -1;
  return TreeRead([=](MDB_txn *txn) {
    Key key;
    Record record;
    std::string_view set;
    if (TreeFindPath(txn, path, false, &key, &record) != 0 || record.head.kind < KIND_LEAF ||
        TreeAttributes(txn, record.head.attributes, &set) != 0)
      return -1;
    *leaf = {};
    leaf->path = path;
    LeafAttributes(set, leaf);
    return 0;
  });
}
