// The text forms of leaves with their attributes behind their values.
#include <cstring>

#include "ams_store.h"
#include "attributes.h"
#include "found.h"
#include "keep.h"
#include "room.h"
#include "tds.h"
#include "text.h"

namespace {

constexpr char kChangedData[] = ".ALL_CHANGED_DATA";

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
  if (leaf.key_length > top_length) {
    text->append(path, KeyToPath(leaf.key + top_length, leaf.key_length - top_length, path));
    *text += '.';
  }
  text->append(LeafName(leaf.record)).append("=").append(leaf.record.value, leaf.record.length);
  if (TreeAttributes(txn, leaf.record.head.attributes, &set) == 0)
    while (AttributeNext(&set, &name, &value)) AppendPair(text, name, value);
  if ((leaf.record.head.flags & RECORD_NOTIFY) == 0) return;
  Key key;
  if (FoundKey(leaf, &key) == 0) AppendPair(text, "notify", TreeNotify(txn, key, leaf.record));
}

int HandOut(const std::string &built, char **text) {
  *text = NewText(built.size() + 1);
  if (*text == nullptr) return -1;
  memcpy(*text, built.c_str(), built.size() + 1);
  return 0;
}

/* Bytes of the keys of objects that the text of this node leaves out. */
size_t LeftOut(const Key &key, const Record &record) {
  return RecordIsLeaf(record) ? key.last : key.length;
}

int ReadAttributes(MDB_txn *txn, const char *path, char **text) {
  Key key;
  Record record;
  std::string built;
  std::vector<Found> leaves;
  if (TreeFindPath(txn, path, true, &key, &record) != 0) return -1;
  if (RecordIsLeaf(record))
    leaves.push_back({0, key.bytes, key.last, record});
  else if (TreeGather(txn, key, TREE_LEAVES, &leaves) != 0)
    return -1;
  for (const Found &leaf : leaves) AppendWithAttributes(txn, leaf, LeftOut(key, record), &built);
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
    Key leaf;
    if (KeyOfBytes(changed->back().data(), changed->back().size(), &leaf) == 0)
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
    Key key;
    Found leaf = {0, reinterpret_cast<const uint8_t *>(bytes.data()), 0, {}};
    if (KeyOfBytes(bytes.data(), bytes.size(), &key) != 0 || TreeFind(txn, key, &leaf.record) != 0)
      continue;
    leaf.key_length = key.last;
    leaves.push_back(leaf);
  }
  TreeSort(&leaves, 0);
  for (const Found &leaf : leaves) AppendWithAttributes(txn, leaf, LeftOut(top, record), &built);
  return HandOut(built, text);
}

}  // namespace

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
