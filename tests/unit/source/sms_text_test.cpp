// Character work of short messages: what each conversion does with odd, broken and long input.
#include "sms_text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

std::string Hex(const std::string &bytes) {
  char hex[1024];
  BytesToHex(reinterpret_cast<const uint8_t *>(bytes.data()), hex, bytes.size());
  return hex;
}

std::string Bytes(const std::string &hex) {
  uint8_t bytes[512];
  int n = HexToBytes(hex.data(), bytes, hex.size());
  return std::string(reinterpret_cast<char *>(bytes), static_cast<size_t>(n));
}

TEST(SmsText, HexadecimalBothWays) {
  EXPECT_EQ(Hex(std::string("\x00\x9f\xfa\x10", 4)), "009FFA10");
  EXPECT_EQ(Bytes("009FfA1"), std::string("\x00\x9f\xfa", 3));
  EXPECT_EQ(Bytes("g1-Z"), std::string("\x01\x00", 2));
}

TEST(SmsText, NumbersAreSwappedInPairs) {
  const std::pair<std::string, const char *> cases[] = {
      {"12345", "2143F5"}, {"1234", "2143"}, {"1", "F1"}, {"", ""}, {"*#AB", "#*BA"}};
  for (const auto &[digits, swapped] : cases) {
    char text[8];
    EXPECT_EQ(InvertNumbers(digits.c_str(), text, digits.size()),
              static_cast<int>(strlen(swapped)));
    EXPECT_STREQ(text, swapped);
  }
}

TEST(SmsText, SeptetsArePacked) {
  const struct {
    const char *what;
    std::string text;
    size_t n;
    const char *packed;
    int escapes;
  } cases[] = {
      {"a published text", "hellohello", 11, "E8329BFD4697D9EC37", 0},
      {"without the NUL the last bits are missing", "hellohello", 10, "E8329BFD4697D9EC", 0},
      {"7 characters, the NUL is the eighth septet", "1234567", 8, "31D98C56B3DD00", 0},
      {"8 characters, the NUL brings out nothing", "12345678", 9, "31D98C56B3DD70", 0},
      {"an escape", "a[b", 4, "E10D4F0C", 1},
      {"of the default alphabet", "@$_", 4, "004104", 0},
      {"the extension", "^{}\\[~]|", 9, "1BCA06B5496D5E1BDEA6B7F16D80", 8},
      {"nothing", "", 0, "", 0},
  };
  for (const auto &one : cases) {
    uint8_t bytes[64];
    int escapes = -1, n = Encode7bit(one.text.c_str(), bytes, one.n, &escapes);
    EXPECT_EQ(Hex(std::string(reinterpret_cast<char *>(bytes), static_cast<size_t>(n))), one.packed)
        << one.what;
    EXPECT_EQ(escapes, one.escapes) << one.what;
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
      {"nothing", "", 8, ""},
  };
  for (const auto &one : cases) {
    char text[32];
    int n = Decode7bit(reinterpret_cast<const uint8_t *>(one.packed.data()), text,
                       one.packed.size(), one.max);
    EXPECT_EQ(std::string(text, static_cast<size_t>(n)), one.text) << one.what;
    EXPECT_EQ(text[n], '\0') << one.what;
  }
}

TEST(SmsText, OneCharacterOfUtf8) {
  const struct {
    const char *what, *utf8;
    int length;
    unsigned unit;
  } cases[] = {
      {"the NUL", "", 1, 0},
      {"a longer form than needed", "\xc1\x81", 2, 0x41},
      {"four bytes", "\xf0\x9f\x98\x80", 0, 0xE022},
      {"a continuation alone", "\x80", 0, 0xE022},
      {"two bytes that break off", "\xc3", 0, 0xE022},
      {"three bytes that break off", "\xe4\xbdx", 0, 0xE022},
      {"no lead", "\xff\x80\x80", 0, 0xE022},
  };
  for (const auto &one : cases) {
    uint8_t unit[2] = {};
    EXPECT_EQ(Utf8ToUcs2Char(one.utf8, unit), one.length) << one.what;
    EXPECT_EQ(static_cast<unsigned>(unit[0] << 8 | unit[1]), one.unit) << one.what;
  }
}

TEST(SmsText, BrokenUtf8IsReplaced) {
  const struct {
    const char *what;
    std::string text;
    const char *units;
  } cases[] = {
      {"none", "a\u00e9\u4f60", "006100E94F60"},
      {"four bytes are one", "\U0001F600-", "FFFD002D"},
      {"each continuation alone", "\x80\xbf-", "FFFDFFFD002D"},
      {"a lead before ASCII", "\xc3-\xe4\xbd-", "FFFD002DFFFD002D"},
      {"a lead at the end", "a\xe4", "0061FFFD"},
      {"two leads", "\xe4\xe4\xbd\xa0", "FFFD4F60"},
      {"four bytes that break off", "\xf0\x9f\x98", "FFFD"},
      {"no leads", "\xff\xfe", "FFFDFFFD"},
      {"five bytes", "\xf8\x88\x80\x80\x80", "FFFDFFFD"},
  };
  for (const auto &one : cases) {
    uint8_t units[64];
    /* A copy that ends where the text does: nothing behind it may be read. */
    std::vector<char> copy(one.text.begin(), one.text.end());
    int n = Utf8ToUcs2(copy.data(), units, copy.size());
    EXPECT_EQ(Hex(std::string(reinterpret_cast<char *>(units), static_cast<size_t>(n))), one.units)
        << one.what;
    EXPECT_EQ(TextDcs(copy.data(), copy.size()), 8) << one.what;
  }
  EXPECT_EQ(TextDcs("plain [text]\x7f", 13), 0);
  EXPECT_EQ(TextDcs("abc\u00e9", 3), 0);
  EXPECT_EQ(TextDcs("\xc1\x81", 2), 8);
  EXPECT_EQ(TextDcs("", 0), 0);
}

TEST(SmsText, UnitsAreTheReverse) {
  for (unsigned unit = 1; unit <= 0xFFFF; ++unit) {
    char utf8[4] = {};
    uint8_t back[2];
    int n = Ucs2ToUtf8Char(static_cast<uint16_t>(unit), utf8);
    ASSERT_EQ(Utf8ToUcs2Char(utf8, back), n) << unit;
    ASSERT_EQ(static_cast<unsigned>(back[0] << 8 | back[1]), unit);
    ASSERT_EQ(n, unit < 0x80 ? 1 : unit < 0x800 ? 2 : 3);
  }
  char text[8];
  EXPECT_EQ(Ucs2ToUtf8(reinterpret_cast<const uint8_t *>("\0A\x4f\x60\0"), text, 5), 4);
  EXPECT_STREQ(text, "A\u4f60");
}

TEST(SmsText, TimeStamps) {
  char text[32] = "untouched";
  EXPECT_EQ(FormatScts("99032915165908", {text, 19}), -1);
  EXPECT_STREQ(text, "untouched");
  EXPECT_EQ(FormatScts("99032915165908", {text, 20}), 0);
  EXPECT_STREQ(text, "2099-03-29 15:16:59");
  EXPECT_EQ(FormatScts("24112", text), 0);
  EXPECT_STREQ(text, "2024-11-2 ::");
}

/* Whatever the room, nothing is written behind it and the last character is whole. */
TEST(SmsText, WhatDoesNotFitIsCut) {
  const struct {
    const char *what;
    int (*call)(char *to, size_t size);
    const char *texts[7]; /* by room; NULL for what is no text */
  } cases[] = {
      {"digits of bytes",
       [](char *to, size_t size) {
         return BytesToHex(reinterpret_cast<const uint8_t *>("\xab\xcd"), {to, size}, 2);
       },
       {"", "", "", "AB", "AB", "ABCD", "ABCD"}},
      {"swapped digits",
       [](char *to, size_t size) { return InvertNumbers("123", {to, size}, 3); },
       {"", "", "", "21", "21", "21F3", "21F3"}},
      {"septets",
       [](char *to, size_t size) {
         std::string packed = Septets({'a', 0x1B, 0x3C, 'b', 0x1B, 0x3D});
         return Decode7bit(reinterpret_cast<const uint8_t *>(packed.data()), {to, size},
                           packed.size(), 6);
       },
       {"", "", "a", "a[", "a[b", "a[b~", "a[b~"}},
      {"UTF-8",
       [](char *to, size_t size) {
         return Ucs2ToUtf8(reinterpret_cast<const uint8_t *>("\0a\x4f\x60"), {to, size}, 4);
       },
       {"", "", "a", "a", "a", "a\u4f60", "a\u4f60"}},
  };
  for (const auto &one : cases)
    for (size_t size = 0; size < 7; ++size) {
      char room[8];
      memset(room, '#', sizeof room);
      EXPECT_EQ(one.call(room, size), static_cast<int>(strlen(one.texts[size]))) << one.what;
      EXPECT_EQ(std::string(room + size, sizeof room - size), std::string(sizeof room - size, '#'))
          << one.what << " " << size;
      if (size > 0) {
        EXPECT_STREQ(room, one.texts[size]) << one.what << " " << size;
      }
    }
  uint8_t bytes[3] = {0, 0, '#'};
  int escapes;
  EXPECT_EQ(HexToBytes("010203", {bytes, 2}, 6), 2);
  EXPECT_EQ(Utf8ToUcs2("ab", {bytes, 2}, 2), 2);
  EXPECT_EQ(Encode7bit("hello", {bytes, 2}, 6, &escapes), 2);
  EXPECT_EQ(bytes[2], '#');
}

}  // namespace
