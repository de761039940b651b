// Paths as the store's keys, so that key order puts a subtree into one run and instances by number.
//
// A key is the path with a byte for the root's name, which all paths start with, and one for each
// dot: 0x01 before a leaf's name, 0x02 before any other. A number is preceded by 0x10 plus its
// count of digits. The subtree of key K is thus all of [K, K 0x03), with what K's own leaves have
// apart (record.h) first. In a template, byte 0x04 stands for "each instance".
#pragma once

#include <lmdb.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "ams_store.h"

enum : uint8_t {
  KEY_LEAF = 0x01,
  KEY_NODE = 0x02,
  KEY_END = 0x03,
  KEY_EACH = 0x04,
  KEY_ROOT = 0x05,
  KEY_DIGITS = 0x10,
};

/* First bytes of what is no node of the tree; names are ASCII, so these sort behind all of it. */
enum : uint8_t {
  KEY_FORMAT = 0xF0,
  KEY_ATTRIBUTES = 0xF1, /* + number: an attribute set */
  KEY_TEMPLATE = 0xF2,   /* + key with KEY_EACH: a node of a template */
  KEY_NOTIFY = 0xF3,     /* + key: the node's notify attribute */
  KEY_CHANGED = 0xF4,    /* + key of a leaf: it changed since the change list was read */
};

constexpr char kFormat[] = "4"; /* of keys and records; a store of another one is replaced */

/* The one name that every path starts with. */
constexpr char kRootName[] = "InternetGatewayDevice";

/* A leaf named after an array beside it with this behind counts the array's instances. */
constexpr char kEntriesName[] = "NumberOfEntries";

constexpr size_t kKeyMax = 511; /* LMDB's limit; the key of a path of 255 bytes has 382 at most */

struct Key {
  size_t length;
  size_t last; /* where the last separator stands; 0: none */
  uint8_t bytes[kKeyMax + 1];
};

enum { KEY_TOO_LONG = -2 };

/* Makes the key of a leaf (separator KEY_LEAF at the end) or of another node. One trailing dot is
   left out. 0; -1: no node can have this path; KEY_TOO_LONG. */
int KeyOfPath(const char *path, uint8_t last_separator, Key *key);

/* Writes the dotted form of a key, or of its part behind some node, with a NUL; a separator at
   the start is left out. `path` has room for `length` + 1 bytes, and for the root's name instead of
   its byte; a buffer of kKeyMax + 1 does for each key of the tree. Returns the path's length. */
size_t KeyToPath(const uint8_t *bytes, size_t length, char *path);

/* A node's key that was stored somewhere. -1: it is longer than any. */
int KeyOfBytes(const void *bytes, size_t length, Key *key);

/* Appends to a key. -1 when it is full. */
int KeyAppend(Key *key, const void *bytes, size_t length);
int KeyAppendName(Key *key, uint8_t separator, std::string_view name);
int KeyAppendNumber(Key *key, uint32_t number);

/* The template key of what an array's instances (or a node in one of them) are made from: the
   KEY_TEMPLATE mark, then `bytes` with each instance's number replaced by KEY_EACH. */
void KeyGeneral(const uint8_t *bytes, size_t length, Key *general);

/* A key of what is no node: the mark, then `bytes`. */
Key KeyMarked(uint8_t mark, const uint8_t *bytes, size_t length);
inline Key KeyMarked(uint8_t mark, const Key &key) {
  return KeyMarked(mark, key.bytes, key.length);
}

/* The number of the instance that `component` (behind the separator) names; 0 when it is none. */
uint32_t KeyNumber(const uint8_t *component, size_t length);

/* Cuts the last component off. -1 for the root. */
int KeyCut(Key *key);
int KeyParent(const Key &key, Key *parent);

/* Without the bytes behind its end, which an assignment copies, too. */
inline void KeyCopy(const Key &from, Key *key) {
  key->length = from.length;
  key->last = from.last;
  memcpy(key->bytes, from.bytes, from.length);
}
inline bool KeyEqual(const Key &one, const Key &other) {
  return one.length == other.length && memcmp(one.bytes, other.bytes, one.length) == 0;
}

inline bool KeyIsLeaf(const Key &key) { return key.last != 0 && key.bytes[key.last] == KEY_LEAF; }
inline MDB_val KeyVal(const Key &key) {
  return MDB_val{key.length, const_cast<uint8_t *>(key.bytes)};
}
inline bool KeyStarts(const MDB_val &key, const uint8_t *prefix, size_t length) {
  return key.mv_size >= length && memcmp(key.mv_data, prefix, length) == 0;
}
/* True when `key` lies in the subtree of the node whose key is `top` (itself included). */
inline bool KeyBelow(const MDB_val &key, const uint8_t *top, size_t length) {
  return KeyStarts(key, top, length) &&
         (key.mv_size == length || static_cast<uint8_t *>(key.mv_data)[length] < KEY_END);
}
