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

size_t RecordBuild(const Record &record, std::string_view value, uint8_t bytes[kRecordMax]) {
  size_t front = sizeof record.head + record.head.order_length;
  if (front + value.size() > kRecordMax) return 0;
  memcpy(bytes, &record.head, sizeof record.head);
  memcpy(bytes + sizeof record.head, record.order, record.head.order_length);
  if (!value.empty()) memcpy(bytes + front, value.data(), value.size());
  return front + value.size();
}
