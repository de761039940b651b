// The files of the settings on flash: what damage is found, what is used instead, and what a full
// flash gives up.
#include "flash.h"

#include <sys/mount.h>
#include <unistd.h>

#include "../other_process.h"
#include "nvram_support.h"

namespace {

const Settings kFirst = {{"a", "first"}, {"empty", ""}, {"long", std::string(9000, 'x')}};
const Settings kOther = {{"a", "other"}, {"long", std::string(9000, 'y')}, {"new", "1"}};

/* A file to which two commits were added, and what it holds after each. */
const std::string kWhole = FlashFile(1, kFirst);
const std::string kMiddleFile = WithChanges(kWhole, {{"a", "=middle"}, {"new", "=1\n"}});
const std::string kLastFile = WithChanges(kMiddleFile, {{"a", "="}, {"empty", ""}, {"none", ""}});
const Settings kMiddle = {
    {"a", "middle"}, {"empty", ""}, {"long", kFirst.at("long")}, {"new", "1\n"}};
const Settings kLast = {{"a", ""}, {"long", kFirst.at("long")}, {"new", "1\n"}};

/* What FlashLoad returns for area 1, as a file; and its log. */
std::string Loaded(std::string *log) {
  std::string settings;
  FlashEnd end;
  *log = LogOf([&] { EXPECT_EQ(FlashLoad(1, &settings, &end), 0); });
  return WithHead(1, settings);
}

/* Of what is on flash, `used` can be used; the log tells what is lost in one line with `logged`,
   and the next start finds nothing more to tell. */
void ExpectUsed(const Settings &used, const std::string &logged) {
  std::string log;
  EXPECT_TRUE(Loaded(&log) == FlashFile(1, used));
  EXPECT_NE(log.find(logged), log.npos) << log;
  EXPECT_EQ(log.find(" 4 nvram: "), log.rfind(" 4 nvram: ")) << "one line: " << log;
  EXPECT_EQ(log.empty(), logged.empty()) << log;
  EXPECT_TRUE(Loaded(&log) == FlashFile(1, used)) << "at the next start, too";
  EXPECT_EQ(log, "");
}

/* The first part is `bytes`, in a file that the copy is not of: the copy is used. */
void ExpectDamageFound(const std::string &what, const std::string &bytes) {
  SCOPED_TRACE(what);
  NewBoard();
  WriteBytes("area1", bytes);
  WriteBytes("area1.1", kWhole);
  ExpectUsed(kFirst, "area1 is damaged (");
  EXPECT_TRUE(FileBytes("area1.bad.1") == bytes);
}

TEST(Flash, DamageAnywhereIsFound) {
  const std::string whole = FlashFile(1, kOther);
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
  ExpectDamageFound("the other area's", FlashFile(2, kOther));
  ExpectDamageFound("longer than may be", std::string((160 << 20) + 1, '\0'));
  ExpectDamageFound("a key that is too long", FlashFile(1, {{key, "v"}}));
  ExpectDamageFound("a value that is too long", FlashFile(1, {{"k", value}}));
  ExpectDamageFound("no key", FlashFile(1, {{"", "v"}}));
  ExpectDamageFound("a key alone", WithHead(1, "k" + kNul));
  ExpectDamageFound("no end", WithHead(1, "k" + kNul + "v"));
}

/* The last bytes of a file, each a place where the power may go, or where a bit may flip. */
TEST(Flash, AChangeIsWholeOrNotThere) {
  for (size_t at = kWhole.size(); at < kLastFile.size(); ++at) {
    SCOPED_TRACE("byte " + std::to_string(at));
    const bool first = at < kMiddleFile.size();
    NewBoard();
    WriteBytes("area1", kLastFile.substr(0, at));
    WriteBytes("area1.1", kWhole);
    const bool cut = at != kWhole.size() && at != kMiddleFile.size();
    ExpectUsed(first ? kFirst : kMiddle, cut ? "bytes of a change that was cut off" : "");
    EXPECT_NE(access("/var/nvram/area1.bad.1", F_OK), 0);
    std::string garbled = kLastFile;
    garbled[at] = static_cast<char>(garbled[at] ^ 1 << at % 8);
    WriteBytes("area1", garbled);
    ExpectUsed(first ? kFirst : kMiddle, "change");
  }
}

/* Rows of tests/data/flash.txt, which says how they are written. */
TEST(Flash, WhatIsUsedInstead) {
  const std::map<std::string, Settings> used = {
      {"last", kLast}, {"middle", kMiddle}, {"first", kFirst}, {"nothing", {}}};
  const std::string garble =
      "garble() { printf X | dd of=$1 bs=1 seek=$2 conv=notrunc status=none; };";
  std::ifstream rows(TEST_DATA "/flash.txt");
  for (std::string row; std::getline(rows, row);) {
    if (row[0] == '#') continue;
    SCOPED_TRACE(row);
    const size_t arrow = row.find(" => "), colon = row.find(": ", arrow);
    NewBoard();
    WriteBytes("area1", kLastFile);
    WriteBytes("area1.1", kWhole);
    const std::string command = garble + row.substr(0, arrow);
    ASSERT_EQ(system(("cd /var/nvram; bash -c '" + command + "'").c_str()), 0);
    ExpectUsed(used.at(row.substr(arrow + 4, colon - arrow - 4)),
               colon == row.npos ? "" : row.substr(colon + 2));
    const std::string file = FileBytes("area1"), copy = FileBytes("area1.1");
    EXPECT_TRUE(file.substr(0, copy.size()) == copy && file.empty() == copy.empty());
    FlashEnd end;
    int folder = FlashLock();
    EXPECT_EQ(FlashStore(1, "k" + std::string(2, '\0'), &end), 0);
    FlashUnlock(folder);
    EXPECT_TRUE(FileBytes("area1") == FlashFile(1, {{"k", ""}}));
    EXPECT_TRUE(FileBytes("area1.1") == FlashFile(1, {{"k", ""}}));
  }
}

TEST(Flash, AFullFlashGivesUpWhatIsWorthLess) {
  const std::string large(7000, 'x'), kNul(1, '\0');
  auto file = [&](const char *key) { return FlashFile(1, {{key, large}}); };
  auto record = [&](const char *key) { return key + kNul + large + kNul; };
  auto both = [] { return FileBytes("area1") + FileBytes("area1.1"); };
  FlashEnd end;
  NewBoard();
  ASSERT_EQ(mount("none", "/var/nvram", "tmpfs", 0, "size=28k"), 0);
  const int folder = FlashLock();
  EXPECT_EQ(FlashStore(1, record("a"), &end), 0);
  WriteBytes("area1.bad.1", large);
  EXPECT_EQ(FlashStore(1, record("b"), &end), 0) << "for a damaged file";
  EXPECT_TRUE(both() == file("b") + file("b"));
  WriteBytes("other", large);
  EXPECT_EQ(FlashStore(1, record("c") + record("d"), &end), -1) << "more than there can be";
  EXPECT_TRUE(both() == file("b") + file("b")) << "none goes";
  EXPECT_EQ(FlashStore(1, record("c"), &end), 0) << "for the copy, which is written again";
  EXPECT_TRUE(both() == file("c") + file("c"));
  const std::string change = "d" + kNul + "=" + large + kNul,
                    added = WithChanges(file("c"), {{"d", "=" + large}});
  EXPECT_EQ(FlashAdd(1, change, 14006, &end), 0) << "for the copy";
  EXPECT_TRUE(both() == added);
  EXPECT_EQ(FlashAdd(1, change + change, 14006, &end), -1);
  EXPECT_TRUE(both() == added) << "half a change does not stay";
  WriteBytes("area1", "damaged");
  WriteBytes("area1.1", file("d"));
  EXPECT_EQ(FlashStore(1, record("e") + record("f"), &end), -1);
  EXPECT_TRUE(FileBytes("area1.1") == file("d")) << "the only one that is sound";
  FlashUnlock(folder);
  EXPECT_EQ(umount("/var/nvram"), 0);
}

/* An outgrown file is written anew where there is room for that, else added to. */
TEST(Flash, AnOutgrownFileNeedsNoRoomForAnother) {
  const std::string kNul(1, '\0'), large(7000, 'x'), change = "a" + kNul + "=" + large + kNul;
  FlashEnd end;
  NewBoard();
  ASSERT_EQ(mount("none", "/var/nvram", "tmpfs", 0, "size=84k"), 0);
  EXPECT_EQ(FlashStore(1, "a" + kNul + large + kNul, &end), 0);
  int added = 0;
  while (added < 10 && FlashAdd(1, change, 7003, &end) == 0) ++added;
  EXPECT_EQ(added, 4) << "it is 35 KB long then, of 7";
  WriteBytes("other", std::string(32 << 10, 'o'));
  EXPECT_EQ(FlashAdd(1, change, 7003, &end), 0) << "8 KB are left";
  unlink("/var/nvram/other");
  EXPECT_EQ(FlashAdd(1, change, 7003, &end), FLASH_ANEW);
  EXPECT_EQ(umount("/var/nvram"), 0);
}

}  // namespace
