// The stored tree: records, and the transactions in which the store's calls read and write them.
//
// What a record points to lies in the shared map: it is good until the transaction ends or writes.
#pragma once

#include <lmdb.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "key.h"
#include "lmdb_env.h"
#include "nvram_desk.h"

/* The one name that every path starts with. */
constexpr char kRootName[] = "InternetGatewayDevice";

/* A leaf named after an array beside it with this behind counts the array's instances. */
constexpr char kEntriesName[] = "NumberOfEntries";

struct AmsTree {
  LmdbEnv lmdb;
};
extern AmsTree gTree; /* open from ShmPoolSrvInit or ShmPoolCliInit on, for the process's life */

/* ---- records ---- */

enum NodeKind : uint8_t {
  KIND_OBJECT, /* instances too */
  KIND_ARRAY,
  KIND_STRING, /* this and all that follow are leaves */
  KIND_INT,
  KIND_UNSIGNED,
  KIND_BOOLEAN,
  KIND_DATETIME,
  KIND_COUNT,
};
extern const char *const kKindNames[KIND_COUNT]; /* as in the "type" attribute */

enum : uint8_t {
  RECORD_READONLY = 1, /* writable="0" */
  RECORD_NOTIFY = 2,   /* its notify attribute is not "0" */
  RECORD_OP = 4,       /* the attribute set has "op" */
  RECORD_MOD = 8,      /* the attribute set has "mod" */
  RECORD_STATUS = 16,  /* its value is a status that was written */
};

/* A record is this head, `order_length` bytes that sort nodes as the file has them (two bytes a
   level, four for an instance's number), and a leaf's value or an array's counts. */
struct RecordHead {
  uint8_t kind;
  uint8_t flags;
  uint16_t order_length;
  uint32_t attributes; /* number of the attribute set */
};
struct ArrayCounts {
  uint32_t highest; /* number ever given to an instance */
  uint32_t count;   /* instances now */
};

struct Record {
  RecordHead head;
  const uint8_t *order;
  const char *value;
  size_t length; /* of value */
};

inline bool RecordIsLeaf(const Record &record) { return record.head.kind >= KIND_STRING; }
ArrayCounts RecordCounts(const Record &record);

/* Takes a stored record apart. -1 when it is none. */
inline int RecordParse(const MDB_val &data, Record *record) {
  if (data.mv_size < sizeof record->head) return -1;
  const uint8_t *bytes = static_cast<const uint8_t *>(data.mv_data);
  memcpy(&record->head, bytes, sizeof record->head);
  size_t front = sizeof record->head + record->head.order_length;
  if (data.mv_size < front || record->head.kind >= KIND_COUNT) return -1;
  record->order = bytes + sizeof record->head;
  record->value = reinterpret_cast<const char *>(bytes + front);
  record->length = data.mv_size - front;
  return 0;
}

/* ---- transactions ---- */

/* What one thread keeps: its read transaction between calls, and its span of writes. */
struct ThreadTxns {
  MDB_txn *read;      /* reset between calls; NULL before the first */
  MDB_cursor *cursor; /* of `read`, kept for the next scan */
  bool cursor_lent;
  MDB_txn *span;                  /* the open write transaction, else NULL */
  bool in_span;                   /* between ams_write_begin and ams_write_end */
  bool failed;                    /* a write of the span did not work: all of it is given up */
  std::vector<NvramChange> *kept; /* what the open write changes in nvram; NULL before the first */
};
ThreadTxns *TreeThread();

/* The transaction to read in. 0 or -1 (logged). TreeReadEnd closes what TreeReadBegin opened. */
int TreeReadBegin(MDB_txn **txn);
void TreeReadEnd(MDB_txn *txn);

/* Opens a cursor on a transaction of TreeReadBegin or TreeWrite; reading ones are kept. */
int TreeCursor(MDB_txn *txn, MDB_cursor **cursor);
void TreeCursorEnd(MDB_cursor *cursor);

/* The write transaction: the span's, else a new one. TreeWriteEnd commits (result 0) or drops it,
   and first nvram's part of it; in a span it leaves it open. 0 or -1 (logged). */
int TreeWriteBegin(MDB_txn **txn);
int TreeWriteEnd(MDB_txn *txn, int result);

template <class Work>
int TreeRead(Work work) {
  MDB_txn *txn;
  if (TreeReadBegin(&txn) != 0) return -1;
  int result = work(txn);
  TreeReadEnd(txn);
  return result;
}
template <class Work>
int TreeWrite(Work work) {
  MDB_txn *txn;
  if (TreeWriteBegin(&txn) != 0) return -1;
  return TreeWriteEnd(txn, work(txn));
}

/* ---- rows ---- */

/* Logs an LMDB error of a write (and gives up the span, if there is one). Returns -1. */
int TreeFailed(const char *what, int rc);

/* 0, or -1: there is no such row (not logged; other errors are). */
int TreeGet(MDB_txn *txn, const Key &key, MDB_val *data);
int TreeFind(MDB_txn *txn, const Key &key, Record *record);

/* Both kinds of key are tried. `log` says whether a path that is too long is recorded. */
int TreeFindPath(MDB_txn *txn, const char *path, bool log, Key *key, Record *record);

/* KeyOfPath, with a record for a path that is too long. 0 or -1. */
int TreeKey(const char *path, uint8_t last_separator, Key *key);

/* ---- room (room.cpp) ---- */

/* Takes room before a put or a delete; the calls below do it by themselves. 0 or -1 (logged). */
int TreeRoom(MDB_txn *txn, size_t bytes);

/* Whether the tree may become larger, by a value of `bytes`. `again`: by what was in it before,
   which has a full store's reserve, too, but for what a commit needs. 0 or an error (not logged).
 */
int TreeMayGrow(MDB_txn *txn, size_t bytes, bool again);

/* ---- writing rows ---- */

int TreePut(MDB_txn *txn, const Key &key, const void *data, size_t size); /* 0 or -1, logged */
int TreeDelete(MDB_txn *txn, const Key &key); /* 0 also when there is none; or -1, logged */

/* Writes a record with another head and value than `record` has, whose parts may lie in the map. 0
   or -1 (logged). */
int TreePutRecord(MDB_txn *txn, const Key &key, const Record &record, std::string_view value);

/* How a leaf is set, as bits. */
enum : unsigned {
  SET_READONLY = 1, /* also a leaf that is read-only */
  SET_REPORT = 2,   /* the change goes to the change list */
  SET_STATUS = 4,   /* the value is a status */
  SET_AGAIN = 8, /* it was there before (TreeMayGrow), and of that kind also when it is the same */
  SET_IF_ROOM = 16, /* without room the write goes on: LEAF_FULL */
};

/* A leaf's new value, with one look-up. 0, -1 (logged), or the reason why not (not logged). */
enum { LEAF_NONE = -2, LEAF_READONLY = -3, LEAF_FULL = -4 };
int TreeSetLeaf(MDB_txn *txn, const Key &key, std::string_view value, unsigned how);

/* First row at or behind `from`: 0, or -1 when it is not below `top` (or there is none). */
int TreeSeek(MDB_cursor *cursor, const Key &from, const Key &top, MDB_val *key, MDB_val *data);

/* ---- attributes ---- */

/* An attribute set is "name\0value\0..." in the file's order. 0, or -1: not there. */
int TreeAttributes(MDB_txn *txn, uint32_t number, std::string_view *set);
/* The value of `name` in a set; data() is NULL when it is not there. */
std::string_view AttributeIn(std::string_view set, std::string_view name);
/* Takes the first pair off a set. False when there is none left. */
bool AttributeNext(std::string_view *set, std::string_view *name, std::string_view *value);

Key KeyMarked(uint8_t mark, const uint8_t *bytes, size_t length);
inline Key KeyMarked(uint8_t mark, const Key &key) {
  return KeyMarked(mark, key.bytes, key.length);
}
Key AttributesKey(uint32_t number);
/* The node's notify attribute: "0" when there is none. */
std::string TreeNotify(MDB_txn *txn, const Key &key, const Record &record);

/* ---- keeping (keep.cpp) ---- */

/* What the open write changes of the configuration; `highest` is the highest number that the array
   ever used. 0 or -1 (logged). */
void KeepLeaf(const Key &key, std::string_view value);
void KeepAdded(const Key &array, uint32_t number);
int KeepDeleted(const Key &array, uint32_t number, uint32_t highest);

/* What nvram keeps of a leaf once the open write is done, and making it that again. */
int KeepRead(const Key &key, std::optional<std::string> *value); /* 0 or -1 (logged) */
int KeepAgain(const Key &key, const std::optional<std::string> &value);

/* Makes these changes in nvram, all or none, and forgets them, as does the other. `before` gets
   what they replace. 0, also when there are none, or -1 (logged). */
int KeepApply(std::vector<NvramChange> *before);
void KeepNothing();

/* Takes back what KeepApply did; what cannot be taken back is logged. */
void KeepTakeBack(const std::vector<NvramChange> &before);

/* ---- status over a load (status.cpp) ---- */

/* Takes the status values out of the tree that a load is about to replace; lays them over the new
   one where their leaves exist, once. 0 or -1 (logged). */
int StatusTake(MDB_txn *txn);
int StatusLay(MDB_txn *txn);

/* ---- subtrees and instances ---- */

struct Found {
  uint64_t rank; /* first bytes of the order behind the top node's, big-endian */
  const uint8_t *key;
  size_t key_length;
  Record record;
};
/* Gathers the leaves below the node `top`, as the file has them. -1: there is no such node. */
int TreeGather(MDB_txn *txn, const Key &top, std::vector<Found> *leaves);

/* Sorts rows as the file has them; `skip` bytes at the start of their orders are the same. */
void TreeSort(std::vector<Found> *found, size_t skip);

/* The instance numbers of an array, ascending. 0 or -1 (logged). */
int TreeInstances(MDB_txn *txn, const Key &array, std::vector<uint32_t> *numbers);

/* Makes instance `number` of an array from its template. 0 or -1 (logged). */
int TreeAddInstance(MDB_txn *txn, const Key &array, uint32_t number);
int TreeDeleteInstance(MDB_txn *txn, const Key &array, uint32_t number);

/* Stores an array's counts and lets its "NumberOfEntries" sibling follow. 0 or -1 (logged). */
int TreePutCounts(MDB_txn *txn, const Key &array, const ArrayCounts &counts);
