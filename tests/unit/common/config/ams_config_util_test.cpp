// The small utilities of the op functions: keys of shell-style files, rule scripts, the flash type.
#include "ams_config_util.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "support.h"

namespace {

constexpr char kFile[] = "/tmp/config_util_test.txt";

void WriteText(const std::string &file, const std::string &text) {
  std::ofstream(file, std::ios::binary | std::ios::trunc) << text;
}

class ConfigUtilTest : public StoreTest {
  void TearDown() override { (void)unlink(kFile); /* a test may have removed it */ }
};

/* ---- keys of shell-style files ---- */

struct KeyCase {
  const char *what;
  std::string text;
  int result;
  std::string value;
};

const KeyCase kKeys[] = {
    {"blanks before the value", "KEY= \t value\n", 0, "value"},
    {"blanks inside and behind stay", "KEY=a b \n", 0, "a b "},
    {"at the end of the file", "A=1\nKEY=", 0, ""},
    {"empty value does not take the next line", "KEY=\nB=2\n", 0, ""},
    {"line ends in carriage return", "KEY=v\r\nB=2\r\n", 0, "v"},
    {"part of another key counts", "OTHERKEY=3\nKEY=4\n", 0, "3"},
    {"first of two", "KEY=1\nKEY=2\n", 0, "1"},
    {"commented out", "A=1\n#KEY=1\n", -1, "old"},
    {"commented out wins over a later line", "#KEY=1\nKEY=2\n", -1, "old"},
    {"slash before it", "//KEY=1\n", -1, "old"},
    {"comment sign further away does not count", "# KEY=1\n", 0, "1"},
    {"missing", "A=1\n", -1, "old"},
    {"last that ends within 8191 bytes", std::string(8191 - 5, 'x') + "KEY=z", 0, "z"},
    {"value cut by the 8191 bytes", std::string(8191 - 5, 'x') + "KEY=zzz", 0, "z"},
    {"key cut by the 8191 bytes", std::string(8191 - 3, 'x') + "KEY=z", -1, "old"},
    {"value longer than the buffer", "KEY=0123456789abcdefgh\n", 0, "0123456789abcde"},
    {"a NUL ends what is searched", std::string("A=1\0KEY=1\n", 10), -1, "old"},
};

TEST_F(ConfigUtilTest, FindsKeys) {
  for (const KeyCase &c : kKeys) {
    char value[16] = "old";
    WriteText(kFile, c.text);
    EXPECT_EQ(cfgFileKeyGet(kFile, "KEY=", value), c.result) << c.what;
    EXPECT_EQ(std::string(value), c.value) << c.what;
  }
}

constexpr char kSource[] = "./../common/config/ams_config_util";

int Key(const char *file) {
  char value[16];
  return cfgFileKeyGet(file, "KEY=", value);
}

TEST_F(ConfigUtilTest, WhatIsLogged) {
  const struct {
    const char *text; /* the file's */
    Lines records;
    int result;
    int (*work)();
  } cases[] = {
      {"", {"4 Failed /nowhere open failed"}, -1, [] { return Key("/nowhere"); }},
      {"",
       {std::string("4 failed ") + kFile + " read", "1 buf is \n"},
       -1,
       [] { return Key(kFile); }},
      {"KEY=1\n", {"1 buf is KEY=1\n"}, 0, [] { return Key(kFile); }},
      {"A=1\n", {std::string("2 can not find KEY= at ") + kFile}, -1, [] { return Key(kFile); }},
      {"#KEY=1\n", {std::string("2 error, find KEY= at ") + kFile}, -1, [] { return Key(kFile); }},
      {"",
       {"4 Failed /nowhere open failed\n"},
       -1,
       [] { return cfgFileDropLines("/nowhere", "abc"); }},
      {"a\n",
       {std::string("1 failed ") + kFile + " read\r\n", "1 buf[1] is \n"},
       0,
       [] { return cfgFileDropLines(kFile, "abc"); }},
      {"",
       {"4 input is too long.\n"},
       -1,
       [] {
         char digest[65];
         return cfgSha256Hex("123456789012345678901234567890123", digest);
       }},
  };
  for (const auto &one : cases) {
    WriteText(kFile, one.text);
    ExpectRecords(kSource, one.records,
                  [&] { EXPECT_EQ(one.work(), one.result) << one.records[0]; });
  }
}

TEST_F(ConfigUtilTest, RecordsFollowTheZone) {
  /* the record's time as if the clock were `hours` ahead; such texts sort by time */
  auto clock = [](int hours) {
    char text[32];
    struct tm parts;
    timespec now; /* time() is of a coarser clock, which lags behind the records' */
    clock_gettime(CLOCK_REALTIME, &now);
    now.tv_sec += hours * 3600;
    strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", gmtime_r(&now.tv_sec, &parts));
    return std::string(text);
  };
  for (const auto &[zone, hours] : {std::pair("UTC0", 0), {"EAST-9", 9}, {"WEST7", -7}}) {
    SetZone(zone);
    std::string before = clock(hours);
    std::string log = LogOf(4, [] { AMS_PRINT(4, "now"); }).substr(0, before.size());
    EXPECT_TRUE(before <= log && log <= clock(hours)) << zone << log;
  }
  SetZone("UTC0");
}

#define RULE "/usr/syscfg/rule/wan.rules."

TEST_F(ConfigUtilTest, WanRuleScripts) {
  int failed = cfgWanRulesParse(0, "wan1", 0, "x") | cfgWanRulesParse(7, "wan1", -1, "x") |
               cfgWanRulesParseWhole(0, "wan2", "y") | cfgWanRulesClean(0, "wan1") |
               cfgWanRulesClean(1, "wan1") | cfgWanRulesApply(0, "wan1", "z") |
               cfgWanRulesApply(1, "wan1", nullptr);
  EXPECT_EQ(failed, 0);
  EXPECT_EQ(TakeCommands(),
            (Lines{RULE "parse.awk config wan1 single x", RULE "parse.awk reset wan1 whole x",
                   RULE "parse.awk config wan2 whole y", RULE "clean.sh config wan1",
                   RULE "clean.sh reset wan1", RULE "do.sh config all wan1 z",
                   RULE "do.sh reset all wan1 "}));
}

/* ---- the line remover ---- */

struct DropCase {
  const char *what;
  std::string before, after; /* the file's text; the shell writes it */
};

const DropCase kDrops[] = {
    {"drops the tag's lines", "a:1:abc:x\nb:2:abd:y\nc:3:abc\n", "b:2:abd:y\n"},
    {"the tag may be the start of a word", "a:1:abcdef\nb:2:x\n", "b:2:x\n"},
    {"only behind the second colon", "abc:abc:x\na:abc\n", "abc:abc:x\na:abc\n"},
    {"a third colon does not matter", "a:b:c:abc\n", "a:b:c:abc\n"},
    {"empty lines go", "\na:1:x\n\r\nb:2:y\r\n", "a:1:x\nb:2:y\n"},
    {"ten lines are all there is room for", "1\n2\n3\n4\n5\n6\n7\n8\n9\n10\n11\n",
     "1\n2\n3\n4\n5\n6\n7\n8\n9\n10\n"},
    {"127 bytes a line, the rest is the next one", std::string(130, 'x') + "\n",
     std::string(127, 'x') + "\nxxx\n"},
    {"nothing left: the file stays", "a:1:abc\n", "a:1:abc\n"},
};

TEST_F(ConfigUtilTest, DropsLines) {
  RunCommands(true);
  for (const DropCase &c : kDrops) {
    WriteText(kFile, c.before);
    EXPECT_EQ(cfgFileDropLines(kFile, "abc"), 0) << c.what;
    EXPECT_EQ(FileText(kFile), c.after) << c.what;
  }
  WriteText(kFile, "b:2:x\nc:3:y\n");
  (void)TakeCommands(); /* their outcome was looked at */
  EXPECT_EQ(cfgFileDropLines(kFile, "abc"), 0);
  EXPECT_EQ(TakeCommands(),
            (Lines{std::string("echo b:2:x > ") + kFile, std::string("echo c:3:y >> ") + kFile}));
}

/* ---- flash type ---- */

/* The file stands in the test's own root file system. */
TEST_F(ConfigUtilTest, FlashTypeComesFromTheFile) {
  const std::pair<const char *, int> cases[] = {
      {"nand\n", 0}, {"mlc-nand\n", 0}, {"nor\n", -1}, {"", -1}, {"nor\nnand\n", -1}};
  const std::string folder = "/sys/class/mtd/mtd1", file = folder + "/type";
  std::error_code error;
  if (!std::filesystem::create_directories(folder, error) && error)
    GTEST_SKIP() << folder << ": " << error.message() << "; run the test in the sandbox";
  EXPECT_EQ(cfgFlashIsNand(), -1) << "no file";
  for (const auto &one : cases) {
    WriteText(file, one.first);
    const Lines records = *one.first == '\0' ? Lines{} : Lines{"1 Flash type is nor \n"};
    ExpectRecords(kSource, records, [&] { EXPECT_EQ(cfgFlashIsNand(), one.second) << one.first; });
  }
  std::filesystem::remove(file);
}

TEST(DoubleCloseTest, ClosesBothAndPassesNullOver) {
  FILE *first = fopen("/dev/null", "r"), *second = fopen("/dev/null", "r");
  ASSERT_TRUE(first != nullptr && second != nullptr);
  int descriptors[] = {fileno(first), fileno(second)};
  cfgDoubleClose(first, nullptr);
  cfgDoubleClose(nullptr, second);
  for (int descriptor : descriptors) EXPECT_EQ(lseek(descriptor, 0, SEEK_CUR), -1);
}

}  // namespace
