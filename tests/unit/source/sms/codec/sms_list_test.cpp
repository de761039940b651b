// Lists of short messages: "+CMGL:" lines, what is escaped, what the decoder leaves for the list,
// and that none of it uses the heap.
#include "sms_list.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <string>

#include "sms_parts.h"

namespace {
thread_local int blocks; /* taken from the heap by this thread */
}

void *operator new(size_t size) {
  ++blocks;
  if (void *block = malloc(size)) return block;
  abort();
}
/* Not inlined: a compiler that saw `free` alone beside a `new` would warn. */
__attribute__((noinline)) void operator delete(void *block) noexcept { free(block); }
__attribute__((noinline)) void operator delete(void *block, size_t) noexcept { free(block); }

namespace {

constexpr char kHello[] =
    "07917283010010F5040BC87238880900F10000993092516195800AE8329BFD4697D9EC37";
constexpr char kPart[] =
    "0891683108100005F0440D91683119325476F800004211529003512312050003CC0302E6E5F1DB4D06C1C3723A";

/* Files of tests/data/answers: index, status, number, text and time, or "refused", then what the
   modem said. */
TEST(SmsList, ReadsAnEntry) {
  int answers = 0;
  for (const auto &file : std::filesystem::directory_iterator(TEST_DATA "/answers")) {
    std::ifstream stream(file.path(), std::ios::binary);
    std::string expected, read = "refused";
    std::getline(stream, expected);
    const std::string text(std::istreambuf_iterator<char>(stream), {});
    ShortMsgEntry entry;
    memset(&entry, 'z', sizeof entry);
    if (ShortMsgParseEntry(text.c_str(), &entry) == 0) {
      read = std::to_string(entry.index) + " " + std::to_string(entry.stat) + " " + entry.number +
             " " + entry.content + " " + entry.time;
      EXPECT_EQ(std::string(entry.parts) + std::to_string(entry.taken), "0") << file.path();
    }
    EXPECT_EQ(read, expected) << file.path();
    ++answers;
  }
  EXPECT_GE(answers, 17);
}

TEST(SmsList, TheFirstReferenceIsKept) {
  const std::string part = kPart, other = std::string(part).replace(part.find("CC0302"), 2, "DD");
  std::string seen;
  short_msg_decoded = {};
  for (const std::string &pdu : {std::string(kHello), part, other}) {
    ShortMsgParam record = {};
    ShortMsgEntry entry = {};
    SHORTMSG_DecodePdu(pdu.c_str(), &record, &entry);
    for (const char *text : {entry.concatRef, short_msg_decoded.longRef, short_msg_decoded.text})
      seen += std::string(text) + "|";
  }
  EXPECT_EQ(seen, "||hellohello|CC|CC|second part|DD|CC|second part|");
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
  for (ShortMsgPartsOf(text.data(), text.size(), &parts);
       ShortMsgNextPart(&parts, &record, &header) != 0; ++count) {
    PduEncode(&record, pdu, &header);
    ShortMsgParam back = record;
    back.stat = SHORTMSG_SENT;
    PduDecode(pdu, &back, &entry, decoded);
  }
  EXPECT_EQ(ShortMsgParseEntry("+CMGL: 1,1,,2\r\n0004", &entry), 0);
  EXPECT_EQ(blocks, before);
  EXPECT_EQ(count, 4);
  EXPECT_GT(blocks, 0) << "the count counts";
}

}  // namespace
