// The store beside a plain table: values of all lengths, rows, what is given up, files and starts.
#include <rapidcheck.h>

#include <array>
#include <iterator>
#include <map>

#include "nvram.h"
#include "store_support.h"
#include "transaction.h"

namespace {

const std::array<std::string, 3> kLeaves = {"First", "In.Deep", "Long"};
const std::string kLongDefault(300, 'd');

const std::string kModel =
    "<InternetGatewayDevice type=\"object\"><Last type=\"string\"/><Rows type=\"array\"><Template>"
    "<First type=\"string\">1</First><In type=\"object\"><Deep type=\"string\"/></In>"
    "<Long type=\"string\" notify=\"1\">" +
    kLongDefault + "</Long></Template></Rows></InternetGatewayDevice>";

struct Plain {
  std::string file = kModel; /* of the last start */
  std::string last;
  std::map<int, std::array<std::string, 3>> rows;
  int highest = 0;
};

std::string RowText(const std::array<std::string, 3> &row, const std::string &before) {
  std::string text;
  for (size_t leaf = 0; leaf < kLeaves.size(); ++leaf)
    text += (text.empty() ? "" : "|") + before + kLeaves[leaf] + "=" + row[leaf];
  return text;
}

std::string TextOf(const Plain &plain) {
  std::string text = "Last=" + plain.last;
  for (const auto &[number, row] : plain.rows)
    text += "|" + RowText(row, "Rows." + std::to_string(number) + ".");
  return text;
}

/* The leaf of a step, and where the plain table has it; without rows the one that is in none. */
std::string *Choose(Plain *plain, std::string *path) {
  *path = IGD "Last";
  if (plain->rows.empty() || *rc::gen::inRange(0, 6) == 0) return &plain->last;
  auto row = plain->rows.begin();
  std::advance(row, *rc::gen::inRange<size_t>(0, plain->rows.size()));
  const size_t leaf = *rc::gen::inRange<size_t>(0, kLeaves.size());
  *path = IGD "Rows." + std::to_string(row->first) + "." + kLeaves[leaf];
  return &row->second[leaf];
}

void Set(Plain *plain) {
  std::string path, *value = Choose(plain, &path);
  const auto length = *rc::gen::element<size_t>(0, 1, 9, 40, 255, 256, 257, 700, 3000);
  *value = std::string(length, *rc::gen::inRange('a', 'd'));
  const bool status = *rc::gen::arbitrary<bool>();
  RC_LOG() << (status ? "status " : "set ") << path << " " << length << (*value)[0] << "\n";
  RC_ASSERT(
      (status ? ams_sset_node_value : ams_set_node_value)(root, path.c_str(), value->c_str()) == 0);
}

void Add(Plain *plain) {
  char url[AMS_PATH_SIZE];
  RC_LOG() << "add\n";
  RC_ASSERT(ams_add_obj(root, IGD "Rows", url) == 0);
  RC_ASSERT(url == IGD "Rows." + std::to_string(++plain->highest));
  plain->rows[plain->highest] = {"1", "", kLongDefault};
}

void Delete(Plain *plain) {
  const int number = *rc::gen::inRange(1, plain->highest + 2);
  RC_LOG() << "del " << number << "\n";
  const std::string row = IGD "Rows." + std::to_string(number);
  RC_ASSERT((ams_del_obj(root, row.c_str()) == 0) == (plain->rows.erase(number) == 1));
}

void GiveUp(Plain *plain) {
  Plain other = *plain;
  RC_LOG() << "giveup\n";
  RC_ASSERT(ams_write_begin() == 0);
  Set(&other);
  Add(&other);
  Set(&other);
  RC_ASSERT(ams_write_cancel() == 0);
}

/* All that was written is there again, kept or a status. */
void Start(const std::string &xml) {
  RC_LOG() << "start\n";
  root = Load(xml);
  const bool loaded = root != nullptr;
  RC_ASSERT(loaded);
  RC_ASSERT(update_from_nvram(root, NVTYPE_STAGING) == 0);
}

void StartAnew(Plain *plain) { Start(plain->file); }

void StartFromSaved(Plain *plain) {
  const std::string file = testing::TempDir() + "plain.xml";
  RC_ASSERT(ams_save_xml(root, file.c_str()) == 0);
  Start(plain->file = FileText(file));
}

/* Of the database: nothing stays behind. */
size_t Entries() {
  MDB_stat stat = {};
  const int result =
      TreeRead([&](MDB_txn *txn) { return mdb_stat(txn, shared_tree.lmdb.dbi, &stat); });
  return result == 0 ? stat.ms_entries : 0;
}

void (*const kSteps[])(Plain *) = {Set, Set, Set, Add, Delete, GiveUp, StartAnew, StartFromSaved};

TEST_F(Store, BehavesAsAPlainTable) {
  const bool holds = rc::check("sets, rows, spans that are given up, files and starts", [this] {
    Plain plain;
    SetUp();
    Start(kModel);
    const size_t before = Entries();
    const int steps = *rc::gen::inRange(1, 60);
    for (int step = 0; step < steps; ++step) {
      kSteps[*rc::gen::inRange<size_t>(0, std::size(kSteps))](&plain);
      RC_ASSERT(Text("InternetGatewayDevice") == TextOf(plain));
      if (plain.rows.empty()) continue;
      const auto &[number, row] = *plain.rows.rbegin();
      RC_ASSERT(Text(IGD "Rows." + std::to_string(number)) == RowText(row, ""));
      RC_ASSERT(Text(IGD "Rows." + std::to_string(number) + ".In") == "Deep=" + row[1]);
      RC_ASSERT(Leaf(IGD "Rows." + std::to_string(number) + ".Long") == row[2]);
    }
    for (const auto &row : plain.rows)
      RC_ASSERT(ams_del_obj(root, (IGD "Rows." + std::to_string(row.first)).c_str()) == 0);
    RC_ASSERT(ams_sset_node_value(root, IGD "Last", "") == 0);
    RC_ASSERT(Entries() == before);
  });
  EXPECT_TRUE(holds);
}

}  // namespace
