// Character work of short messages; see sms_text.h.
#include "sms_text.h"

#include <endian.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

namespace {

constexpr char kDigits[] = "0123456789ABCDEF";

constexpr std::array<int8_t, 256> MakeHexValues() {
  std::array<int8_t, 256> values{};
  for (auto &value : values) value = -1;
  for (int digit = 0; digit < 16; ++digit) {
    values[static_cast<uint8_t>(kDigits[digit])] = static_cast<int8_t>(digit);
    if (digit > 9)
      values[static_cast<uint8_t>(kDigits[digit] - 'A' + 'a')] = values['A'] + digit - 10;
  }
  return values;
}
constexpr auto kHexValues = MakeHexValues();

/* ---- GSM alphabet: tables made from GsmAsciiMap ---- */

constexpr size_t kDefaultPairs = 3; /* the pairs of GsmAsciiMap without an escape */
constexpr uint16_t kEscaped = 0x100;

/* By character: its septet, and kEscaped when an escape comes first. */
constexpr std::array<uint16_t, 256> MakeSeptets() {
  std::array<uint16_t, 256> septets{};
  for (size_t at = 0; at < septets.size(); ++at) septets[at] = static_cast<uint16_t>(at);
  for (size_t at = 0; at < std::size(GsmAsciiMap); ++at)
    septets[static_cast<uint8_t>(GsmAsciiMap[at].ascii)] =
        static_cast<uint16_t>(GsmAsciiMap[at].gsm | (at < kDefaultPairs ? 0 : kEscaped));
  return septets;
}
constexpr auto kSeptets = MakeSeptets();

/* By septet: the character, alone or behind an escape. */
constexpr std::array<char, 128> MakeCharacters(bool escaped) {
  std::array<char, 128> characters{};
  for (size_t at = 0; at < characters.size(); ++at) characters[at] = static_cast<char>(at);
  for (size_t at = 0; at < std::size(GsmAsciiMap); ++at)
    if (escaped || at < kDefaultPairs) characters[GsmAsciiMap[at].gsm] = GsmAsciiMap[at].ascii;
  return characters;
}
constexpr auto kPlainText = MakeCharacters(false);
constexpr auto kEscapedText = MakeCharacters(true);

struct Packer {
  uint8_t *bytes;
  size_t room, length;
  unsigned shift; /* of the next septet */
  uint8_t carried;
};

/* A character above 0x7F keeps its eighth bit, which runs into the next septet: such texts are sent
   as UCS2. */
inline void Pack(Packer *to, uint8_t septet) {
  if (to->shift == 0) {
    to->carried = septet;
  } else {
    if (to->length < to->room)
      to->bytes[to->length++] = static_cast<uint8_t>(septet << (8 - to->shift) | to->carried);
    to->carried = static_cast<uint8_t>(septet >> to->shift);
  }
  to->shift = (to->shift + 1) & 7;
}

constexpr size_t kNone = SIZE_MAX;

struct Unpacked {
  char *text;
  size_t room, length; /* room without the NUL */
  size_t escape;       /* where the escape is that waits for its code, or kNone */
};

inline void Append(Unpacked *to, char character) {
  if (to->length < to->room) to->text[to->length++] = character;
}

/* The codes of "@", "$" and "_" leave an open escape open, on purpose: it has no meaning for them,
   and the code that follows is taken for its own. */
inline void Map(Unpacked *to, uint8_t code) {
  if (code == kGsmEscape) {
    to->escape = to->length < to->room ? to->length : kNone;
    Append(to, static_cast<char>(code));
  } else if (to->escape != kNone && code != 0x00 && code != 0x02 && code != 0x11) {
    to->text[to->escape] = kEscapedText[code];
    to->escape = kNone;
  } else {
    Append(to, kPlainText[code]);
  }
}

/* ---- eight septets at a time, which is what most of a text is ---- */

/* The septets in the first seven of eight bytes, one in each byte, the first in the lowest. */
uint64_t SpreadSeptets(const uint8_t *bytes) {
  uint64_t bits;
  memcpy(&bits, bytes, sizeof bits);
  bits = le64toh(bits);
  bits = (bits & 0x0FFFFFFF) | (bits & 0x00FFFFFFF0000000) << 4;
  bits = (bits & 0x00003FFF00003FFF) | (bits & 0x0FFFC0000FFFC000) << 2;
  return (bits & 0x007F007F007F007F) | (bits & 0x3F803F803F803F80) << 1;
}

/* Whether one of the eight bytes, all below 0x80, is `code`. */
bool HasCode(uint64_t septets, uint8_t code) {
  constexpr uint64_t kOnes = 0x0101010101010101;
  uint64_t zeros = septets ^ kOnes * code;
  return ((zeros - kOnes) & kOnes << 7) != 0;
}

/* Writes the seven bytes of eight characters. false, nothing written, when one needs an escape or
   is no septet. */
bool PackGroup(const char *text, uint8_t *bytes) {
  uint64_t bits = 0;
  unsigned all = 0;
  for (int at = 0; at < 8; ++at) {
    unsigned septet = kSeptets[static_cast<uint8_t>(text[at])];
    all |= septet;
    bits |= uint64_t{septet} << (8 * at);
  }
  if (all > 0x7F) return false;
  bits = (bits & 0x007F007F007F007F) | (bits & 0x7F007F007F007F00) >> 1;
  bits = (bits & 0x00003FFF00003FFF) | (bits & 0x3FFF00003FFF0000) >> 2;
  bits = htole64((bits & 0x0FFFFFFF) | (bits & 0x0FFFFFFF00000000) >> 4);
  memcpy(bytes, &bits, 7);
  return true;
}

/* Writes the characters of a group. false, nothing written, when one is an escape. */
bool MapGroup(const uint8_t *bytes, char *text) {
  uint64_t septets = SpreadSeptets(bytes);
  if (HasCode(septets, kGsmEscape)) return false;
  bool plain = !HasCode(septets, 0x00) && !HasCode(septets, 0x02) && !HasCode(septets, 0x11);
  septets = htole64(septets);
  memcpy(text, &septets, sizeof septets);
  for (int at = 0; at < 8 && !plain; ++at) text[at] = kPlainText[static_cast<uint8_t>(text[at])];
  return true;
}

}  // namespace

int HexValue(char digit) { return kHexValues[static_cast<uint8_t>(digit)]; }

int BytesToHex(const uint8_t *bytes, char *text, size_t size, size_t n) {
  if (size == 0) return 0;
  n = std::min(n, (size - 1) / 2);
  for (size_t at = 0; at < n; ++at) {
    text[2 * at] = kDigits[bytes[at] >> 4];
    text[2 * at + 1] = kDigits[bytes[at] & 0x0F];
  }
  text[2 * n] = '\0';
  return static_cast<int>(2 * n);
}

int HexToBytes(const char *text, uint8_t *bytes, size_t size, size_t n) {
  size_t count = std::min(n / 2, size);
  for (size_t at = 0; at < count; ++at)
    bytes[at] = static_cast<uint8_t>(std::max(HexValue(text[2 * at]), 0) << 4 |
                                     std::max(HexValue(text[2 * at + 1]), 0));
  return static_cast<int>(count);
}

int HexRunToBytes(const char *text, uint8_t *bytes, size_t size) {
  size_t count = 0;
  for (; count < size; ++count, text += 2) {
    int high = HexValue(text[0]);
    if (high < 0) break;
    int low = HexValue(text[1]);
    if (low < 0) break;
    bytes[count] = static_cast<uint8_t>(high << 4 | low);
  }
  return static_cast<int>(count);
}

int InvertNumbers(const char *digits, char *text, size_t size, size_t n) {
  if (size == 0) return 0;
  size_t length = std::min((n + 1) / 2 * 2, (size - 1) / 2 * 2);
  for (size_t at = 0; at < length; at += 2) {
    text[at] = at + 1 < n ? digits[at + 1] : 'F';
    text[at + 1] = digits[at];
  }
  text[length] = '\0';
  return static_cast<int>(length);
}

int GsmSeptets(char character) {
  return (kSeptets[static_cast<uint8_t>(character)] & kEscaped) != 0 ? 2 : 1;
}

int Encode7bit(const char *text, uint8_t *bytes, size_t size, size_t n, int *escapes) {
  Packer packer = {bytes, size, 0, 0, 0};
  int added = 0;
  for (size_t at = 0; at < n; ++at) {
    while (packer.shift == 0 && n - at > 8 && size - packer.length >= 7 &&
           PackGroup(text + at, bytes + packer.length)) {
      at += 8;
      packer.length += 7;
    }
    uint16_t septet = kSeptets[static_cast<uint8_t>(text[at])];
    if ((septet & kEscaped) != 0) {
      Pack(&packer, kGsmEscape);
      ++added;
    }
    Pack(&packer, static_cast<uint8_t>(septet));
  }
  *escapes = added;
  return static_cast<int>(packer.length);
}

int Decode7bitFrom(const uint8_t *bytes, char *text, size_t size, size_t n, size_t max, size_t skip,
                   int *septets) {
  size_t count = 0;
  unsigned k = 0, left = 0;
  Unpacked to = {text, size == 0 ? 0 : size - 1, 0, kNone};
  for (size_t at = 0; at < n; ++at) {
    /* Most groups are whole, not the last, and have no escape: eight septets at once. */
    while (k == 0 && n - at > 7 && count >= skip && count + 8 < max && to.escape == kNone &&
           to.room - to.length >= 8 && MapGroup(bytes + at, text + to.length)) {
      at += 7;
      count += 8;
      to.length += 8;
    }
    unsigned byte = bytes[at];
    if (count++ >= skip) Map(&to, (left | byte << k) & 0x7F);
    left = byte >> (7 - k);
    if (++k < 7) continue;
    if (count < max && count++ >= skip) {
      /* A last septet of zeros is taken for fill bits, so that they never read as "@". A real "@"
         in that place is lost, on purpose: nothing in the PDU tells the two apart. */
      if (left == 0 && byte == 0 && count == max)
        Append(&to, '\0');
      else
        Map(&to, static_cast<uint8_t>(left));
    }
    k = left = 0;
  }
  if (size > 0) text[to.length] = '\0';
  *septets = static_cast<int>(count);
  return static_cast<int>(to.length);
}

int Decode7bit(const uint8_t *bytes, char *text, size_t size, size_t n, size_t max) {
  int septets;
  return Decode7bitFrom(bytes, text, size, n, max, 0, &septets);
}

int Utf8ToUcs2Char(const char *utf8, uint8_t *unit) {
  auto byte = [utf8](int at) { return static_cast<unsigned>(static_cast<uint8_t>(utf8[at])); };
  auto follows = [&byte](int at) { return (byte(at) & 0xC0) == 0x80; };
  unsigned value = 0xE022; /* no character's code: the mark for what cannot be a unit */
  int length = 0;
  if (byte(0) < 0x80) {
    value = byte(0);
    length = 1;
  } else if ((byte(0) & 0xE0) == 0xC0 && follows(1)) {
    value = (byte(0) & 0x1F) << 6 | (byte(1) & 0x3F);
    length = 2;
  } else if ((byte(0) & 0xF0) == 0xE0 && follows(1) && follows(2)) {
    value = (byte(0) & 0x0F) << 12 | (byte(1) & 0x3F) << 6 | (byte(2) & 0x3F);
    length = 3;
  }
  unit[0] = static_cast<uint8_t>(value >> 8);
  unit[1] = static_cast<uint8_t>(value);
  return length;
}

/* The converter makes no progress on what is no character of one unit, so the walk goes on here. It
   also looks for the bytes that a character needs, which the converter takes for granted. */
uint16_t Utf8Next(const char **at, const char *end) {
  constexpr uint16_t kReplacement = 0xFFFD;
  const char *from = *at;
  auto lead = static_cast<uint8_t>(*from);
  int needed = lead < 0xC0 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  uint8_t unit[2];
  int length = end - from < needed ? 0 : Utf8ToUcs2Char(from, unit);
  if (length > 0) {
    *at = from + length;
    return static_cast<uint16_t>(unit[0] << 8 | unit[1]);
  }
  /* The lead and the continuation bytes that belong to it are one broken character. */
  do ++from;
  while (--needed > 0 && from < end && (static_cast<uint8_t>(*from) & 0xC0) == 0x80);
  *at = from;
  return kReplacement;
}

int Utf8ToUcs2(const char *text, uint8_t *bytes, size_t size, size_t n) {
  size_t length = 0;
  for (const char *at = text, *end = text + n; at < end && length + 2 <= size;) {
    uint16_t unit = Utf8Next(&at, end);
    bytes[length++] = static_cast<uint8_t>(unit >> 8);
    bytes[length++] = static_cast<uint8_t>(unit);
  }
  return static_cast<int>(length);
}

int Ucs2ToUtf8Char(uint16_t unit, char *utf8) {
  if (unit < 0x80) {
    utf8[0] = static_cast<char>(unit);
    return 1;
  }
  if (unit < 0x800) {
    utf8[0] = static_cast<char>(0xC0 | unit >> 6);
    utf8[1] = static_cast<char>(0x80 | (unit & 0x3F));
    return 2;
  }
  utf8[0] = static_cast<char>(0xE0 | unit >> 12);
  utf8[1] = static_cast<char>(0x80 | (unit >> 6 & 0x3F));
  utf8[2] = static_cast<char>(0x80 | (unit & 0x3F));
  return 3;
}

int Ucs2ToUtf8(const uint8_t *bytes, char *text, size_t size, size_t n) {
  if (size == 0) return 0;
  size_t length = 0;
  for (size_t at = 0; at + 1 < n; at += 2) {
    char utf8[3];
    auto count = static_cast<size_t>(
        Ucs2ToUtf8Char(static_cast<uint16_t>(bytes[at] << 8 | bytes[at + 1]), utf8));
    if (length + count >= size) break;
    memcpy(text + length, utf8, count);
    length += count;
  }
  text[length] = '\0';
  return static_cast<int>(length);
}

/* Any byte above ASCII begins a longer character or is broken. */
int TextDcs(const char *text, size_t n) {
  for (size_t at = 0; at < n; ++at)
    if ((static_cast<uint8_t>(text[at]) & 0x80) != 0) return 8;
  return 0;
}

int FormatScts(const char *digits, char *text, size_t size) {
  if (size < 20) return -1;
  char pairs[6][3] = {};
  for (size_t at = 0; at < 12 && digits[at] != '\0'; ++at) pairs[at / 2][at % 2] = digits[at];
  snprintf(text, size, "20%s-%s-%s %s:%s:%s", pairs[0], pairs[1], pairs[2], pairs[3], pairs[4],
           pairs[5]);
  return 0;
}
