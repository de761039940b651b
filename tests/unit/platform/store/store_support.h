// What the tests of the data-model store share: a tree with every kind of node, and its calls with
// plain strings for results ("(none)" for a call that failed).
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>

#include "ams_store.h"
#include "nvram.h"
#include "tds.h"

#define IGD "InternetGatewayDevice."

inline const char kModel[] = R"(<?xml version="1.0"?>
<InternetGatewayDevice type="object">
  <Summary type="string">sum</Summary>
  <DeviceInfo type="object" op="FuncDeviceInfo" mod="sysmgr:devInfo" description="what it is">
    <UpTime type="unsignedInt" writable="0">7</UpTime>
    <Zeta type="string" notify="2">last letter, first here</Zeta>
    <Alpha type="string" description="a &quot;b&quot;">a&lt;b</Alpha>
    <Inner type="object"><Deep type="int">-4</Deep></Inner>
    <Inner-2 type="object"><Deep type="boolean">1</Deep></Inner-2>
    <Blank type="dateTime"> </Blank>
    <Empty type="string"/>
  </DeviceInfo>
  <Services type="object" mod="sysmgr:capabinfo">
    <ListNumberOfEntries type="unsignedInt" writable="0" notify="1">99</ListNumberOfEntries>
    <List type="array" op="FuncList">
      <Template op="FuncRow">
        <Name type="string" notify="1">new</Name>
        <Port type="int">80</Port>
        <SubNumberOfEntries type="unsignedInt">0</SubNumberOfEntries>
        <Sub type="array">
          <Template><Leaf type="string">x</Leaf></Template>
          <Instance id="1"><Leaf>default row</Leaf></Instance>
        </Sub>
      </Template>
      <Instance id="10"><Name>ten</Name></Instance>
      <Instance id="2"><Port type="int" writable="0">22</Port><Sub><Instance id="4"/></Sub></Instance>
      <Instance id="9"/>
    </List>
    <Bare type="array"/>
  </Services>
  <ALL_CHANGED_DATA type="object"/>
</InternetGatewayDevice>
)";

inline AmsTree *root; /* of the tree that is loaded */

inline std::string Temporary(const std::string &content) {
  std::string name = testing::TempDir() + "store_test." + std::to_string(getpid());
  std::ofstream(name, std::ios::binary) << content;
  return name;
}

inline AmsTree *LoadFile(const std::string &name) {
  FILE *file = fopen(name.c_str(), "re");
  AmsTree *tree = ams_mxmlLoadFile(nullptr, file, nullptr);
  fclose(file);
  return tree;
}

inline AmsTree *Load(const std::string &xml) {
  std::string name = Temporary(xml);
  AmsTree *tree = LoadFile(name);
  unlink(name.c_str());
  return tree;
}

/* Text forms with the separator shown as "|"; "(none)" for a call that failed. */
inline std::string Shown(int result, char *text) {
  std::string shown = result == 0 ? text : "(none)";
  if (result != 0 && text != nullptr) shown = "failed, with a text";
  __tds_free(text);
  for (char &c : shown)
    if (c == AMS_SEPARATOR) c = '|';
  return shown;
}
inline std::string Text(const std::string &path) {
  char *text = nullptr;
  int result = ams_get_node_value(root, path.c_str(), &text);
  return Shown(result, text);
}
inline std::string WithAttributes(const char *path, int changed) {
  char *text = nullptr;
  int result = ams_read_withAttr(root, path, changed, &text);
  return Shown(result, text);
}
inline std::string Leaf(const std::string &path) {
  char value[4096];
  return ams_mxml_get_leaf_value(path.c_str(), value) == 0 ? value : "(none)";
}
inline std::string Attribute(const char *path, const char *name) {
  char value[256];
  return ams_get_node_attr(root, path, name, value) == 0 ? value : "(none)";
}
inline std::string Indexes(const std::string &array) {
  char list[1024], highest[16];
  if (ams_get_idxes(root, array.c_str(), list) != 0) return "(none)";
  EXPECT_EQ(ams_get_array_maxIndex(root, array.c_str(), highest), 0);
  const char *comma = strrchr(list, ',');
  EXPECT_STREQ(highest, list[0] == '\0' ? "0" : comma == nullptr ? list : comma + 1);
  return list;
}
inline std::string Children(const std::string &parent) {
  char url[AMS_PATH_SIZE];
  std::string names;
  int rc = ams_get_first_child(root, parent.c_str(), url);
  for (; rc == 0; rc = ams_get_next_child(root, std::string(url).c_str(), url))
    names += std::string(strrchr(url, '.') + 1) + " ";
  return names;
}

/* What a start makes of a file and of what is kept. */
inline void LayKept(const std::string &xml = kModel) {
  root = Load(xml);
  EXPECT_EQ(update_from_nvram(root, NVTYPE_STAGING), 0);
}

/* What is kept of a leaf. */
inline std::string Kept(const char *path) {
  std::unique_ptr<char, void (*)(void *)> value(nvram_get(path, NVTYPE_STAGING), free);
  return value == nullptr ? "(none)" : value.get();
}

/* Each test starts with a tree of kModel, and nothing kept. */
class Store : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    gptXmlTrees = ShmPoolSrvInit();
    ASSERT_NE(gptXmlTrees, nullptr);
  }
  void SetUp() override {
    ASSERT_EQ(nvram_clean(NVTYPE_STAGING) | nvram_commit(NVTYPE_STAGING), 0);
    gptXmlTrees->root = root = Load(kModel);
    ASSERT_NE(root, nullptr);
  }
};
