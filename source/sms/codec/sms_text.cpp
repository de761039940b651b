// Character work of short messages; see sms_text.h.
#include "sms_text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

namespace {

/* ---- GSM alphabet ---- */

/* Septets and the ASCII characters that they stand for, where the two differ. Only these are
   mapped, in both directions; every other character passes unchanged. That is on purpose: the
   positions where the alphabet is ASCII are trusted, its national letters and the euro sign are not
   translated. */
constexpr struct {
  uint8_t gsm;
  char ascii;
} GsmAsciiMap[] = {
    {0x00, '@'},  {0x02, '$'}, {0x11, '_'}, {0x14, '^'}, {0x28, '{'}, {0x29, '}'},
    {0x2F, '\\'}, {0x3C, '['}, {0x3D, '~'}, {0x3E, ']'}, {0x40, '|'},
};
constexpr size_t kDefaultPairs = 3; /* of the default alphabet; the others follow an escape */
constexpr uint8_t kGsmEscape = 0x1B;
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

struct Unpacked {
  char *at, *end; /* end: of the room, without the NUL */
  char *escape;   /* that waits for its code, or NULL */
};

inline void Append(Unpacked *to, char character) {
  if (to->at < to->end) *to->at++ = character;
}

/* The codes of "@", "$" and "_" leave an open escape open, on purpose: it has no meaning for them,
   and the code that follows is taken for its own. */
inline void Map(Unpacked *to, uint8_t code) {
  if (code == kGsmEscape) {
    to->escape = to->at < to->end ? to->at : nullptr;
    Append(to, static_cast<char>(code));
  } else if (to->escape != nullptr && code != 0x00 && code != 0x02 && code != 0x11) {
    *to->escape = kEscapedText[code];
    to->escape = nullptr;
  } else {
    Append(to, kPlainText[code]);
  }
}

}  // namespace

bool IsHex(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char digit) { return HexValue(digit) >= 0; });
}

int BytesToHex(const uint8_t *bytes, Span<char> text, size_t n) {
  if (text.size == 0) return 0;
  n = std::min(n, (text.size - 1) / 2);
  PutHex(bytes, n, kHexUpper, text.at);
  text.at[2 * n] = '\0';
  return static_cast<int>(2 * n);
}

int HexToBytes(const char *text, Span<uint8_t> bytes, size_t n) {
  size_t count = std::min(n / 2, bytes.size);
  for (size_t at = 0; at < count; ++at)
    bytes.at[at] = static_cast<uint8_t>(std::max(HexValue(text[2 * at]), 0) << 4 |
                                        std::max(HexValue(text[2 * at + 1]), 0));
  return static_cast<int>(count);
}

int HexRunToBytes(const char *text, Span<uint8_t> bytes) {
  return static_cast<int>(TakeHex(text, strnlen(text, 2 * bytes.size) / 2, bytes.at));
}

bool IsNumber(std::string_view text, bool plus, size_t most) {
  if (plus && !text.empty() && text[0] == '+') text.remove_prefix(1);
  return !text.empty() && text.size() <= most && text.find_first_not_of("0123456789") == text.npos;
}

int InvertNumbers(const char *digits, Span<char> text, size_t n) {
  if (text.size == 0) return 0;
  size_t length = std::min((n + 1) / 2 * 2, (text.size - 1) / 2 * 2);
  for (size_t at = 0; at < length; at += 2) {
    text.at[at] = at + 1 < n ? digits[at + 1] : 'F';
    text.at[at + 1] = digits[at];
  }
  text.at[length] = '\0';
  return static_cast<int>(length);
}

int GsmSeptets(char character) {
  return (kSeptets[static_cast<uint8_t>(character)] & kEscaped) != 0 ? 2 : 1;
}

int Encode7bit(const char *text, Span<uint8_t> bytes, size_t n, int *escapes) {
  Packer packer = {bytes.at, bytes.size, 0, 0, 0};
  int added = 0;
  for (size_t at = 0; at < n; ++at) {
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

int Decode7bit(const uint8_t *bytes, Span<char> text, size_t n, size_t max, size_t skip,
               int *septets) {
  size_t count = 0;
  Unpacked to = {text.at, text.at + text.size - (text.size == 0 ? 0 : 1), nullptr};
  for (size_t at = 0; at < n; at += 7) {
    const uint8_t *group = bytes + at;
    const size_t whole = std::min(n - at, size_t{7});
    unsigned left = 0;
    for (size_t k = 0; k < whole; ++k) {
      const unsigned bits = left | unsigned{group[k]} << k;
      if (count++ >= skip) Map(&to, static_cast<uint8_t>(bits & 0x7F));
      left = bits >> 7;
    }
    if (whole < 7 || count >= max || count++ < skip) continue;
    /* A last septet of zeros is taken for fill bits, so that they never read as "@". A real "@" in
       that place is lost, on purpose: nothing in the PDU tells the two apart. */
    if (group[6] == 0 && count == max)
      Append(&to, '\0');
    else
      Map(&to, static_cast<uint8_t>(left));
  }
  if (text.size > 0) *to.at = '\0';
  if (septets != nullptr) *septets = static_cast<int>(count);
  return static_cast<int>(to.at - text.at);
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

int Utf8ToUcs2(const char *text, Span<uint8_t> bytes, size_t n) {
  size_t length = 0;
  for (const char *at = text, *end = text + n; at < end && length + 2 <= bytes.size;) {
    uint16_t unit = Utf8Next(&at, end);
    bytes.at[length++] = static_cast<uint8_t>(unit >> 8);
    bytes.at[length++] = static_cast<uint8_t>(unit);
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

int Ucs2ToUtf8(const uint8_t *bytes, Span<char> text, size_t n) {
  if (text.size == 0) return 0;
  size_t length = 0;
  for (size_t at = 0; at + 1 < n; at += 2) {
    char utf8[3];
    auto count = static_cast<size_t>(
        Ucs2ToUtf8Char(static_cast<uint16_t>(bytes[at] << 8 | bytes[at + 1]), utf8));
    if (length + count >= text.size) break;
    memcpy(text.at + length, utf8, count);
    length += count;
  }
  text.at[length] = '\0';
  return static_cast<int>(length);
}

/* Any byte above ASCII begins a longer character or is broken. */
int TextDcs(const char *text, size_t n) {
  for (size_t at = 0; at < n; ++at)
    if ((static_cast<uint8_t>(text[at]) & 0x80) != 0) return 8;
  return 0;
}

int FormatScts(const char *digits, Span<char> text) {
  if (text.size < 20) return -1;
  char pairs[6][3] = {};
  for (size_t at = 0; at < 12 && digits[at] != '\0'; ++at) pairs[at / 2][at % 2] = digits[at];
  snprintf(text.at, text.size, "20%s-%s-%s %s:%s:%s", pairs[0], pairs[1], pairs[2], pairs[3],
           pairs[4], pairs[5]);
  return 0;
}
