// Data-model paths and small texts of the op functions: numbers, names, cuts, addresses, hex
// digits.
#include "ams_config_path.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "support.h"

namespace {

TEST(ConfigPath, Numbers) {
  const struct {
    std::string path;
    int last;
    std::vector<int> all;
    std::string wan; /* "": no name */
  } cases[] = {
      {"WANDevice.1.WANConnectionDevice.2.WANPPPConnection.3.", 3, {1, 2, 3}, "PPP_1_2_3"},
      {"WANDevice.1.WANConnectionDevice.2.WANIPConnection.3.Enable", 3, {1, 2, 3}, "IP_1_2_3"},
      {"1.2.3.4.5.6.7.8.9", 9, {1, 2, 3, 4, 5, 6, 7, 8}, "IP_1_2_3"},
      {"PPP.x1.2x.-3.+4. 5", -1, {}, ""},
      {"A.1..", 1, {1}, "IP_1_0_0"},
      {"7", -1, {7}, "IP_7_0_0"},
      {"", -1, {}, ""},
      {"A.99999999999999999999999", INT32_MAX, {INT32_MAX}, "IP_2147483647_0_0"},
  };
  for (const auto &one : cases) {
    EXPECT_EQ(cfgPathLastIndex(one.path.c_str()), one.last) << one.path;
    int32_t indexes[8];
    int count = cfgPathIndexes(one.path.c_str(), indexes);
    EXPECT_EQ(std::vector<int>(indexes, indexes + count), one.all) << one.path;
    char name[64] = "";
    EXPECT_EQ(cfgWanConnName(one.path.c_str(), name), one.wan.empty() ? -1 : 0) << one.path;
    EXPECT_EQ(name, one.wan);
  }
  int32_t one[1];
  EXPECT_EQ(cfgPathIndexes(nullptr, nullptr, 0), -1);
  EXPECT_EQ(cfgPathIndexes(nullptr, one), 0);
  EXPECT_EQ(cfgPathIndexes("A.1", nullptr, 1), 0);
}

TEST(ConfigPath, Cuts) {
  const struct {
    const char *path, *name;
    int flag;
    const char *left; /* NULL: refused */
  } cases[] = {
      {"A.WANPPPConnection.1.Name", "WANPPP", 0, "A.WANPPP."},
      {"A.WANPPPConnection.1.Name", "WANPPP", 1, "A.WANPPPConnection."},
      {"A.LAN.1.LAN.2", "LAN", 0, "A.LAN."},
      {"A.LAN", "LAN", 0, "A.LAN."},
      {"A.LAN12", "LAN", 1, "A.LAN12."},
      {"A.LAN", "WAN", 1, nullptr},
      {"A.012345678901234567890123456789", "89012345678901234567890", 1, nullptr},
      {"A.0123456789012345678901234567", "0", 1, "A.0123456789012345678901234567."},
  };
  for (const auto &one : cases) {
    char path[32];
    snprintf(path, sizeof path, "%.31s", one.path);
    std::string before = path;
    EXPECT_EQ(cfgPathCut(path, one.name, one.flag), one.left == nullptr ? -1 : 0) << one.path;
    EXPECT_EQ(path, one.left == nullptr ? before : one.left);
  }
}

TEST(ConfigPath, AddressesAndHexDigits) {
  for (const char *text : {"255.255.255.255", "0.0.0.0"}) EXPECT_EQ(cfgIsIpv4Addr(text), 1) << text;
  for (const char *text : {"4294967297.1.1.1", "300.1.1.1", "1.2.3", "-1.2.3.4", "1.2.3.-4",
                           "a.b.c.d", "", "1.2.3.256"})
    EXPECT_EQ(cfgIsIpv4Addr(text), 0) << text;
  EXPECT_EQ(cfgIsIpv4Addr(nullptr), 0);

  char hex[9] = "as it is";
  EXPECT_EQ(cfgHexEncode("", hex), 0);
  EXPECT_STREQ(hex, "as it is");
  EXPECT_EQ(cfgHexEncode("12345", hex), -1);
  EXPECT_STREQ(hex, "as it is");
  EXPECT_EQ(cfgHexEncode("\xff\x01 a", hex), 0);
  EXPECT_STREQ(hex, "ff012061");
}

/* Whoever reads the logs looks for the library by its main file. */
TEST(ConfigPath, RecordsNameTheLibrary) {
  void (*const cases[])() = {
      [] { cfgIsIpv4Addr("1.2.3.4"); },
      [] {
        char name[4];
        cfgWanConnName("A.1", name);
      },
      [] {
        char path[] = "A";
        cfgPathCut(path, "A", 0);
      },
      [] {
        char hex[2];
        cfgHexEncode("1", hex);
      },
  };
  for (void (*one)() : cases)
    EXPECT_THAT(LogOf(1, one), testing::HasSubstr("  @P:./../common/include/ams_config_api,L:"));
}

}  // namespace
