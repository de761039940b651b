// What nvram keeps of the tree: its form, laying it over a new tree, and the staging sources.
#include "store_support.h"

namespace {

TEST_F(Store, ScriptsOfTheDesk) { RunScripts(data_folder + "/desk", 3); }

TEST_F(Store, AnArrayMayHaveThousandsOfRows) {
  constexpr int kRows = 7300;
  char url[AMS_PATH_SIZE];
  ASSERT_EQ(ams_write_begin(), 0);
  for (int row = 0; row < kRows; ++row) ASSERT_EQ(ams_add_obj(root, IGD "Services.List", url), 0);
  ASSERT_EQ(ams_write_end(), 0);
  ASSERT_EQ(ams_add_obj(root, IGD "Services.List", url), 0);
  ASSERT_EQ(ams_set_node_value(root, (std::string(url) + ".Name").c_str(), "the last"), 0);
  ASSERT_EQ(ams_del_obj(root, IGD "Services.List.5000"), 0);
  EXPECT_EQ(Kept(IGD "Services.List."), "7311") << "no value grows with the rows";
  LayKept();
  EXPECT_EQ(Leaf(IGD "Services.ListNumberOfEntries"), std::to_string(kRows + 3));
  EXPECT_EQ(Leaf(IGD "Services.List.7311.Name"), "the last");
  EXPECT_EQ(Leaf(IGD "Services.List.5000.Name"), "(none)");
}

}  // namespace
