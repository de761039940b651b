// Hexadecimal digits, for all who write or read them. Pure; any thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

constexpr char kHexUpper[] = "0123456789ABCDEF", kHexLower[] = "0123456789abcdef";

/* Two of `digits`, one of the two above, for each of `n` bytes; not terminated. */
inline void PutHex(const uint8_t *bytes, size_t n, const char *digits, char *text) {
  for (size_t at = 0; at < n; ++at) {
    text[2 * at] = digits[bytes[at] >> 4];
    text[2 * at + 1] = digits[bytes[at] & 0x0F];
  }
}

constexpr std::array<int8_t, 256> MakeHexValues() {
  std::array<int8_t, 256> values{};
  for (auto &value : values) value = -1;
  for (const char *digits : {kHexUpper, kHexLower})
    for (int digit = 0; digit < 16; ++digit)
      values[static_cast<uint8_t>(digits[digit])] = static_cast<int8_t>(digit);
  return values;
}
inline constexpr auto kHexValues = MakeHexValues();

/* The value of a digit of either case, else -1. */
inline int HexValue(char digit) { return kHexValues[static_cast<uint8_t>(digit)]; }

/* The bytes of the digits that `text` begins with, two a byte, at most `n` bytes. How many. */
inline size_t TakeHex(const char *text, size_t n, uint8_t *bytes) {
  for (size_t at = 0; at < n; ++at) {
    int value = HexValue(text[2 * at]) * 16 | HexValue(text[2 * at + 1]);
    if (value < 0) return at; /* one of them is no digit */
    bytes[at] = static_cast<uint8_t>(value);
  }
  return n;
}
