// Typed views of the data model: loading, copying and releasing, what they log and what they leave
// on the heap, against a plain model of the same tables.
#include "ams_config_tree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <map>
#include <optional>

#include "ams_config_api.h"
#include "ams_config_shell.h"
#include "support.h"
#include "tds_heap.h"
#ifdef HAVE_RAPIDCHECK
#include <rapidcheck.h>
#endif

namespace {

#define TOP "InternetGatewayDevice."

constexpr char kModel[] = R"(<InternetGatewayDevice type="object">
  <Info type="object"><Name type="string">gate</Name><Mode type="string">a=b</Mode>
    <Serial type="string" writable="0">7</Serial></Info>
  <Copy type="object"><Title type="string"/><Kind type="string"/></Copy>
  <Hosts type="array"><Template><Name type="string">new</Name><Port type="int">1</Port></Template>
    <Instance id="1"><Name type="string">one</Name></Instance>
    <Instance id="2"><Name type="string">two</Name></Instance>
    <Instance id="3"><Name type="string">x=y=</Name><Port type="int">3</Port></Instance></Hosts>
  <Twins type="array"><Template><Name type="string"/><Port type="int"/></Template></Twins>
  <Lines type="array"><Template><Label type="string"/>
    <Codecs type="array"><Template><Codec type="string"/></Template></Codecs>
    <Tones type="array"><Template><Tone type="string"/></Template></Tones></Template>
    <Instance id="2"><Label type="string">left</Label><Codecs type="array">
      <Instance id="1"><Codec type="string">PCMU</Codec></Instance>
      <Instance id="4"><Codec type="string">G722</Codec></Instance></Codecs></Instance>
    <Instance id="5"><Label type="string">right</Label></Instance></Lines>
</InternetGatewayDevice>)";

/* ---- the records of the tests ---- */

auto info = ConfigObjectOf(TOP "Info.", "Name", "Mode", "Missing");
auto copy = ConfigObjectOf(TOP "Copy.", "Title", "Kind");
const auto host_row = ConfigRowOf("Name", "Port");
const auto name_row = ConfigRowOf("Name");
ConfigArray hosts = ConfigArrayOf(TOP "Hosts.", host_row);
ConfigArray names = ConfigArrayOf(TOP "Hosts.", name_row); /* the same table, smaller rows */
ConfigArray twins = ConfigArrayOf(TOP "Twins.", host_row);
const auto codec_row = ConfigRowOf("Codec");
const auto tone_row = ConfigRowOf("Tone");
const auto line_row = ConfigRowWith({ConfigArrayOf(TOP "Lines.{i}.Codecs.", codec_row)}, "Label");
const auto full_line_row = ConfigRowWith({ConfigArrayOf(TOP "Lines.{i}.Codecs.", codec_row),
                                          ConfigArrayOf(TOP "Lines.{i}.Tones.", tone_row)},
                                         "Label");
ConfigArray lines = ConfigArrayOf(TOP "Lines.", line_row);
ConfigArray full_lines = ConfigArrayOf(TOP "Lines.", full_line_row);

/* Live blocks of each tag that the views allocate with, and of all. */
std::map<std::string, int64_t> Heap() {
  std::map<std::string, int64_t> blocks = {{"all", tds_malloc_count(nullptr).blocks}};
  for (const char *tag :
       {"ConfigItemGet", "ConfigArrayGet", "ConfigArrayFill", "ConfigNestedArrayFill"})
    blocks[tag] = tds_malloc_count(tag).blocks;
  return blocks;
}

/* Each test has to leave the heap as it was. */
class ConfigTree : public StoreTest {
 protected:
  std::string DataModel() const override { return kModel; }
  void SetUp() override {
    StoreTest::SetUp();
    held_ = Heap();
  }
  void TearDown() override { EXPECT_EQ(Heap(), held_); }

 private:
  std::map<std::string, int64_t> held_;
};

using Values = std::vector<std::string>;

Values ValuesOf(const ConfigItem *item) {
  Values values;
  for (; item->name != nullptr; ++item) values.push_back(item->val == nullptr ? "NULL" : item->val);
  return values;
}

/* Rows of a loaded table: number and values. */
using Rows = std::vector<std::pair<int, Values>>;

Rows RowsOf(const ConfigArray &array) {
  Rows rows;
  for (ConfigInst *row = array.head; row != nullptr; row = row->next)
    rows.emplace_back(row->index, ValuesOf(ConfigItemsOf(row)));
  EXPECT_EQ(rows.size(), static_cast<size_t>(array.count));
  return rows;
}

/* The rows that the store has now. */
Rows Loaded(ConfigArray *array) {
  EXPECT_EQ(ConfigArrayGet(array), 0);
  Rows rows = RowsOf(*array);
  ConfigArrayDestroy(array);
  EXPECT_EQ(array->head, nullptr);
  return rows;
}

/* ---- objects ---- */

TEST_F(ConfigTree, ObjectsLoadOnceAndShare) {
  EXPECT_EQ(ConfigObjectGet(&info.object), 0);
  EXPECT_EQ(ValuesOf(info.items), (Values{"gate", "a=b", ""}));
  SetLeaf(TOP "Info.Name", "later");
  EXPECT_EQ(ConfigObjectGet(&info.object), 0);
  EXPECT_EQ(ConfigItemGet(&info.items[0], info.object.path), 0);
  ConfigObjectDestroy(&info.object);
  EXPECT_STREQ(ConfigValue(info.items, "Name"), "gate");
  ConfigItemDestroy(&info.items[0]);
  EXPECT_STREQ(ConfigValue(info.items, "Name"), "gate") << "the object still has it";
  ConfigObjectDestroy(&info.object);
  EXPECT_EQ(ValuesOf(info.items), (Values{"NULL", "NULL", "NULL"}));
  EXPECT_STREQ(ConfigValue(info.items, "Name"), "");
  ConfigObjectGet(&info.object);
  EXPECT_STREQ(ConfigValue(info.items, "Name"), "later");
  EXPECT_STREQ(ConfigValue(info.items, "Other"), "");
  ConfigObjectDestroy(&info.object);
}

TEST_F(ConfigTree, ItemsTakeAnyPrefix) {
  const std::string endless = std::string(2000, 'x') + ".";
  const std::pair<const char *, const char *> cases[] = {
      {TOP "Info.", "gate"}, {TOP "Info", "gate"}, {nullptr, ""}, {endless.c_str(), ""}};
  for (const auto &[prefix, value] : cases) {
    ConfigItem item = {0, prefix == nullptr ? TOP "Info.Name" : "Name", nullptr};
    EXPECT_EQ(ConfigItemGet(&item, prefix), 0) << value;
    EXPECT_STREQ(item.val, value) << "without a prefix the path begins with a dot";
    ConfigItemDestroy(&item);
  }
  EXPECT_EQ(ConfigItemGet(nullptr, TOP), -1);
}

TEST_F(ConfigTree, ObjectsCopyPairByPair) {
  ConfigObjectGet(&info.object);
  EXPECT_EQ(ConfigObjectAssign(&copy.object, &info.object), 0);
  EXPECT_EQ(Leaf(TOP "Copy.Title") + "|" + Leaf(TOP "Copy.Kind"), "gate|a=b");
  auto without_dot = ConfigObjectOf(TOP "Copy", "Title");
  SetLeaf(TOP "Copy.Title", "kept");
  EXPECT_EQ(ConfigObjectAssign(&without_dot.object, &info.object), 0);
  EXPECT_EQ(Leaf(TOP "Copy.Title"), "kept") << "path and name are joined as they are";
  ConfigObjectDestroy(&info.object);
  EXPECT_EQ(ConfigObjectAssign(&copy.object, &info.object), 0);
  EXPECT_EQ(Leaf(TOP "Copy.Title"), "kept") << "what is not loaded overwrites nothing";
}

/* ---- tables ---- */

TEST_F(ConfigTree, TablesOfOtherRowsAndRowsThatAreStillHeld) {
  ASSERT_EQ(ams_del_obj(gptXmlTrees->root, TOP "Hosts.2"), 0);
  EXPECT_EQ(ConfigArrayGet(&hosts), 0);
  EXPECT_EQ(hosts.maxIndex, 3);
  SetLeaf(TOP "Hosts.1.Name", "later");
  EXPECT_EQ(Loaded(&names), (Rows{{1, {"later"}}, {3, {"x=y="}}})) << "rows of another size";
  EXPECT_EQ(RowsOf(hosts), (Rows{{1, {"one", "1"}}, {3, {"x=y=", "3"}}}));
  /* Whoever still holds a row, or a value in it, does not keep it past its table. */
  ConfigInstGet(TOP "Hosts.1.", hosts.head);
  ConfigItemGet(ConfigItemsOf(hosts.head->next), TOP "Hosts.3.");
  ConfigArrayDestroy(&hosts);
  EXPECT_EQ(hosts.head, nullptr);
  EXPECT_EQ(hosts.count, 2) << "kept from the last load";
}

TEST_F(ConfigTree, TablesThatHaveNoRows) {
  ConfigArray none = ConfigArrayOf(TOP "None.", name_row);
  ConfigArray leaf = ConfigArrayOf(TOP "Info.Name.", name_row);
  for (ConfigArray *array : {&none, &leaf, &twins}) {
    EXPECT_EQ(ConfigArrayGet(array), 0) << array->path;
    EXPECT_EQ(array->head, nullptr) << array->path;
    EXPECT_EQ(array->maxIndex, array == &twins ? 0 : -1) << array->path;
    ConfigArrayDestroy(array);
  }
  EXPECT_EQ(cfgGetTotalInstance(TOP "None."), -1);
  EXPECT_EQ(cfgGetTotalInstance(TOP "Twins."), 0);
}

TEST_F(ConfigTree, RowsThatCannotBeAdded) {
  const std::string endless = std::string(255, 'x') + ".";
  for (const char *path : {TOP "Info.", "", endless.c_str()}) {
    ConfigArray array = ConfigArrayOf(path, name_row);
    EXPECT_EQ(ConfigInstAdd(&array), -1) << path;
  }
}

TEST_F(ConfigTree, FailedAllocations) {
  ConfigArray huge = hosts, into = twins;
  huge.instSize = into.instSize = SIZE_MAX;
  const std::string log = LogOf(3, [&] {
    EXPECT_EQ(ConfigArrayGet(&huge), -1);
    EXPECT_EQ(huge.count, 0);
    ConfigArrayDestroy(&huge);
    ConfigArrayGet(&hosts);
    EXPECT_EQ(ConfigArrayFill(&into, &hosts), -1);
    EXPECT_EQ(ConfigNestedArrayFill(&into, &hosts), -1);
    ConfigArrayDestroy(&hosts);
  });
  EXPECT_EQ(Loaded(&twins), Rows{}) << "nothing was written";
  for (const char *who : {"ConfigArrayGet: no", "ConfigArrayFill: no", "ConfigNestedArrayFill: no"})
    EXPECT_NE(log.find(who), std::string::npos) << who << ": " << log;
}

/* ---- tables in rows ---- */

/* Loads the table that a row holds; the row's path keeps its "{i}". */
void LoadSub(ConfigInst *row) {
  char path[256];
  ConfigArray *sub = ConfigNestedSubArrayOf(row);
  const char *pattern = sub->path;
  ASSERT_EQ(ConfigPathExpand(sub, row->index, path, sizeof path), 0);
  EXPECT_EQ(ConfigArrayGet(sub), 0);
  sub->path = pattern;
}

TEST_F(ConfigTree, NestedTablesCopyTheFirstOfTheSource) {
  EXPECT_EQ(ConfigArrayGet(&lines), 0);
  for (ConfigInst *row = lines.head; row != nullptr; row = row->next) LoadSub(row);
  EXPECT_EQ(RowsOf(*ConfigNestedSubArrayOf(lines.head)), (Rows{{1, {"PCMU"}}, {4, {"G722"}}}));
  EXPECT_EQ(ConfigNestedArrayFill(&full_lines, &lines), 0);
  ConfigNestedArrayDestroy(&lines);

  EXPECT_EQ(Loaded(&lines), (Rows{{2, {"left"}}, {5, {"right"}}, {6, {"left"}}, {7, {"right"}}}));
  EXPECT_EQ(Leaf(TOP "Lines.6.Codecs.1.Codec"), "PCMU");
  EXPECT_EQ(Leaf(TOP "Lines.6.Codecs.2.Codec"), "G722") << "numbered anew";
  EXPECT_EQ(cfgNodeExists(TOP "Lines.6.Tones.2."), 0) << "filled from the codecs, not from tones";
  EXPECT_EQ(cfgGetTotalInstance(TOP "Lines.7.Codecs."), 0);
  EXPECT_STREQ(full_line_row.tables[1].path, TOP "Lines.{i}.Tones.");
}

TEST_F(ConfigTree, PathsThatCannotBeExpanded) {
  char path[256];
  std::string endless = std::string(250, 'x') + ".{i}.";
  for (const char *pattern : {TOP "Lines.1.Codecs.", endless.c_str()}) {
    ConfigArray sub = ConfigArrayOf(pattern, codec_row);
    EXPECT_EQ(ConfigPathExpand(&sub, 1000, path, sizeof path), -1) << pattern;
    EXPECT_EQ(sub.path, pattern);
    auto bad_row = ConfigRowWith({ConfigArrayOf(pattern, codec_row)}, "Label");
    EXPECT_EQ(ConfigNestedSubArrayFill(&bad_row.inst, &bad_row.inst), -1) << pattern;
    EXPECT_EQ(bad_row.tables[0].path, pattern);
  }
}

TEST_F(ConfigTree, TablesInRowsThatCannotBeCopiedStopNoRow) {
  const auto bad_row = ConfigRowWith({ConfigArrayOf(TOP "Lines.1.Codecs.", codec_row)}, "Name");
  ConfigArray bad = ConfigArrayOf(TOP "Twins.", bad_row);
  ConfigArrayGet(&lines);
  EXPECT_EQ(ConfigNestedArrayFill(&bad, &lines), 0);
  ConfigNestedArrayDestroy(&lines);
  ConfigArrayGet(&hosts);
  EXPECT_EQ(ConfigNestedArrayFill(&full_lines, &hosts), 0) << "nothing to copy into its tables";
  ConfigNestedArrayDestroy(&hosts);
  EXPECT_EQ(Loaded(&twins), (Rows{{1, {"left", ""}}, {2, {"right", ""}}}));
  EXPECT_EQ(Loaded(&lines),
            (Rows{{2, {"left"}}, {5, {"right"}}, {6, {"one"}}, {7, {"two"}}, {8, {"x=y="}}}));
}

/* ---- what is logged, and what ends the process ---- */

TEST_F(ConfigTree, WhatIsLogged) {
  const struct {
    Lines records;
    void (*work)();
  } cases[] = {
      {{"1 cfgStatusSetStr: path " TOP "Info.Serial val 8\n"},
       [] { EXPECT_EQ(cfgStatusSetStr(TOP "Info.Serial", "8"), 0) << "read-only, but a status"; }},
      {{"4 cfgStatusSetStr: path or val is NULL.\n", "4 cfgStatusSetStr: path or val is NULL.\n"},
       [] {
         EXPECT_EQ(cfgStatusSetStr(TOP "Info.Serial", nullptr), -1);
         EXPECT_EQ(cfgStatusSetStr(nullptr, "1"), -1);
       }},
      {{"1 cfgGetTotalInstance url :" TOP "None.\n",
        "4 ams_get_array_maxIndex failed, url is " TOP "None.\n"},
       [] { EXPECT_EQ(cfgGetTotalInstance(TOP "None."), -1); }},
      {{"1 Get Object: " TOP "Info., refcnt: 1\n", "1 Get Item Name,refcnt:1\n",
        "1 ConfigItemGet:val is gate\n", "1 Assign Object: " TOP "Copy. <= " TOP "Info.\n",
        "1 path = " TOP "Copy.Title= gate\n", "1 \t" TOP "Copy.Title: gate\n",
        "1 Des Object: " TOP "Info., refcnt: 0\n",
        "1 Destroy item: path=Name, val=gate, refcnt=0\n"},
       [] {
         ConfigObjectGet(&info.object);
         ConfigObjectAssign(&copy.object, &info.object);
         ConfigObjectDestroy(&info.object);
       }},
      {{"1 Get Array: " TOP "Hosts., refcnt: 1\n", "1 Get Inst: " TOP "Hosts.1., refcnt: 1\n",
        "1 Fill Array: " TOP "Twins.\n", "1 Add Inst: " TOP "Twins.\n", "1 1\n",
        "1 Assign Inst: " TOP "Twins.1 <= 1\n", "1 " TOP "Twins.1.Name: one\n",
        "1 Add Inst: " TOP "Twins.\n", "1 2\n", "1 Fill Array ok\n", "1 Des Inst: 1, refcnt: 0\n"},
       [] {
         ConfigArrayGet(&names);
         ConfigArrayFill(&twins, &names);
         ConfigArrayDestroy(&names);
       }},
      {{"1 Clear Array: " TOP "Twins.\n", "1 \tNo: 1\n", "1 Del Inst: " TOP "Twins.1\n",
        "1 \tNo: 2\n", "1 Del Inst: " TOP "Twins.2\n"},
       [] {
         ConfigArrayGet(&twins);
         ConfigArrayClear(&twins);
         ConfigArrayDestroy(&twins);
       }},
      {{"1 Fill Nested Array: " TOP "Lines.\n", "1 Add Inst: " TOP "Lines.\n",
        "1 Fill Sub Array: " TOP "Lines.6.Codecs. <= " TOP "Lines.2.Codecs.\n",
        "1 Fill Array: " TOP "Lines.6.Codecs.\n", "1 Fill Sub Array ok\n",
        "1 Fill Nested Array ok\n"},
       [] {
         ConfigArrayGet(&lines);
         ConfigNestedArrayFill(&lines, &lines);
         ConfigNestedArrayDestroy(&lines);
       }},
  };
  for (const auto &one : cases)
    ExpectRecords("./../common/include/ams_config_api", one.records, one.work);
  EXPECT_EQ(Leaf(TOP "Info.Serial"), "8");
}

TEST(ConfigTreeDeathTest, NullRecordsEndTheProcess) {
  constexpr char kThree[] = "lca != ((void *)0) && lhs != ((void *)0) && rhs != ((void *)0)";
  constexpr char kBoth[] = "lhs != ((void *)0) && rhs != ((void *)0)";
  const struct {
    const char *text;
    void (*call)();
  } cases[] = {
      {"inst != ((void *)0)", [] { ConfigNestedSubArrayOf(nullptr); }},
      {kThree, [] { ConfigInstAssign(&hosts, nullptr, hosts.head); }},
      {kBoth, [] { ConfigObjectAssign(nullptr, &info.object); }},
      {kBoth, [] { ConfigArrayFill(&hosts, nullptr); }},
      {kBoth, [] { ConfigNestedArrayFill(nullptr, &hosts); }},
      {kBoth, [] { ConfigNestedSubArrayFill(hosts.head, nullptr); }},
      {"ca != ((void *)0) && index > 0", [] { ConfigInstDel(&hosts, 0); }},
      {"ca != ((void *)0)", [] { ConfigArrayClear(nullptr); }},
      {"ca != ((void *)0)", [] { ConfigInstAdd(nullptr); }},
  };
  LoadModel(kModel);
  ConfigArrayGet(&hosts);
  for (const auto &one : cases)
    EXPECT_DEATH(one.call(), testing::HasSubstr("`" + std::string(one.text) + "'")) << one.text;
  ConfigArrayDestroy(&hosts);
}

/* ---- against a plain model ---- */

#ifdef HAVE_RAPIDCHECK /* a board's tool chain may have none */

struct PlainTable {
  std::map<int, Values> rows;
  int highest = 0; /* ever used */
};

Rows RowsOf(const PlainTable &table) { return {table.rows.begin(), table.rows.end()}; }

struct Both {
  PlainTable hosts, twins;
  std::optional<Rows> view; /* of the hosts, while it is loaded */
  int gets = 0;
};

int AddPlain(PlainTable *table, Values values) {
  table->rows[++table->highest] = std::move(values);
  return table->highest;
}

void FillTwins(Both *both) {
  RC_ASSERT(ConfigArrayFill(&twins, &hosts) == 0);
  /* What is not loaded has no rows to copy. */
  for (const auto &row : both->view.value_or(Rows{})) AddPlain(&both->twins, row.second);
}

void ClearTwins(Both *both) {
  ConfigArrayGet(&twins);
  RC_ASSERT(ConfigArrayClear(&twins) == 0);
  RC_ASSERT(RowsOf(twins) == RowsOf(both->twins)); /* the loaded rows stay */
  ConfigArrayDestroy(&twins);
  both->twins.rows.clear();
}

void Release(Both *both) {
  if (both->gets == 0) return;
  ConfigArrayDestroy(&hosts);
  if (--both->gets == 0) both->view.reset();
}

void Step(Both *both, int action, int number, const std::string &value) {
  std::string row = TOP "Hosts." + std::to_string(number);
  switch (action) {
    case 0:
      RC_ASSERT(ConfigInstAdd(&hosts) == AddPlain(&both->hosts, {"new", "1"}));
      break;
    case 1:
      RC_ASSERT((ConfigInstDel(&hosts, number) == 0) == (both->hosts.rows.erase(number) == 1));
      break;
    case 2:
      if (both->hosts.rows.count(number) == 0) return;
      both->hosts.rows[number][0] = value;
      SetLeaf(row + ".Name", value);
      break;
    case 3:
      RC_ASSERT(ConfigArrayGet(&hosts) == 0);
      if (both->gets++ == 0) both->view = RowsOf(both->hosts);
      break;
    case 4:
      Release(both);
      break;
    case 5:
      FillTwins(both);
      break;
    default:
      ClearTwins(both);
  }
}

bool ViewHolds(const Both &both) { return both.gets == 0 || RowsOf(hosts) == *both.view; }

TEST_F(ConfigTree, BehavesAsAPlainTable) {
  bool holds = rc::check("random loads, adds, deletes, fills and releases", [] {
    while (hosts.refcnt > 0) ConfigArrayDestroy(&hosts); /* of a case that failed */
    LoadModel(kModel);
    auto before = Heap();
    Both both;
    both.hosts = {{{1, {"one", "1"}}, {2, {"two", "1"}}, {3, {"x=y=", "3"}}}, 3};
    int steps = *rc::gen::inRange(1, 60);
    for (int step = 0; step < steps; ++step) {
      Step(&both, *rc::gen::inRange(0, 7), *rc::gen::inRange(1, both.hosts.highest + 4),
           *rc::gen::container<std::string>(rc::gen::inRange(' ', '{')));
      RC_ASSERT(ViewHolds(both));
      RC_ASSERT(cfgGetTotalInstance(TOP "Hosts.") == static_cast<int>(both.hosts.rows.size()));
    }
    while (both.gets > 0) Release(&both);
    RC_ASSERT(Loaded(&hosts) == RowsOf(both.hosts));
    RC_ASSERT(Loaded(&twins) == RowsOf(both.twins));
    RC_ASSERT(Heap() == before);
  });
  EXPECT_TRUE(holds);
}

#endif

/* ---- a request's value to another node ---- */

TEST_F(ConfigTree, CopiesAValueThatARequestSet) {
  const struct {
    const char *what, *object, *source, *target, *type;
    std::string set;
    const char *name; /* what the target "Name" has then */
  } cases[] = {
      {"as a text", TOP "Info", "Mode", "Name", "string", "Mode=1\3Name=2", "a=b"},
      {"behind a dot", TOP "Info.", "Mode", "Name", "string", "Mode", "a=b"},
      {"as a number", TOP "Info.", "Serial", "Name", "int", "Serial=7", "7"},
      {"no number is 0", TOP "Info.", "Mode", "Name", "int", "Mode=1", "0"},
      {"another was set", TOP "Info.", "Mode", "Name", "string", "Modes=1\3ode=2", "gate"},
      {"no such target", TOP "Info.", "Mode", "None", "string", "Mode=1", "gate"},
      {"a read-only target", TOP "Info.", "Name", "Serial", "string", "Name=1", "gate"},
      {"nothing was set", TOP "Info.", "Mode", "Name", "string", "", "gate"},
  };
  for (const auto &one : cases) {
    SetLeaf(TOP "Info.Name", "gate");
    std::string set = one.set;
    OpFuncArg arg = {"FuncTest", TMF_SET, "", set.empty() ? nullptr : set.data()};
    EXPECT_EQ(cfgCopyNodeValue(&arg, one.object, one.source, one.target, one.type), 0) << one.what;
    EXPECT_EQ(Leaf(TOP "Info.Name"), one.name) << one.what;
  }
  EXPECT_EQ(Leaf(TOP "Info.Serial"), "gate") << "a read-only target takes a status write";
}

}  // namespace
