// Records of the stored tree taken apart and put together; see record.h.
#include "record.h"

ArrayCounts RecordCounts(const Record &record) {
  ArrayCounts counts = {};
  if (record.length == sizeof counts) memcpy(&counts, record.value, sizeof counts);
  return counts;
}

ObjectCounts RecordChildren(const Record &record) {
  ObjectCounts counts = {};
  if (record.length == sizeof counts) memcpy(&counts, record.value, sizeof counts);
  return counts;
}

void RecordWrite(RecordHead head, const void *order, std::string_view value, void *to) {
  uint8_t *bytes = static_cast<uint8_t *>(to);
  const size_t front = sizeof head + head.order_length, size = RecordSize(head, value.size());
  memset(bytes + size - kRecordWord, 0, kRecordWord);
  head.flags |= static_cast<uint8_t>((size - front - value.size()) << kRecordPaddingShift);
  memcpy(bytes, &head, sizeof head);
  if (head.order_length != 0) memcpy(bytes + sizeof head, order, head.order_length);
  if (!value.empty()) memcpy(bytes + front, value.data(), value.size());
}
