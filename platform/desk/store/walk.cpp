// A look at all nodes below one, without a call for each.
#include <cstring>
#include <unordered_map>

#include "ams_store.h"
#include "attributes.h"
#include "fetch.h"
#include "found.h"
#include "store_desk.h"
#include "tree.h"

namespace {

/* For the path of any key, and a leaf's name. */
constexpr size_t kPathRoom = sizeof kRootName + kKeyMax + AMS_NAME_SIZE;

/* The object of the last leaf whose path was made; {} at first. */
struct Object {
  const uint8_t *key;
  size_t key_length, length;
  char path[kPathRoom];
};

/* What many nodes share: attribute sets, which lie in the map, and the object above. */
struct Shared {
  MDB_txn *txn;
  std::unordered_map<uint32_t, AmsDeskAttributes> sets;
  Object object;
};

/* The path of nodes that come in turn: the leaves of an object stand one behind the other. */
size_t PathOf(const uint8_t *key, size_t length, const Record &record, Object *object, char *path) {
  if (!RecordIsLeaf(record)) return KeyToPath(key, length, path);
  if (length != object->key_length || memcmp(key, object->key, length) != 0) {
    object->key = key;
    object->key_length = length;
    object->length = KeyToPath(key, length, object->path);
  }
  memcpy(path, object->path, object->length);
  path[object->length] = '.';
  memcpy(path + object->length + 1, record.name, record.name_length);
  path[object->length + 1 + record.name_length] = '\0';
  return object->length + 1 + record.name_length;
}

const AmsDeskAttributes &SetOf(Shared *shared, uint32_t number) {
  auto [at, missing] = shared->sets.try_emplace(number);
  AmsDeskAttributes &found = at->second;
  std::string_view set, name, value;
  if (!missing || TreeAttributes(shared->txn, number, &set) != 0) return found; /* logged */
  const struct {
    std::string_view name;
    std::string_view *value;
  } wanted[] = {{"description", &found.description},
                {"op", &found.op},
                {"mod", &found.mod},
                {"writable", &found.writable},
                {"min", &found.min},
                {"max", &found.max},
                {"values", &found.values}};
  while (AttributeNext(&set, &name, &value))
    for (const auto &attribute : wanted)
      if (name == attribute.name) *attribute.value = value;
  return found;
}

int Visit(Shared *shared, const uint8_t *key, size_t length, const Record &record,
          AmsDeskVisit visit, void *context) {
  char path[kPathRoom];
  AmsDeskNode node = {};
  node.attributes = &SetOf(shared, record.head.attributes);
  node.path = {path, PathOf(key, length, record, &shared->object, path)};
  node.type = kKindNames[record.head.kind];
  node.is_leaf = RecordIsLeaf(record);
  if (node.is_leaf) node.value = {record.value, record.length};
  node.op = (record.head.flags & RECORD_OP) != 0;
  if ((record.head.flags & RECORD_MOD) != 0) node.mod = node.attributes->mod;
  return visit(node, context);
}

int Walk(MDB_txn *txn, const char *path, bool leaves, AmsDeskVisit visit, void *context) {
  Key top;
  Record record;
  std::vector<Found> found;
  Shared shared = {txn, {}, {}};
  if (TreeFindPath(txn, path, false, &top, &record) != 0) return -1;
  if (!RecordIsLeaf(record) &&
      TreeGather(txn, top, leaves ? TREE_NODES : TREE_OBJECTS, &found) != 0)
    return -1;
  constexpr size_t kAhead = 12; /* nodes: so many are visited while one is fetched */
  const size_t top_length = RecordIsLeaf(record) ? top.last : top.length;
  int result = Visit(&shared, top.bytes, top_length, record, visit, context);
  for (size_t at = 0; at < found.size() && result == 0; ++at) {
    if (at + kAhead < found.size()) {
      FetchRow(found[at + kAhead].key, found[at + kAhead].key_length);
      __builtin_prefetch(found[at + kAhead].record.value);
    }
    result = Visit(&shared, found[at].key, found[at].key_length, found[at].record, visit, context);
  }
  return result;
}

}  // namespace

int ams_desk_walk(const char *path, bool leaves, AmsDeskVisit visit, void *context) {
  return TreeRead([=](MDB_txn *txn) { return Walk(txn, path, leaves, visit, context); });
}
