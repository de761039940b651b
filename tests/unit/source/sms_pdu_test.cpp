// PDUs of short messages: published and hand-made ones in both directions, what is odd on purpose,
// what is broken, and random texts there and back. The character work is in sms_text_test.cpp,
// lists and traces in sms_list_test.cpp.
#include "sms_pdu.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <cstring>
#include <string>
#include <vector>

#include "sms_parts.h"

namespace {

std::string Repeat(const std::string &text, int times) {
  std::string all;
  while (times-- > 0) all += text;
  return all;
}

template <size_t N>
void Set(char (&field)[N], const std::string &text) {
  ASSERT_LT(text.size(), N);
  memcpy(field, text.c_str(), text.size() + 1);
}

struct Decoded {
  ShortMsgParam record;
  ShortMsgEntry entry;
  char text[SHORTMSG_TEXT_SIZE];
  int length;
};

/* Stale fields are full and not terminated. The copy ends where the text does, so that a sanitizer
   sees each byte that is read behind it. */
Decoded Decode(const std::string &pdu, int stat = SHORTMSG_UNREAD) {
  Decoded decoded;
  memset(&decoded, 'z', sizeof decoded);
  decoded.record.stat = static_cast<int16_t>(stat);
  std::vector<char> copy(pdu.c_str(), pdu.c_str() + pdu.size() + 1);
  decoded.length = PduDecode(copy.data(), &decoded.record, &decoded.entry, decoded.text);
  return decoded;
}

ShortMsgParam Record(const std::string &sca, const std::string &tpa, int dcs,
                     const std::string &text) {
  ShortMsgParam record = {};
  Set(record.SCA, sca);
  Set(record.TPA, tpa);
  record.TP_DCS = static_cast<uint8_t>(dcs);
  Set(record.TP_UD, text);
  return record;
}

std::string Encode(const ShortMsgParam &record, const ShortMsgHeader *header = nullptr) {
  char pdu[SHORTMSG_PDU_SIZE];
  int length = PduEncode(&record, pdu, header);
  EXPECT_EQ(static_cast<size_t>(length), strlen(pdu));
  return pdu;
}

const std::string kDigits160 = Repeat("0123456789", 16);
const std::string kPacked160 =
    Repeat("B0986C46ABD96EB81C2C269BD16AB61B2E078BC966B49AED86CBC162B219AD66BBE172", 4);
#define CENTRE "0891683108100005F0" /* 8613800100500 */
#define SENDER "0D91683119325476F8" /* 8613912345678 */
#define STAMP  "42115290035123"     /* 24112509301532 */

/* ---- decoding ---- */

struct DecodeCase {
  const char *what;
  int stat;
  std::string pdu;
  const char *from; /* service centre, sender and time stamp */
  int dcs;
  std::string text;
  int length;
  const char *part = "-"; /* reference, total, number; "-" without a header */
};

constexpr char kPhone[] = "8613800100500 8613912345678 24112509301532";
constexpr char kShort[] = "8613800100500 10010 24112509301532";
#define FROM10010 "0405910110F0"

const DecodeCase kDecode[] = {
    {"a number, 7-bit", 0,
     "07917283010010F5040BC87238880900F10000993092516195800AE8329BFD4697D9EC37",
     "27381000015 27838890001 99032915165908", 0, "hellohello", 10},
    {"no service centre, one that is stored", 3, "0011000B916407281553F80000AA0AE8329BFD4697D9EC37",
     " 46708251358 ", 0, "hellohello", 10},
    {"a service centre without digits", 2, "0191110005910110F000000004E10D4F0C", " 10010 ", 0,
     "a[b", 4},
    /* The name's 7 letters fill 7 octets, whose last bits read as an eighth. */
    {"a name of 7 letters", 0,
     "0791448720003023240DD0E474D81C0EBB010000111011315214000BE474D81C0EBB5DE3771B",
     "447802000332 diafaan@ 11011113254100", 0, "diafaan.com", 11},
    {"a name of 7 letters, the text has 8", 0,
     CENTRE "040DD0D637396C7EBB010000" STAMP "0831D98C56B3DD70",
     "8613800100500 Vodafon@ 24112509301532", 0, "12345678", 8},
    {"a name of 8 letters, the text has 1", 0, CENTRE "040ED0D637396C7EBBCB0000" STAMP "0131",
     "8613800100500 Vodafon 24112509301532", 0, "1", 1},
    {"a name of digits reads as a number", 0, CENTRE "0404D031100000" STAMP "0131",
     "8613800100500 1301 24112509301532", 0, "1", 1},
    {"a number with a star reads as a name", 0, CENTRE "04049181A10000" STAMP "0131",
     "8613800100500 \x01\x43 24112509301532", 0, "1", 1},
    {"a time stamp whose zone is cut", 0, CENTRE FROM10010 "0000421152900351F20178",
     "8613800100500 10010 2411250930152", 0, "x", 1},
    {"160 characters", 0, CENTRE "04" SENDER "0000" STAMP "A0" + kPacked160, kPhone, 0, kDigits160,
     160},
    {"all mapped characters", 0,
     CENTRE "04" SENDER "0000" STAMP "1300416443D9A036A9CD6BC3DBF436BE0D10", kPhone, 0,
     "@$_^{}\\[~]|", 19},
    {"an escape as the eighth septet, its code as the ninth", 2,
     CENTRE "110005910110F00000000931D98C56B3DD363C", "8613800100500 10010 ", 0, "1234567[", 9},
    {"an @ at the end of 8 septets is kept", 0, CENTRE FROM10010 "0000" STAMP "0861F1985C369F01",
     kShort, 0, "abcdefg@", 8},
    {"an @ whose octet is zero is taken for fill bits", 0,
     CENTRE FROM10010 "0000" STAMP "0831D98C56B3DD00", kShort, 0, "1234567", 8},
    {"an empty text", 0, CENTRE FROM10010 "0000" STAMP "00", kShort, 0, "", 0},
    {"part, 8-bit reference, 7-bit text after a fill bit", 0,
     CENTRE "44" SENDER "0000" STAMP "12050003CC0302E6E5F1DB4D06C1C3723A", kPhone, 0, "second part",
     18, "CC 3 2"},
    /* Septet 4 of this header is an escape, which takes no character of the text with it. */
    {"part, a header that looks like an escape", 0,
     CENTRE "44" SENDER "0000" STAMP "12060804B00103021B1E7EE303D1CB783A", kPhone, 0, "[x] text",
     18, "B001 3 2"},
    {"part, UCS2", 0, CENTRE "44" SENDER "0008" STAMP "0A0500032A0202540E534A", kPhone, 8,
     "\u540e\u534a", 6, "2A 2 2"},
    {"part, 8-bit data", 0, CENTRE "44" SENDER "0004" STAMP "0D0608041234020101FF64617461", kPhone,
     4, "\001\377data", 6, "1234 2 1"},
    /* Octets 3 and 4 of a header for ports are taken for the parts. */
    {"another header, 7-bit", 0,
     CENTRE "44" SENDER "0000" STAMP "140B05040B8423F00003550201C0DF727A990C", kPhone, 0, "ported",
     20, " 11 132"},
    {"another header, UCS2", 0, CENTRE "44" SENDER "0008" STAMP "090605040B8423F04F60", kPhone, 8,
     "\u4f60", 3, "0B84 35 240"},
    {"a header of one element, UCS2", 0, CENTRE "44" SENDER "0008" STAMP "06037001054F60", kPhone,
     8, "\u4f60", 3, " 0 0"},
    {"a reply path counts as a header", 0, CENTRE "8405910110F00000" STAMP "0961F1985C369FD169",
     kShort, 0, "", 9, " 92 54"},
    {"a class 0 message is 8-bit data", 0, CENTRE FROM10010 "0010" STAMP "0448692121", kShort, 0x10,
     "Hi!!", 4},
    {"lower-case digits", 0, "07917283010010f5040bc87238880900f100009930925161958003e8329b",
     "27381000015 27838890001 99032915165908", 0, "hel", 3},
};

TEST(SmsPdu, Decodes) {
  for (const DecodeCase &one : kDecode) {
    SCOPED_TRACE(one.what);
    Decoded got = Decode(one.pdu, one.stat);
    EXPECT_EQ(std::string(got.record.SCA) + " " + got.record.TPA + " " + got.record.TP_SCTS,
              one.from);
    EXPECT_EQ(got.record.TP_PID, 0);
    EXPECT_EQ(got.record.TP_DCS, one.dcs);
    EXPECT_STREQ(got.text, one.text.c_str());
    EXPECT_EQ(got.length, one.length);
    std::string reference = got.entry.concatRef;
    std::string part = reference + " " + std::to_string(got.entry.concatTotal) + " " +
                       std::to_string(got.entry.concatSeq);
    EXPECT_EQ(got.entry.hasUdh == 0 && part == " 0 0" ? "-" : part, one.part);
    EXPECT_EQ(std::string(got.entry.concatRef, 8),
              reference + std::string(8 - reference.size(), 0));
    if (got.entry.hasUdh == 0 || one.dcs != 0) {
      EXPECT_STREQ(got.record.TP_UD, got.text);
    }
  }
}

TEST(SmsPdu, AHeaderStaysInTheRecordAsSeptets) {
  Decoded got = Decode(CENTRE "44" SENDER "0000" STAMP "12050003CC0302E6E5F1DB4D06C1C3723A");
  EXPECT_EQ(std::string(got.record.TP_UD, 19), std::string("\5@\f`<@@second part\0", 19));
}

/* Each text that was cut has no more than what is there. */
TEST(SmsPdu, StopsAtTheEndOfTheText) {
  for (const DecodeCase &one : kDecode) {
    if (one.text.find_first_of("[]{}|\\^~") != std::string::npos) continue; /* pairs may be cut */
    for (size_t n = 0; n < one.pdu.size(); ++n) {
      Decoded got = Decode(one.pdu.substr(0, n), one.stat);
      EXPECT_EQ(one.text.compare(0, strlen(got.text), got.text), 0) << one.what << " at " << n;
      EXPECT_LE(got.length, one.length) << one.what << " at " << n;
    }
  }
  EXPECT_STREQ(Decode(CENTRE FROM10010 "0000" STAMP "0331D9\r\n8C").text, "12");
  EXPECT_STREQ(Decode(CENTRE FROM10010 "0008" STAMP "060041004\3772").text, "A");
}

TEST(SmsPdu, CutsWhatIsLongerThanItsField) {
  std::string ones = Repeat("11", 300);
  for (const char *kind : {"00", "08", "04"})
    for (const char *first : {"04", "44"})
      for (const char *digit : {"11", "1A"}) {
        Decoded got = Decode("FF91" + Repeat("21", 254) + first + "FF91" + Repeat(digit, 128) +
                             "00" + kind + STAMP "FF" + ones);
        EXPECT_EQ(std::string(got.record.SCA), Repeat("12", 10)) << kind << first;
        EXPECT_EQ(strnlen(got.record.TPA, sizeof got.record.TPA), 20U) << kind << first;
        EXPECT_LT(strnlen(got.record.TP_UD, sizeof got.record.TP_UD), sizeof got.record.TP_UD);
        EXPECT_LT(strnlen(got.text, sizeof got.text), sizeof got.text) << kind << first;
      }
  /* 127 characters of 3 bytes: as many as fit, whole. */
  Decoded got = Decode(CENTRE FROM10010 "0008" STAMP "FE" + Repeat("4F60", 127));
  EXPECT_EQ(std::string(got.text), Repeat("\u4f60", 106));
  EXPECT_EQ(got.length, 318);
}

/* ---- encoding ---- */

struct EncodeCase {
  const char *what;
  ShortMsgParam record;
  bool part;
  std::string pdu;
};

const ShortMsgHeader kFirstOfTwo = {{0x06, 0x08, 0x04, 0x77, 0x0E, 0x02, 0x01}};

const EncodeCase kEncode[] = {
    {"7-bit", Record("27381000015", "46708251358", 0, "hellohello"), false,
     "07917283010010F511000B916407281553F80000000AE8329BFD4697D9EC37"},
    {"no service centre", Record("", "10010", 0, "1234567"), false,
     "0191110005910110F00000000731D98C56B3DD00"},
    {"an escape", Record("8613800", "10010", 0, "a[b"), false,
     "0591683108F0110005910110F000000004E10D4F0C"},
    {"an escape over the octets' end", Record("8613800100500", "10010", 0, "1234567[9"), false,
     CENTRE "110005910110F00000000A31D98C56B3DD36BC1C"},
    {"160 characters", Record("8613800100500", "8613912345678", 0, kDigits160), false,
     CENTRE "1100" SENDER "000000A0" + kPacked160},
    {"empty", Record("", "10010", 0, ""), false, "0191110005910110F000000000"},
    {"UCS2", Record("8613800100500", "10010", 8, "\u4f60\u597d, \u00e9"), false,
     CENTRE "110005910110F00008000A4F60597D002C002000E9"},
    {"UCS2, four bytes and broken", Record("", "10010", 8, "a\U0001F600\xc3"), false,
     "0191110005910110F0000800060061FFFDFFFD"},
    {"8-bit data", Record("", "10010", 4, "\001\377data"), false,
     "0191110005910110F00004000601FF64617461"},
    {"part, 7-bit", Record("8613800100500", "10010", 0, "part one [1]"), true,
     CENTRE "510005910110F000000016060804770E0201F0B09C0E7ABBCBA00D2FB6F101"},
    {"part, UCS2, hexadecimal already", Record("8613800100500", "10010", 8, "4F60597D"), true,
     CENTRE "510005910110F00008000B060804770E02014F60597D"},
    {"part, 8-bit: no data, no length", Record("", "10010", 4, "data"), true,
     "0191510005910110F000040091"},
    {"UCS2 of more than an octet can count", Record("", "10010", 8, Repeat("a", 130)), false,
     "0191110005910110F000080004" + Repeat("0061", 130)},
};

TEST(SmsPdu, Encodes) {
  for (const EncodeCase &one : kEncode)
    EXPECT_EQ(Encode(one.record, one.part ? &kFirstOfTwo : nullptr), one.pdu) << one.what;
}

TEST(SmsPdu, ProtocolIdentifierGoesBothWays) {
  ShortMsgParam record = Record("1", "2", 0, "x");
  record.TP_PID = 0x41;
  EXPECT_EQ(Decode(Encode(record), SHORTMSG_SENT).record.TP_PID, 0x41);
}

/* Fields that are full up to their last byte; the longest PDU there is fits. */
TEST(SmsPdu, AnyRecordFits) {
  for (char character : {'1', '[', '\xe4', '\0'})
    for (int dcs : {0, 8, 4})
      for (const ShortMsgHeader *header :
           {static_cast<const ShortMsgHeader *>(nullptr), &kFirstOfTwo}) {
        ShortMsgParam record;
        memset(&record, character, sizeof record);
        record.TP_DCS = static_cast<uint8_t>(dcs);
        EXPECT_LT(Encode(record, header).size(), SHORTMSG_PDU_SIZE - 2U) << dcs;
      }
}

TEST(SmsPdu, LengthOfTheTpdu) {
  std::string pdu = "07917283010010F511000B916407281553F80000000AE8329BFD4697D9EC37";
  EXPECT_EQ(PduTpduLength(pdu.c_str(), static_cast<int>(pdu.size())), 23);
  EXPECT_EQ(PduTpduLength("0011", 4), 1);
}

/* ---- there and back ---- */

/* Characters that 7-bit coding keeps: not those whose codes mean something else. */
template <typename T>
rc::Gen<T> Sequence(int longest, const rc::Gen<typename T::value_type> &element) {
  auto sequence = rc::gen::mapcat(rc::gen::inRange(0, longest + 1), [element](int n) {
    return rc::gen::container<T>(static_cast<size_t>(n), element);
  });
  return rc::gen::resize(rc::kNominalSize, sequence); /* any length as often */
}

rc::Gen<std::string> AsciiText(const std::string &without, int longest) {
  std::string characters;
  for (char character = 1; character < 0x7F; ++character)
    if (("\x02\x11\x1b" + without).find(character) == std::string::npos) characters += character;
  return Sequence<std::string>(longest, rc::gen::elementOf(characters));
}

std::string Utf8(const std::vector<int> &units) {
  std::string text;
  for (int unit : units) {
    char utf8[3];
    text.append(utf8, static_cast<size_t>(Ucs2ToUtf8Char(static_cast<uint16_t>(unit), utf8)));
  }
  return text;
}

rc::Gen<std::string> Ucs2Text(int longest) {
  auto unit = rc::gen::oneOf(rc::gen::inRange(1, 0x80), rc::gen::inRange(0x80, 0x800),
                             rc::gen::inRange(0x800, 0x10000));
  return rc::gen::map(Sequence<std::vector<int>>(longest, unit), Utf8);
}

size_t Septets(const std::string &text) {
  size_t septets = text.size();
  for (char character : text) septets += strchr("[]{}|\\^~", character) != nullptr;
  return septets;
}

TEST(SmsPduProperty, SevenBitTextsComeBack) {
  EXPECT_TRUE(rc::check("7-bit", [] {
    std::string text = *AsciiText("", 160);
    RC_PRE(Septets(text) <= 255U);
    std::string back = text;
    /* What is odd on purpose: see the table of PDUs. */
    if (Septets(text) % 8 == 0 && !text.empty() && text.back() == '@') {
      char before = text[text.size() - 2];
      if (strchr("_$@^{}\\[~]", before) != nullptr || (before < 0x40 && before != 0))
        back.pop_back();
    }
    Decoded got = Decode(Encode(Record("1", "2", 0, text)), SHORTMSG_SENT);
    RC_ASSERT(std::string(got.text) == back);
    RC_ASSERT(got.length == static_cast<int>(Septets(text)));
  }));
}

TEST(SmsPduProperty, UnicodeAndDataComeBack) {
  EXPECT_TRUE(rc::check("UCS2", [] {
    std::string text = *Ucs2Text(70);
    Decoded got = Decode(Encode(Record("1", "2", 8, text)), SHORTMSG_SENT);
    RC_ASSERT(std::string(got.text) == text);
    RC_ASSERT(got.length == static_cast<int>(text.size()));
  }));
  EXPECT_TRUE(rc::check("8-bit data", [] {
    auto data = *Sequence<std::string>(140, rc::gen::nonZero<char>());
    RC_ASSERT(std::string(Decode(Encode(Record("1", "2", 4, data)), SHORTMSG_SENT).text) == data);
  }));
}

TEST(SmsPduProperty, NumbersComeBack) {
  EXPECT_TRUE(rc::check("numbers", [] {
    auto number = [] { return *Sequence<std::string>(20, rc::gen::inRange('0', ':')); };
    std::string sca = number(), tpa = number();
    Decoded got = Decode(Encode(Record(sca, tpa, 0, "x")), SHORTMSG_UNSENT);
    RC_ASSERT(got.record.SCA == sca);
    RC_ASSERT(got.record.TPA == tpa);
  }));
}

/* ---- parts ---- */

struct Parts {
  int total;
  std::vector<Decoded> decoded;
  std::string joined;
};

Parts SplitAndDecode(const std::string &text) {
  ShortMsgParts parts;
  ShortMsgParam record = Record("8613800100500", "10010", 0, "");
  ShortMsgHeader header;
  Parts got = {ShortMsgPartsOf(text.data(), text.size(), &parts), {}, ""};
  while (got.total > 0 && ShortMsgNextPart(&parts, &record, &header) != 0) {
    got.decoded.push_back(
        Decode(Encode(record, parts.total > 1 ? &header : nullptr), SHORTMSG_SENT));
    got.joined += got.decoded.back().text;
  }
  return got;
}

size_t Characters(const std::string &text) {
  size_t characters = 0;
  for (char byte : text) characters += (byte & 0xC0) != 0x80;
  return characters;
}

struct PartsCase {
  const char *what;
  std::string text;
  int dcs, total;
  size_t last; /* characters of the last part */
};

const PartsCase kParts[] = {
    {"empty", "", 0, 1, 0},
    {"160 characters", Repeat("a", 160), 0, 1, 160},
    {"161 characters", Repeat("a", 161), 0, 2, 16},
    {"291 characters", Repeat("a", 291), 0, 3, 1},
    {"160 septets", Repeat("[", 80), 0, 1, 80},
    {"161 septets of 158 characters", Repeat("a", 155) + "[[[", 0, 2, 13},
    {"160 characters of two septets", Repeat("[", 160), 0, 3, 8},
    {"parts of 145 characters with 7 escapes", Repeat(Repeat("[", 7) + Repeat("a", 138), 2), 0, 2,
     145},
    {"a part of 145 characters with 8 escapes", Repeat("[", 8) + Repeat("a", 153), 0, 2, 17},
    {"the most parts of escapes", Repeat("[", 255 * 76), 0, 255, 76},
    {"one escape too many", Repeat("[", 255 * 76 + 1), 0, -1, 0},
    {"the most parts", Repeat("a", 255 * 145), 0, 255, 145},
    {"one too many", Repeat("a", 255 * 145 + 1), 0, -1, 0},
    {"70 characters of UCS2", Repeat("\u4f60", 70), 8, 1, 70},
    {"one character of UCS2 among 70 of ASCII", Repeat("a", 70) + "\u00e9", 8, 2, 6},
    {"131 characters of UCS2", Repeat("\u4f60", 131), 8, 3, 1},
    {"the most parts of UCS2", Repeat("\u00e9", 255 * 65), 8, 255, 65},
    {"one too many of UCS2", Repeat("\u00e9", 255 * 65 + 1), 8, -1, 0},
};

TEST(SmsParts, SplitsByCharactersAndSeptets) {
  for (const PartsCase &one : kParts) {
    SCOPED_TRACE(one.what);
    Parts got = SplitAndDecode(one.text);
    ASSERT_EQ(got.total, one.total);
    if (one.total < 0) continue;
    ASSERT_EQ(got.decoded.size(), static_cast<size_t>(one.total));
    EXPECT_TRUE(got.joined == one.text);
    std::string last = got.decoded.back().text;
    EXPECT_EQ(Characters(last), one.last);
    for (int at = 0; at < one.total; ++at) {
      const Decoded &part = got.decoded[static_cast<size_t>(at)];
      EXPECT_EQ(part.record.TP_DCS, one.dcs);
      if (one.dcs == SHORTMSG_DCS_7BIT) {
        EXPECT_LE(part.length, 160) << at;
      }
      EXPECT_EQ(part.entry.hasUdh, one.total > 1);
      EXPECT_STREQ(part.entry.concatRef, one.total > 1 ? "770E" : "");
      EXPECT_EQ(part.entry.concatTotal, one.total > 1 ? one.total : 0);
      EXPECT_EQ(part.entry.concatSeq, one.total > 1 ? at + 1 : 0);
    }
  }
}

TEST(SmsParts, FourByteAndBrokenCharactersAreReplacedOnceEach) {
  EXPECT_EQ(SplitAndDecode("x\x80\xe4\xbd").joined, "x\uFFFD\uFFFD");
  for (int n : {1, 70, 71}) {
    Parts got = SplitAndDecode(Repeat("\U0001F600", n));
    EXPECT_EQ(got.joined, Repeat("\uFFFD", n));
    EXPECT_EQ(got.total, n > 70 ? 2 : 1);
  }
}

/* Without "@", whose loss at the end of a part is odd on purpose. */
TEST(SmsPartsProperty, JoinedPartsAreTheText) {
  EXPECT_TRUE(rc::check("7-bit", [] {
    std::string text = *AsciiText("@", 1000);
    Parts got = SplitAndDecode(text);
    RC_ASSERT(got.joined == text);
    for (const Decoded &part : got.decoded) RC_ASSERT(part.length <= 160);
  }));
  EXPECT_TRUE(rc::check("UCS2", [] {
    std::string text = *Ucs2Text(500) + "\u4f60";
    RC_ASSERT(SplitAndDecode(text).joined == text);
  }));
}

}  // namespace
