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
  const char *sca, *tpa;
  int dcs;
  const char *scts;
  std::string text;
  int length;
  int udh;
  const char *ref;
  int total, seq;
};

const DecodeCase kDecode[] = {
    {"a number, 7-bit", 0,
     "07917283010010F5040BC87238880900F10000993092516195800AE8329BFD4697D9EC37", "27381000015",
     "27838890001", 0, "99032915165908", "hellohello", 10, 0, "", 0, 0},
    {"more messages to send", 1,
     "07911326040000F0040B911346610089F60000208062917314080CC8F71D14969741F977FD07", "31624000000",
     "31641600986", 0, "02082619374180", "How are you?", 12, 0, "", 0, 0},
    {"no service centre, one that is stored", 3, "0011000B916407281553F80000AA0AE8329BFD4697D9EC37",
     "", "46708251358", 0, "", "hellohello", 10, 0, "", 0, 0},
    {"a service centre without digits", 2, "0191110005910110F000000004E10D4F0C", "", "10010", 0, "",
     "a[b", 4, 0, "", 0, 0},
    /* The name's 7 letters fill 7 octets, whose last bits read as an eighth. */
    {"a name of 7 letters", 0,
     "0791448720003023240DD0E474D81C0EBB010000111011315214000BE474D81C0EBB5DE3771B", "447802000332",
     "diafaan@", 0, "11011113254100", "diafaan.com", 11, 0, "", 0, 0},
    {"a name of 7 letters, the text has 8", 0,
     CENTRE "040DD0D637396C7EBB010000" STAMP "0831D98C56B3DD70", "8613800100500", "Vodafon@", 0,
     "24112509301532", "12345678", 8, 0, "", 0, 0},
    {"a name of 8 letters, the text has 1", 0, CENTRE "040ED0D637396C7EBBCB0000" STAMP "0131",
     "8613800100500", "Vodafon", 0, "24112509301532", "1", 1, 0, "", 0, 0},
    {"a name of 10 characters", 0,
     CENTRE "0412D04F78591EA6BFE5A01800"
            "00" STAMP "1AC8329BFD6681F2EFBA1C240EB3C3EE7119949E83D8EF3B",
     "8613800100500", "Operator 1", 0, "24112509301532", "Hello, your balance is low", 26, 0, "", 0,
     0},
    {"a name of digits reads as a number", 0, CENTRE "0404D031100000" STAMP "0131", "8613800100500",
     "1301", 0, "24112509301532", "1", 1, 0, "", 0, 0},
    {"a number with a star reads as a name", 0,
     CENTRE "04049181A100"
            "00" STAMP "0131",
     "8613800100500", "\x01\x43", 0, "24112509301532", "1", 1, 0, "", 0, 0},
    {"a time stamp whose zone is cut", 0,
     CENTRE "04059101"
            "80F60000"
            "421152900351F2"
            "0178",
     "8613800100500", "10086", 0, "2411250930152", "x", 1, 0, "", 0, 0},
    {"160 characters", 0, CENTRE "04" SENDER "0000" STAMP "A0" + kPacked160, "8613800100500",
     "8613912345678", 0, "24112509301532", kDigits160, 160, 0, "", 0, 0},
    {"all mapped characters", 0,
     CENTRE "04" SENDER "0000" STAMP "1300416443D9A036A9CD6BC3DBF436BE0D10", "8613800100500",
     "8613912345678", 0, "24112509301532", "@$_^{}\\[~]|", 19, 0, "", 0, 0},
    {"an escape as the eighth septet, its code as the ninth", 2,
     CENTRE "110005910110F000000009"
            "31D98C56B3DD363C",
     "8613800100500", "10010", 0, "", "1234567[", 9, 0, "", 0, 0},
    {"an @ at the end of 8 septets is kept", 0, CENTRE "0405910110F00000" STAMP "0861F1985C369F01",
     "8613800100500", "10010", 0, "24112509301532", "abcdefg@", 8, 0, "", 0, 0},
    {"an @ whose octet is zero is taken for fill bits", 0,
     CENTRE "0405910110F00000" STAMP "0831D98C56B3DD00", "8613800100500", "10010", 0,
     "24112509301532", "1234567", 8, 0, "", 0, 0},
    {"an empty text", 0, CENTRE "0405910110F00000" STAMP "00", "8613800100500", "10010", 0,
     "24112509301532", "", 0, 0, "", 0, 0},
    {"part, 8-bit reference, 7-bit text after a fill bit", 0,
     CENTRE "44" SENDER "0000" STAMP "12050003CC0302E6E5F1DB4D06C1C3723A", "8613800100500",
     "8613912345678", 0, "24112509301532", "second part", 18, 1, "CC", 3, 2},
    /* Septet 4 of this header is an escape, which takes no character of the text with it. */
    {"part, a header that looks like an escape", 0,
     CENTRE "44" SENDER "0000" STAMP "12060804B00103021B1E7EE303D1CB783A", "8613800100500",
     "8613912345678", 0, "24112509301532", "[x] text", 18, 1, "B001", 3, 2},
    {"part, UCS2", 0, CENTRE "44" SENDER "0008" STAMP "0A0500032A0202540E534A", "8613800100500",
     "8613912345678", 8, "24112509301532", "\u540e\u534a", 6, 1, "2A", 2, 2},
    {"part, 8-bit data", 0, CENTRE "44" SENDER "0004" STAMP "0D0608041234020101FF64617461",
     "8613800100500", "8613912345678", 4, "24112509301532",
     "\x01\xff"
     "data",
     6, 1, "1234", 2, 1},
    /* Octets 3 and 4 of a header for ports are taken for the parts. */
    {"another header, 7-bit", 0,
     CENTRE "44" SENDER "0000" STAMP "140B05040B8423F00003550201C0DF727A990C", "8613800100500",
     "8613912345678", 0, "24112509301532", "ported", 20, 1, "", 11, 132},
    {"another header, UCS2", 0, CENTRE "44" SENDER "0008" STAMP "090605040B8423F04F60",
     "8613800100500", "8613912345678", 8, "24112509301532", "\u4f60", 3, 1, "0B84", 35, 240},
    {"a header of one element, UCS2", 0, CENTRE "44" SENDER "0008" STAMP "06037001054F60",
     "8613800100500", "8613912345678", 8, "24112509301532", "\u4f60", 3, 1, "", 0, 0},
    {"a reply path counts as a header", 0, CENTRE "8405910180F60000" STAMP "0961F1985C369FD169",
     "8613800100500", "10086", 0, "24112509301532", "", 9, 1, "", 0x5C, 0x36},
    {"a class 0 message is 8-bit data", 0, CENTRE "0405910180F60010" STAMP "0448692121",
     "8613800100500", "10086", 0x10, "24112509301532", "Hi!!", 4, 0, "", 0, 0},
    {"lower-case digits", 0, "07917283010010f5040bc87238880900f100009930925161958003e8329b",
     "27381000015", "27838890001", 0, "99032915165908", "hel", 3, 0, "", 0, 0},
};

TEST(SmsPdu, Decodes) {
  for (const DecodeCase &one : kDecode) {
    SCOPED_TRACE(one.what);
    Decoded got = Decode(one.pdu, one.stat);
    EXPECT_STREQ(got.record.SCA, one.sca);
    EXPECT_STREQ(got.record.TPA, one.tpa);
    EXPECT_EQ(got.record.TP_PID, 0);
    EXPECT_EQ(got.record.TP_DCS, one.dcs);
    EXPECT_STREQ(got.record.TP_SCTS, one.scts);
    EXPECT_STREQ(got.text, one.text.c_str());
    EXPECT_EQ(got.length, one.length);
    EXPECT_EQ(got.entry.hasUdh, one.udh);
    EXPECT_EQ(std::string(got.entry.concatRef, 8), one.ref + std::string(8 - strlen(one.ref), 0));
    EXPECT_EQ(got.entry.concatTotal, one.total);
    EXPECT_EQ(got.entry.concatSeq, one.seq);
    if (one.udh == 0 || one.dcs != 0) {
      EXPECT_STREQ(got.record.TP_UD, got.text);
    }
  }
}

TEST(SmsPdu, AHeaderStaysInTheRecordAsSeptets) {
  Decoded got = Decode(CENTRE "44" SENDER "0000" STAMP "12050003CC0302E6E5F1DB4D06C1C3723A");
  EXPECT_EQ(std::string(got.record.TP_UD, 19), std::string("\x05@\x0c"
                                                           "`<@@second part\0",
                                                           19));
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
  EXPECT_STREQ(Decode(CENTRE "0405910110F00000" STAMP "0331D9\r\n8C").text, "12");
  EXPECT_STREQ(Decode(CENTRE "0405910110F00008" STAMP "060041004\xff"
                             "2")
                   .text,
               "A");
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
  Decoded got = Decode(CENTRE "0405910110F00008" STAMP "FE" + Repeat("4F60", 127));
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
    {"8 characters", Record("", "10010", 0, "12345678"), false,
     "0191110005910110F00000000831D98C56B3DD70"},
    {"an escape", Record("8613800", "10010", 0, "a[b"), false,
     "0591683108F0110005910110F000000004E10D4F0C"},
    {"an escape over the octets' end", Record("8613800100500", "10010", 0, "1234567[9"), false,
     CENTRE "110005910110F00000000A31D98C56B3DD36BC1C"},
    {"all mapped characters", Record("8613800100500", "10010", 0, "@$_^{}\\[~]|"), false,
     CENTRE "110005910110F00000001300416443D9A036A9CD6BC3DBF436BE0D10"},
    {"160 characters", Record("8613800100500", "8613912345678", 0, kDigits160), false,
     CENTRE "1100" SENDER "000000A0" + kPacked160},
    {"empty", Record("", "10010", 0, ""), false, "0191110005910110F000000000"},
    {"UCS2", Record("8613800100500", "10010", 8, "\u4f60\u597d, \u00e9"), false,
     CENTRE "110005910110F00008000A4F60597D002C002000E9"},
    {"UCS2, four bytes and broken", Record("", "10010", 8, "a\U0001F600\xc3"), false,
     "0191110005910110F000080006"
     "0061FFFDFFFD"},
    {"8-bit data",
     Record("", "10010", 4,
            "\x01\xff"
            "data"),
     false,
     "0191110005910110F0000400"
     "06"
     "01FF64617461"},
    {"part, 7-bit", Record("8613800100500", "10010", 0, "part one [1]"), true,
     CENTRE "510005910110F000000016060804770E0201F0B09C0E7ABBCBA00D2FB6F101"},
    {"part, UCS2, hexadecimal already", Record("8613800100500", "10010", 8, "4F60597D"), true,
     CENTRE "510005910110F00008000B060804770E02014F60597D"},
    {"part, 8-bit: no data, no length", Record("", "10010", 4, "data"), true,
     "0191510005910110F0000400"
     "91"},
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

TEST(SmsPduProperty, AnyWrongDigitsStayWithinTheRecord) {
  EXPECT_TRUE(rc::check("PDUs with other digits in places", [] {
    std::string pdu = kDecode[*rc::gen::inRange<size_t>(0, std::size(kDecode))].pdu;
    pdu += pdu;
    pdu += pdu; /* at least 80 digits */
    for (int at : *Sequence<std::vector<int>>(5, rc::gen::inRange(0, 60)))
      pdu[static_cast<size_t>(at)] = *rc::gen::elementOf(std::string("0123456789ABCDEF"));
    Decoded got = Decode(pdu, *rc::gen::inRange(-1, 5));
    for (const auto &field : {got.record.SCA, got.record.TPA, got.record.TP_SCTS})
      RC_ASSERT(strnlen(field, SHORTMSG_NUMBER_SIZE) < SHORTMSG_NUMBER_SIZE);
    for (const auto &field : {got.record.TP_UD, got.text})
      RC_ASSERT(strnlen(field, SHORTMSG_TEXT_SIZE) < SHORTMSG_TEXT_SIZE);
    RC_ASSERT(got.length >= 0 && got.length < SHORTMSG_TEXT_SIZE);
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
    {"290 characters", Repeat("a", 290), 0, 2, 145},
    {"291 characters", Repeat("a", 291), 0, 3, 1},
    {"the most parts", Repeat("a", 255 * 145), 0, 255, 145},
    {"one too many", Repeat("a", 255 * 145 + 1), 0, -1, 0},
    {"70 characters of UCS2", Repeat("\u4f60", 70), 8, 1, 70},
    {"71 characters of UCS2", Repeat("\u4f60", 71), 8, 2, 6},
    {"one character of UCS2 among 70 of ASCII", Repeat("a", 70) + "\u00e9", 8, 2, 6},
    {"130 characters of UCS2", Repeat("\u4f60", 130), 8, 2, 65},
    {"131 characters of UCS2", Repeat("\u4f60", 131), 8, 3, 1},
    {"the most parts of UCS2", Repeat("\u00e9", 255 * 65), 8, 255, 65},
    {"one too many of UCS2", Repeat("\u00e9", 255 * 65 + 1), 8, -1, 0},
};

TEST(SmsParts, SplitsByCharacters) {
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
      EXPECT_EQ(part.entry.hasUdh, one.total > 1);
      EXPECT_STREQ(part.entry.concatRef, one.total > 1 ? "770E" : "");
      EXPECT_EQ(part.entry.concatTotal, one.total > 1 ? one.total : 0);
      EXPECT_EQ(part.entry.concatSeq, one.total > 1 ? at + 1 : 0);
    }
  }
}

TEST(SmsParts, FourByteAndBrokenCharactersAreReplacedOnceEach) {
  EXPECT_EQ(SplitAndDecode("\U0001F600"
                           "a")
                .joined,
            "\uFFFD"
            "a");
  EXPECT_EQ(SplitAndDecode("x\x80\xe4\xbd").joined, "x\uFFFD\uFFFD");
  EXPECT_EQ(SplitAndDecode(Repeat("\U0001F600", 70)).joined, Repeat("\uFFFD", 70));
  Parts long_one = SplitAndDecode(Repeat("\U0001F600", 71));
  EXPECT_EQ(long_one.total, 2);
  EXPECT_EQ(long_one.joined, Repeat("\uFFFD", 71));
}

/* Without "@", whose loss at the end of a part is odd on purpose; with few escapes, since a part
   has 255 septets at most. */
TEST(SmsPartsProperty, JoinedPartsAreTheText) {
  EXPECT_TRUE(rc::check("7-bit", [] {
    std::string text = *AsciiText("@[]{}|\\^~", 1000);
    for (size_t at = 0; at < text.size(); at += 31) text[at] = '[';
    RC_ASSERT(SplitAndDecode(text).joined == text);
  }));
  EXPECT_TRUE(rc::check("UCS2", [] {
    std::string text = *Ucs2Text(500) + "\u4f60";
    RC_ASSERT(SplitAndDecode(text).joined == text);
  }));
}

}  // namespace
