// Finding nodes; see tree.h. What they mean to the store's users is elsewhere.
#include "tree.h"

#include "ams_print.h"

int TreeGet(MDB_txn *txn, MDB_val key, MDB_val *data) {
  int rc = mdb_get(txn, shared_tree.lmdb.dbi, &key, data);
  if (rc == 0) return 0;
  return rc == MDB_NOTFOUND ? -1 : TreeFailed("reading", rc);
}

int TreeLeafKey(const MDB_val &object, const Record &leaf, Key *key) {
  key->length = 0;
  if (KeyAppend(key, object.mv_data, object.mv_size) != 0) return -1;
  return KeyAppendName(key, KEY_LEAF, LeafName(leaf));
}

int TreeValueApart(MDB_txn *txn, const MDB_val &object, Record *leaf) {
  Key key;
  MDB_val data;
  if (TreeLeafKey(object, *leaf, &key) != 0 || TreeGet(txn, key, &data) != 0 ||
      data.mv_size != leaf->length)
    return TreeFailed("reading", MDB_CORRUPTED);
  leaf->value = static_cast<char *>(data.mv_data);
  return 0;
}

namespace {

/* memcmp without a call for most names that differ: at their ends, if not at their starts. */
inline bool SameName(const uint8_t *name, const uint8_t *other, size_t length) {
  uint64_t words[4];
  constexpr size_t kWord = sizeof words[0];
  if (length < kWord) return memcmp(name, other, length) == 0;
  memcpy(words, name, kWord);
  memcpy(words + 1, other, kWord);
  memcpy(words + 2, name + length - kWord, kWord);
  memcpy(words + 3, other + length - kWord, kWord);
  if (words[0] != words[1] || words[2] != words[3]) return false;
  return length <= 2 * kWord || memcmp(name, other, length) == 0;
}

/* The leaf of an object with this name. 0 or an error. */
int FindName(const Record &object, const uint8_t *name, size_t length, Record *leaf) {
  Leaves leaves;
  LeafHead head;
  if (RecordLeaves(object, &leaves) != 0) return MDB_CORRUPTED;
  for (; leaves.left > 0; --leaves.left, leaves.heads += sizeof head) {
    memcpy(&head, leaves.heads, sizeof head);
    const size_t size = head.name_length + LeafInline(head);
    if (static_cast<size_t>(leaves.end - leaves.names) < size) return MDB_CORRUPTED;
    if (head.name_length == length && SameName(leaves.names, name, length))
      return LeavesNext(&leaves, object, leaf) == 0 ? 0 : MDB_CORRUPTED;
    leaves.names += size;
  }
  return MDB_NOTFOUND;
}

}  // namespace

int TreeLeafIn(MDB_txn *txn, const Key &key, const Record &object, Record *leaf) {
  const uint8_t *name = key.bytes + key.last + 1;
  const int rc = FindName(object, name, key.length - key.last - 1, leaf);
  if (rc == 0) return TreeValue(txn, LmdbVal(key.bytes, key.last), leaf);
  return rc == MDB_NOTFOUND ? -1 : TreeFailed("reading", rc);
}

namespace {

/* The node that this thread's reads have found last: of one node several things are asked in turn.
   What it points to stays as long as the tree has the same number: no write takes the pages of the
   last commit, and the environment is opened once. */
struct LastFound {
  size_t txn_id; /* of the tree that it was found in; 0: none */
  char path[AMS_PATH_SIZE];
  Key key;
  Record record;
};
thread_local LastFound last_found;

void KeepFound(size_t txn_id, const char *path, const Key &key, const Record &record) {
  const size_t size = strlen(path) + 1;
  if (size > sizeof last_found.path) return;
  last_found.txn_id = txn_id;
  memcpy(last_found.path, path, size);
  KeyCopy(key, &last_found.key);
  last_found.record = record;
}

/* Whether what the node is in was found last. */
bool FoundAbove(MDB_txn *txn, const Key &key) {
  const Key &above = last_found.key;
  if (above.length != key.last || memcmp(above.bytes, key.bytes, key.last) != 0) return false;
  const size_t txn_id = TreeReadId(txn);
  return txn_id != 0 && last_found.txn_id == txn_id;
}

int FindRow(MDB_txn *txn, MDB_val key, Record *record) {
  MDB_val data;
  if (TreeGet(txn, key, &data) != 0) return -1;
  return RecordParse(data, record) == 0 ? 0 : TreeFailed("reading", MDB_CORRUPTED);
}

int FindLeaf(MDB_txn *txn, const Key &key, Record *leaf) {
  Record object;
  if (FoundAbove(txn, key)) return TreeLeafIn(txn, key, last_found.record, leaf);
  if (FindRow(txn, LmdbVal(key.bytes, key.last), &object) != 0) return -1;
  return TreeLeafIn(txn, key, object, leaf);
}

}  // namespace

int TreeFind(MDB_txn *txn, const Key &key, Record *record) {
  return KeyIsLeaf(key) ? FindLeaf(txn, key, record) : FindRow(txn, KeyVal(key), record);
}

/* Of a node that was asked for just now it is mostly a leaf. */
int TreeFindEither(MDB_txn *txn, Key *key, Record *record) {
  const bool above = key->last != 0 && FoundAbove(txn, *key);
  if (!above || FindLeaf(txn, *key, record) != 0) {
    if (FindRow(txn, KeyVal(*key), record) == 0) return 0;
    if (above || key->last == 0 || FindLeaf(txn, *key, record) != 0) return -1;
  }
  key->bytes[key->last] = KEY_LEAF;
  return 0;
}

int TreeKey(const char *path, uint8_t last_separator, Key *key) {
  if (path == nullptr) return -1;
  int rc = KeyOfPath(path, last_separator, key);
  if (rc == KEY_TOO_LONG)
    AMS_PRINT(4, "store: path \"%.64s...\" has more than %d bytes\n", path, AMS_PATH_SIZE - 1);
  return rc == 0 ? 0 : -1;
}

int TreeFindPath(MDB_txn *txn, const char *path, bool log, Key *key, Record *record) {
  if (path == nullptr) return -1;
  const size_t txn_id = TreeReadId(txn);
  if (txn_id != 0 && last_found.txn_id == txn_id && strcmp(last_found.path, path) == 0) {
    KeyCopy(last_found.key, key);
    *record = last_found.record;
    return 0;
  }
  int rc = log ? TreeKey(path, KEY_NODE, key) : KeyOfPath(path, KEY_NODE, key);
  if (rc != 0 || TreeFindEither(txn, key, record) != 0) return -1;
  if (txn_id != 0) KeepFound(txn_id, path, *key, *record);
  return 0;
}

int TreeSeek(MDB_cursor *cursor, const Key &from, const Key &top, MDB_val *key, MDB_val *data) {
  *key = KeyVal(from);
  int rc = mdb_cursor_get(cursor, key, data, MDB_SET_RANGE);
  if (rc != 0 && rc != MDB_NOTFOUND) return TreeFailed("reading", rc);
  return rc == 0 && KeyBelow(*key, top.bytes, top.length) ? 0 : -1;
}
