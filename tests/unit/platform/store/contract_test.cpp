// What platform/include/ams_store.h promises, on any board.
#include <algorithm>
#include <atomic>
#include <map>
#include <random>
#include <thread>

#include "nvram.h"
#include "store_support.h"
#include "tds.h"

namespace {

TEST_F(Store, ScriptsOfTheContract) { RunScripts(data_folder, 11); }

TEST_F(Store, BuffersOfTheCallerAreNeverOverrun) {
  struct {
    char text[4], guard;
  } box;
  box.guard = '#';
  EXPECT_EQ(ams_mxml_get_leaf_value(IGD "DeviceInfo.Zeta", box.text), 0);
  EXPECT_STREQ(box.text, "las");
  EXPECT_EQ(ams_mxml_get_leaf_value(IGD "DeviceInfo.Zetb", box.text), -1);
  EXPECT_STREQ(box.text, "las") << "untouched when there is no such leaf";
  EXPECT_EQ(ams_get_node_attr(root, IGD "DeviceInfo", "op", box.text), 0);
  EXPECT_STREQ(box.text, "Fun");
  EXPECT_EQ(ams_get_idxes(root, IGD "Services.List", box.text), -1);
  EXPECT_STREQ(box.text, "");
  EXPECT_EQ(box.guard, '#');
  char slots[AMS_LIST_SLOTS + 1][AMS_LIST_SLOT_SIZE], url[AMS_PATH_SIZE];
  slots[AMS_LIST_SLOTS][0] = '#';
  AmsArrayList list = {0, slots};
  for (int row = 0; row < AMS_LIST_SLOTS; ++row)
    ASSERT_EQ(ams_add_obj(root, IGD "Services.List", url), 0);
  EXPECT_EQ(ams_mxml_list_array(IGD "Services.List.", &list), 0);
  EXPECT_EQ(list.count, AMS_LIST_SLOTS);
  EXPECT_STREQ(slots[0], IGD "Services.List.2.");
  EXPECT_STREQ(slots[AMS_LIST_SLOTS - 1], IGD "Services.List.57.");
  EXPECT_EQ(slots[AMS_LIST_SLOTS][0], '#');
  EXPECT_EQ(ams_mxml_list_array(IGD "Services", &list), -1);
}

TEST_F(Store, TheLongestValueAndPath) {
  const std::string longest(AMS_VALUE_MAX, 'v'), path(AMS_PATH_SIZE, 'p');
  EXPECT_EQ(ams_set_node_value(root, IGD "DeviceInfo.Zeta", longest.c_str()), 0);
  for (auto set : {ams_set_node_value, ams_sset_node_value}) {
    EXPECT_EQ(set(root, IGD "DeviceInfo.Zeta", (longest + "v").c_str()), -1);
    EXPECT_EQ(set(root, path.c_str(), "x"), -1);
    EXPECT_EQ(set(nullptr, IGD "Summary", "x"), -1);
  }
  EXPECT_EQ(Text(IGD "DeviceInfo.Zeta"), "Zeta=" + longest);
  EXPECT_EQ(ams_set_node_value(root, IGD "DeviceInfo.Zeta", nullptr), 0);
  EXPECT_EQ(Leaf(IGD "DeviceInfo.Zeta"), "");
  EXPECT_EQ(ams_mxml_sset_leaf_int(IGD "DeviceInfo.UpTime", -5), 0);
  EXPECT_EQ(Leaf(IGD "DeviceInfo.UpTime"), "-5");
  EXPECT_EQ(ams_check_node(nullptr, IGD "Summary"), -1);
  EXPECT_EQ(ams_save_xml(root, "/nowhere/saved.xml"), -1);
  EXPECT_EQ(ams_mxml_load_to_staging(1), -1) << "there is no such source";
}

/* The text of a row, with this for its last leaf. Two of its leaves are long in the file. */
std::string LongRow(const std::string &alpha) {
  return "Zeta=" + std::string(400, 'z') + "|Mid=1|Alpha=" + alpha;
}

TEST_F(Store, ALongValueIsAsAShortOne) {
  const std::string first(300, 'a');
  root = Load(
      "<InternetGatewayDevice type=\"object\"><A type=\"array\"><Template><Zeta type=\"string\">" +
      std::string(400, 'z') +
      "</Zeta><Mid type=\"int\">1</Mid><Alpha type=\"string\" notify=\"1\">" + first +
      "</Alpha></Template><Instance id=\"1\"/></A></InternetGatewayDevice>");
  ASSERT_NE(root, nullptr);
  char url[AMS_PATH_SIZE], *changed;
  ASSERT_EQ(ams_add_obj(root, IGD "A", url), 0);
  EXPECT_EQ(Text(url), LongRow(first));
  for (size_t before : {0u, 255u, 256u, 257u, 3000u})
    for (size_t after : {1u, 255u, 256u, 257u, 2999u}) {
      SCOPED_TRACE(std::to_string(before) + " " + std::to_string(after));
      const std::string one(before, 'o'), other(after, 'x');
      AmsUndo *undo = nullptr;
      ASSERT_EQ(ams_set_node_value(root, IGD "A.2.Alpha", one.c_str()), 0);
      EXPECT_EQ(Text(url), LongRow(one));
      ASSERT_EQ(ams_undo_note(root, &undo, IGD "A.2.Alpha"), 0);
      ASSERT_EQ(ams_set_node_value(root, IGD "A.2.Alpha", other.c_str()), 0);
      EXPECT_EQ(Leaf(IGD "A.2.Alpha"), other);
      for (const char *notify : {"0", "2"})
        EXPECT_EQ(ams_set_attr(root, IGD "A.2.Alpha", notify), 0);
      EXPECT_EQ(ams_undo_end(undo, 1), 0);
      ASSERT_EQ(ams_read_withAttr(root, IGD "A.2", 1, &changed), 0);
      EXPECT_EQ(changed, "Alpha=" + one + " type=\"string\" notify=\"2\"");
      __tds_free(changed);
    }
  EXPECT_EQ(Text(IGD "A.1"), LongRow(first));
  EXPECT_EQ(ams_del_obj(root, url), 0);
  EXPECT_EQ(Text(IGD "A"),
            "1." + std::string("Zeta=") + std::string(400, 'z') + "|1.Mid=1|1.Alpha=" + first);
}

TEST_F(Store, ASpanIsSeenWholeOrNotAtAll) {
  std::atomic<bool> done{false};
  std::atomic<int> torn{0};
  std::thread reader([&] {
    while (!done) {
      std::string text = Text(IGD "DeviceInfo");
      size_t zeta = text.find("Zeta=") + 5, alpha = text.find("Alpha=") + 6;
      std::string first = text.substr(zeta, text.find('|', zeta) - zeta);
      std::string second = text.substr(alpha, text.find('|', alpha) - alpha);
      if (first[0] == 'n' && first != second) ++torn;
    }
  });
  for (int round = 0; round < 300; ++round) {
    std::string value = "n" + std::to_string(round);
    ASSERT_EQ(ams_write_begin(), 0);
    EXPECT_EQ(ams_write_begin(), -1) << "spans do not nest";
    EXPECT_EQ(ams_mxml_fset_leaf(IGD "DeviceInfo.Zeta", value.c_str()), 0);
    EXPECT_EQ(Leaf(IGD "DeviceInfo.Zeta"), value) << "the thread reads what it wrote";
    EXPECT_EQ(ams_mxml_fset_leaf(IGD "DeviceInfo.Alpha", value.c_str()), 0);
    EXPECT_EQ(ams_set_node_value(root, IGD "DeviceInfo.UpTime", "x"), -1); /* spoils nothing */
    ASSERT_EQ(ams_write_end(), 0);
  }
  done = true;
  reader.join();
  EXPECT_EQ(torn, 0);
  EXPECT_EQ(Leaf(IGD "DeviceInfo.Alpha"), "n299");
  EXPECT_EQ(ams_write_end(), -1) << "none is open";
}

/* ---- against a plain model ---- */

struct Plain {
  std::map<unsigned, std::pair<std::string, std::string>> rows; /* number: Name, Port */
  unsigned highest = 10;
};

std::string PlainText(const Plain &model) {
  std::string text;
  for (const auto &row : model.rows) {
    std::string at = std::to_string(row.first);
    if (!text.empty()) text += '|';
    text += at + ".Name=" + row.second.first + "|" + at + ".Port=" + row.second.second + "|" + at +
            ".SubNumberOfEntries=1|" + at + ".Sub.1.Leaf=default row";
  }
  return text;
}

void PlainStep(Plain *model, int what, unsigned number, const std::string &value) {
  std::string row = IGD "Services.List." + std::to_string(number);
  auto found = model->rows.find(number);
  char url[AMS_PATH_SIZE];
  int expected = found == model->rows.end() ? -1 : 0;
  if (what == 0) {
    ASSERT_EQ(ams_add_obj(root, IGD "Services.List", url), 0);
    model->rows[++model->highest] = {"new", "80"};
    ASSERT_EQ(url, IGD "Services.List." + std::to_string(model->highest));
  } else if (what == 1) {
    ASSERT_EQ(ams_del_obj(root, row.c_str()), expected);
    model->rows.erase(number);
  } else {
    bool name = what == 2;
    std::string path = row + (name ? ".Name" : ".Port.");
    ASSERT_EQ(ams_set_node_value(root, path.c_str(), value.c_str()), expected);
    if (expected == 0) (name ? found->second.first : found->second.second) = value;
  }
}

/* Always the same calls: a failure can be repeated. */
TEST_F(Store, BehavesAsAPlainMap) {
  std::mt19937 random(4711);
  for (int round = 0; round < 40; ++round) {
    SCOPED_TRACE(round);
    root = Load(Model());
    Plain model;
    for (const char *row : {"2", "9", "10"}) /* all rows are made by the calls */
      ASSERT_EQ(ams_del_obj(root, (std::string(IGD "Services.List.") + row).c_str()), 0);
    const bool span = random() % 2 == 0;
    ASSERT_EQ(span ? ams_write_begin() : 0, 0);
    for (auto steps = random() % 40; steps > 0; --steps) {
      const int what = static_cast<int>(random() % 4);
      std::string value(random() % (random() % 8 == 0 ? 3000 : 20), ' ');
      for (char &c : value) c = static_cast<char>(' ' + random() % ('{' - ' '));
      PlainStep(&model, what, static_cast<unsigned>(9 + random() % (2 + model.highest)), value);
      ASSERT_EQ(Text(IGD "Services.List"), PlainText(model));
      ASSERT_EQ(Leaf(IGD "Services.ListNumberOfEntries"), std::to_string(model.rows.size()));
    }
    ASSERT_EQ(span ? ams_write_end() : 0, 0);
    ASSERT_EQ(Text(IGD "Services.List"), PlainText(model));
  }
}

}  // namespace

int main(int argc, char **argv) {
  testing::InitGoogleTest(&argc, argv);
  if (argc > 1) data_folder = argv[1];
  return RUN_ALL_TESTS();
}
