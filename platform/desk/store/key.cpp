// Paths to keys and back; see key.h. Pure: knows nothing of what is stored.
#include "key.h"

#include <endian.h>

#include <cstdio>

namespace {

constexpr size_t kMostDigits = 10;

constexpr uint64_t kOnes = 0x0101010101010101, kHigh = kOnes * 0x80;

bool Digit(char c) { return c >= '0' && c <= '9'; }

/* Control bytes are the keys' own marks, bytes from 0x80 on their first bytes: no path has them. */
bool Foreign(uint8_t byte) { return byte < ' ' || byte >= 0x80; }

/* Copies up to the next dot or the end, eight bytes at a time: every look-up pays for this. Returns
   where it stopped in the path; NULL for a byte that no path has. */
const char *CopyName(const char *from, const char *end, uint8_t **out) {
  for (; end - from >= 8; from += 8, *out += 8) {
    uint64_t word, dots;
    memcpy(&word, from, sizeof word);
    memcpy(*out, from, sizeof word);
    if (((word | ((word - kOnes * ' ') & ~word)) & kHigh) != 0) return nullptr;
    dots = word ^ (kOnes * '.');
    if (((dots - kOnes) & ~dots & kHigh) != 0) break;
  }
  for (; from < end && *from != '.'; ++from) {
    if (Foreign(static_cast<uint8_t>(*from))) return nullptr;
    *(*out)++ = static_cast<uint8_t>(*from);
  }
  return from;
}

/* A number gets its count of digits in front. NULL: digits, but no number. */
const char *CopyNumber(const char *from, const char *end, uint8_t **out) {
  size_t digits = 1;
  while (from + digits < end && Digit(from[digits])) ++digits;
  if (digits > kMostDigits || from[0] == '0') return nullptr;
  if (from + digits < end && from[digits] != '.') return nullptr;
  *(*out)++ = static_cast<uint8_t>(KEY_DIGITS + digits);
  memcpy(*out, from, digits);
  *out += digits;
  return from + digits;
}

}  // namespace

int KeyOfPath(const char *path, uint8_t last_separator, Key *key) {
  size_t length = strnlen(path, AMS_PATH_SIZE + 1);
  if (length > 0 && path[length - 1] == '.') --length;
  if (length >= AMS_PATH_SIZE) return KEY_TOO_LONG;
  const char *end = path + length;
  uint8_t *out = key->bytes; /* has room for the words that CopyName copies too many */
  key->last = 0;
  for (;;) {
    if (path == end || *path == '.') return -1;
    path = Digit(*path) ? CopyNumber(path, end, &out) : CopyName(path, end, &out);
    if (path == nullptr) return -1;
    if (path == end) break;
    key->last = static_cast<size_t>(out - key->bytes);
    *out++ = KEY_NODE;
    ++path;
  }
  key->length = static_cast<size_t>(out - key->bytes);
  if (key->last != 0) key->bytes[key->last] = last_separator;
  return 0;
}

size_t KeyToPath(const uint8_t *bytes, size_t length, char *path) {
  size_t from = length > 0 && bytes[0] <= KEY_NODE ? 1 : 0, to = 0;
  if (from == 1 && bytes[0] == KEY_LEAF) { /* an object's own leaf: one name */
    memcpy(path, bytes + 1, length - 1);
    path[length - 1] = '\0';
    return length - 1;
  }
  while (from < length) { /* eight bytes at a time: every row that is shown pays for this */
    size_t plain = 0;
    uint64_t word = 0;
    if (length - from >= sizeof word) {
      memcpy(&word, bytes + from, sizeof word);
      memcpy(path + to, &word, sizeof word);
      word = le64toh(word);
      word = (word - kOnes * ' ') & ~word & kHigh; /* its lowest bit is that of the first mark */
      plain = word == 0 ? sizeof word : static_cast<size_t>(__builtin_ctzll(word)) / 8;
    } else if (bytes[from] >= ' ') {
      path[to] = static_cast<char>(bytes[from]);
      plain = 1;
    }
    from += plain;
    to += plain;
    if (plain < sizeof word && from < length && bytes[from] < ' ' && bytes[from++] <= KEY_NODE)
      path[to++] = '.';
  }
  path[to] = '\0';
  return to;
}

int KeyAppend(Key *key, const void *bytes, size_t length) {
  if (key->length + length > kKeyMax) return -1;
  if (length != 0) memcpy(key->bytes + key->length, bytes, length);
  key->length += length;
  return 0;
}

int KeyAppendName(Key *key, uint8_t separator, std::string_view name) {
  if (key->length + 1 + name.size() > kKeyMax) return -1;
  key->last = key->length;
  key->bytes[key->length++] = separator;
  return KeyAppend(key, name.data(), name.size());
}

int KeyAppendNumber(Key *key, uint32_t number) {
  char text[16] = {};
  int digits = snprintf(text + 1, sizeof text - 1, "%u", number);
  text[0] = static_cast<char>(KEY_DIGITS + digits);
  return KeyAppendName(key, KEY_NODE, {text, static_cast<size_t>(digits) + 1});
}

void KeyGeneral(const uint8_t *bytes, size_t length, Key *general) {
  size_t to = 0;
  general->bytes[to++] = KEY_TEMPLATE;
  for (size_t from = 0; from < length; ++from) {
    if (bytes[from] > KEY_DIGITS && bytes[from] <= KEY_DIGITS + kMostDigits) {
      from += bytes[from] - KEY_DIGITS;
      general->bytes[to++] = KEY_EACH;
    } else {
      general->bytes[to++] = bytes[from];
    }
  }
  general->length = to;
  general->last = 0;
}

Key KeyMarked(uint8_t mark, const uint8_t *bytes, size_t length) {
  Key marked;
  marked.bytes[0] = mark;
  marked.length = 1;
  marked.last = 0;
  (void)KeyAppend(&marked, bytes, length); /* a node's key is far from the limit */
  return marked;
}

uint32_t KeyNumber(const uint8_t *component, size_t length) {
  if (length < 2 || component[0] <= KEY_DIGITS || component[0] > KEY_DIGITS + kMostDigits) return 0;
  size_t digits = component[0] - KEY_DIGITS;
  uint64_t number = 0;
  for (size_t at = 1; at <= digits && at < length; ++at)
    number = number * 10 + (component[at] - '0');
  return number > UINT32_MAX ? 0 : static_cast<uint32_t>(number);
}

int KeyParent(const Key &key, Key *parent) {
  if (key.last == 0) return -1;
  memcpy(parent->bytes, key.bytes, key.last);
  parent->length = key.last;
  parent->last = 0;
  for (size_t at = key.last; at-- > 0 && parent->last == 0;)
    if (key.bytes[at] <= KEY_NODE) parent->last = at;
  return 0;
}
