// Character work of short messages: what each conversion does with odd, broken and long input.
#include "sms_text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

const uint8_t *Octets(const std::string &text) {
  return reinterpret_cast<const uint8_t *>(text.data());
}

std::string Hex(const std::string &bytes) {
  char hex[1024];
  BytesToHex(Octets(bytes), hex, bytes.size());
  return hex;
}

std::string Text(const uint8_t *bytes, int n) {
  return std::string(reinterpret_cast<const char *>(bytes), static_cast<size_t>(n));
}

TEST(SmsText, Digits) {
  uint8_t bytes[8];
  EXPECT_EQ(Hex(std::string("\x00\x9f\xfa\x10", 4)), "009FFA10");
  EXPECT_EQ(Text(bytes, HexToBytes("009FfA1", bytes, 7)), std::string("\x00\x9f\xfa", 3));
  EXPECT_EQ(Text(bytes, HexToBytes("g1-Z", bytes, 4)), std::string("\x01\x00", 2));
  EXPECT_EQ(Text(bytes, HexRunToBytes("4142\r\n43", bytes)), "AB");
  EXPECT_TRUE(IsHex("") && IsHex("09afAF") && !IsHex("0g"));
  EXPECT_TRUE(IsNumber("1", false) && IsNumber("+1", true));
  EXPECT_FALSE(IsNumber("", false) || IsNumber("+", true) || IsNumber("+1", false) ||
               IsNumber("1 ", false) || IsNumber("++1", true));
  const std::pair<std::string, const char *> swaps[] = {
      {"12345", "2143F5"}, {"1234", "2143"}, {"1", "F1"}, {"", ""}, {"*#AB", "#*BA"}};
  for (const auto &[digits, swapped] : swaps) {
    char text[8];
    EXPECT_EQ(InvertNumbers(digits.c_str(), text, digits.size()),
              static_cast<int>(strlen(swapped)));
    EXPECT_STREQ(text, swapped);
  }
}

/* Septets of less than a group, so that they stand in the low bits of a number. */
std::string Septets(const std::vector<uint8_t> &septets) {
  uint64_t bits = 0;
  for (size_t at = 0; at < septets.size(); ++at) bits |= uint64_t{septets[at]} << (7 * at);
  std::string bytes;
  for (size_t at = 0; at < (septets.size() * 7 + 7) / 8; ++at)
    bytes += static_cast<char>(bits >> (8 * at));
  return bytes;
}

/* Eight septets in seven octets, of which the last holds nothing but the last septet. */
std::string Eight(uint8_t last) { return Septets({'a', 'b', 'c', 'd', 'e', 'f', 1, last}); }

TEST(SmsText, SeptetsAreUnpacked) {
  const struct {
    const char *what;
    std::string packed;
    size_t max;
    std::string text;
  } cases[] = {
      {"the default alphabet", Septets({0x00, 0x02, 0x11, 0x40, 0x60}), 5, "@$_@`"},
      {"an escape and its code are one", Septets({0x1B, 0x3C, 'x'}), 3, "[x"},
      {"a code without a character is itself", Septets({0x1B, 0x65}), 2, "e"},
      {"an escape alone", Septets({'a', 0x1B}), 2, "a\x1b"},
      {"two escapes", Septets({0x1B, 0x1B, 0x28}), 3, "\x1b{"},
      {"an escape waits behind @, $, _", Septets({0x1B, 0, 2, 0x11, 0x3E, 0x3E}), 6, "]@$_>"},
      {"an extension's code alone", Septets({0x14, 0x28}), 2, "\x14("},
      {"7 octets, 8 septets", Eight('h'), 8, "abcdef\1h"},
      {"7 octets, the limit is 7", Eight('h'), 7, "abcdef\1"},
      {"the limit stops the eighth alone", Eight('h') + "ab", 2, "abcdef\1aD"},
      {"zero fill bits are a NUL at the limit", Eight(0), 8, std::string("abcdef\1\0", 8)},
      {"and an @ before it", Eight(0), 9, "abcdef\1@"},
      {"an octet that is not zero", Septets({'a', 'b', 'c', 'd', 'e', 'f', 'x', 0}), 8, "abcdefx@"},
  };
  for (const auto &one : cases) {
    char text[32];
    int n = Decode7bit(Octets(one.packed), text, one.packed.size(), one.max);
    EXPECT_EQ(std::string(text, static_cast<size_t>(n)), one.text) << one.what;
    EXPECT_EQ(text[n], '\0') << one.what;
  }
}

TEST(SmsText, BrokenUtf8IsReplaced) {
  const struct {
    const char *what;
    std::string text;
    const char *units;
    bool breaks; /* at its first character */
  } cases[] = {
      {"none", "\u00e9\u4f60a", "00E94F600061", false},
      {"a longer form than needed", "\xc1\x81", "0041", false},
      {"four bytes are one", "\U0001F600-", "FFFD002D", true},
      {"each continuation alone", "\x80\xbf-", "FFFDFFFD002D", true},
      {"a lead before ASCII", "\xc3-\xe4\xbd-", "FFFD002DFFFD002D", true},
      {"a lead at the end", "a\xe4", "0061FFFD", false},
      {"two leads", "\xe4\xe4\xbd\xa0", "FFFD4F60", true},
      {"four bytes that break off", "\xf0\x9f\x98", "FFFD", true},
      {"no leads", "\xff\xfe", "FFFDFFFD", true},
      {"five bytes", "\xf8\x88\x80\x80\x80", "FFFDFFFD", true},
  };
  for (const auto &one : cases) {
    uint8_t units[64], unit[2] = {};
    /* A copy that ends where the text does: nothing behind it may be read. */
    std::vector<char> copy(one.text.begin(), one.text.end());
    EXPECT_EQ(Hex(Text(units, Utf8ToUcs2(copy.data(), units, copy.size()))), one.units) << one.what;
    EXPECT_EQ(TextDcs(copy.data(), copy.size()), 8) << one.what;
    EXPECT_EQ(Utf8ToUcs2Char(one.text.c_str(), unit) == 0, one.breaks) << one.what;
    EXPECT_EQ(unit[0] == 0xE0 && unit[1] == 0x22, one.breaks) << one.what;
  }
  EXPECT_EQ(TextDcs("plain [text]\x7f", 13), 0);
  EXPECT_EQ(TextDcs("abc\u00e9", 3), 0);
}

TEST(SmsText, UnitsAreTheReverse) {
  for (unsigned unit = 0; unit <= 0xFFFF; ++unit) {
    char utf8[4] = {};
    uint8_t back[2];
    int n = Ucs2ToUtf8Char(static_cast<uint16_t>(unit), utf8);
    ASSERT_EQ(Utf8ToUcs2Char(utf8, back), n) << unit;
    ASSERT_EQ(static_cast<unsigned>(back[0] << 8 | back[1]), unit);
    ASSERT_EQ(n, unit < 0x80 ? 1 : unit < 0x800 ? 2 : 3);
  }
}

TEST(SmsText, TimeStamps) {
  char text[20] = "untouched";
  EXPECT_EQ(FormatScts("99032915165908", {text, 19}), -1);
  EXPECT_STREQ(text, "untouched");
  EXPECT_EQ(FormatScts("24112", text), 0);
  EXPECT_STREQ(text, "2024-11-2 ::");
}

/* Whatever the room, nothing is written behind it and the last character is whole. */
TEST(SmsText, WhatDoesNotFitIsCut) {
  const struct {
    const char *what;
    int (*call)(Span<char> to);
    const char *texts[7]; /* by room */
  } cases[] = {
      {"digits of bytes",
       [](Span<char> to) { return BytesToHex(Octets("\xab\xcd"), to, 2); },
       {"", "", "", "AB", "AB", "ABCD", "ABCD"}},
      {"swapped digits",
       [](Span<char> to) { return InvertNumbers("123", to, 3); },
       {"", "", "", "21", "21", "21F3", "21F3"}},
      {"septets",
       [](Span<char> to) {
         std::string packed = Septets({'a', 0x1B, 0x3C, 'b', 0x1B, 0x3D});
         return Decode7bit(Octets(packed), to, packed.size(), 6);
       },
       {"", "", "a", "a[", "a[b", "a[b~", "a[b~"}},
      {"UTF-8",
       [](Span<char> to) { return Ucs2ToUtf8(Octets(std::string("\0a\x4f\x60\0", 5)), to, 5); },
       {"", "", "a", "a", "a", "a\u4f60", "a\u4f60"}},
  };
  for (const auto &one : cases)
    for (size_t size = 0; size < 7; ++size) {
      char room[8];
      memset(room, '#', sizeof room);
      EXPECT_EQ(one.call({room, size}), static_cast<int>(strlen(one.texts[size]))) << one.what;
      EXPECT_EQ(std::string(room + size, sizeof room - size), std::string(sizeof room - size, '#'))
          << one.what << " " << size;
      EXPECT_STREQ(size > 0 ? room : "", one.texts[size]) << one.what << " " << size;
    }
  uint8_t bytes[3] = {0, 0, '#'};
  int escapes;
  EXPECT_EQ(HexToBytes("010203", {bytes, 2}, 6), 2);
  EXPECT_EQ(Utf8ToUcs2("ab", {bytes, 2}, 2), 2);
  EXPECT_EQ(Encode7bit("hello", {bytes, 2}, 6, &escapes), 2);
  EXPECT_EQ(bytes[2], '#');
}

}  // namespace
