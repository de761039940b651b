// The text forms of nodes: a leaf as "name=value", an object as its leaves' "relative.path=value".
#include "text.h"

#include <algorithm>
#include <cstring>

#include "ams_print.h"
#include "ams_store.h"
#include "fetch.h"
#include "scan.h"
#include "store_desk.h"
#include "subtree_text.h"
#include "tds.h"

namespace {

/* ---- an object that has but a few leaves, as most that are read ---- */

struct FewLeaves {
  static constexpr size_t kMost = 64;
  LeafText leaf[kMost]; /* where it stands in the file, */
  uint64_t there;       /* as a bit for each */
  size_t size;          /* of the text */
};

/* False: it is no leaf of this object's, which cannot be. */
bool AddLeaf(FewLeaves *leaves, const Key &top, const Record &object, const MDB_val &key,
             const MDB_val &data) {
  Record record;
  if (key.mv_size <= top.length || RecordParse(data, &record) != 0) return false;
  const size_t place = OrderIn(record, object.head.order_length).place;
  if (place >= FewLeaves::kMost || (leaves->there >> place & 1) != 0) return false;
  const size_t name_length = key.mv_size - top.length - 1;
  const uint8_t *name = static_cast<uint8_t *>(key.mv_data) + top.length + 1;
  leaves->leaf[place] = {name, record.value, name_length, record.length};
  leaves->there |= uint64_t{1} << place;
  leaves->size += name_length + record.length + 2;
  return true;
}

/* The leaf of this path. 0, or -1: there is none, or it cannot be read (logged). */
int GatherLeaf(MDB_txn *txn, Key *path, FewLeaves *leaves) {
  Record record;
  if (path->last == 0) return -1;
  path->bytes[path->last] = KEY_LEAF;
  const int result = TreeFind(txn, *path, &record);
  path->bytes[path->last] = KEY_NODE;
  if (result != 0) return -1;
  const size_t name_length = path->length - path->last - 1;
  leaves->leaf[0] = {path->bytes + path->last + 1, record.value, name_length, record.length};
  leaves->there = 1;
  leaves->size = name_length + record.length + 2;
  return 0;
}

/* 0, or -1: there is no such node, or it cannot be read (logged). FEW_NOT: it is something else. */
enum { FEW_NOT = 1 };
int GatherFew(MDB_txn *txn, Key *path, FewLeaves *leaves) {
  TreeCursor cursor;
  Record object;
  MDB_val key = KeyVal(*path), data;
  leaves->there = leaves->size = 0;
  /* Of a node that was asked for just now it is mostly a leaf. */
  if (TreeFoundAbove(txn, *path) && GatherLeaf(txn, path, leaves) == 0) return 0;
  if (TreeOpenCursor(txn, &cursor) != 0) return -1;
  int rc = mdb_cursor_get(cursor.get(), &key, &data, MDB_SET);
  if (rc == MDB_NOTFOUND) return GatherLeaf(txn, path, leaves);
  if (rc != 0) return TreeFailed("reading", rc);
  FetchBelow(data.mv_data);
  if (RecordParse(data, &object) != 0 || object.head.kind != KIND_OBJECT) return FEW_NOT;
  const ObjectCounts counts = RecordChildren(object);
  if (counts.nodes != 0 || counts.leaves > FewLeaves::kMost) return FEW_NOT;
  for (int left = counts.leaves; left > 0; --left) { /* they come right behind */
    if ((rc = mdb_cursor_get(cursor.get(), &key, &data, MDB_NEXT)) != 0)
      return TreeFailed("reading", rc);
    if (!AddLeaf(leaves, *path, object, key, data)) return FEW_NOT;
  }
  return 0;
}

/* Writes the text, `leaves.size` bytes with a NUL at its end. */
void PutFew(const FewLeaves &leaves, char *out) {
  for (uint64_t left = leaves.there; left != 0; left &= left - 1) {
    const LeafText &leaf = leaves.leaf[__builtin_ctzll(left)];
    if (left != leaves.there) *out++ = AMS_SEPARATOR;
    out = PutLeaf(out, leaf);
  }
  *out = '\0';
}

/* ---- any node ---- */

/* `make(size)` gives the room for a text of `size` bytes with its NUL, or NULL. */
template <class Make>
int MakeSubtree(MDB_txn *txn, const Key &top, Make make) {
  SubtreeText subtree;
  if (SubtreeRead(txn, top, &subtree) != 0) return -1;
  char *out = make(std::max(subtree.size, size_t{1}));
  if (out == nullptr) return -1;
  SubtreePut(subtree, out);
  return 0;
}

template <class Make>
int ReadText(const char *path, Make make) {
  return TreeRead([=](MDB_txn *txn) {
    Key key;
    FewLeaves few;
    if (TreeKey(path, KEY_NODE, &key) != 0) return -1;
    const int rc = GatherFew(txn, &key, &few);
    if (rc == -1) return -1;
    if (rc == FEW_NOT) return MakeSubtree(txn, key, make);
    char *out = make(std::max(few.size, size_t{1}));
    if (out == nullptr) return -1;
    PutFew(few, out);
    return 0;
  });
}

}  // namespace

char *NewText(size_t size) {
  char *text = static_cast<char *>(__tds_malloc(size, "ams_text"));
  if (text == nullptr) AMS_PRINT(4, "store: no memory for a text of %zu bytes\n", size);
  return text;
}

int ams_get_node_value(struct AmsTree *root, const char *path, char **text) {
  if (text == nullptr) return -1;
  *text = nullptr;
  if (root == nullptr) return -1;
  return ReadText(path, [=](size_t size) { return *text = NewText(size); });
}

int ams_desk_text(const char *path, size_t room, std::string *text) {
  const int result = ReadText(path, [=](size_t size) {
    text->reserve(size + room);
    text->resize(size);
    return text->data();
  });
  if (result == 0) text->pop_back(); /* the NUL */
  return result;
}
