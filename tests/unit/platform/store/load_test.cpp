// The scripts of the desk, and what a data-model file is refused for.
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <map>
#include <thread>
#include <vector>

#include "../other_process.h"
#include "put.h"
#include "store_desk.h"
#include "store_support.h"
#include "tds_heap.h"
#include "tree.h"

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
  RunScripts(data_folder + "/desk", 7);
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

/* A node and all below it, a child at a time. */
void Descend(const std::string &path, bool leaves, std::vector<std::string> *paths) {
  char type[16], url[AMS_PATH_SIZE];
  ASSERT_EQ(ams_get_node_attr(root, path.c_str(), "type", type), 0);
  if (!leaves && strcmp(type, "object") != 0 && strcmp(type, "array") != 0) return;
  paths->push_back(path);
  int rc = ams_get_first_child(root, path.c_str(), url);
  for (; rc == 0; rc = ams_get_next_child(root, std::string(url).c_str(), url))
    Descend(url, leaves, paths);
}

std::vector<std::string> Walked(const std::string &top, bool leaves) {
  std::vector<std::string> paths;
  auto visit = [](const AmsDeskNode &node, void *all) {
    static_cast<std::vector<std::string> *>(all)->emplace_back(node.path);
    return 0;
  };
  EXPECT_EQ(ams_desk_walk(top.c_str(), leaves, visit, &paths), 0);
  return paths;
}

std::string DeskText(const std::string &path) {
  std::string text;
  if (ams_desk_text(path.c_str(), 8, &text) != 0) return "(none)";
  std::replace(text.begin(), text.end(), char{AMS_SEPARATOR}, '|');
  return text;
}

TEST_F(Store, TheDeskSeesTheSameTree) {
  for (const char *file : {"model.xml", "beside.xml", "tags.xml"}) {
    SCOPED_TRACE(file);
    ASSERT_NE(root = Load(FileText(data_folder + "/" + file)), nullptr);
    std::vector<std::string> nodes;
    Descend("InternetGatewayDevice", true, &nodes);
    for (const std::string &top : nodes) {
      for (bool leaves : {false, true}) {
        std::vector<std::string> below;
        Descend(top, leaves, &below);
        if (below.empty()) below = {top}; /* a leaf that is asked for is shown */
        EXPECT_EQ(Walked(top, leaves), below) << top;
      }
      EXPECT_EQ(DeskText(top), Text(top)) << top;
    }
    EXPECT_EQ(DeskText("InternetGatewayDevice.None"), "(none)");
  }
}

/* Another row's values would be taken for its own. */
std::string Place(const std::string &path) {
  AmsDeskPlace place = {};
  if (ams_desk_place((IGD + path).c_str(), &place) != 0) return "(none)";
  return std::string(place.is_leaf       ? "leaf"
                     : place.is_array    ? "array"
                     : place.is_instance ? "instance"
                                         : "object") +
         (place.has_op ? " op " : " ") + place.mod;
}

TEST_F(Store, TheDeskKnowsWhereANodeStands) {
  const struct {
    const char *path, *place;
  } kPlaces[] = {
      {"DeviceInfo.Zeta", "leaf op sysmgr:devInfo"},
      {"DeviceInfo.Inner.Deep", "leaf sysmgr:devInfo"},
      {"DeviceInfo.Alpha", "leaf op sysmgr:devInfo"},
      {"DeviceInfo.Empty", "leaf op sysmgr:devInfo"},
      {"DeviceInfo", "object op sysmgr:devInfo"},
      {"Summary", "leaf "},
      {"Services.List.9.Name", "leaf op sysmgr:capabinfo"},
      {"Services.List.9", "instance op sysmgr:capabinfo"},
      {"Services.List.9.Sub.1.Leaf", "leaf sysmgr:capabinfo"},
      {"Services.List", "array op sysmgr:capabinfo"},
      {"Services.List.11.Name", "(none)"},
  };
  for (const auto &[path, place] : kPlaces) EXPECT_EQ(Place(path), place) << path;
  const std::string attributes = R"(op="FuncDeviceInfo" mod="sysmgr:devInfo")";
  std::string model = Model();
  model.replace(model.find(attributes), attributes.size(), R"(mod="another")");
  EXPECT_EQ(Place("DeviceInfo.Zeta"), "leaf op sysmgr:devInfo");
  ASSERT_NE(root = Load(model), nullptr);
  EXPECT_EQ(Place("DeviceInfo.Zeta"), "leaf another") << "what stands above it has changed";
}

/* An object's row and the first things in its body, of which copies are to be changed. */
struct DamagedRow {
  std::string bytes;
  ObjectCounts counts;
  LeafHead first;
};

/* What may be wrong with a row of two leaves, the first of which has a long value. */
const std::map<std::string, void (*)(DamagedRow *row)> kDamages = {
    {"no row", [](DamagedRow *row) { row->bytes = "x"; }},
    {"it ends before its leaves do",
     [](DamagedRow *row) { row->bytes.resize(row->bytes.size() - 16); }},
    {"a name that is too long",
     [](DamagedRow *row) {
       row->bytes.append(3504, 'n');
       row->first.name_length = 3000;
     }},
    {"a name of no bytes", [](DamagedRow *row) { row->first.name_length = 0; }},
    {"a kind that no leaf has", [](DamagedRow *row) { row->first.kind = KIND_ARRAY; }},
    {"a long value of another length", [](DamagedRow *row) { ++row->first.length; }},
};

int Damage(MDB_txn *txn, const Key &key, void (*damage)(DamagedRow *row)) {
  MDB_val data;
  RecordHead head;
  if (TreeGet(txn, key, &data) != 0) return -1;
  DamagedRow row = {{static_cast<char *>(data.mv_data), data.mv_size}, {}, {}};
  memcpy(&head, row.bytes.data(), sizeof head);
  const size_t body = sizeof head + head.order_length;
  memcpy(&row.counts, &row.bytes[body], sizeof row.counts);
  memcpy(&row.first, &row.bytes[body + sizeof row.counts], sizeof row.first);
  damage(&row);
  if (row.bytes.size() > body + sizeof row.counts + sizeof row.first) {
    memcpy(&row.bytes[body], &row.counts, sizeof row.counts);
    memcpy(&row.bytes[body + sizeof row.counts], &row.first, sizeof row.first);
  }
  return TreePut(txn, key, row.bytes.data(), row.bytes.size());
}

TEST_F(Store, OfADamagedRowNothingIsTold) {
  const std::string model =
      "<InternetGatewayDevice type=\"object\"><A type=\"object\"><L type=\"string\">" +
      std::string(300, 'l') + "</L><S type=\"string\">s</S></A></InternetGatewayDevice>";
  Key key;
  ASSERT_EQ(KeyOfPath("InternetGatewayDevice.A", KEY_NODE, &key), 0);
  for (const auto &[what, damage] : kDamages) {
    SCOPED_TRACE(what);
    ASSERT_NE(root = Load(model), nullptr);
    ASSERT_EQ(TreeWrite([&key, damage = damage](MDB_txn *txn) { return Damage(txn, key, damage); }),
              0);
    for (const char *path : {"InternetGatewayDevice", IGD "A"}) {
      std::string told = LogOf([&] {
        EXPECT_EQ(Text(path), "(none)");
        EXPECT_EQ(ams_desk_walk(
                      path, true, [](const AmsDeskNode &, void *) { return 0; }, nullptr),
                  -1);
      });
      EXPECT_NE(told.find("it is damaged: "), told.npos) << told;
    }
  }
  ASSERT_NE(root = Load(model), nullptr) << "a new tree takes its place";
  auto not_counted = [](DamagedRow *row) { row->counts.apart = 0; };
  ASSERT_EQ(TreeWrite([&](MDB_txn *txn) { return Damage(txn, key, not_counted); }), 0);
  EXPECT_EQ(Text(IGD "A"), "(none)");
}

/* Its own path does, with one digit more than the row before. */
TEST_F(Store, ARowWhoseLeavesPathsDoNotFitIsNotAdded) {
  const std::string name(64, 'n'), leaf(32, 'l'),
      object = "<" + name + " type=\"object\">", end = "</" + name + ">",
      array = IGD + name + "." + name + "." + name + ".R";
  root = Load("<InternetGatewayDevice type=\"object\">" + object + object + object +
              "<R type=\"array\"><Template><" + leaf +
              " type=\"string\" notify=\"1\"/></Template></R>" + end + end + end +
              "</InternetGatewayDevice>");
  ASSERT_NE(root, nullptr);
  char url[AMS_PATH_SIZE];
  for (size_t row = 1;
       array.size() + 1 + std::to_string(row).size() + 1 + leaf.size() < AMS_PATH_SIZE; ++row)
    ASSERT_EQ(ams_add_obj(root, array.c_str(), url), 0) << row;
  const std::string before = Text(array);
  EXPECT_EQ(ams_add_obj(root, array.c_str(), url), -1);
  EXPECT_EQ(Text(array), before);
  EXPECT_NE(before, "");
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
