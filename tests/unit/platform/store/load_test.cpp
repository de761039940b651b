// The scripts of the desk, and what a data-model file is refused for.
#include <algorithm>
#include <filesystem>
#include <thread>
#include <vector>

#include "../other_process.h"
#include "store_support.h"
#include "tds_heap.h"

namespace {

struct Refused {
  std::string what, xml, says; /* says "LINE: reason" */
};

/* Files of tests/data/refused_models: a comment with the line that is named and with the reason,
   then the file's content. */
std::vector<Refused> Samples() {
  std::vector<Refused> samples;
  for (const auto &entry : std::filesystem::directory_iterator(TEST_DATA "/refused_models")) {
    const std::string xml = FileText(entry.path()), comment = xml.substr(0, xml.find(" -->"));
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

/* Those of the contract, too, where blocks are counted. */
TEST_F(Store, ScriptsOfTheDesk) {
  const ptrdiff_t before = tds_malloc_count(nullptr).blocks;
  RunScripts(data_folder + "/desk", 6);
  RunScripts(data_folder, 11);
  EXPECT_EQ(tds_malloc_count(nullptr).blocks, before) << "texts are the callers' only";
}

TEST_F(Store, AnObjectMayHaveManyLeaves) {
  for (int count : {1, 63, 64, 65, 300}) {
    std::string elements, text;
    for (int leaf = count; leaf > 0; --leaf) {
      const std::string name = "L" + std::to_string(leaf),
                        value(static_cast<size_t>(leaf % 20), 'v');
      elements += "<" + name + " type=\"string\">" + value + "</" + name + ">";
      text += (text.empty() ? "" : "|") + name + "=" + value;
    }
    ASSERT_NE(Load("<InternetGatewayDevice type=\"object\"><A type=\"object\">" + elements +
                   "</A></InternetGatewayDevice>"),
              nullptr);
    EXPECT_EQ(Text("InternetGatewayDevice.A"), text) << count;
  }
}

/* Another thread's, as another process's: this one's reads keep what they have found. */
TEST_F(Store, AFileTakesTheAttributesOfTheOneBefore) {
  for (const std::string op : {"one", "two", "three"}) {
    std::thread([&] {
      EXPECT_NE(Load("<InternetGatewayDevice type=\"object\"><A type=\"object\" op=\"" + op +
                     "\"/></InternetGatewayDevice>"),
                nullptr);
    }).join();
    char found[16] = "";
    EXPECT_EQ(ams_get_node_attr(gptXmlTrees->root, "InternetGatewayDevice.A", "op", found), 0);
    EXPECT_EQ(found, op);
  }
}

TEST_F(Store, WhatAFileIsRefusedFor) {
  std::vector<Refused> cases = Samples();
  cases.push_back({"no XML", "hello", "1: "});
  const std::string value(AMS_VALUE_MAX + 1, 'v'), row = "<A type=\"array\"><Template>";
  auto add = [&](const char *what, const std::string &element, int times, const std::string &end,
                 const char *says) {
    std::string xml = "<InternetGatewayDevice type=\"object\">\n" + Repeated(element, times);
    cases.push_back({what, xml + Repeated(end, times) + "</InternetGatewayDevice>", says});
  };
  const std::string object = "<Nameof9b type=\"object\">", object_end = "</Nameof9b>";
  add("value too long", "<L type=\"string\">" + value, 1, "</L>", "2: a value has at most 32768");
  add("path too long", object, 30, object_end, "2: its path has");
  add("deeper than the stack", object, 1 << 17, object_end, "2: its path has more than 255 bytes");
  add("rows that multiply", row + "<L type=\"int\">1</L>", 30,
      "</Template><Instance id=\"1\"/><Instance id=\"2\"/></A>",
      "2: the tree is larger than the store");
  const std::string before = Text("InternetGatewayDevice");
  for (const Refused &c : cases) {
    SCOPED_TRACE(c.what);
    const std::string told = LogOf([&] { EXPECT_EQ(Load(c.xml), nullptr); });
    const size_t reason = c.says.find(' ') + 1;
    const std::string place = std::to_string(getpid()) + ":" + c.says.substr(0, reason);
    EXPECT_NE(told.find(c.says.substr(reason), told.find(place)), told.npos) << told;
    EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), 1) << told;
    EXPECT_EQ(Text("InternetGatewayDevice"), before);
  }
  ASSERT_EQ(ams_write_begin(), 0);
  EXPECT_EQ(Load(cases.back().xml), nullptr);
  EXPECT_EQ(ams_write_end(), -1) << "half of the file may be written";
  EXPECT_EQ(Text("InternetGatewayDevice"), before);
}

}  // namespace
