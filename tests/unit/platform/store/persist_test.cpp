// What nvram keeps of the tree: its form, laying it over a new tree, and the staging sources.
#include <unistd.h>

#include <map>

#include "nvram.h"
#include "store_desk.h"
#include "store_support.h"

namespace {

using KeptMap = std::map<std::string, std::string>;

/* What nvram keeps below Services, without that. */
KeptMap KeptBelowServices() {
  KeptMap kept;
  auto visit = [](const char *key, const char *value, void *context) {
    (*static_cast<KeptMap *>(context))[key + strlen(IGD "Services.")] = value;
    return 0;
  };
  EXPECT_EQ(nvram_walk(NVTYPE_STAGING, IGD "Services.", visit, &kept), 0);
  return kept;
}

TEST_F(Store, ConfigurationIsKeptByTheCallItself) {
  char url[AMS_PATH_SIZE];
  EXPECT_EQ(ams_del_obj(root, IGD "Services.List.9"), 0);
  EXPECT_EQ(ams_add_obj(root, IGD "Services.List", url), 0);
  EXPECT_EQ(ams_add_obj(root, IGD "Services.List.11.Sub.", url), 0);
  EXPECT_EQ(ams_add_obj(root, IGD "Services.List", url), 0);
  EXPECT_EQ(ams_set_node_value(root, IGD "Services.List.12.Name", "goes with its row"), 0);
  EXPECT_EQ(ams_del_obj(root, IGD "Services.List.12."), 0);
  ASSERT_EQ(ams_write_begin(), 0);
  EXPECT_EQ(ams_set_node_value(root, IGD "Services.List.11.Sub.2.Leaf", "first"), 0);
  EXPECT_EQ(ams_set_node_value(root, IGD "Services.List.11.Sub.2.Leaf.", "kept"), 0);
  EXPECT_EQ(ams_add_obj(root, IGD "Services.List", url), 0); /* and gone again, in one write */
  EXPECT_EQ(ams_set_node_value(root, IGD "Services.List.13.Name", "x"), 0);
  EXPECT_EQ(ams_del_obj(root, IGD "Services.List.13"), 0);
  EXPECT_EQ(ams_set_node_value(root, IGD "Services.List.2.Port", "read-only"), -1);
  EXPECT_EQ(KeptBelowServices().count("List.11.Sub.2.Leaf"), 0u) << "before the span's end";
  ASSERT_EQ(ams_write_end(), 0);
  EXPECT_EQ(ams_set_node_value(root, IGD "Services.List.10.Name", "ten"), 0); /* as in the file */
  EXPECT_EQ(ams_sset_node_value(root, IGD "Services.List.10.Port", "8080"), 0);
  EXPECT_EQ(ams_mxml_fset_leaf(IGD "Services.List.11.Name", "status"), 0);
  const KeptMap kept = {{"List.", "13"},         {"List.9.", "0"},
                        {"List.11.", "1"},       {"List.11.Sub.2.", "1"},
                        {"List.10.Name", "ten"}, {"List.11.Sub.2.Leaf", "kept"}};
  EXPECT_EQ(KeptBelowServices(), kept);

  const std::string before = Text(IGD "Services");
  ASSERT_EQ(ams_write_begin(), 0);
  EXPECT_EQ(ams_del_obj(root, IGD "Services.List.11"), 0);
  EXPECT_EQ(ams_set_node_value(root, IGD "Services.List.10.Name", "given up"), 0);
  EXPECT_EQ(ams_write_cancel(), 0);
  EXPECT_EQ(ams_write_cancel(), -1) << "none is open";
  EXPECT_EQ(KeptBelowServices(), kept) << "a span that is given up keeps nothing";
  EXPECT_EQ(Text(IGD "Services"), before);

  /* what does not fit is passed over, a highest number alone is not wrong */
  for (const char *junk :
       {IGD "None", IGD "None.", IGD "Services.List.77.Name", IGD "Services.ListNumberOfEntries",
        IGD "Services.Bare.1.", IGD "Services.List.10.SubNumberOfEntries"})
    nvram_set(junk, "1", NVTYPE_STAGING);
  nvram_set(IGD "Services.List.2.Port", "23", NVTYPE_STAGING); /* read-only */
  nvram_set(IGD "Services.List.2.", "x", NVTYPE_STAGING);
  for (const char *bad : {"", "1,/2", "x/2", "1/2/3", "/", "0/1", "1,2", "7", "x", "1/1"}) {
    nvram_set(IGD "Services.Bare.", bad, NVTYPE_STAGING);
    LayKept();
    EXPECT_EQ(Text(IGD "Services"), before) << bad;
  }
  ams_add_obj(root, IGD "Services.List", url);
  EXPECT_STREQ(url, IGD "Services.List.14");
  EXPECT_EQ(WithAttributes(IGD "ALL_CHANGED_DATA", 1),
            "Services.ListNumberOfEntries=4 type=\"unsignedInt\" writable=\"0\" notify=\"1\"");
  EXPECT_EQ(ams_del_obj(root, IGD "Services.List.11"), 0);
  for (const auto &one : KeptBelowServices())
    EXPECT_NE(one.first.find("List.11."), 0u) << one.first;
  EXPECT_EQ(update_from_nvram(root, 7), -1);
}

TEST_F(Store, AnArrayMayHaveThousandsOfRows) {
  constexpr int kRows = 7300;
  char url[AMS_PATH_SIZE];
  ASSERT_EQ(ams_write_begin(), 0);
  for (int row = 0; row < kRows; ++row) ASSERT_EQ(ams_add_obj(root, IGD "Services.List", url), 0);
  ASSERT_EQ(ams_write_end(), 0);
  ASSERT_EQ(ams_add_obj(root, IGD "Services.List", url), 0);
  ASSERT_EQ(ams_set_node_value(root, (std::string(url) + ".Name").c_str(), "the last"), 0);
  ASSERT_EQ(ams_del_obj(root, IGD "Services.List.5000"), 0);
  size_t longest = 0;
  for (const auto &one : KeptBelowServices()) longest = std::max(longest, one.second.size());
  EXPECT_LT(longest, 9u) << "no value grows with the rows";
  LayKept();
  EXPECT_EQ(Leaf(IGD "Services.ListNumberOfEntries"), std::to_string(kRows + 3));
  EXPECT_EQ(Leaf(IGD "Services.List.7311.Name"), "the last");
  EXPECT_EQ(Leaf(IGD "Services.List.5000.Name"), "(none)");
}

/* As people write them into staging files. */
TEST_F(Store, AListOfInstancesIsTheBaseForWhatChangesLater) {
  char url[AMS_PATH_SIZE];
  nvram_set(IGD "Services.List.", "2,30,4/40", NVTYPE_STAGING);
  LayKept();
  EXPECT_EQ(Indexes(IGD "Services.List"), "2,4,30");
  EXPECT_EQ(ams_add_obj(root, IGD "Services.List", url), 0);
  EXPECT_STREQ(url, IGD "Services.List.41");
  EXPECT_EQ(ams_add_obj(root, IGD "Services.List", url), 0);
  EXPECT_EQ(ams_del_obj(root, url), 0);
  EXPECT_EQ(ams_del_obj(root, IGD "Services.List.30"), 0);
  LayKept();
  EXPECT_EQ(Indexes(IGD "Services.List"), "2,4,41");
  EXPECT_EQ(ams_add_obj(root, IGD "Services.List", url), 0);
  EXPECT_STREQ(url, IGD "Services.List.43") << "numbers are never used again";
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
