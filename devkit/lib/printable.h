// Texts of strangers, such as received messages, on a terminal.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

/* `text` with "\x1b" and the like for what may move a terminal's cursor, colour it or more: control
   characters but the line feed, and the second set of them, U+0080 to U+009F. */
inline std::string Printable(std::string_view text) {
  std::string printable;
  for (size_t at = 0; at < text.size(); ++at) {
    auto byte = static_cast<unsigned char>(text[at]);
    auto next = static_cast<unsigned char>(at + 1 < text.size() ? text[at + 1] : 0);
    bool second_set = byte == 0xC2 && next >= 0x80 && next < 0xA0;
    char code[12];
    snprintf(code, sizeof code, second_set ? "\\u%04x" : "\\x%02x", second_set ? next : byte);
    if ((byte < 0x20 && byte != '\n') || byte == 0x7F || second_set)
      printable += code;
    else
      printable += text[at];
    if (second_set) ++at;
  }
  return printable;
}
