// What the text forms of nodes are made of: leaves as "name=value".
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

/* A block of the counted heap for a text with its NUL, or NULL: no memory (logged). */
char *NewText(size_t size);

struct LeafText {
  const uint8_t *name;
  const char *value;
  size_t name_length, length;
};

/* memcpy without a call for what names and values mostly are: eight to sixteen bytes. Returns where
   it ends. */
inline char *PutText(char *out, const void *from, size_t length) {
  uint64_t first, last;
  if (length < sizeof first || length > 2 * sizeof first) {
    memcpy(out, from, length);
  } else {
    memcpy(&first, from, sizeof first);
    memcpy(&last, static_cast<const char *>(from) + length - sizeof last, sizeof last);
    memcpy(out, &first, sizeof first);
    memcpy(out + length - sizeof last, &last, sizeof last);
  }
  return out + length;
}

inline char *PutLeaf(char *out, const LeafText &leaf) {
  out = PutText(out, leaf.name, leaf.name_length);
  *out++ = '=';
  return PutText(out, leaf.value, leaf.length);
}
