// The data-model store and its files: what a data-model file is refused for, saving, and parameters
// kept in the settings.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <vector>

#include "nvram.h"
#include "store_desk.h"
#include "store_support.h"

namespace {

TEST_F(Store, WhatAFileIsRefusedFor) {
  const std::string name65(65, 'n'), value(AMS_VALUE_MAX + 1, 'v');
  const std::string tail = "</InternetGatewayDevice>";
  std::string deep, end, deepest = "<A type=\"object\">";
  for (int doubled = 0; doubled < 17; ++doubled) deepest += deepest;
  for (int level = 0; level < 1 << 17; ++level) deepest += "</A>";
  std::string multiplied, multiplied_end;
  for (int level = 0; level < 30; ++level) {
    multiplied += "<A type=\"array\"><Template><L type=\"int\">1</L>";
    multiplied_end += "</Template><Instance id=\"1\"/><Instance id=\"2\"/></A>";
  }
  for (int level = 0; level < 30; ++level) {
    deep += "<Nameof9b type=\"object\">";
    end = "</Nameof9b>" + end;
  }
  struct Case {
    const char *what;
    std::string xml;
    int line;
    const char *says;
  };
  auto in = [&](const std::string &body) {
    return "<InternetGatewayDevice type=\"object\">\n" + body + tail;
  };
  auto array = [&](const std::string &body) {
    return in("<A type=\"array\"><Template><L type=\"int\">1</L></Template>\n" + body + "</A>");
  };
  const Case kCases[] = {
      {"no XML", "hello", 1, ""},
      {"not closed", "<InternetGatewayDevice type=\"object\">\n\n<A>", 3, ""},
      {"another root", "<Device type=\"object\"/>", 1, "InternetGatewayDevice"},
      {"two roots", "<InternetGatewayDevice type=\"object\"/><B/>", 1, "only root"},
      {"no type", in("\n<L/>"), 3, "needs a type"},
      {"unknown type", in("<L type=\"float\"/>"), 2, "float"},
      {"bad name", in("<L.x type=\"int\"/>"), 2, "a name has"},
      {"name too long", in("<" + name65 + " type=\"int\"/>"), 2, "64 bytes"},
      {"path too long", in(deep + end), 2, "255 bytes"},
      {"deeper than the stack", in(deepest), 2, "255 bytes"},
      {"another type in an instance", array("<Instance id=\"3\" type=\"array\"/>"), 3, "object"},
      {"value too long", in("<L type=\"string\">" + value + "</L>"), 2, "32768"},
      {"separator in a value", in("<L type=\"string\">a&#3;</L>"), 2, "0x03"},
      {"twice", in("<L type=\"int\"/>\n<M type=\"int\"/><L type=\"object\"/>"), 3, "twice"},
      {"elements in a leaf", in("<L type=\"int\"><M/></L>"), 2, "no elements"},
      {"bad id", array("<Instance id=\"1x\"/>"), 3, "id"},
      {"id twice", array("<Instance id=\"3\"/>\n<Instance id=\"3\"/>"), 4, "twice"},
      {"a leaf in an array", array("<L type=\"int\"/>"), 3, "objects only"},
      {"an object beside the rows of a row's array",
       in("<A type=\"array\"><Template>\n<B type=\"array\"><O "
          "type=\"object\"/></B></Template></A>"),
       3, "rows only"},
      {"an object that an instance puts beside rows",
       in("<A type=\"array\"><Template><B type=\"array\"/></Template>\n"
          "<Instance id=\"1\"><B><O type=\"object\"/></B></Instance></A>"),
       3, "Template"},
      {"not of the template", array("<Instance id=\"3\"><M type=\"int\"/></Instance>"), 3,
       "Template"},
      {"another type", array("<Instance id=\"3\"><L type=\"array\"/></Instance>"), 3,
       "another type"},
      {"two templates", array("<Template/>"), 2, "one Template"},
      {"an Instance that is in no array", in("\n<Instance type=\"object\"/>"), 3, "array only"},
      {"a Template in an instance", array("<Instance id=\"3\"><Template/></Instance>"), 3,
       "have it"},
      {"an Instance in an Instance", array("<Instance id=\"3\"><Instance id=\"3\"/></Instance>"), 3,
       "have it"},
      {"rows that multiply", in(multiplied + multiplied_end), 2, "larger than the store"},
      {"no template", in("<A type=\"array\"><Instance id=\"3\"/></A>"), 2, "no Template"},
  };
  std::string before = Text("InternetGatewayDevice");
  for (const Case &c : kCases) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(Load(c.xml), nullptr) << c.what;
    std::string told = testing::internal::GetCapturedStderr();
    std::string place =
        "store_test." + std::to_string(getpid()) + ":" + std::to_string(c.line) + ": ";
    EXPECT_NE(told.find(place), std::string::npos) << c.what << ": " << told;
    EXPECT_NE(told.find(c.says), std::string::npos) << c.what << ": " << told;
    EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), 1) << c.what << ": " << told;
    EXPECT_EQ(Text("InternetGatewayDevice"), before) << c.what;
  }
  ASSERT_EQ(ams_write_begin(), 0);
  EXPECT_EQ(Load(kCases[std::size(kCases) - 1].xml), nullptr);
  EXPECT_EQ(ams_write_end(), -1) << "half of the file may be written";
  EXPECT_EQ(Text("InternetGatewayDevice"), before);
}

/* Beside the rows, behind them, and none of them; also after a save. */
TEST_F(Store, ObjectsStandBesideTheRowsOfAnArray) {
  const std::string file = testing::TempDir() + "beside.xml";
  char url[AMS_PATH_SIZE];
  ASSERT_NE(Load("<InternetGatewayDevice type=\"object\"><A type=\"array\"><Template>"
                 "<L type=\"int\">1</L></Template><P type=\"object\"><M type=\"string\">m</M></P>"
                 "<Instance id=\"2\"/><O type=\"object\"/></A></InternetGatewayDevice>"),
            nullptr);
  for (const char *rows : {"2", "2,3", "2,3,4"}) {
    std::string text, children;
    for (const char *row = rows; *row != '\0'; row += row[1] == '\0' ? 1 : 2) {
      text += std::string(1, *row) + ".L=1|";
      children += std::string(1, *row) + " ";
    }
    EXPECT_EQ(Indexes(IGD "A"), rows);
    EXPECT_EQ(Children(IGD "A"), children + "P O ");
    EXPECT_EQ(Text(IGD "A"), text + "P.M=m");
    EXPECT_EQ(ams_del_obj(root, IGD "A.P"), -1);
    ASSERT_EQ(ams_add_obj(root, IGD "A", url), 0);
    ASSERT_EQ(ams_save_xml(root, file.c_str()), 0);
    ASSERT_NE(LoadFile(file), nullptr);
  }
  for (const char *row : {"A.2", "A.3", "A.4", "A.5"})
    EXPECT_EQ(ams_del_obj(root, (std::string(IGD) + row).c_str()), 0) << row;
  EXPECT_EQ(Indexes(IGD "A"), "");
  EXPECT_EQ(Children(IGD "A"), "P O ");
  unlink(file.c_str());
}

/* Everything that can be asked of the tree, as one text. */
std::string Dump() {
  std::string all;
  std::vector<std::string> nodes = {"InternetGatewayDevice"};
  while (!nodes.empty()) {
    std::string node = nodes.back();
    nodes.pop_back();
    all += node + " " + Attribute(node.c_str(), "type") + " " + Attribute(node.c_str(), "op") +
           " " + Attribute(node.c_str(), "notify") + " " + Children(node) + "\n";
    char url[AMS_PATH_SIZE];
    for (int rc = ams_get_first_child(root, node.c_str(), url); rc == 0;
         rc = ams_get_next_child(root, url, url))
      nodes.push_back(url);
  }
  return all + WithAttributes("InternetGatewayDevice", 0);
}

TEST_F(Store, ASavedFileLoadsAsTheSameTree) {
  char url[AMS_PATH_SIZE];
  ams_mxml_fset_leaf(IGD "DeviceInfo.Alpha", " <&>\"' \r\n\t\x01 \xff\xc3\xa4 ");
  ams_mxml_fset_leaf(IGD "DeviceInfo.Blank", "\r");
  ams_mxml_fset_leaf(IGD "DeviceInfo.Zeta", " \n ");
  ams_set_attr(root, IGD "Services.List.9.Name", "0"); /* the template has 1 */
  ams_set_attr(root, IGD "Services.List", "3");
  ams_add_obj(root, IGD "Services.List", url);
  ams_add_obj(root, IGD "Services.List.11.Sub", url);
  ams_del_obj(root, IGD "Services.List.11.Sub.1");
  ams_add_obj(root, IGD "Services.List", url);
  ams_del_obj(root, url);
  ams_mxml_fset_leaf(IGD "Services.List.11.Name", "");
  const std::string before = Dump(), file = testing::TempDir() + "saved.xml";
  std::vector<std::string> written;
  for (int margin : {0, 20, -1}) {
    if (margin >= 0) mxmlSetWrapMargin(margin);
    ASSERT_EQ((margin >= 0 ? ams_save_xml : ams_align_xml)(root, file.c_str()), 0);
    std::stringstream content;
    content << std::ifstream(file).rdbuf();
    written.push_back(content.str());
    ASSERT_NE(Load(kModel), nullptr);
    ASSERT_NE(LoadFile(file), nullptr) << content.str();
    EXPECT_EQ(Dump(), before) << margin << content.str();
    EXPECT_EQ(ams_add_obj(root, IGD "Services.List", url), 0);
    EXPECT_STREQ(url, IGD "Services.List.13") << "the highest number ever used is kept";
    EXPECT_EQ(Text(url), "Name=new|Port=80|SubNumberOfEntries=1|Sub.1.Leaf=default row");
    ASSERT_NE(LoadFile(file), nullptr);
  }
  EXPECT_NE(written[0], written[1]) << "the margin breaks start tags";
  EXPECT_LT(written[2].size(), written[0].size());
  unlink(file.c_str());
  EXPECT_EQ(ams_save_xml(root, "/nowhere/saved.xml"), -1);
}

/* ---- kept parameters ---- */

using KeptMap = std::map<std::string, std::string>;

/* What nvram keeps below Services, without that. */
KeptMap Kept() {
  KeptMap kept;
  auto visit = [](const char *key, const char *value, void *context) {
    (*static_cast<KeptMap *>(context))[key + strlen(IGD "Services.")] = value;
    return 0;
  };
  EXPECT_EQ(nvram_walk(NVTYPE_STAGING, IGD "Services.", visit, &kept), 0);
  return kept;
}

void LayKept() {
  root = Load(kModel);
  EXPECT_EQ(update_from_nvram(root, NVTYPE_STAGING), 0);
}

TEST_F(Store, ConfigurationIsKeptByTheCallItself) {
  char url[AMS_PATH_SIZE];
  ASSERT_EQ(nvram_clean(NVTYPE_STAGING), 0);
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
  EXPECT_EQ(Kept().count("List.11.Sub.2.Leaf"), 0u) << "before the span's end";
  ASSERT_EQ(ams_write_end(), 0);
  EXPECT_EQ(ams_set_node_value(root, IGD "Services.List.10.Name", "ten"), 0); /* as in the file */
  EXPECT_EQ(ams_sset_node_value(root, IGD "Services.List.10.Port", "8080"), 0);
  EXPECT_EQ(ams_mxml_fset_leaf(IGD "Services.List.11.Name", "status"), 0);
  const KeptMap kept = {{"List.", "13"},         {"List.9.", "0"},
                        {"List.11.", "1"},       {"List.11.Sub.2.", "1"},
                        {"List.10.Name", "ten"}, {"List.11.Sub.2.Leaf", "kept"}};
  EXPECT_EQ(Kept(), kept);

  const std::string before = Text(IGD "Services");
  ASSERT_EQ(ams_write_begin(), 0);
  EXPECT_EQ(ams_del_obj(root, IGD "Services.List.11"), 0);
  EXPECT_EQ(ams_set_node_value(root, IGD "Services.List.10.Name", "given up"), 0);
  EXPECT_EQ(ams_write_cancel(), 0);
  EXPECT_EQ(ams_write_cancel(), -1) << "none is open";
  EXPECT_EQ(Kept(), kept) << "a span that is given up keeps nothing";
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
  for (const auto &one : Kept()) EXPECT_NE(one.first.find("List.11."), 0u) << one.first;
  EXPECT_EQ(update_from_nvram(root, 7), -1);
  ASSERT_EQ(nvram_clean(NVTYPE_STAGING), 0);
}

TEST_F(Store, StatusIsThereAgainWhenTheServerAloneStartsAnew) {
  char url[AMS_PATH_SIZE];
  ASSERT_EQ(nvram_clean(NVTYPE_STAGING), 0);
  EXPECT_EQ(ams_add_obj(root, IGD "Services.List", url), 0);
  EXPECT_EQ(ams_set_node_value(root, IGD "DeviceInfo.Alpha", "kept"), 0);
  EXPECT_EQ(ams_set_node_value(root, IGD "DeviceInfo.Zeta", "kept"), 0);
  const struct {
    const char *leaf, *status;
  } kCases[] = {{"DeviceInfo.UpTime", "99"}, /* read-only */
                {"DeviceInfo.Alpha", "over what is kept"},
                {"DeviceInfo.Inner.Deep", "-5"},
                {"Services.List.11.Name", "in a row that comes back"},
                {"Services.List.10.Sub.1.Leaf", "in one of the file"}};
  for (const auto &one : kCases)
    EXPECT_EQ(ams_mxml_fset_leaf((std::string(IGD) + one.leaf).c_str(), one.status), 0);
  EXPECT_EQ(ams_mxml_fset_leaf(IGD "Summary", "status, then"), 0);
  EXPECT_EQ(ams_set_node_value(root, IGD "Summary", "status, then"), 0); /* configuration */
  EXPECT_EQ(ams_mxml_fset_leaf(IGD "DeviceInfo.Zeta", "status"), 0);
  EXPECT_EQ(ams_set_node_value(root, IGD "DeviceInfo.Zeta", "set since"), 0);
  for (int start = 0; start < 2; ++start) {
    LayKept();
    for (const auto &one : kCases) EXPECT_EQ(Leaf(std::string(IGD) + one.leaf), one.status);
    EXPECT_EQ(Leaf(IGD "DeviceInfo.Zeta"), "set since");
    EXPECT_EQ(Leaf(IGD "Summary"), "status, then");
  }
  EXPECT_EQ(WithAttributes(IGD "ALL_CHANGED_DATA", 1).find("UpTime"), std::string::npos);
  ASSERT_EQ(nvram_clean(NVTYPE_STAGING), 0);
  LayKept();
  EXPECT_EQ(Leaf(IGD "Summary"), "sum") << "it was configuration in the end";
  EXPECT_EQ(Leaf(IGD "DeviceInfo.Zeta"), "last letter, first here");
  EXPECT_EQ(Leaf(IGD "Services.ListNumberOfEntries"), "3") << "what is counted is no status";
  EXPECT_EQ(Indexes(IGD "Services.List"), "2,9,10");
}

/* Sets every kind of leaf; the server that starts anew tells what is a status. */
TEST_F(Store, WhatIsUndoneIsAsItWas) {
  ASSERT_EQ(nvram_clean(NVTYPE_STAGING), 0);
  EXPECT_EQ(ams_set_node_value(root, IGD "Services.List.9.Name", "kept"), 0);
  EXPECT_EQ(ams_set_node_value(root, IGD "Services.List.10.Name", "kept"), 0);
  EXPECT_EQ(ams_mxml_fset_leaf(IGD "Services.List.10.Name", "status over it"), 0);
  EXPECT_EQ(ams_mxml_fset_leaf(IGD "Services.List.10.Port", "1"), 0);
  KeptMap kept = Kept();
  AmsUndo *undo = nullptr;
  for (const char *leaf : {"9.Name", "9.Port", "10.Name", "10.Port", "2.Port", "9.Name"}) {
    const std::string path = std::string(IGD "Services.List.") + leaf;
    EXPECT_EQ(ams_undo_note(root, &undo, path.c_str()), 0) << leaf;
    if (ams_set_node_value(root, path.c_str(), "1") != 0) { /* the same for a status, read-only */
      EXPECT_EQ(ams_sset_node_value(root, path.c_str(), "1"), 0) << leaf;
    }
  }
  for (const char *no :
       {IGD "Services.List.9", IGD "Services.List.8.Name", "InternetGatewayDevice"})
    EXPECT_EQ(ams_undo_note(root, &undo, no), -1) << no;
  EXPECT_EQ(ams_undo_note(root, &undo, IGD "Services.List.9.Sub.1.Leaf"), 0);
  EXPECT_EQ(ams_del_obj(root, IGD "Services.List.9.Sub.1"), 0); /* goes, and stays so */
  EXPECT_EQ(ams_undo_end(undo, 1), 0);
  kept["List.9.Sub."] = "1";
  kept["List.9.Sub.1."] = "0";
  EXPECT_EQ(Kept(), kept);
  std::string model = kModel;
  for (const char *value : {">22<", ">80<"})
    model.replace(model.find(value), 4, ">66<"); /* what no status lies over is the new file's */
  root = Load(model);
  EXPECT_EQ(update_from_nvram(root, NVTYPE_STAGING), 0);
  EXPECT_EQ(Text(IGD "Services"),
            "ListNumberOfEntries=3|List.2.Name=new|List.2.Port=66|List.2.SubNumberOfEntries=1|"
            "List.2.Sub.4.Leaf=x|List.9.Name=kept|List.9.Port=66|List.9.SubNumberOfEntries=0|"
            "List.10.Name=status over it|List.10.Port=1|List.10.SubNumberOfEntries=1|"
            "List.10.Sub.1.Leaf=default row");
  ASSERT_EQ(nvram_clean(NVTYPE_STAGING), 0);
}

TEST_F(Store, AnArrayMayHaveThousandsOfRows) {
  constexpr int kRows = 7300;
  char url[AMS_PATH_SIZE];
  ASSERT_EQ(nvram_clean(NVTYPE_STAGING), 0);
  ASSERT_EQ(ams_write_begin(), 0);
  for (int row = 0; row < kRows; ++row) ASSERT_EQ(ams_add_obj(root, IGD "Services.List", url), 0);
  ASSERT_EQ(ams_write_end(), 0);
  ASSERT_EQ(ams_add_obj(root, IGD "Services.List", url), 0);
  ASSERT_EQ(ams_set_node_value(root, (std::string(url) + ".Name").c_str(), "the last"), 0);
  ASSERT_EQ(ams_del_obj(root, IGD "Services.List.5000"), 0);
  size_t longest = 0;
  for (const auto &one : Kept()) longest = std::max(longest, one.second.size());
  EXPECT_LT(longest, 9u) << "no value grows with the rows";
  LayKept();
  EXPECT_EQ(Leaf(IGD "Services.ListNumberOfEntries"), std::to_string(kRows + 3));
  EXPECT_EQ(Leaf(IGD "Services.List.7311.Name"), "the last");
  EXPECT_EQ(Leaf(IGD "Services.List.5000.Name"), "(none)");
  ASSERT_EQ(nvram_clean(NVTYPE_STAGING), 0);
}

/* As people write them into staging files. */
TEST_F(Store, AListOfInstancesIsTheBaseForWhatChangesLater) {
  char url[AMS_PATH_SIZE];
  ASSERT_EQ(nvram_clean(NVTYPE_STAGING), 0);
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
  ASSERT_EQ(nvram_clean(NVTYPE_STAGING), 0);
}

TEST_F(Store, WhatIsKeptPassesTheCheckOfClients) {
  ASSERT_EQ(nvram_clean(NVTYPE_STAGING), 0);
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
  ASSERT_EQ(nvram_clean(NVTYPE_STAGING), 0);
}

TEST_F(Store, TheBackupReplacesWhatIsKept) {
  const char kFile[] = "/var/config/backup.conf";
  auto kept = [](const char *key) {
    std::unique_ptr<char, void (*)(void *)> value(nvram_get(key, NVTYPE_STAGING), free);
    return std::string(value == nullptr ? "(none)" : value.get());
  };
  nvram_set(IGD "DeviceInfo.Zeta", "old", NVTYPE_STAGING);
  nvram_set("Tr069strap", "stays", NVTYPE_STAGING);
  for (const char *nothing : {"", "# only\n\n#remarks\n", "no equals sign\n"}) {
    std::ofstream(kFile) << nothing;
    testing::internal::CaptureStdout();
    EXPECT_EQ(ams_mxml_load_to_staging(3), -1) << nothing;
    fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "staging source 3 (/var/config/backup.conf) has nothing\n");
    EXPECT_EQ(kept(IGD "DeviceInfo.Zeta"), "old") << nothing;
  }
  std::ofstream(kFile) << IGD "DeviceInfo.Alpha=a=b \r\nbad line\n=x\n" IGD "Services.List.=2,3/3";
  testing::internal::CaptureStderr();
  EXPECT_EQ(ams_mxml_load_to_staging(3), 0);
  std::string told = testing::internal::GetCapturedStderr();
  EXPECT_NE(told.find("backup.conf:2 "), std::string::npos) << told;
  EXPECT_NE(told.find("backup.conf:3 "), std::string::npos) << told;
  EXPECT_EQ(kept(IGD "DeviceInfo.Zeta"), "(none)");
  EXPECT_EQ(kept("Tr069strap"), "stays");
  EXPECT_EQ(update_from_nvram(root, NVTYPE_STAGING), 0);
  EXPECT_EQ(Leaf(IGD "DeviceInfo.Alpha"), "a=b ");
  EXPECT_EQ(Indexes(IGD "Services.List"), "2,3");
  unlink(kFile);
  EXPECT_EQ(ams_mxml_load_to_staging(3), -1);
  EXPECT_EQ(ams_mxml_load_to_staging(1), -1) << "there is no such source";
  nvram_clean(NVTYPE_STAGING);
}

}  // namespace
