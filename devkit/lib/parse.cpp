// Numbers and bytes; see parse.h.
#include "parse.h"

#include <charconv>

namespace {

bool Parse(std::string_view text, int base, int64_t least, int64_t most, int64_t *number) {
  const char *end = text.data() + text.size();
  auto [stop, error] = std::from_chars(text.data(), end, *number, base);
  return error == std::errc() && stop == end && *number >= least && *number <= most;
}

}  // namespace

bool ParseDecimal(std::string_view text, int64_t least, int64_t most, int64_t *number) {
  return Parse(text, 10, least, most, number);
}

bool ParseNumber(std::string_view text, int64_t least, int64_t most, int64_t *number) {
  bool hexadecimal = text.size() > 2 && text[0] == '0' && (text[1] | 0x20) == 'x' && text[2] != '-';
  return Parse(hexadecimal ? text.substr(2) : text, hexadecimal ? 16 : 10, least, most, number);
}

bool IsPhoneNumber(std::string_view text, size_t most) {
  if (!text.empty() && text[0] == '+') text.remove_prefix(1);
  return !text.empty() && text.size() <= most && text.find_first_not_of("0123456789") == text.npos;
}

bool BytesFromHex(std::string_view hex, std::string *bytes) {
  std::string found;
  if (hex.size() % 2 != 0) return false;
  for (; !hex.empty(); hex.remove_prefix(2)) {
    int64_t byte;
    if (hex[0] == '-' || !Parse(hex.substr(0, 2), 16, 0, 0xFF, &byte)) return false;
    found += static_cast<char>(byte);
  }
  *bytes = found;
  return true;
}

std::string HexFromBytes(std::string_view bytes, HexCase letters) {
  const char *digits = letters == UPPER_CASE ? "0123456789ABCDEF" : "0123456789abcdef";
  std::string hex;
  for (unsigned char byte : bytes) {
    hex += digits[byte >> 4];
    hex += digits[byte & 15];
  }
  return hex;
}
