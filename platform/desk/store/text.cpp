// The text forms of nodes: a leaf as "name=value", an object as its leaves' "relative.path=value".
#include <algorithm>
#include <cstring>

#include "ams_print.h"
#include "ams_store.h"
#include "attributes.h"
#include "found.h"
#include "keep.h"
#include "room.h"
#include "tds.h"
#include "tree.h"

namespace {

constexpr char kChangedData[] = ".ALL_CHANGED_DATA";
constexpr char kTag[] = "ams_text"; /* of the heap's table */

char *NewText(size_t size) {
  char *text = static_cast<char *>(__tds_malloc(size, kTag));
  if (text == nullptr) AMS_PRINT(4, "store: no memory for a text of %zu bytes\n", size);
  return text;
}

/* ---- an object that has but a few leaves, as most that are read ---- */

struct FewLeaves {
  struct Leaf {
    const uint8_t *name;
    const char *value;
    size_t name_length, length;
  };
  static constexpr size_t kMost = 64;
  Leaf leaf[kMost]; /* where it stands in the file, */
  uint64_t there;   /* as a bit for each */
  size_t size;      /* of the text */
};

/* False: it is no leaf of the object whose key has `top_length` bytes, which cannot be. */
bool AddLeaf(FewLeaves *leaves, const MDB_val &key, size_t top_length, const MDB_val &data) {
  Record record;
  if (key.mv_size <= top_length || RecordParse(data, &record) != 0) return false;
  const size_t place = RecordPlace(record), name_length = key.mv_size - top_length - 1;
  if (place >= FewLeaves::kMost) return false;
  const uint8_t *name = static_cast<uint8_t *>(key.mv_data) + top_length + 1;
  leaves->leaf[place] = {name, record.value, name_length, record.length};
  leaves->there |= uint64_t{1} << place;
  leaves->size += name_length + record.length + 2;
  return true;
}

/* The rows that a load put behind a row stand below it in its page: the processor fetches all of
   them at once. */
void FetchBelow(const void *row) {
  constexpr size_t kPage = 4096, kLine = 64, kBytes = 1024;
  const size_t bytes = std::min(reinterpret_cast<uintptr_t>(row) % kPage, kBytes);
  for (size_t at = kLine; at <= bytes; at += kLine)
    __builtin_prefetch(static_cast<const char *>(row) - at);
}

/* The leaf of this path, as no other node has it. 0, or -1: there is none, or it cannot be read
   (logged). */
int GatherLeaf(MDB_cursor *cursor, Key *path, FewLeaves *leaves) {
  Record record;
  if (path->last == 0) return -1;
  path->bytes[path->last] = KEY_LEAF;
  MDB_val key = KeyVal(*path), data;
  const int rc = mdb_cursor_get(cursor, &key, &data, MDB_SET);
  if (rc != 0) return rc == MDB_NOTFOUND ? -1 : TreeFailed("reading", rc);
  if (RecordParse(data, &record) != 0) return -1;
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
  if (TreeOpenCursor(txn, &cursor) != 0) return -1;
  int rc = mdb_cursor_get(cursor.get(), &key, &data, MDB_SET);
  if (rc == MDB_NOTFOUND) return GatherLeaf(cursor.get(), path, leaves);
  if (rc != 0) return TreeFailed("reading", rc);
  FetchBelow(data.mv_data);
  if (RecordParse(data, &object) != 0 || object.head.kind != KIND_OBJECT) return FEW_NOT;
  const ObjectCounts counts = RecordChildren(object);
  if (counts.nodes != 0 || counts.leaves > FewLeaves::kMost) return FEW_NOT;
  for (int left = counts.leaves; left > 0; --left) { /* they come right behind */
    if ((rc = mdb_cursor_get(cursor.get(), &key, &data, MDB_NEXT)) != 0)
      return TreeFailed("reading", rc);
    if (!AddLeaf(leaves, key, path->length, data)) return FEW_NOT;
  }
  return 0;
}

/* memcpy without a call for what names and values mostly are: eight to sixteen bytes. */
char *Put(char *out, const void *from, size_t length) {
  uint64_t first, last;
  if (length < sizeof first || length > 2 * sizeof first) {
    memcpy(out, from, length);
  } else {
    memcpy(&first, from, sizeof first);
    memcpy(&last, static_cast<const char *>(from) + length - sizeof last, sizeof last);
    memcpy(out, &first, sizeof first);
    memcpy(out + length - sizeof last, &last, sizeof last);
  }
  return out + length;
}

int JoinFew(const FewLeaves &leaves, char **text) {
  char *out = *text = NewText(leaves.size + 1);
  if (out == nullptr) return -1;
  for (uint64_t left = leaves.there; left != 0; left &= left - 1) {
    const FewLeaves::Leaf &leaf = leaves.leaf[__builtin_ctzll(left)];
    if (left != leaves.there) *out++ = AMS_SEPARATOR;
    out = Put(out, leaf.name, leaf.name_length);
    *out++ = '=';
    out = Put(out, leaf.value, leaf.length);
  }
  *out = '\0';
  return 0;
}

/* ---- any node ---- */

char *WriteLeaf(char *out, const Found &leaf, size_t top_length, FoundObject *object) {
  out += FoundPath(leaf.key + top_length, leaf.key_length - top_length, object, out);
  *out++ = '=';
  if (leaf.record.length != 0) memcpy(out, leaf.record.value, leaf.record.length);
  return out + leaf.record.length;
}

/* Joins leaves whose keys start with `top_length` bytes that the text leaves out. */
int JoinLeaves(const std::vector<Found> &leaves, size_t top_length, char **text) {
  size_t size = 1;
  for (const Found &leaf : leaves) size += leaf.key_length - top_length + leaf.record.length + 2;
  char *out = *text = NewText(size);
  if (out == nullptr) return -1;
  FoundObject object = {};
  for (size_t at = 0; at < leaves.size(); ++at) {
    FoundFetch(leaves, at);
    if (at != 0) *out++ = AMS_SEPARATOR;
    out = WriteLeaf(out, leaves[at], top_length, &object);
  }
  *out = '\0';
  return 0;
}

int LeafAlone(MDB_txn *txn, Key *key, std::vector<Found> *leaves) {
  Record record;
  if (key->last == 0) return -1;
  key->bytes[key->last] = KEY_LEAF;
  if (TreeFind(txn, *key, &record) != 0) return -1;
  leaves->push_back({0, key->bytes, key->length, record});
  return 0;
}

void AppendPair(std::string *text, std::string_view name, std::string_view value) {
  text->append(" ").append(name).append("=\"");
  for (char c : value) {
    if (c == '"')
      *text += "&quot;";
    else
      *text += c;
  }
  *text += '"';
}

void AppendWithAttributes(MDB_txn *txn, const Found &leaf, size_t top_length, std::string *text) {
  std::string_view set, name, value;
  char path[kKeyMax + 1];
  if (!text->empty()) *text += static_cast<char>(AMS_SEPARATOR);
  text->append(path, KeyToPath(leaf.key + top_length, leaf.key_length - top_length, path));
  text->append("=").append(leaf.record.value, leaf.record.length);
  if (TreeAttributes(txn, leaf.record.head.attributes, &set) == 0)
    while (AttributeNext(&set, &name, &value)) AppendPair(text, name, value);
  if ((leaf.record.head.flags & RECORD_NOTIFY) == 0) return;
  Key key;
  key.length = key.last = 0;
  if (KeyAppend(&key, leaf.key, leaf.key_length) == 0)
    AppendPair(text, "notify", TreeNotify(txn, key, leaf.record));
}

int HandOut(const std::string &built, char **text) {
  *text = __tds_strndup(built.data(), built.size(), kTag);
  if (*text != nullptr) return 0;
  AMS_PRINT(4, "store: no memory for a text of %zu bytes\n", built.size());
  return -1;
}

int ReadAttributes(MDB_txn *txn, const char *path, char **text) {
  Key key;
  std::string built;
  std::vector<Found> leaves;
  if (TreeKey(path, KEY_NODE, &key) != 0) return -1;
  size_t top = key.length; /* bytes of their keys that the text leaves out */
  if (TreeGather(txn, key, TREE_LEAVES, &leaves) != 0) {
    if (LeafAlone(txn, &key, &leaves) != 0) return -1;
    top = key.last;
  }
  for (const Found &leaf : leaves) AppendWithAttributes(txn, leaf, top, &built);
  return HandOut(built, text);
}

/* Takes the marks of changed leaves below `top` off the list; returns their keys. */
int TakeChanged(MDB_txn *txn, const Key &top, std::vector<std::string> *changed) {
  TreeCursor cursor;
  MDB_val key, data;
  Key marked = KeyMarked(KEY_CHANGED, top);
  if (TreeOpenCursor(txn, &cursor) != 0) return -1;
  int rc = 0, room = 0;
  while (rc == 0 && TreeSeek(cursor.get(), marked, marked, &key, &data) == 0 &&
         (room = TreeRoom(txn, 0)) == 0) {
    changed->emplace_back(static_cast<char *>(key.mv_data) + 1, key.mv_size - 1);
    Key leaf = {0, 0, {}};
    if (KeyAppend(&leaf, changed->back().data(), changed->back().size()) == 0)
      KeepBeside(kKeptChanges, leaf, std::nullopt);
    rc = mdb_cursor_del(cursor.get(), 0);
  }
  return rc == 0 ? room : TreeFailed("writing", rc);
}

int ReadChanged(MDB_txn *txn, const char *path, char **text) {
  Key top;
  Record record;
  std::vector<std::string> changed;
  std::vector<Found> leaves;
  std::string built;
  if (TreeFindPath(txn, path, true, &top, &record) != 0) return -1;
  if (TakeChanged(txn, top, &changed) != 0) return -1;
  for (const std::string &bytes : changed) {
    Key key = {0, 0, {}};
    Found leaf = {0, reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size(), {}};
    if (KeyAppend(&key, bytes.data(), bytes.size()) == 0 && TreeFind(txn, key, &leaf.record) == 0)
      leaves.push_back(leaf);
  }
  TreeSort(&leaves, 0);
  size_t above = RecordIsLeaf(record) ? top.last : top.length;
  for (const Found &leaf : leaves) AppendWithAttributes(txn, leaf, above, &built);
  return HandOut(built, text);
}

}  // namespace

int ams_get_node_value(struct AmsTree *root, const char *path, char **text) {
  if (text == nullptr) return -1;
  *text = nullptr;
  if (root == nullptr) return -1;
  return TreeRead([=](MDB_txn *txn) {
    Key key;
    FewLeaves few;
    std::vector<Found> leaves;
    if (TreeKey(path, KEY_NODE, &key) != 0) return -1;
    const int rc = GatherFew(txn, &key, &few);
    if (rc != FEW_NOT) return rc == 0 ? JoinFew(few, text) : -1;
    if (TreeGather(txn, key, TREE_LEAVES, &leaves) != 0) return -1;
    return JoinLeaves(leaves, key.length, text);
  });
}

/* The list of the whole gateway has a node of its own, below the object that it speaks of. */
int ams_read_withAttr(struct AmsTree *root, const char *path, int change_list, char **text) {
  if (text == nullptr) return -1;
  *text = nullptr;
  if (root == nullptr || path == nullptr) return -1;
  if (change_list == 0)
    return TreeRead([=](MDB_txn *txn) { return ReadAttributes(txn, path, text); });
  int result = TreeWrite([=](MDB_txn *txn) {
    std::string scope(path, strnlen(path, AMS_PATH_SIZE));
    size_t tail = scope.rfind(kChangedData);
    if (tail != std::string::npos) scope.resize(tail);
    return ReadChanged(txn, scope.c_str(), text);
  });
  if (result != 0) {
    __tds_free(*text);
    *text = nullptr;
  }
  return result;
}
