// Records of the stored tree taken apart and put together; see record.h.
#include "record.h"

ArrayCounts RecordCounts(const Record &array) {
  ArrayCounts counts = {};
  if (array.head.kind == KIND_ARRAY && array.length == sizeof counts)
    memcpy(&counts, array.value, sizeof counts);
  return counts;
}

char *RecordFront(RecordHead head, const void *order, size_t length, void *to) {
  char *bytes = static_cast<char *>(to);
  const size_t front = sizeof head + head.order_length, size = RecordSize(head, length);
  memset(bytes + size - kRecordWord, 0, kRecordWord);
  head.flags = static_cast<uint8_t>((head.flags & RECORD_FLAGS) | (size - front - length)
                                                                      << kRecordPaddingShift);
  memcpy(bytes, &head, sizeof head);
  if (head.order_length != 0) memcpy(bytes + sizeof head, order, head.order_length);
  return bytes + front;
}

void RecordWrite(RecordHead head, const void *order, std::string_view body, void *to) {
  char *out = RecordFront(head, order, body.size(), to);
  if (!body.empty()) memcpy(out, body.data(), body.size());
}

namespace {

char *Put(char *out, const void *from, size_t length) {
  if (length != 0) memcpy(out, from, length);
  return out + length;
}

size_t BodyWith(const Record &object, const Record &leaf, std::string_view value) {
  const size_t before = LeafIsApart(leaf) ? 0 : leaf.length;
  return object.length - before + (value.size() > kShortValue ? 0 : value.size());
}

/* Where the leaf's head is in its object's body. */
size_t HeadAt(const Record &object, const Record &leaf) {
  Leaves leaves;
  LeafHead head;
  (void)RecordLeaves(object, &leaves); /* the leaf is in it */
  for (; leaves.names < leaf.name; leaves.heads += sizeof head) {
    memcpy(&head, leaves.heads, sizeof head);
    leaves.names += head.name_length + LeafInline(head);
  }
  return static_cast<size_t>(leaves.heads - reinterpret_cast<const uint8_t *>(object.value));
}

}  // namespace

size_t RecordSizeWith(const Record &object, const Record &leaf, std::string_view value) {
  return RecordSize(object.head, BodyWith(object, leaf, value));
}

void RecordWriteWith(const Record &object, const Record &leaf, uint8_t flags,
                     std::string_view value, void *to) {
  const bool was_apart = LeafIsApart(leaf), apart = value.size() > kShortValue;
  ObjectCounts counts = RecordChildren(object);
  const unsigned kept = flags & RECORD_FLAGS;
  const LeafHead head = {leaf.head.kind,   static_cast<uint8_t>(apart ? kept | RECORD_APART : kept),
                         leaf.place,       leaf.head.attributes,
                         leaf.name_length, static_cast<uint16_t>(value.size())};
  const char *before = object.value + sizeof counts, *end = object.value + object.length;
  const char *name_end = reinterpret_cast<const char *>(leaf.name) + leaf.name_length;
  const char *behind = name_end + (was_apart ? 0 : leaf.length);
  counts.apart = static_cast<uint16_t>(counts.apart + (apart ? 1 : 0) - (was_apart ? 1 : 0));
  char *const body = RecordFront(object.head, object.order, BodyWith(object, leaf, value), to);
  char *out = Put(body, &counts, sizeof counts);
  out = Put(out, before, static_cast<size_t>(name_end - before));
  if (!apart) out = Put(out, value.data(), value.size());
  Put(out, behind, static_cast<size_t>(end - behind));
  Put(body + HeadAt(object, leaf), &head, sizeof head);
}
