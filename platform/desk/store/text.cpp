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

LeafText TextOf(const Record &leaf) {
  return {leaf.name, leaf.value, leaf.name_length, leaf.length};
}

/* ---- an object of leaves alone, as most that are read, or a leaf ---- */

/* Whether all of an object's text is in its row. */
bool IsFlat(const Record &object) {
  const ObjectCounts counts = RecordChildren(object);
  return object.head.kind == KIND_OBJECT && counts.nodes == 0 && counts.apart == 0;
}

/* `make(size)` gives the room for a text of `size` bytes with its NUL, or NULL. */
template <class Make>
int MakeFlat(const Record &object, Make make) {
  Leaves leaves;
  Record leaf;
  FetchRow(object.value, object.length);
  if (RecordLeaves(object, &leaves) != 0) return TreeFailed("reading", MDB_CORRUPTED);
  const size_t size = static_cast<size_t>(leaves.end - leaves.names) + 2 * leaves.left;
  char *text = make(std::max(size, size_t{1})), *out = text;
  if (text == nullptr) return -1;
  while (LeavesNext(&leaves, object, &leaf) == 0 && !LeafIsApart(leaf)) {
    out = PutLeaf(out, TextOf(leaf));
    *out++ = AMS_SEPARATOR;
  }
  if (out != text + size || leaves.names != leaves.end) return TreeFailed("reading", MDB_CORRUPTED);
  if (size != 0) --out; /* the last separator's */
  *out = '\0';
  return 0;
}

template <class Make>
int MakeLeaf(const Record &leaf, Make make) {
  char *out = make(leaf.name_length + leaf.length + 2);
  if (out == nullptr) return -1;
  *PutLeaf(out, TextOf(leaf)) = '\0';
  return 0;
}

/* ---- any node ---- */

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
    Record record;
    if (TreeKey(path, KEY_NODE, &key) != 0 || TreeFindEither(txn, &key, &record) != 0) return -1;
    if (RecordIsLeaf(record)) return MakeLeaf(record, make);
    return IsFlat(record) ? MakeFlat(record, make) : MakeSubtree(txn, key, make);
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
  const int result = ReadText(path, [=](size_t size) { return *text = NewText(size); });
  if (result == 0) return 0;
  __tds_free(*text);
  *text = nullptr;
  return -1;
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
