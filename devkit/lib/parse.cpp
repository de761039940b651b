// Numbers and bytes; see parse.h.
#include "parse.h"

#include <charconv>

namespace {

bool Parse(std::string_view text, int base, int64_t least, int64_t most, int64_t *number) {
  const char *end = text.data() + text.size();
  if (least >= 0 && !text.empty() && text[0] == '-') return false; /* else "-0" would be one */
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

bool ParseFraction(std::string_view text, double least, double most, double *number) {
  const char *end = text.data() + text.size();
  auto [stop, error] = std::from_chars(text.data(), end, *number, std::chars_format::fixed);
  return error == std::errc() && stop == end && *number >= least && *number <= most;
}

bool BytesFromHex(std::string_view hex, std::string *bytes) {
  std::string found(hex.size() / 2, '\0');
  auto *at = reinterpret_cast<uint8_t *>(found.data());
  if (hex.size() % 2 != 0 || TakeHex(hex.data(), found.size(), at) < found.size()) return false;
  *bytes = found;
  return true;
}

std::string HexFromBytes(std::string_view bytes, const char *digits) {
  std::string hex(2 * bytes.size(), '\0');
  PutHex(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size(), digits, hex.data());
  return hex;
}
