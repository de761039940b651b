// Escapes; see escape.h.
#include "escape.h"

#include <cstdio>

namespace {

std::string Code(char kind, int width, unsigned value) { /* "\\x1b", "\\u009b" */
  char code[16];
  snprintf(code, sizeof code, "\\%c%0*x", kind, width, value);
  return code;
}

/* The bytes of the character that `text`, which is not empty, begins with; 0: it is no UTF-8. */
size_t Utf8Size(std::string_view text) {
  auto byte = [&](size_t at) { return static_cast<unsigned char>(text[at]); };
  if (byte(0) < 0x80) return 1;
  size_t size = byte(0) < 0xE0 ? 2 : byte(0) < 0xF0 ? 3 : 4;
  if (byte(0) < 0xC2 || byte(0) > 0xF4 || text.size() < size) return 0;
  for (size_t at = 1; at < size; ++at)
    if ((byte(at) & 0xC0) != 0x80) return 0;
  /* longer forms than a character needs, surrogates, and what is above U+10FFFF */
  const int begin = byte(0) << 8 | byte(1);
  bool none = (begin >= 0xE080 && begin < 0xE0A0) || (begin >= 0xEDA0 && begin < 0xEE00) ||
              (begin >= 0xF080 && begin < 0xF090) || begin >= 0xF490;
  return none ? 0 : size;
}

}  // namespace

std::string Printable(std::string_view text) {
  std::string printable;
  for (size_t size; !text.empty(); text.remove_prefix(size)) {
    size = Utf8Size(text);
    auto byte = static_cast<unsigned char>(text[0]);
    auto next = static_cast<unsigned char>(size == 2 ? text[1] : 0);
    if (byte == 0xC2 && next != 0 && next < 0xA0)
      printable += Code('u', 4, next);
    else if ((byte < 0x20 && byte != '\n') || byte == 0x7F || size == 0)
      printable += Code('x', 2, byte);
    else
      printable += text.substr(0, size);
    if (size == 0) size = 1;
  }
  return printable;
}

std::string Escaped(std::string_view bytes) {
  std::string text;
  for (char byte : bytes) {
    if (byte < ' ' || byte > '~' || byte == '\\')
      text += Code('x', 2, static_cast<unsigned char>(byte));
    else
      text += byte;
  }
  return text;
}
