// What the stored tree holds of a node. What a record points to lies in the shared map: it is good
// until the transaction ends or writes; of one that read, until the next commit.
#pragma once

#include <lmdb.h>

#include <cstdint>
#include <cstring>
#include <iterator>
#include <string_view>

#include "key.h"

/* The kinds of nodes by their numbers, as in the "type" attribute. */
inline constexpr const char *kKindNames[] = {"object",      "array",   "string",  "int",
                                             "unsignedInt", "boolean", "dateTime"};
enum : uint8_t {
  KIND_OBJECT, /* instances too */
  KIND_ARRAY,
  KIND_LEAF, /* the first of the leaves' kinds, which are the rest */
  KIND_COUNT = std::size(kKindNames),
};

enum : uint8_t {
  RECORD_READONLY = 1, /* writable="0" */
  RECORD_NOTIFY = 2,   /* its notify attribute is not "0" */
  RECORD_OP = 4,       /* the attribute set has "op" */
  RECORD_MOD = 8,      /* the attribute set has "mod" */
  RECORD_STATUS = 16,  /* its value is a status that was written */
  RECORD_FLAGS = 31,
};
constexpr unsigned kRecordPaddingShift = 5; /* above the flags: bytes of padding */
constexpr size_t kRecordWord = 8;

/* A record is this head, `order_length` bytes that sort nodes as the file has them (two bytes a
   level, four for an instance's number), a leaf's value, an array's counts or an object's, and
   padding to whole words: a value that becomes a little longer or shorter mostly takes as much room
   as before, and nothing beside it in its page has to move. */
struct RecordHead {
  uint8_t kind;
  uint8_t flags; /* stored with the count of padding; RecordParse takes that out */
  uint16_t order_length;
  uint32_t attributes; /* number of the attribute set */
};
struct ArrayCounts {
  uint32_t highest; /* number ever given to an instance */
  uint32_t count;   /* instances now */
};

struct ObjectCounts { /* of what stands in it; they never change */
  uint16_t leaves, nodes;
};

struct Record {
  RecordHead head;
  const uint8_t *order;
  const char *value;
  size_t length; /* of value */
};

inline bool RecordIsLeaf(const Record &record) { return record.head.kind >= KIND_LEAF; }
ArrayCounts RecordCounts(const Record &record);
ObjectCounts RecordChildren(const Record &record);

/* Takes a stored record apart. -1 when it is none. */
inline int RecordParse(const MDB_val &data, Record *record) {
  if (data.mv_size < sizeof record->head) return -1;
  const uint8_t *bytes = static_cast<const uint8_t *>(data.mv_data);
  memcpy(&record->head, bytes, sizeof record->head);
  const size_t front = sizeof record->head + record->head.order_length;
  const size_t padding = record->head.flags >> kRecordPaddingShift;
  if (data.mv_size < front + padding || record->head.kind >= KIND_COUNT) return -1;
  record->head.flags &= RECORD_FLAGS;
  record->order = bytes + sizeof record->head;
  record->value = reinterpret_cast<const char *>(bytes + front);
  record->length = data.mv_size - front - padding;
  return 0;
}

constexpr size_t RecordWords(size_t size) {
  return (size + kRecordWord - 1) / kRecordWord * kRecordWord;
}
constexpr size_t kRecordMax = RecordWords(sizeof(RecordHead) + kKeyMax * 2 + AMS_VALUE_MAX);

/* Bytes of a record with this head and a value of `length` bytes. */
inline size_t RecordSize(const RecordHead &head, size_t length) {
  return RecordWords(sizeof head + head.order_length + length);
}

/* Writes a record of RecordSize bytes. */
void RecordWrite(RecordHead head, const void *order, std::string_view value, void *to);
