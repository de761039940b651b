// Paths to keys and back; see key.h. Pure: knows nothing of what is stored.
#include "key.h"

#include <endian.h>

#include <charconv>
#include <iterator>

namespace {

constexpr size_t kMostDigits = 10;

constexpr uint64_t kOnes = 0x0101010101010101, kHigh = kOnes * 0x80;

bool Digit(char c) { return c >= '0' && c <= '9'; }

/* Eight bytes of text as a number whose lowest byte is the first of them. */
uint64_t Word(const void *text) {
  uint64_t word;
  memcpy(&word, text, sizeof word);
  return le64toh(word);
}

/* Of the bytes of a word, the first of those marked by their highest bit; 8: none is. */
size_t FirstOf(uint64_t marks) {
  return marks == 0 ? sizeof marks : static_cast<size_t>(__builtin_ctzll(marks)) / 8;
}

/* Marks the first byte that is below ' ', and maybe others behind it. */
uint64_t MarkControl(uint64_t word) { return (word - kOnes * ' ') & ~word & kHigh; }

/* The next bytes of a path of at least a word that ends at `end`, then zeros. */
uint64_t WordOf(const char *from, const char *end) {
  constexpr size_t kWord = sizeof(uint64_t);
  const size_t rest = static_cast<size_t>(end - from);
  return rest >= kWord ? Word(from) : Word(end - kWord) >> (8 * (kWord - rest));
}

/* Copies up to the next byte that no name has: the dot, control bytes, which are the keys' own
   marks, and bytes from 0x80 on, their first bytes. Eight at a time: every look-up pays for this.
   NULL: the name has no bytes. */
const char *CopyName(const char *from, const char *end, uint8_t **out) {
  const char *start = from;
  uint64_t ends = 0;
  while (ends == 0 && from < end) {
    const uint64_t word = WordOf(from, end), dots = word ^ (kOnes * '.'), put = htole64(word);
    ends = MarkControl(word) | (((dots - kOnes) & ~dots) & kHigh) | (word & kHigh);
    const size_t names = FirstOf(ends);
    memcpy(*out, &put, sizeof put);
    from += names;
    *out += names;
  }
  return from == start ? nullptr : from;
}

/* Where the last separator before `end` stands; 0: there is none. */
size_t FindLast(const Key &key, size_t end) {
  size_t at = end == 0 ? 0 : end - 1;
  while (at > 0 && key.bytes[at] > KEY_NODE) --at;
  return at;
}

/* A number gets its count of digits in front. NULL: digits, but no number. */
const char *CopyNumber(const char *from, uint8_t **out) {
  size_t digits = 0;
  if (from[0] == '0') return nullptr;
  for (; Digit(from[digits]); ++digits) {
    if (digits == kMostDigits) return nullptr;
    (*out)[1 + digits] = static_cast<uint8_t>(from[digits]);
  }
  **out = static_cast<uint8_t>(KEY_DIGITS + digits);
  *out += 1 + digits;
  return from + digits;
}

}  // namespace

int KeyOfPath(const char *path, uint8_t last_separator, Key *key) {
  constexpr size_t root = sizeof kRootName - 1;
  size_t length = strnlen(path, AMS_PATH_SIZE + 1);
  if (length > 0 && path[length - 1] == '.') --length;
  if (length >= AMS_PATH_SIZE) return KEY_TOO_LONG;
  if (length < root || memcmp(path, kRootName, root) != 0) return -1;
  const char *from = path + root, *end = path + length;
  uint8_t *out = key->bytes; /* has room for what CopyName copies too much */
  key->last = 0;
  *out++ = KEY_ROOT;
  while (from < end) {
    if (*from++ != '.') return -1;
    key->last = static_cast<size_t>(out - key->bytes);
    *out++ = KEY_NODE;
    from = Digit(*from) ? CopyNumber(from, &out) : CopyName(from, end, &out);
    if (from == nullptr) return -1;
  }
  key->length = static_cast<size_t>(out - key->bytes);
  if (key->last != 0) key->bytes[key->last] = last_separator;
  return 0;
}

size_t KeyToPath(const uint8_t *bytes, size_t length, char *path) {
  size_t from = length > 0 ? 1 : 0, to = 0;
  if (length > 0 && bytes[0] == KEY_ROOT) {
    memcpy(path, kRootName, sizeof kRootName);
    to = sizeof kRootName - 1;
  }
  while (from < length) { /* eight bytes at a time: every row that is shown pays for this */
    size_t names = 0;
    if (length - from >= sizeof(uint64_t)) {
      names = FirstOf(MarkControl(Word(bytes + from)));
      memcpy(path + to, bytes + from, sizeof(uint64_t));
    } else if (bytes[from] >= ' ') {
      path[to] = static_cast<char>(bytes[from]);
      names = 1;
    }
    from += names;
    to += names;
    if (from < length && bytes[from] < ' ' && bytes[from++] <= KEY_NODE) path[to++] = '.';
  }
  path[to] = '\0';
  return to;
}

int KeyOfBytes(const void *bytes, size_t length, Key *key) {
  key->length = 0;
  if (KeyAppend(key, bytes, length) != 0) return -1;
  key->last = FindLast(*key, length);
  return 0;
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
  char text[1 + kMostDigits];
  const size_t digits =
      static_cast<size_t>(std::to_chars(text + 1, std::end(text), number).ptr - text) - 1;
  text[0] = static_cast<char>(KEY_DIGITS + digits);
  return KeyAppendName(key, KEY_NODE, {text, digits + 1});
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

int KeyCut(Key *key) {
  if (key->last == 0) return -1;
  key->length = key->last;
  key->last = FindLast(*key, key->length);
  return 0;
}

int KeyParent(const Key &key, Key *parent) {
  KeyCopy(key, parent);
  return KeyCut(parent);
}
