// The client of the version manager before it asks anything.
#include "version_manager.h"

#include "support.h"

namespace {

TEST(VersionManager, IsNotAskedWithoutANameOrForALongOne) {
  VersionWord result = "";
  EXPECT_EQ(upgradeVer(nullptr, &result), -1);
  EXPECT_EQ(upgradeVer("i", nullptr), -1);
  EXPECT_STREQ(result, "");
  EXPECT_EQ(upgradeVer(std::string(128, 'n').c_str(), &result), -1);
  EXPECT_STREQ(result, "other_failed");
}

}  // namespace
