// The time of records, and files that are closed. The other small utilities have their cases in
// tests/data/ops/utilities.txt.
#include "ams_config_util.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>

#include "ams_config_path.h"
#include "support.h"

namespace {

TEST(Records, FollowTheZone) {
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

TEST(DoubleCloseTest, ClosesBothAndPassesNullOver) {
  FILE *first = fopen("/dev/null", "r"), *second = fopen("/dev/null", "r");
  ASSERT_TRUE(first != nullptr && second != nullptr);
  int descriptors[] = {fileno(first), fileno(second)};
  cfgDoubleClose(first, nullptr);
  cfgDoubleClose(nullptr, second);
  for (int descriptor : descriptors) EXPECT_EQ(lseek(descriptor, 0, SEEK_CUR), -1);
}

TEST(ConfigPath, NoText) {
  int32_t one[1];
  EXPECT_EQ(cfgPathIndexes(nullptr, nullptr, 0), -1);
  EXPECT_EQ(cfgPathIndexes(nullptr, one) + cfgPathIndexes("A.1", nullptr, 1), 0);
  EXPECT_EQ(cfgIsIpv4Addr(nullptr), 0);
}

}  // namespace
