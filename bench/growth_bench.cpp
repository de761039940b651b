// What requests cost in the tree that the data-base manager of the process PID serves, whatever its
// size: each of them asked by this process, and the store's own calls. bench/growth starts it, with
// trees of bench/model. Prints one line a figure: name, nanoseconds of the processor that this
// process and the data-base manager took. Time that others take of a shared machine does not count.
//
//   growth_bench PID
#include <lmdb.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "ams_store.h"
#include "appt_request.h"
#include "dbmgr_proto.h"
#include "leaf_list.h"
#include "tds_desk.h"

namespace {

constexpr int kRounds = 15, kCalls = 512, kRowCalls = 40;
constexpr char kRoot[] = "InternetGatewayDevice";
const std::string kTable = std::string(kRoot) + ".Table";

clockid_t dbmgr_clock;

void Fail(const std::string &what) {
  fprintf(stderr, "growth_bench: %s\n", what.c_str());
  exit(1);
}

double Nanoseconds(clockid_t clock) {
  struct timespec now;
  if (clock_gettime(clock, &now) != 0) Fail("dbmgr is gone");
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

double Spent() { return Nanoseconds(CLOCK_PROCESS_CPUTIME_ID) + Nanoseconds(dbmgr_clock); }

/* The least of several rounds: what is more than that is of the caches that others emptied. */
template <class Work>
double Least(Work work) {
  double least = 0;
  for (int round = 0; round < kRounds; ++round) {
    const double before = Spent();
    work(round);
    const double spent = Spent() - before;
    if (round == 0 || spent < least) least = spent;
  }
  return least;
}

void Print(const char *name, double nanoseconds, size_t pieces) {
  printf("%s %.0f\n", name, nanoseconds / static_cast<double>(pieces));
}

std::string Request(uint32_t command, const std::string &path, const std::string &value = "") {
  const std::string bytes = DbmgrPutRequest({command, path, value});
  std::string reply;
  DbmgrAnswer answer;
  if (tds_call(kDbmgrRequest, bytes.data(), static_cast<uint32_t>(bytes.size()), kDbmgrName, 60000,
               &reply) != 0 ||
      DbmgrGetAnswer(std::move(reply), &answer) != 0 || answer.result < 0)
    Fail("no answer for " + path + ": " + answer.text);
  return std::move(answer.text);
}

std::vector<std::string> LeafPaths() {
  char *text = nullptr;
  std::vector<std::string> paths;
  Leaf leaf;
  if (ams_get_node_value(gptXmlTrees->root, kRoot, &text) != 0) Fail("there is no tree");
  for (std::string_view rest = text; NextLeaf(&rest, &leaf);)
    paths.push_back(std::string(kRoot) + "." + std::string(leaf.name));
  __tds_free(text);
  return paths;
}

/* What no look-up can be without: the same ones, of keys of the same length, in bare LMDB. It grows
   with the depth of its tree and with what the processor's caches do not hold. */
void BareReads(const std::vector<std::string> &all, const std::vector<std::string> &paths) {
  char folder[] = "/dev/shm/growth_bench.XXXXXX", out[64];
  MDB_env *env;
  MDB_txn *txn;
  MDB_dbi dbi;
  if (mkdtemp(folder) == nullptr || mdb_env_create(&env) != 0 ||
      mdb_env_set_mapsize(env, 256 << 20) != 0 ||
      mdb_env_open(env, folder, MDB_WRITEMAP | MDB_NOSYNC | MDB_NOTLS, 0600) != 0 ||
      mdb_txn_begin(env, nullptr, 0, &txn) != 0 || mdb_dbi_open(txn, nullptr, 0, &dbi) != 0)
    Fail("LMDB does not open");
  auto val = [](const std::string &text) {
    return MDB_val{text.size(), const_cast<char *>(text.data())};
  };
  const std::string value = "20 bytes before it, and its text";
  for (const std::string &path : all) {
    MDB_val key = val(path), data = val(value);
    if (mdb_put(txn, dbi, &key, &data, 0) != 0) Fail("LMDB takes no more");
  }
  if (mdb_txn_commit(txn) != 0 || mdb_txn_begin(env, nullptr, MDB_RDONLY, &txn) != 0)
    Fail("LMDB does not commit");
  Print("lmdb/leaf", Least([&](int) {
          for (const std::string &path : paths) {
            MDB_val key = val(path), data;
            mdb_txn_reset(txn);
            if (mdb_txn_renew(txn) != 0 || mdb_get(txn, dbi, &key, &data) != 0) Fail(path);
            memcpy(out, data.mv_data, data.mv_size);
          }
        }),
        paths.size());
  mdb_txn_abort(txn);
  mdb_env_close(env);
  for (const char *name : {"/data.mdb", "/lock.mdb"}) unlink((folder + std::string(name)).c_str());
  rmdir(folder);
}

std::string Row(size_t number) { return kTable + "." + std::to_string(number); }

void Reads(size_t leaves, size_t rows, const std::vector<std::string> &paths) {
  char value[64];
  Print("store/leaf", Least([&](int) {
          for (const std::string &path : paths)
            if (ams_mxml_get_leaf(path.c_str(), value, sizeof value) != 0) Fail(path);
        }),
        paths.size());
  Print("leaf", Least([&](int) {
          for (const std::string &path : paths) Request(APPT_CMD_GET, path);
        }),
        paths.size());
  Print("object", Least([&](int) {
          for (size_t call = 0; call < kCalls; ++call)
            Request(APPT_CMD_GET, Row(call * 7919 % rows + 1));
        }),
        kCalls);
  const size_t tables = std::max<size_t>(kCalls / rows, 4);
  Print("table", Least([&](int) {
          for (size_t call = 0; call < tables; ++call) Request(APPT_CMD_GET, kTable);
        }),
        tables * rows * 10);
  Print("list", Least([&](int) {
          for (size_t call = 0; call < tables; ++call) Request(APPT_CMD_LIST, kTable);
        }),
        tables * rows);
  Print("whole", Least([&](int) { Request(APPT_CMD_GET, kRoot); }), leaves);
}

void Writes(size_t leaves, size_t rows) {
  std::vector<std::string> added;
  Print("set", Least([&](int round) {
          for (size_t call = 0; call < kCalls; ++call)
            Request(APPT_CMD_SET, Row(call * 7919 % rows + 1),
                    "TableAlias=" + std::to_string(call) + " of " + std::to_string(round));
        }),
        kCalls);
  double least_add = 0, least_delete = 0;
  for (int round = 0; round < kRounds; ++round) {
    added.clear();
    double before = Spent();
    for (int call = 0; call < kRowCalls; ++call) added.push_back(Request(APPT_CMD_ADD, kTable));
    const double add = Spent() - before;
    before = Spent();
    for (const std::string &row : added) Request(APPT_CMD_DEL, row);
    const double deleted = Spent() - before;
    if (round == 0 || add < least_add) least_add = add;
    if (round == 0 || deleted < least_delete) least_delete = deleted;
  }
  Print("add", least_add, kRowCalls);
  Print("delete", least_delete, kRowCalls);
  Print("save", Least([&](int) {
          if (ams_save_xml(gptXmlTrees->root, "/tmp/saved.xml") != 0) Fail("it cannot be saved");
        }),
        leaves);
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 2 || clock_getcpuclockid(atoi(argv[1]), &dbmgr_clock) != 0) Fail("give dbmgr's PID");
  gptXmlTrees = ShmPoolCliInit();
  if (gptXmlTrees == nullptr) Fail("there is no store");
  const std::vector<std::string> all = LeafPaths();
  std::vector<std::string> some;
  size_t rows = 0;
  for (size_t at = 0; at < kCalls; ++at) some.push_back(all[at * 7919 % all.size()]);
  while (ams_check_node(gptXmlTrees->root, Row(rows + 1).c_str()) == 0) ++rows;
  printf("leaves %zu\n", all.size());
  BareReads(all, some);
  Reads(all.size(), rows, some);
  Writes(all.size(), rows);
  return 0;
}
