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
  RECORD_APART = 32, /* a leaf's alone: its value stands in a row of its own */
};
constexpr unsigned kRecordPaddingShift = 5; /* above the flags: bytes of padding */
constexpr size_t kRecordWord = 8;

/* A record is this head, `order_length` bytes that sort nodes as the file has them (two bytes a
   level, four for an instance's number), a body, and padding to whole words: a value that becomes a
   little longer or shorter mostly leaves its row as long as before, and nothing beside it in its
   page has to move. An array's body is its counts. An object's is its counts, a head for each of
   its leaves as the file has them, and their names and values in that order; a long value stands
   apart, in a row under the leaf's key, so that an object's row may be written for any leaf of it.
 */
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

struct ObjectCounts { /* of what stands in it */
  uint16_t leaves, nodes;
  uint16_t apart;   /* leaves whose values stand apart; of these counts, it alone changes */
  uint16_t of_file; /* the data-model file has the object itself, if it is no template's */
};

struct LeafHead {
  uint8_t kind, flags;
  uint16_t place;      /* among all that stands in the object; its order ends with it */
  uint32_t attributes; /* number of the attribute set */
  uint16_t name_length, length;
};

constexpr size_t kShortValue = 256; /* bytes; what is longer stands apart */

struct Record {
  RecordHead head; /* a leaf's has the length of its object's order */
  const uint8_t *order;
  const char *value;   /* the body; of a leaf its value, NULL while that was not read from apart */
  size_t length;       /* of value */
  const uint8_t *name; /* of a leaf */
  uint16_t name_length, place;
};

/* The leaves of an object that are still to be looked at. */
struct Leaves {
  const uint8_t *heads, *names, *end; /* of the next one, and where the body ends */
  size_t left;
};

inline std::string_view LeafName(const Record &leaf) {
  return {reinterpret_cast<const char *>(leaf.name), leaf.name_length};
}

inline bool LeafIsApart(const Record &leaf) { return (leaf.head.flags & RECORD_APART) != 0; }

inline bool RecordIsLeaf(const Record &record) { return record.head.kind >= KIND_LEAF; }
ArrayCounts RecordCounts(const Record &array);

inline ObjectCounts RecordChildren(const Record &object) {
  ObjectCounts counts = {};
  if (object.head.kind == KIND_OBJECT && object.length >= sizeof counts)
    memcpy(&counts, object.value, sizeof counts);
  return counts;
}

/* Takes a stored record apart. -1 when it is none. */
inline int RecordParse(const MDB_val &data, Record *record) {
  if (data.mv_size < sizeof record->head) return -1;
  const uint8_t *bytes = static_cast<const uint8_t *>(data.mv_data);
  memcpy(&record->head, bytes, sizeof record->head);
  const size_t front = sizeof record->head + record->head.order_length;
  const size_t padding = record->head.flags >> kRecordPaddingShift;
  if (data.mv_size < front + padding || record->head.kind >= KIND_LEAF) return -1;
  record->head.flags &= RECORD_FLAGS;
  record->order = bytes + sizeof record->head;
  record->value = reinterpret_cast<const char *>(bytes + front);
  record->length = data.mv_size - front - padding;
  record->name = nullptr;
  record->name_length = record->place = 0;
  return 0;
}

/* The leaves of an object; none of what is no object. -1: the row is damaged. */
inline int RecordLeaves(const Record &object, Leaves *leaves) {
  const uint8_t *body = reinterpret_cast<const uint8_t *>(object.value);
  *leaves = {body, body + object.length, body + object.length, 0};
  if (object.head.kind != KIND_OBJECT) return 0;
  const size_t count = RecordChildren(object).leaves;
  if (object.length < sizeof(ObjectCounts) + count * sizeof(LeafHead)) return -1;
  leaves->heads += sizeof(ObjectCounts);
  leaves->names = leaves->heads + count * sizeof(LeafHead);
  leaves->left = count;
  return 0;
}

inline size_t LeafInline(const LeafHead &head) { /* bytes of its value that follow its name */
  return (head.flags & RECORD_APART) != 0 ? 0 : head.length;
}

/* Takes the next leaf off. -1: there is none; the row is damaged when one should be left. */
inline int LeavesNext(Leaves *leaves, const Record &object, Record *leaf) {
  LeafHead head;
  if (leaves->left == 0) return -1;
  memcpy(&head, leaves->heads, sizeof head);
  const size_t value_length = LeafInline(head);
  if (head.name_length == 0 || head.name_length >= AMS_NAME_SIZE ||
      static_cast<size_t>(leaves->end - leaves->names) < head.name_length + value_length ||
      head.kind < KIND_LEAF || head.kind >= KIND_COUNT)
    return -1;
  leaf->head = {head.kind, head.flags, object.head.order_length, head.attributes};
  leaf->order = object.order;
  leaf->name = leaves->names;
  leaf->name_length = head.name_length;
  leaf->place = head.place;
  leaf->length = head.length;
  const char *behind = reinterpret_cast<const char *>(leaf->name + head.name_length);
  leaf->value = (head.flags & RECORD_APART) != 0 ? nullptr : behind;
  leaves->heads += sizeof head;
  leaves->names += head.name_length + value_length;
  --leaves->left;
  return 0;
}

constexpr size_t RecordWords(size_t size) {
  return (size + kRecordWord - 1) / kRecordWord * kRecordWord;
}

/* Bytes of a record with this head and a body of `length` bytes. */
inline size_t RecordSize(const RecordHead &head, size_t length) {
  return RecordWords(sizeof head + head.order_length + length);
}

/* Writes a record of RecordSize bytes but for its body. Returns where that goes. */
char *RecordFront(RecordHead head, const void *order, size_t length, void *to);
void RecordWrite(RecordHead head, const void *order, std::string_view body, void *to);

/* The record of an object with other flags and another value of one of its leaves: its bytes, and
   writing them. All may lie in the map. */
size_t RecordSizeWith(const Record &object, const Record &leaf, std::string_view value);
void RecordWriteWith(const Record &object, const Record &leaf, uint8_t flags,
                     std::string_view value, void *to);
