// What a board's print library promises beyond records: the parent of a node's path, and a back
// trace.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <utility>

#include "ams_print.h"

TEST(ParentNode, IsThePathBeforeTheLastName) {
  const std::pair<const char *, const char *> cases[] = {
      {"A.B.2", "A.B"}, {"A.B.", "A"}, {"A", ""}, {"A.", ""}, {".", ""}, {"", ""}, {nullptr, ""},
  };
  for (const auto &[path, parent] : cases) {
    char got[8] = "x";
    EXPECT_EQ(COMMON_GetParentNode(path, got), *parent == '\0' ? -1 : 0);
    EXPECT_STREQ(got, parent) << (path == nullptr ? "(null)" : path);
  }
  char small[4];
  EXPECT_EQ(COMMON_GetParentNode("A.B.2", small), 0);
  EXPECT_EQ(COMMON_GetParentNode("A.BC.2", small), -1);
  EXPECT_STREQ(small, "");
}

TEST(UsrDump, SaysWhereTheProcessDied) {
  const auto die = [] {
    AMS_UsrDumpInit();
    abort();
  };
  EXPECT_EXIT(die(), testing::KilledBySignal(SIGABRT),
              "(^|\n)back trace:\n.*contract_print.*0x[0-9a-f]+");
}
