// The files of the settings on flash: what damage is found, what is used instead, and what a full
// flash gives up.
#include "flash.h"

#include <sys/mount.h>
#include <unistd.h>

#include "../other_process.h"
#include "nvram_support.h"

namespace {

const Settings kBefore = {{"a", "before"}, {"empty", ""}, {"long", std::string(9000, 'x')}};
const Settings kLast = {{"a", "last"}, {"long", std::string(9000, 'y')}, {"new", "1"}};

/* What FlashLoad returns for area 1, as a file; and its log. */
std::string Loaded(std::string *log) {
  std::string records;
  *log = LogOf([&] { EXPECT_EQ(FlashLoad(1, &records), 0); });
  return WithHead(1, records);
}

/* The last commit is `bytes`: it is found to be damaged, and the one before is used. */
void ExpectDamageFound(const std::string &what, const std::string &bytes) {
  SCOPED_TRACE(what);
  std::string log, before = FlashFile(1, kBefore);
  NewBoard();
  WriteBytes("area1", bytes);
  WriteBytes("area1.1", before);
  EXPECT_TRUE(Loaded(&log) == before);
  EXPECT_NE(log.find("area1 is damaged ("), log.npos) << log;
  EXPECT_EQ(log.find(" 4 "), log.rfind(" 4 ")) << "one line: " << log;
  EXPECT_TRUE(FileBytes("area1.bad.1") == bytes);
  EXPECT_TRUE(Loaded(&log) == before) << "at the next start, too";
  EXPECT_EQ(log, "");
}

TEST(Flash, DamageAnywhereIsFound) {
  const std::string whole = FlashFile(1, kLast);
  const size_t kHead = 34, kTail = 9, kPage = 4096;
  for (size_t at = 0; at < whole.size();
       at += at < kHead || at + kTail + 1 > whole.size() ? size_t{1} : 97) {
    std::string bytes = whole;
    bytes[at] = static_cast<char>(bytes[at] ^ 1 << at % 8);
    ExpectDamageFound("a bit of byte " + std::to_string(at), bytes);
  }
  for (size_t at = 0; at < whole.size(); at += kPage) {
    std::string bytes = whole;
    for (size_t each = at; each < std::min(at + kPage, bytes.size()); ++each)
      bytes[each] = static_cast<char>(bytes[each] ^ static_cast<char>(each * 7));
    ExpectDamageFound("the page at " + std::to_string(at), bytes);
    bytes.replace(at, kPage, std::min(kPage, whole.size() - at), '\0');
    ExpectDamageFound("zeroes at " + std::to_string(at), bytes);
    ExpectDamageFound("cut at " + std::to_string(at), whole.substr(0, at));
    ExpectDamageFound("cut after " + std::to_string(at), whole.substr(0, at + 1));
  }
  const std::string kNul(1, '\0'), key(401, 'k'), value(32 * 1024 + 1, 'v');
  ExpectDamageFound("a byte too many", whole + "\n");
  ExpectDamageFound("a page too many", whole + std::string(kPage, '\0'));
  ExpectDamageFound("the other area's", FlashFile(2, kLast));
  ExpectDamageFound("longer than may be", std::string((32 << 20) + 1, '\0'));
  ExpectDamageFound("a key that is too long", FlashFile(1, {{key, "v"}}));
  ExpectDamageFound("a value that is too long", FlashFile(1, {{"k", value}}));
  ExpectDamageFound("no key", FlashFile(1, {{"", "v"}}));
  ExpectDamageFound("a key alone", WithHead(1, "k" + kNul));
  ExpectDamageFound("no end", WithHead(1, "k" + kNul + "v"));
}

/* Rows of tests/data/flash.txt, which says how they are written. */
TEST(Flash, WhatIsUsedInstead) {
  std::map<std::string, Settings> files = {{"last", kLast}, {"before", kBefore}, {"nothing", {}}};
  std::ifstream rows(TEST_DATA "/flash.txt");
  for (std::string row, log; std::getline(rows, row);) {
    if (row[0] == '#') continue;
    SCOPED_TRACE(row);
    const size_t arrow = row.find(" => "), colon = row.find(": ", arrow);
    NewBoard();
    WriteBytes("area1", FlashFile(1, kLast));
    WriteBytes("area1.1", FlashFile(1, kBefore));
    ASSERT_EQ(system(("cd /var/nvram; bash -c '" + row.substr(0, arrow) + "'").c_str()), 0);
    EXPECT_TRUE(Loaded(&log) == FlashFile(1, files.at(row.substr(arrow + 4, colon - arrow - 4))));
    const std::string logged = colon == row.npos ? "" : row.substr(colon + 2);
    EXPECT_NE(log.find(logged), log.npos) << log;
    EXPECT_EQ(log.empty(), logged.empty()) << log;
    EXPECT_EQ(FlashStore(1, "k" + std::string(2, '\0')), 1);
    EXPECT_TRUE(FileBytes("area1") == FlashFile(1, {{"k", ""}}));
  }
  EXPECT_EQ(FileBytes("area1.1"), FlashFile(1, kLast)) << "the commit before";
}

TEST(Flash, AFullFlashGivesUpWhatIsWorthLess) {
  const std::string large(14000, 'x'), kNul(1, '\0');
  auto records = [&](const char *key) { return key + kNul + large + kNul; };
  auto file = [&](const char *key) { return FlashFile(1, {{key, large}}); };
  NewBoard();
  ASSERT_EQ(mount("none", "/var/nvram", "tmpfs", 0, "size=48k"), 0);
  EXPECT_EQ(FlashStore(1, records("a")) + FlashStore(1, records("b")), 2);
  WriteBytes("area1.bad.1", large);
  EXPECT_EQ(FlashStore(1, records("c")), 1) << "for a damaged file";
  EXPECT_TRUE(FileBytes("area1") + FileBytes("area1.1") == file("c") + file("b"));
  WriteBytes("other", large);
  EXPECT_EQ(FlashStore(1, records("d") + records("e")), -1) << "more than there can be room for";
  EXPECT_TRUE(FileBytes("area1") + FileBytes("area1.1") == file("c") + file("b")) << "none goes";
  EXPECT_EQ(FlashStore(1, records("d")), 1) << "for the commit before";
  EXPECT_EQ(FlashStore(1, ""), 1);
  EXPECT_TRUE(FileBytes("area1") + FileBytes("area1.1") == FlashFile(1, {}) + file("d"));
  WriteBytes("area1", "damaged");
  EXPECT_EQ(FlashStore(1, records("e") + records("f")), -1);
  EXPECT_TRUE(FileBytes("area1.1") == file("d")) << "the only one that is sound";
  EXPECT_EQ(umount("/var/nvram"), 0);
}

}  // namespace
