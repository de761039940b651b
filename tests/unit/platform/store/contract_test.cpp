// What platform/include/ams_store.h promises, on any board.
#include <algorithm>
#include <atomic>
#include <map>
#include <random>
#include <thread>

#include "nvram.h"
#include "store_support.h"

namespace {

TEST_F(Store, TextForms) {
  struct Case {
    const char *path, *text;
  };
  const char info[] =
      "UpTime=7|Zeta=last letter, first here|Alpha=a<b|Inner.Deep=-4|Inner-2.Deep=1|Blank= |Empty=";
  const Case kCases[] = {
      {IGD "DeviceInfo.Zeta.", "Zeta=last letter, first here"},
      {IGD "DeviceInfo", info},
      {IGD "Services.List",
       "2.Name=new|2.Port=22|2.SubNumberOfEntries=1|2.Sub.4.Leaf=x|"
       "9.Name=new|9.Port=80|9.SubNumberOfEntries=1|9.Sub.1.Leaf=default row|"
       "10.Name=ten|10.Port=80|10.SubNumberOfEntries=1|10.Sub.1.Leaf=default row"},
      {IGD "Services.List.9.Sub.1", "Leaf=default row"},
      {IGD "Services.Bare", ""},
      {IGD "DeviceInfo.Nothing", "(none)"},
      {IGD "DeviceInfo.Inner.Deep.Deeper", "(none)"},
      {IGD "Services.List.02", "(none)"},
      {IGD "Services.List.99999999999", "(none)"},
      {IGD "Services.List.Template", "(none)"},
      {IGD "Services..List", "(none)"},
      {IGD "Services.List.9x", "(none)"},
      {IGD "DeviceInfo\x01Zeta", "(none)"}, /* the store's own marks open nothing */
      {"InternetGatewayDevice\2DeviceInfo.Zeta", "(none)"},
      {"\xF2" IGD "Services.List.\x04.Name", "(none)"},
      {"\xF3" IGD "DeviceInfo.Zeta", "(none)"},
      {"InternetGatewayDevic", "(none)"},
      {"", "(none)"},
  };
  for (const Case &c : kCases) {
    EXPECT_EQ(Text(c.path), c.text) << c.path;
    EXPECT_EQ(ams_check_node(root, c.path), Text(c.path) == "(none)" ? -1 : 0) << c.path;
  }
  EXPECT_EQ(Text("InternetGatewayDevice").find("Summary=sum|DeviceInfo.UpTime=7|"), 0u);
  EXPECT_EQ(ams_check_node(nullptr, IGD "Summary"), -1);
}

TEST_F(Store, Attributes) {
  struct Case {
    const char *path, *name, *value;
  };
  const Case kCases[] = {
      {IGD "DeviceInfo", "op", "FuncDeviceInfo"},
      {IGD "DeviceInfo.UpTime", "op", "(none)"},
      {IGD "DeviceInfo.Alpha", "description", "a \"b\""},
      {IGD "DeviceInfo.Alpha", "typ", "(none)"},
      {IGD "Services.List", "type", "array"},
      {IGD "Services.List.9.", "op", "FuncRow"},
      {IGD "Services.List.2.Port", "writable", "0"},
      {IGD "Services.List.9.Port", "writable", "(none)"},
      {IGD "Services.None", "type", "(none)"},
  };
  for (const Case &c : kCases)
    EXPECT_EQ(Attribute(c.path, c.name), c.value) << c.path << " " << c.name;
  EXPECT_EQ(WithAttributes(IGD "DeviceInfo.Alpha", 0),
            "Alpha=a<b type=\"string\" description=\"a &quot;b&quot;\"");
  EXPECT_EQ(WithAttributes(IGD "Services.List.9.Sub", 0), "1.Leaf=default row type=\"string\"");
  EXPECT_EQ(WithAttributes(IGD "Services.None", 0), "(none)");
}

TEST_F(Store, ChildrenInTheFilesOrderWhileOthersWrite) {
  EXPECT_EQ(Children("InternetGatewayDevice"), "Summary DeviceInfo Services ALL_CHANGED_DATA ");
  EXPECT_EQ(Children(IGD "DeviceInfo."), "UpTime Zeta Alpha Inner Inner-2 Blank Empty ");
  EXPECT_EQ(Children(IGD "Services.List"), "2 9 10 ");
  EXPECT_EQ(Children(IGD "Services.Bare"), "");
  EXPECT_EQ(Children(IGD "Summary"), "");
  char url[AMS_PATH_SIZE];
  ASSERT_EQ(ams_get_first_child(root, IGD "DeviceInfo", url), 0);
  EXPECT_EQ(ams_mxml_fset_leaf(IGD "DeviceInfo.Zeta", "other"), 0);
  ASSERT_EQ(ams_get_next_child(root, url, url), 0);
  EXPECT_STREQ(url, IGD "DeviceInfo.Zeta") << "a write between must not lose the place";
  EXPECT_EQ(ams_del_obj(root, IGD "Services.List.9"), 0);
  ASSERT_EQ(ams_get_next_child(root, IGD "Services.List.9", url), 0);
  EXPECT_STREQ(url, IGD "Services.List.10") << "after an instance that was deleted";
  ASSERT_EQ(ams_write_begin(), 0);
  EXPECT_EQ(Children(IGD "DeviceInfo."), "UpTime Zeta Alpha Inner Inner-2 Blank Empty ");
  EXPECT_EQ(Children(IGD "Services.List"), "2 10 ");
  ASSERT_EQ(ams_write_end(), 0);
}

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

TEST_F(Store, WhatASetRefuses) {
  std::string longest(AMS_VALUE_MAX, 'v'), path(AMS_PATH_SIZE, 'p');
  struct Case {
    const char *what, *path;
    std::string value;
    int set, sset; /* results */
  };
  const Case kCases[] = {
      {"a trailing dot", IGD "DeviceInfo.Zeta.", "", 0, 0},
      {"read-only", IGD "DeviceInfo.UpTime", "8", -1, 0},
      {"the longest value", IGD "DeviceInfo.Zeta", longest, 0, 0},
      {"a longer one", IGD "DeviceInfo.Zeta", longest + "v", -1, -1},
      {"the separator", IGD "DeviceInfo.Zeta", "a\x03z", -1, -1},
      {"an object", IGD "DeviceInfo", "x", -1, -1},
      {"no such leaf", IGD "DeviceInfo.Eta", "x", -1, -1},
      {"a template", "\xF2" IGD "Services.List.\x04.Name", "x", -1, -1},
      {"a path that is too long", path.c_str(), "x", -1, -1},
  };
  for (const Case &c : kCases) {
    std::string before = Text("InternetGatewayDevice");
    EXPECT_EQ(ams_set_node_value(root, c.path, c.value.c_str()), c.set) << c.what;
    if (c.set != 0) {
      EXPECT_EQ(Text("InternetGatewayDevice"), before) << c.what;
    }
    EXPECT_EQ(ams_sset_node_value(root, c.path, c.value.c_str()), c.sset) << c.what;
    if (c.sset == 0) {
      EXPECT_EQ(Text(c.path).substr(Text(c.path).find('=') + 1), c.value) << c.what;
    }
  }
  EXPECT_EQ(ams_set_node_value(root, IGD "DeviceInfo.Zeta", nullptr), 0);
  EXPECT_EQ(Leaf(IGD "DeviceInfo.Zeta"), "");
  EXPECT_EQ(ams_mxml_sset_leaf_int(IGD "DeviceInfo.UpTime", -5), 0);
  EXPECT_EQ(Leaf(IGD "DeviceInfo.UpTime"), "-5");
  EXPECT_EQ(ams_set_node_value(nullptr, IGD "Summary", "x"), -1);
}

TEST_F(Store, InstancesKeepTheirNumbers) {
  char url[AMS_PATH_SIZE];
  ASSERT_EQ(ams_add_obj(root, IGD "Services.List.", url), 0);
  EXPECT_STREQ(url, IGD "Services.List.11");
  EXPECT_EQ(Attribute(url, "op"), "FuncRow");
  EXPECT_EQ(Attribute(IGD "Services.List.11.Name", "notify"), "1") << "as in the template";
  EXPECT_EQ(ams_add_obj(root, IGD "Services.List.11.Sub", url), 0);
  EXPECT_STREQ(url, IGD "Services.List.11.Sub.2");
  EXPECT_EQ(Text(url), "Leaf=x");
  EXPECT_EQ(ams_del_obj(root, IGD "Services.List.11."), 0);
  EXPECT_EQ(Text(IGD "Services.List.11.Sub.2.Leaf"), "(none)");
  ASSERT_EQ(ams_add_obj(root, IGD "Services.List", url), 0);
  EXPECT_EQ(Indexes(IGD "Services.List"), "2,9,10,12") << "the number of a deleted one is gone";
  for (const char *no :
       {IGD "Services", IGD "Services.List", IGD "Summary", "InternetGatewayDevice"})
    EXPECT_EQ(ams_del_obj(root, no), -1) << no;
  for (const char *no : {IGD "Services", IGD "Services.Bare", IGD "Summary", IGD "None", ""})
    EXPECT_EQ(ams_add_obj(root, no, url), -1) << no;
  EXPECT_STREQ(url, "");
}

TEST_F(Store, ChangeListHoldsWhatChangedSinceItWasRead) {
  const char kAll[] = IGD "ALL_CHANGED_DATA";
  EXPECT_EQ(WithAttributes(kAll, 1), "") << "loading a file is no change";
  ams_mxml_fset_leaf(IGD "DeviceInfo.Alpha", "no notify attribute");
  ams_mxml_fset_leaf(IGD "DeviceInfo.Zeta", "last letter, first here"); /* the same */
  EXPECT_EQ(WithAttributes(kAll, 1), "");
  ams_mxml_fset_leaf(IGD "Services.List.10.Name", "x");
  ams_mxml_fset_leaf(IGD "Services.List.9.Name", "y");
  ams_mxml_fset_leaf(IGD "DeviceInfo.Zeta", "z");
  EXPECT_EQ(WithAttributes(IGD "DeviceInfo", 1), "Zeta=z type=\"string\" notify=\"2\"");
  EXPECT_EQ(WithAttributes(kAll, 1),
            "Services.List.9.Name=y type=\"string\" notify=\"1\"|"
            "Services.List.10.Name=x type=\"string\" notify=\"1\"");
  EXPECT_EQ(WithAttributes(kAll, 1), "") << "reading empties it";
  ams_mxml_fset_leaf(IGD "Services.List.9.Name", "gone");
  EXPECT_EQ(ams_del_obj(root, IGD "Services.List.9"), 0);
  EXPECT_EQ(WithAttributes(kAll, 1),
            "Services.ListNumberOfEntries=2 type=\"unsignedInt\" writable=\"0\" notify=\"1\"");
  char notify[8];
  EXPECT_EQ(ams_get_attr(root, IGD "DeviceInfo.Alpha", notify, sizeof notify), 0);
  EXPECT_STREQ(notify, "0");
  EXPECT_EQ(ams_set_attr(root, IGD "DeviceInfo.Alpha", "1"), 0);
  ams_mxml_fset_leaf(IGD "DeviceInfo.Alpha", "now");
  EXPECT_EQ(ams_set_attr(root, IGD "DeviceInfo.Alpha", "0"), 0);
  EXPECT_EQ(WithAttributes(kAll, 1), "") << "switched off before it was read";
  EXPECT_EQ(Leaf(IGD "DeviceInfo.Alpha"), "now");
  EXPECT_EQ(ams_set_attr(root, IGD "Nothing", "1"), -1);
  EXPECT_EQ(ams_get_attr(root, IGD "Nothing", notify, sizeof notify), -1);
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

struct Model {
  std::map<unsigned, std::pair<std::string, std::string>> rows; /* number: Name, Port */
  unsigned highest = 10;
};

std::string ModelText(const Model &model) {
  std::string text;
  for (const auto &row : model.rows) {
    std::string at = std::to_string(row.first);
    if (!text.empty()) text += '|';
    text += at + ".Name=" + row.second.first + "|" + at + ".Port=" + row.second.second + "|" + at +
            ".SubNumberOfEntries=1|" + at + ".Sub.1.Leaf=default row";
  }
  return text;
}

void Step(Model *model, int what, unsigned number, const std::string &value) {
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
    root = Load(kModel);
    Model model;
    for (const char *row : {"2", "9", "10"}) /* all rows are made by the calls */
      ASSERT_EQ(ams_del_obj(root, (std::string(IGD "Services.List.") + row).c_str()), 0);
    const bool span = random() % 2 == 0;
    ASSERT_EQ(span ? ams_write_begin() : 0, 0);
    for (unsigned steps = random() % 40; steps > 0; --steps) {
      const int what = static_cast<int>(random() % 4);
      std::string value(random() % 20, ' ');
      for (char &c : value) c = static_cast<char>(' ' + random() % ('{' - ' '));
      Step(&model, what, 9 + random() % (2 + model.highest), value);
      ASSERT_EQ(Text(IGD "Services.List"), ModelText(model));
      ASSERT_EQ(Leaf(IGD "Services.ListNumberOfEntries"), std::to_string(model.rows.size()));
    }
    ASSERT_EQ(span ? ams_write_end() : 0, 0);
    ASSERT_EQ(Text(IGD "Services.List"), ModelText(model));
  }
}

TEST_F(Store, StatusIsThereAgainWhenTheServerAloneStartsAnew) {
  char url[AMS_PATH_SIZE];
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
  EXPECT_EQ(ams_set_node_value(root, IGD "Services.List.9.Name", "kept"), 0);
  EXPECT_EQ(ams_set_node_value(root, IGD "Services.List.10.Name", "kept"), 0);
  EXPECT_EQ(ams_mxml_fset_leaf(IGD "Services.List.10.Name", "status over it"), 0);
  EXPECT_EQ(ams_mxml_fset_leaf(IGD "Services.List.10.Port", "1"), 0);
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
  for (const char *leaf : {"9.Name", "10.Name"})
    EXPECT_EQ(Kept((std::string(IGD "Services.List.") + leaf).c_str()), "kept") << leaf;
  for (const char *leaf : {"9.Port", "10.Port"})
    EXPECT_EQ(Kept((std::string(IGD "Services.List.") + leaf).c_str()), "(none)") << leaf;
  std::string model = kModel;
  for (const char *value : {">22<", ">80<"})
    model.replace(model.find(value), 4, ">66<"); /* what no status lies over is the new file's */
  LayKept(model);
  EXPECT_EQ(Text(IGD "Services"),
            "ListNumberOfEntries=3|List.2.Name=new|List.2.Port=66|List.2.SubNumberOfEntries=1|"
            "List.2.Sub.4.Leaf=x|List.9.Name=kept|List.9.Port=66|List.9.SubNumberOfEntries=0|"
            "List.10.Name=status over it|List.10.Port=1|List.10.SubNumberOfEntries=1|"
            "List.10.Sub.1.Leaf=default row");
}

}  // namespace
