// Lists of short messages: "+CMGL:" lines, what is escaped, what the decoder leaves for the list,
// and that none of it uses the heap.
#include "sms_list.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "sms_parts.h"

namespace {
thread_local int blocks; /* taken from the heap by this thread */
}

extern "C" {
void *__real_malloc(size_t size);
void *__wrap_malloc(size_t size);
void *__wrap_malloc(size_t size) {
  ++blocks;
  return __real_malloc(size);
}
}

void *operator new(size_t size) {
  void *block = malloc(size);
  if (block == nullptr) abort();
  return block;
}
void operator delete(void *block) noexcept { free(block); }
void operator delete(void *block, size_t) noexcept { free(block); }

namespace {

constexpr char kHello[] =
    "07917283010010F5040BC87238880900F10000993092516195800AE8329BFD4697D9EC37";
constexpr char kPart[] =
    "0891683108100005F0440D91683119325476F800004211529003512312050003CC0302E6E5F1DB4D06C1C3723A";
constexpr char kSent[] = "0891683108100005F0110005910110F000000004E10D4F0C";

TEST(SmsList, ReadsAnEntry) {
  const std::string hello = kHello, sent = kSent, head = "+CMGL: 3,1,,29\r\n";
  const char kWhole[] = "3 1 27838890001 hellohello 2099-03-29 15:16:59";
  const struct {
    const char *what;
    std::string text;
    const char *entry; /* index, status, number, text, time; "": refused */
  } cases[] = {
      {"received", head + hello + "\r\n", kWhole},
      {"behind an echo", "AT+CMGL=4\r\n+CMGL: 3,1,\"\",29\r\n" + hello, kWhole},
      {"sent, no time stamp", "+CMGL: 7,3,,17\r\n" + sent + "\r\nOK\r\n", "7 3 10010 a[b  "},
      {"a part starts behind its header", "+CMGL: 1,1,,41\r\n" + std::string(kPart),
       "1 1 8613912345678 second part 2024-11-25 09:30:15"},
      {"lines joined by line feeds", "+CMGL: 3,1,,29\n\n" + hello + "\n\n", kWhole},
      {"plain line feeds", "+CMGL: 3,1,,29\n" + hello + "\n", kWhole},
      {"a name with a comma", "+CMGL: 3,1,\"a,b\",29\r\n" + hello, kWhole},
      {"the next one is not read", head + hello + "\r\n+CMGL: 4,3,,17\r\n" + sent, kWhole},
      {"a PDU that breaks off", head + hello.substr(0, 60),
       "3 1 27838890001 hel 2099-03-29 15:16:59"},
      {"no line", "OK\r\n", ""},
      {"no status", "+CMGL: 3,,,29\r\n" + hello, ""},
      {"two commas", "+CMGL: 3,1,29\r\n" + hello + ",\r\n" + hello, ""},
      {"no PDU line", "+CMGL: 3,1,,29", ""},
      {"an empty PDU line", head + "\r\nOK\r\n", ""},
      {"texts in place of a PDU", "+CMGL: 3,\"REC READ\",,\r\nHello\r\n", ""},
      {"empty", "", ""},
  };
  for (const auto &one : cases) {
    SCOPED_TRACE(one.what);
    ShortMsgEntry entry;
    memset(&entry, 'z', sizeof entry);
    ASSERT_EQ(ShortMsgParseEntry(one.text.c_str(), &entry), *one.entry == '\0' ? -1 : 0);
    if (*one.entry == '\0') continue;
    EXPECT_EQ(std::to_string(entry.index) + " " + std::to_string(entry.stat) + " " + entry.number +
                  " " + entry.content + " " + entry.time,
              one.entry);
    EXPECT_STREQ(entry.parts, "");
    EXPECT_EQ(entry.taken, 0);
  }
}

TEST(SmsList, EscapesForAWebPage) {
  const struct {
    const char *text, *escaped;
  } cases[] = {
      {"\"'\\<>%&", "&quot;&#39;&#92;&#60;&#62;&#37;&#38;"},
      {"a\rb\nc", "a<br>b<br>c"},
      {"a\r\nb\n\rc", "a<br>b<br>c"},
      {"\r\r\n\n\r\n", "<br><br><br><br>"},
  };
  for (const auto &one : cases) {
    char escaped[64];
    ShortMsgEscape(one.text, escaped);
    EXPECT_STREQ(escaped, one.escaped);
  }
  char small[8];
  ShortMsgEscape("ab\"cd", small);
  EXPECT_STREQ(small, "ab") << "no half piece";
}

TEST(SmsList, TheFirstReferenceIsKept) {
  const std::string part = kPart;
  const struct {
    std::string pdu;
    const char *entry, *first, *text;
  } cases[] = {
      {kHello, "", "", "hellohello"},
      {part, "CC", "CC", "second part"},
      {std::string(part).replace(part.find("CC0302"), 2, "DD"), "DD", "CC", "second part"},
  };
  shortMsgDecoded = {};
  for (const auto &one : cases) {
    ShortMsgParam record = {};
    ShortMsgEntry entry = {};
    SHORTMSG_DecodePdu(one.pdu.c_str(), &record, &entry);
    EXPECT_STREQ(entry.concatRef, one.entry);
    EXPECT_STREQ(shortMsgDecoded.longRef, one.first);
    EXPECT_STREQ(shortMsgDecoded.text, one.text);
  }
}

/* ---- heap ---- */

TEST(SmsHeap, NothingIsTaken) {
  std::string text = "text [";
  for (int at = 0; at < 100; ++at) text += "\u4f60\U0001F600";
  ShortMsgParts parts;
  ShortMsgParam record = {};
  ShortMsgHeader header;
  ShortMsgEntry entry = {};
  char pdu[SHORTMSG_PDU_SIZE], decoded[SHORTMSG_TEXT_SIZE];
  int before = blocks, count = 0;
  void *volatile counted = malloc(1); /* the count counts */
  free(counted);
  ShortMsgPartsOf(text.data(), text.size(), &parts);
  while (ShortMsgNextPart(&parts, &record, &header) != 0) {
    PduEncode(&record, pdu, &header);
    record.stat = SHORTMSG_SENT;
    ShortMsgParam back = record;
    PduDecode(pdu, &back, &entry, decoded);
    ++count;
  }
  PduDecode(kHello, &record, &entry, decoded);
  EXPECT_EQ(blocks, before + 1);
  EXPECT_EQ(count, 4);
}

}  // namespace
