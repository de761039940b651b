// Data-model files: what one is refused for, and that a saved one loads as the same tree.
#include <algorithm>
#include <filesystem>
#include <sstream>
#include <vector>

#include "store_support.h"

namespace {

struct Refused {
  std::string what, xml, says; /* says ":LINE: reason" */
};

/* Files of tests/data/refused_models: a comment with the line that is named and with the reason,
   then the file's content. */
std::vector<Refused> Samples() {
  std::vector<Refused> samples;
  for (const auto &entry : std::filesystem::directory_iterator(TEST_DATA "/refused_models")) {
    std::stringstream content;
    content << std::ifstream(entry.path()).rdbuf();
    const std::string xml = content.str(), comment = xml.substr(0, xml.find(" -->"));
    samples.push_back({entry.path().stem(), xml, comment.substr(comment.find(' ') + 1)});
  }
  EXPECT_GE(samples.size(), 20u);
  return samples;
}

std::string Repeated(const std::string &text, int times) {
  std::string all;
  for (int time = 0; time < times; ++time) all += text;
  return all;
}

TEST_F(Store, WhatAFileIsRefusedFor) {
  std::vector<Refused> cases = Samples();
  cases.push_back({"no XML", "hello", "1: "});
  const std::string value(AMS_VALUE_MAX + 1, 'v'),
      object = "<Nameof9b type=\"object\">",
      row = "<A type=\"array\"><Template><L type=\"int\">1</L>",
      row_end = "</Template><Instance id=\"1\"/><Instance id=\"2\"/></A>";
  for (const Refused &large : std::vector<Refused>{
           {"value too long", "<L type=\"string\">" + value + "</L>",
            "2: a value has at most 32768"},
           {"path too long", Repeated(object, 30) + Repeated("</Nameof9b>", 30), "2: its path has"},
           {"deeper than the stack", Repeated(object, 1 << 17) + Repeated("</Nameof9b>", 1 << 17),
            "2: its path has more than 255 bytes"},
           {"rows that multiply", Repeated(row, 30) + Repeated(row_end, 30),
            "2: the tree is larger than the store"}})
    cases.push_back(
        {large.what,
         "<InternetGatewayDevice type=\"object\">\n" + large.xml + "</InternetGatewayDevice>",
         large.says});
  const std::string before = Text("InternetGatewayDevice");
  for (const Refused &c : cases) {
    SCOPED_TRACE(c.what);
    testing::internal::CaptureStderr();
    EXPECT_EQ(Load(c.xml), nullptr);
    std::string told = testing::internal::GetCapturedStderr();
    const size_t colon = c.says.find(':');
    const std::string place =
        "store_test." + std::to_string(getpid()) + ":" + c.says.substr(0, colon + 2);
    EXPECT_NE(told.find(place), std::string::npos) << told;
    EXPECT_NE(told.find(c.says.substr(colon + 2)), std::string::npos) << told;
    EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), 1) << told;
    EXPECT_EQ(Text("InternetGatewayDevice"), before);
  }
  ASSERT_EQ(ams_write_begin(), 0);
  EXPECT_EQ(Load(cases.back().xml), nullptr);
  EXPECT_EQ(ams_write_end(), -1) << "half of the file may be written";
  EXPECT_EQ(Text("InternetGatewayDevice"), before);
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
    ASSERT_NE(Load(Model()), nullptr);
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
