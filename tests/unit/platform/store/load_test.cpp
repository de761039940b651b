// Data-model files: what one is refused for, and that a saved one loads as the same tree.
#include <algorithm>
#include <sstream>
#include <vector>

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

}  // namespace
