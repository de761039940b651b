// What nvram keeps of the tree: its form, laying it over a new tree, and the staging sources.
#include <unistd.h>

#include "nvram.h"
#include "store_desk.h"
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

TEST_F(Store, WhatIsKeptPassesTheCheckOfClients) {
  const std::string model =
      "<InternetGatewayDevice type=\"object\"><Port type=\"int\" check=\"digits\">1</Port>"
      "<Name type=\"string\">n</Name></InternetGatewayDevice>";
  ams_desk_check_kept(
      [](const std::string &, const std::string &form, std::string_view value, std::string *why) {
        *why = "it has not the form " + form;
        return value.find_first_not_of("0123456789") == value.npos ? 0 : -1;
      });
  const struct { const char *kept, *port; } kCases[] = {{"8080", "8080"}, {"80; id", "1"}};
  for (const auto &one : kCases) {
    nvram_set(IGD "Port", one.kept, NVTYPE_STAGING);
    nvram_set(IGD "Name", one.kept, NVTYPE_STAGING);
    root = Load(model);
    testing::internal::CaptureStderr();
    EXPECT_EQ(update_from_nvram(root, NVTYPE_STAGING), 0);
    std::string told = testing::internal::GetCapturedStderr();
    EXPECT_EQ(Leaf(IGD "Port"), one.port);
    EXPECT_EQ(Leaf(IGD "Name"), one.kept) << "names no form";
    EXPECT_EQ(told.find("Port passed over: it has not the form digits") != told.npos,
              strcmp(one.kept, one.port) != 0)
        << told;
  }
  ams_desk_check_kept(nullptr);
}

TEST_F(Store, TheBackupReplacesWhatIsKept) {
  const char kFile[] = "/var/config/backup.conf";
  nvram_set(IGD "DeviceInfo.Zeta", "old", NVTYPE_STAGING);
  nvram_set("Tr069strap", "stays", NVTYPE_STAGING);
  for (const char *nothing : {"", "# only\n\n#remarks\n", "no equals sign\n"}) {
    std::ofstream(kFile) << nothing;
    testing::internal::CaptureStdout();
    EXPECT_EQ(ams_mxml_load_to_staging(3), -1) << nothing;
    fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "staging source 3 (/var/config/backup.conf) has nothing\n");
    EXPECT_EQ(Kept(IGD "DeviceInfo.Zeta"), "old") << nothing;
  }
  std::ofstream(kFile) << IGD "DeviceInfo.Alpha=a=b \r\nbad line\n=x\n" IGD "Services.List.=2,3/3";
  testing::internal::CaptureStderr();
  EXPECT_EQ(ams_mxml_load_to_staging(3), 0);
  std::string told = testing::internal::GetCapturedStderr();
  EXPECT_NE(told.find("backup.conf:2 "), std::string::npos) << told;
  EXPECT_NE(told.find("backup.conf:3 "), std::string::npos) << told;
  EXPECT_EQ(Kept(IGD "DeviceInfo.Zeta"), "(none)");
  EXPECT_EQ(Kept("Tr069strap"), "stays");
  EXPECT_EQ(update_from_nvram(root, NVTYPE_STAGING), 0);
  EXPECT_EQ(Leaf(IGD "DeviceInfo.Alpha"), "a=b ");
  EXPECT_EQ(Indexes(IGD "Services.List"), "2,3");
  unlink(kFile);
  EXPECT_EQ(ams_mxml_load_to_staging(3), -1);
  EXPECT_EQ(ams_mxml_load_to_staging(1), -1) << "there is no such source";
}

}  // namespace
