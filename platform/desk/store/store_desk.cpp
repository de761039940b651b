// Who serves a node, what a leaf takes, and the check of kept values; see store_desk.h.
#include "store_desk.h"

#include <cerrno>
#include <cstring>

#include "attributes.h"
#include "tree.h"

AmsDeskCheck ams_desk_check_kept;

namespace {

/* The node that this thread has gone up to last: of one object several leaves are asked in turn. It
   stays as long as the tree has the same number. */
struct LastAbove {
  size_t txn_id; /* 0: none */
  Key key;
  Record record;
};
thread_local LastAbove last_above;

/* Goes from a node to the one that it stands in. 0 or -1. */
int Up(MDB_txn *txn, Key *key, Record *record) {
  LastAbove &last = last_above;
  const size_t txn_id = TreeReadId(txn);
  if (KeyCut(key) != 0) return -1;
  if (txn_id != 0 && last.txn_id == txn_id && KeyEqual(*key, last.key)) {
    *record = last.record;
    return 0;
  }
  if (TreeFind(txn, *key, record) != 0) return -1;
  if (txn_id == 0) return 0;
  last.txn_id = txn_id;
  last.record = *record;
  KeyCopy(*key, &last.key);
  return 0;
}

/* The "mod" attribute of the node or its nearest ancestor that has one. 0 or -1. */
int ModOf(MDB_txn *txn, Key *key, Record *record, std::string_view *mod) {
  std::string_view set;
  while ((record->head.flags & RECORD_MOD) == 0)
    if (Up(txn, key, record) != 0) return -1;
  if (TreeAttributes(txn, record->head.attributes, &set) != 0) return -1;
  *mod = AttributeIn(set, "mod");
  return 0;
}

bool HasOp(const Record &record) { return (record.head.flags & RECORD_OP) != 0; }

bool IsNumber(const Key &key) {
  return key.last != 0 && KeyNumber(key.bytes + key.last + 1, key.length - key.last - 1) != 0;
}

}  // namespace

int ams_desk_mod(const char *path, char *mod, size_t size) {
  if (path == nullptr || mod == nullptr || size == 0) return -1;
  mod[0] = '\0';
  return TreeRead([=](MDB_txn *txn) {
    Key key;
    Record record;
    std::string_view value;
    if (TreeFindPath(txn, path, false, &key, &record) != 0 ||
        ModOf(txn, &key, &record, &value) != 0 || value.size() >= size)
      return -1;
    memcpy(mod, value.data(), value.size());
    mod[value.size()] = '\0';
    return 0;
  });
}

int ams_desk_place(const char *path, AmsDeskPlace *place) {
  if (path == nullptr) return -1;
  return TreeRead([=](MDB_txn *txn) {
    Key key;
    Record record, above;
    std::string_view mod;
    if (TreeFindPath(txn, path, false, &key, &record) != 0) return -1;
    *place = {};
    place->is_leaf = RecordIsLeaf(record);
    place->is_array = record.head.kind == KIND_ARRAY;
    if (place->is_leaf && Up(txn, &key, &record) != 0) return -1;
    place->has_op = HasOp(record);
    if (IsNumber(key)) {
      Key array = key;
      if (Up(txn, &array, &above) != 0) return -1;
      place->is_instance = !place->is_leaf; /* what has a number stands in an array */
      place->has_op = place->has_op || HasOp(above);
    }
    if (ModOf(txn, &key, &record, &mod) == 0) place->mod = mod;
    return 0;
  });
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
