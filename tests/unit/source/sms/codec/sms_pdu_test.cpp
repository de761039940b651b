// PDUs of short messages: those of tests/data/pdu and others in both directions, what is odd on
// purpose, what is broken, and texts there and back. The character work is in
// sms_text_test.cpp, lists and traces in sms_list_test.cpp.
#include "sms_pdu.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "escape.h"
#include "sms_parts.h"

namespace {

std::string Repeat(const std::string &text, int times) {
  std::string all;
  while (times-- > 0) all += text;
  return all;
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

ShortMsgParam Record(const char *sca, const char *tpa, int dcs, const std::string &text) {
  ShortMsgParam record = {};
  snprintf(record.SCA, sizeof record.SCA, "%s", sca);
  snprintf(record.TPA, sizeof record.TPA, "%s", tpa);
  record.TP_DCS = static_cast<uint8_t>(dcs);
  snprintf(record.TP_UD, sizeof record.TP_UD, "%s", text.c_str());
  return record;
}

std::string Encode(const ShortMsgParam &record, const ShortMsgHeader *header = nullptr) {
  char pdu[SHORTMSG_PDU_SIZE];
  int length = PduEncode(&record, pdu, header);
  EXPECT_EQ(static_cast<size_t>(length), strlen(pdu));
  return pdu;
}

#define CENTRE    "0891683108100005F0" /* 8613800100500 */
#define SENDER    "0D91683119325476F8" /* 8613912345678 */
#define STAMP     "42115290035123"     /* 24112509301532 */
#define FROM10010 "0405910110F0"

/* ---- decoding ---- */

/* A file of tests/data/pdu: perhaps a line why it is there, the PDU, what smspdu prints of it. */
struct Sample {
  std::string name, pdu, fields;
  int stat;
};

std::vector<Sample> Samples() {
  std::vector<Sample> samples;
  for (const auto &file : std::filesystem::directory_iterator(TEST_DATA "/pdu")) {
    Sample sample = {file.path().filename(), "", "", 0};
    std::ifstream stream(file.path());
    std::getline(stream, sample.pdu);
    if (sample.pdu[0] == '#') std::getline(stream, sample.pdu);
    sample.fields.assign(std::istreambuf_iterator<char>(stream), {});
    sample.stat = sample.fields.at(sample.fields.find("\nstat=") + 6) - '0';
    samples.push_back(sample);
  }
  EXPECT_GE(samples.size(), 36U) << "as many are there";
  return samples;
}

std::string Fields(const Decoded &got) {
  const ShortMsgParam &record = got.record;
  const ShortMsgEntry &entry = got.entry;
  char fields[1024];
  snprintf(fields, sizeof fields,
           "SCA=%s\nTPA=%s\nTP_PID=%d\nTP_DCS=%d\nTP_SCTS=%s\nstat=%d\nhasUdh=%d\n"
           "concatRef=%s\nconcatTotal=%d\nconcatSeq=%d\ntext=%s\n",
           record.SCA, record.TPA, record.TP_PID, record.TP_DCS, record.TP_SCTS, record.stat,
           entry.hasUdh, entry.concatRef, entry.concatTotal, entry.concatSeq, got.text);
  return Printable(fields);
}

/* What the encoder makes of what was decoded. */
std::string EncodeAgain(Decoded got) {
  const ShortMsgEntry &entry = got.entry;
  ShortMsgHeader header = {{0x06, 0x08, 0x04, 0, 0, entry.concatTotal, entry.concatSeq}};
  uint8_t units[SHORTMSG_TEXT_SIZE];
  HexToBytes(entry.concatRef, {header.octets + 3, 2}, 4);
  memcpy(got.record.TP_UD, got.text, sizeof got.text);
  if (entry.hasUdh != 0 && got.record.TP_DCS == SHORTMSG_DCS_UCS2)
    BytesToHex(units, got.record.TP_UD,
               static_cast<size_t>(Utf8ToUcs2(got.text, units, strlen(got.text))));
  return Encode(got.record, entry.hasUdh != 0 ? &header : nullptr);
}

/* Cut anywhere, a PDU has no more of its text than is there. Those of the gateway's own making are
   made again. */
TEST(SmsPdu, SamplesDecodeWholeAndCut) {
  for (const Sample &one : Samples()) {
    SCOPED_TRACE(one.name);
    Decoded got = Decode(one.pdu, one.stat);
    EXPECT_EQ(Fields(got), one.fields);
    EXPECT_EQ(one.name.find("own_") == 0 ? EncodeAgain(got) : one.pdu, one.pdu);
    std::string text = got.text, reference = got.entry.concatRef;
    EXPECT_EQ(std::string(got.entry.concatRef, 8),
              reference + std::string(8 - reference.size(), 0));
    if (got.entry.hasUdh == 0 || got.record.TP_DCS != 0) {
      EXPECT_EQ(got.record.TP_UD, text);
    }
    bool pairs = text.find_first_of("[]{}|\\^~") != text.npos; /* one that is cut is none */
    for (size_t n = 0; n < one.pdu.size() && !pairs; ++n) {
      Decoded cut = Decode(one.pdu.substr(0, n), one.stat);
      EXPECT_EQ(text.compare(0, strlen(cut.text), cut.text), 0) << n;
      EXPECT_LE(cut.length, got.length) << n;
    }
  }
  EXPECT_STREQ(Decode(CENTRE FROM10010 "0000" STAMP "0331D9\r\n8C").text, "12");
  EXPECT_STREQ(Decode(CENTRE FROM10010 "0008" STAMP "060041004\3772").text, "A");
}

/* The length counts a header's septets, which stay in the record, and no header's octets. */
TEST(SmsPdu, HeadersAndLengths) {
  Decoded got = Decode(CENTRE "44" SENDER "0000" STAMP "12050003CC0302E6E5F1DB4D06C1C3723A");
  EXPECT_EQ(std::string(got.record.TP_UD, 19), std::string("\5@\f`<@@second part\0", 19));
  EXPECT_EQ(got.length, 18);
  EXPECT_EQ(Decode(CENTRE "44" SENDER "0008" STAMP "0A0500032A0202540E534A").length, 6);
  EXPECT_EQ(Decode(CENTRE "44" SENDER "0004" STAMP "0D0608041234020101FF64617461").length, 6);
}

TEST(SmsPdu, CutsWhatIsLongerThanItsField) {
  for (const char *kind : {"00", "08", "04"})
    for (const char *first : {"04", "44"})
      for (const char *digit : {"11", "1A"}) {
        Decoded got = Decode("FF91" + Repeat("21", 254) + first + "FF91" + Repeat(digit, 128) +
                             "00" + kind + STAMP "FF" + Repeat("11", 300));
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

TEST(SmsPdu, EncodesWhatNoSampleHas) {
  const ShortMsgHeader first = {{0x06, 0x08, 0x04, 0x77, 0x0E, 0x02, 0x01}};
  EXPECT_EQ(Encode(Record("", "10010", 4, "data"), &first), "0191510005910110F000040091")
      << "a part of 8-bit data has neither data nor length";
  EXPECT_EQ(Encode(Record("", "10010", 8, Repeat("a", 130))),
            "0191110005910110F000080004" + Repeat("0061", 130))
      << "more than an octet can count";
  ShortMsgParam record = Record("1", "2", 0, "x");
  record.TP_PID = 0x41;
  EXPECT_EQ(Decode(Encode(record), SHORTMSG_SENT).record.TP_PID, 0x41);
  std::string pdu = "07917283010010F511000B916407281553F80000000AE8329BFD4697D9EC37";
  EXPECT_EQ(PduTpduLength(pdu.c_str(), static_cast<int>(pdu.size())), 23);
  EXPECT_EQ(PduTpduLength("0011", 4), 1);
}

/* Each character in each place of a group. The last is no "@", whose loss is odd on purpose. */
TEST(SmsPdu, SevenBitTextsComeBack) {
  std::string characters = Repeat("[]{}|\\^~", 2), text;
  for (char character = 3; character < 0x7F; ++character)
    if (character != 0x11 && character != 0x1B) characters += character;
  for (size_t at = 0; at < 8 * characters.size(); ++at) {
    text =
        (text + characters[at % characters.size()]).substr(at % 9 == 0 ? text.size() / 2 : 0, 120);
    Decoded got = Decode(Encode(Record("1", "2", 0, text + ".")), SHORTMSG_SENT);
    ASSERT_EQ(got.text, text + ".") << at;
  }
}

/* ---- parts ---- */

struct PartsCase {
  const char *what;
  std::string text;
  int dcs, total;
  int last; /* characters of the last part */
  std::string joined = text;
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
    {"four bytes are one", Repeat("\U0001F600", 71), 8, 2, 6, Repeat("\uFFFD", 71)},
    {"broken ones", "x\x80\xe4\xbd", 8, 1, 3, "x\uFFFD\uFFFD"},
};

TEST(SmsParts, SplitsByCharactersAndSeptets) {
  for (const PartsCase &one : kParts) {
    SCOPED_TRACE(one.what);
    ShortMsgParts parts;
    ShortMsgParam record = Record("8613800100500", "10010", 0, "");
    ShortMsgHeader header;
    ASSERT_EQ(ShortMsgPartsOf(one.text.data(), one.text.size(), &parts), one.total);
    bool single = one.total == 1;
    std::string joined, last;
    int given = 0;
    for (; one.total > 0 && ShortMsgNextPart(&parts, &record, &header) != 0; ++given) {
      Decoded part = Decode(Encode(record, single ? nullptr : &header), SHORTMSG_SENT);
      joined += last = part.text;
      EXPECT_EQ(part.record.TP_DCS, one.dcs);
      EXPECT_LE(part.length, one.dcs == SHORTMSG_DCS_7BIT ? 160 : 3 * 70) << given;
      EXPECT_STREQ(part.entry.concatRef, single ? "" : "770E");
      EXPECT_EQ(part.entry.concatTotal, single ? 0 : one.total);
      EXPECT_EQ(part.entry.concatSeq, single ? 0 : given + 1);
    }
    if (one.total < 0) continue;
    EXPECT_EQ(given, one.total);
    EXPECT_TRUE(joined == one.joined);
    EXPECT_EQ(std::count_if(last.begin(), last.end(), [](char c) { return (c & 0xC0) != 0x80; }),
              one.last);
  }
}

}  // namespace
