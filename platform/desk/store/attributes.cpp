// The attributes of nodes: the sets that the file gives them, and the notify attribute, which alone
// changes later; see attributes.h.
#include "attributes.h"

Key AttributesKey(uint32_t number) {
  const uint8_t bytes[] = {static_cast<uint8_t>(number >> 24), static_cast<uint8_t>(number >> 16),
                           static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)};
  return KeyMarked(KEY_ATTRIBUTES, bytes, sizeof bytes);
}

namespace {

/* The set that this thread's reads have asked for last: of one node several attributes are asked in
   turn, and many leaves share one. It stays as long as the tree has the same number. */
struct LastSet {
  size_t txn_id;
  uint32_t number;
  std::string_view set;
};
thread_local LastSet last_set;

}  // namespace

int TreeAttributes(MDB_txn *txn, uint32_t number, std::string_view *set) {
  MDB_val data;
  const size_t txn_id = TreeReadId(txn);
  if (txn_id != 0 && last_set.txn_id == txn_id && last_set.number == number) {
    *set = last_set.set;
    return 0;
  }
  if (TreeGet(txn, AttributesKey(number), &data) != 0) return -1;
  *set = {static_cast<char *>(data.mv_data), data.mv_size};
  if (txn_id != 0) last_set = {txn_id, number, *set};
  return 0;
}

namespace {

/* Takes a text and the NUL behind it off a set. False when there is none. */
bool TakeText(std::string_view *set, std::string_view *text) {
  const size_t length = strnlen(set->data(), set->size());
  if (length == set->size()) return false;
  *text = {set->data(), length};
  set->remove_prefix(length + 1);
  return true;
}

}  // namespace

bool AttributeNext(std::string_view *set, std::string_view *name, std::string_view *value) {
  return TakeText(set, name) && TakeText(set, value);
}

std::string_view AttributeIn(std::string_view set, std::string_view name) {
  std::string_view found, value;
  while (AttributeNext(&set, &found, &value))
    if (found == name) return value;
  return {};
}

void LeafAttributes(std::string_view set, AmsDeskLeaf *leaf) {
  const struct {
    const char *name;
    std::string *value;
  } wanted[] = {{"type", &leaf->type},
                {"check", &leaf->check},
                {"min", &leaf->min},
                {"max", &leaf->max},
                {"values", &leaf->values}};
  for (std::string_view name, value; AttributeNext(&set, &name, &value);) {
    if (name == "writable") leaf->writable = value != "0";
    for (const auto &attribute : wanted)
      if (name == attribute.name) *attribute.value = value;
  }
}

std::string TreeNotify(MDB_txn *txn, const Key &key, const Record &record) {
  MDB_val data;
  if ((record.head.flags & RECORD_NOTIFY) == 0) return "0";
  if (TreeGet(txn, KeyMarked(KEY_NOTIFY, key), &data) != 0) return "0";
  return {static_cast<char *>(data.mv_data), data.mv_size};
}
