// The data-model store against bare LMDB and pugixml: a get by path, a set with its commit, an
// object of ten leaves, and a file to a ready store.
#include <benchmark/benchmark.h>
#include <lmdb.h>
#include <malloc.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "ams_store.h"
#include "nanoseconds.h"
#include "tds.h"

namespace {

/* The shape: areas, each with an array of 100 instances of ten leaves. */
constexpr int kLeavesPerRow = 10, kRowsPerArea = 100;

/* Not in the order of the alphabet, as real ones are not. */
std::string LeafName(int leaf) {
  return std::string("Parameter") + static_cast<char>('A' + leaf * 7 % 10) + "Number";
}
std::string RowPath(int row) {
  return "InternetGatewayDevice.Services.X_KVO_Area" + std::to_string(row / kRowsPerArea) +
         ".Rows." + std::to_string(row % kRowsPerArea + 1);
}
std::string Value(int row, int leaf) { return "value " + std::to_string(row * 31 + leaf); }

std::string MakeRowElement(const std::string &start, const std::string &end, int row) {
  std::string xml = start;
  for (int leaf = 0; leaf < kLeavesPerRow; ++leaf)
    xml += "<" + LeafName(leaf) + " type=\"string\" writable=\"1\">" + Value(row, leaf) + "</" +
           LeafName(leaf) + ">\n";
  return xml + end + "\n";
}

/* A data-model file with `leaves` leaves, each written out, and a template in each area. */
std::string MakeXml(int leaves) {
  std::string xml = "<InternetGatewayDevice type=\"object\">\n<Services type=\"object\">\n";
  for (int row = 0; row < leaves / kLeavesPerRow; ++row) {
    std::string area = "X_KVO_Area" + std::to_string(row / kRowsPerArea);
    int number = row % kRowsPerArea + 1;
    if (number == 1)
      xml += "<" + area + " type=\"object\"><Rows type=\"array\">\n" +
             MakeRowElement("<Template>", "</Template>", row);
    xml += MakeRowElement("<Instance id=\"" + std::to_string(number) + "\">", "</Instance>", row);
    if (number == kRowsPerArea) xml += "</Rows></" + area + ">\n";
  }
  return xml + "</Services></InternetGatewayDevice>\n";
}

/* As many bytes as the store keeps of a leaf beside its name and value. */
const std::string kFront(12, 'f');

using Rows = std::map<std::string, std::string>;

Rows MakeRows(int leaves) {
  Rows rows;
  for (int row = 0; row < leaves / kLeavesPerRow; ++row) {
    rows[RowPath(row)] = kFront;
    for (int leaf = 0; leaf < kLeavesPerRow; ++leaf)
      rows[RowPath(row) + "." + LeafName(leaf)] = kFront + Value(row, leaf);
  }
  return rows;
}

/* Paths to ask for in turn, spread over the tree; the same for everyone. */
std::vector<std::string> MakePaths(int leaves, bool objects) {
  std::vector<std::string> paths;
  int rows = leaves / kLeavesPerRow;
  for (int at = 0; at < 1024; ++at) {
    std::string path = RowPath(static_cast<int>(at * 7919LL % rows));
    paths.push_back(objects ? path : path + "." + LeafName(at % kLeavesPerRow));
  }
  return paths;
}

/* ---- the store ---- */

FILE *FileOf(const std::string &xml) {
  FILE *file = tmpfile();
  if (file == nullptr || fwrite(xml.data(), 1, xml.size(), file) != xml.size()) abort();
  rewind(file);
  return file;
}

void LoadStore(int leaves) {
  static int loaded;
  if (gptXmlTrees == nullptr) gptXmlTrees = ShmPoolSrvInit();
  if (gptXmlTrees == nullptr) abort();
  if (loaded == leaves) return;
  FILE *file = FileOf(MakeXml(leaves));
  gptXmlTrees->root = ams_mxmlLoadFile(nullptr, file, nullptr);
  fclose(file);
  if (gptXmlTrees->root == nullptr) abort();
  loaded = leaves;
}

void GetStore(benchmark::State &state, int leaves) {
  LoadStore(leaves);
  std::vector<std::string> paths = MakePaths(leaves, false);
  char value[256];
  size_t at = 0;
  for (auto _ : state) {
    if (ams_mxml_get_leaf(paths[at++ & 1023].c_str(), value, sizeof value) != 0) abort();
    benchmark::DoNotOptimize(value);
  }
}

void ObjectStore(benchmark::State &state, int leaves) {
  LoadStore(leaves);
  std::vector<std::string> paths = MakePaths(leaves, true);
  size_t at = 0;
  for (auto _ : state) {
    char *text;
    if (ams_get_node_value(gptXmlTrees->root, paths[at++ & 1023].c_str(), &text) != 0) abort();
    benchmark::DoNotOptimize(text);
    __tds_free(text);
  }
}

/* A status write: the tree's alone, as the peer's. */
void SetStore(benchmark::State &state, int leaves) {
  LoadStore(leaves);
  std::vector<std::string> paths = MakePaths(leaves, false);
  static size_t at;
  for (auto _ : state) { /* each round has other values than the one before, also of another run */
    const char *value = (at >> 10 & 1) != 0 ? "another value" : "one more value";
    if (ams_sset_node_value(gptXmlTrees->root, paths[at++ & 1023].c_str(), value) != 0) abort();
  }
}

void SetKeptStore(benchmark::State &state, int leaves) {
  LoadStore(leaves);
  std::vector<std::string> paths = MakePaths(leaves, false);
  static size_t at;
  for (auto _ : state) {
    const char *value = (at >> 10 & 1) != 0 ? "another value" : "one more value";
    if (ams_set_node_value(gptXmlTrees->root, paths[at++ & 1023].c_str(), value) != 0) abort();
  }
}

/* ---- bare LMDB ---- */

struct Bare {
  MDB_env *env;
  MDB_dbi dbi;
  int leaves;
};

void BulkLoad(const Bare &bare, const Rows &rows) {
  MDB_txn *txn;
  MDB_cursor *cursor;
  if (mdb_txn_begin(bare.env, nullptr, 0, &txn) != 0 || mdb_drop(txn, bare.dbi, 0) != 0) abort();
  if (mdb_cursor_open(txn, bare.dbi, &cursor) != 0) abort();
  for (const auto &row : rows) {
    MDB_val key = {row.first.size(), const_cast<char *>(row.first.data())};
    MDB_val value = {row.second.size(), const_cast<char *>(row.second.data())};
    if (mdb_cursor_put(cursor, &key, &value, MDB_APPEND) != 0) abort();
  }
  mdb_cursor_close(cursor);
  if (mdb_txn_commit(txn) != 0) abort();
}

Bare OpenBare() {
  Bare bare = {};
  char folder[] = "/dev/shm/store_bench.XXXXXX";
  MDB_txn *txn;
  unsigned flags = MDB_WRITEMAP | MDB_NOSYNC | MDB_NOTLS | MDB_NOMEMINIT;
  if (mkdtemp(folder) == nullptr || mdb_env_create(&bare.env) != 0) abort();
  mdb_env_set_mapsize(bare.env, 256 << 20);
  if (mdb_env_open(bare.env, folder, flags, 0600) != 0) abort();
  if (mdb_txn_begin(bare.env, nullptr, 0, &txn) != 0) abort();
  if (mdb_dbi_open(txn, nullptr, 0, &bare.dbi) != 0 || mdb_txn_commit(txn) != 0) abort();
  std::filesystem::remove_all(folder);
  return bare;
}

Bare &BareStore(int leaves) {
  static Bare bare = OpenBare();
  if (bare.leaves != leaves) BulkLoad(bare, MakeRows(leaves));
  bare.leaves = leaves;
  return bare;
}

/* The same keys as bytes that LMDB compares; renew, get, copy out, reset. */
void GetLmdb(benchmark::State &state, int leaves) {
  Bare &bare = BareStore(leaves);
  std::vector<std::string> paths = MakePaths(leaves, false);
  MDB_txn *txn;
  if (mdb_txn_begin(bare.env, nullptr, MDB_RDONLY, &txn) != 0) abort();
  mdb_txn_reset(txn);
  char out[256];
  size_t at = 0;
  for (auto _ : state) {
    const std::string &path = paths[at++ & 1023];
    MDB_val key = {path.size(), const_cast<char *>(path.data())}, value;
    if (mdb_txn_renew(txn) != 0 || mdb_get(txn, bare.dbi, &key, &value) != 0) abort();
    size_t length = value.mv_size - kFront.size();
    memcpy(out, static_cast<char *>(value.mv_data) + kFront.size(), length);
    out[length] = '\0';
    mdb_txn_reset(txn);
    benchmark::DoNotOptimize(out);
  }
  mdb_txn_abort(txn);
}

void SetLmdb(benchmark::State &state, int leaves) {
  Bare &bare = BareStore(leaves);
  std::vector<std::string> paths = MakePaths(leaves, false);
  const std::string texts[] = {kFront + "one more value", kFront + "another value"};
  static size_t at;
  for (auto _ : state) {
    const std::string &text = texts[at >> 10 & 1];
    const std::string &path = paths[at++ & 1023];
    MDB_val key = {path.size(), const_cast<char *>(path.data())};
    MDB_val value = {text.size(), const_cast<char *>(text.data())};
    MDB_txn *txn;
    if (mdb_txn_begin(bare.env, nullptr, 0, &txn) != 0) abort();
    if (mdb_put(txn, bare.dbi, &key, &value, 0) != 0 || mdb_txn_commit(txn) != 0) abort();
  }
}

/* What a kept change cannot be without: a put and commit in memory, and one that is on flash. */
void SetKeptLmdb(benchmark::State &state, int leaves) {
  Bare &bare = BareStore(leaves);
  std::vector<std::string> paths = MakePaths(leaves, false);
  const std::string texts[] = {kFront + "one more value", kFront + "another value"};
  char folder[] = "/var/nvram/store_bench.XXXXXX";
  Bare flash = {};
  MDB_txn *txn;
  if (mkdtemp(folder) == nullptr || mdb_env_create(&flash.env) != 0) abort();
  mdb_env_set_mapsize(flash.env, 64 << 20);
  if (mdb_env_open(flash.env, folder, MDB_NOTLS, 0600) != 0) abort();
  if (mdb_txn_begin(flash.env, nullptr, 0, &txn) != 0) abort();
  if (mdb_dbi_open(txn, nullptr, 0, &flash.dbi) != 0 || mdb_txn_commit(txn) != 0) abort();
  static size_t at;
  for (auto _ : state) {
    const std::string &text = texts[at >> 10 & 1];
    const std::string &path = paths[at++ & 1023];
    for (const Bare &one : {bare, flash}) {
      MDB_val key = {path.size(), const_cast<char *>(path.data())};
      MDB_val value = {text.size(), const_cast<char *>(text.data())};
      if (mdb_txn_begin(one.env, nullptr, 0, &txn) != 0) abort();
      if (mdb_put(txn, one.dbi, &key, &value, 0) != 0 || mdb_txn_commit(txn) != 0) abort();
    }
  }
  mdb_env_close(flash.env);
  std::filesystem::remove_all(folder);
}

/* ---- pugixml ---- */

/* Walks down by names; instances by their id. */
const char *WalkDown(pugi::xml_node node, const char *path) {
  char name[128];
  while (path != nullptr && *path != '\0') {
    const char *dot = strchr(path, '.');
    size_t length = dot == nullptr ? strlen(path) : static_cast<size_t>(dot - path);
    memcpy(name, path, length);
    name[length] = '\0';
    node = name[0] >= '0' && name[0] <= '9' ? node.find_child_by_attribute("Instance", "id", name)
                                            : node.child(name);
    path = dot == nullptr ? nullptr : dot + 1;
  }
  return node.child_value();
}

void GetPugixml(benchmark::State &state, int leaves) {
  std::string xml = MakeXml(leaves);
  pugi::xml_document document;
  if (!document.load_buffer(xml.data(), xml.size())) abort();
  std::vector<std::string> paths = MakePaths(leaves, false);
  char out[256];
  size_t at = 0;
  for (auto _ : state) {
    const char *value = WalkDown(document, paths[at++ & 1023].c_str());
    strncpy(out, value, sizeof out - 1);
    benchmark::DoNotOptimize(out);
  }
}

/* ---- a file to a ready store: in a process and in memory of its own, as at a start ---- */

std::string program;

constexpr char kStore[] = "/dev/shm/ams_store"; /* whoever has it open goes on with what he has */

/* Now; the heap has nothing that what came before had from the kernel. */
uint64_t BeginAnew() {
  (void)malloc_trim(0);
  return Nanoseconds();
}

uint64_t LoadOfStore(FILE *file) {
  std::filesystem::remove_all(kStore);
  if (ShmPoolSrvInit() == nullptr) abort();
  const uint64_t start = BeginAnew();
  if (ams_mxmlLoadFile(nullptr, file, nullptr) == nullptr) abort();
  const uint64_t taken = Nanoseconds() - start;
  std::filesystem::remove_all(kStore);
  return taken;
}

/* What a load cannot be without: the file read and parsed, its rows put into a store in order. */
uint64_t LoadOfPeers(FILE *file, size_t size, int leaves) {
  const Bare bare = OpenBare();
  const Rows rows = MakeRows(leaves);
  const uint64_t start = BeginAnew();
  std::string text(size, '\0');
  pugi::xml_document document;
  if (fread(&text[0], 1, text.size(), file) != text.size()) abort();
  if (!document.load_buffer_inplace(&text[0], text.size())) abort();
  BulkLoad(bare, rows);
  return Nanoseconds() - start;
}

int LoadOnce(const std::string &who, int leaves) {
  const std::string xml = MakeXml(leaves);
  FILE *file = FileOf(xml);
  printf("%lu\n", who == "store" ? LoadOfStore(file) : LoadOfPeers(file, xml.size(), leaves));
  fclose(file);
  return 0;
}

void Loads(benchmark::State &state, const char *who, int leaves) {
  const std::string command = program + " once " + who + " " + std::to_string(leaves);
  for (auto _ : state) {
    FILE *answer = popen(command.c_str(), "r");
    uint64_t ns;
    if (answer == nullptr || fscanf(answer, "%lu", &ns) != 1 || pclose(answer) != 0) abort();
    state.SetIterationTime(static_cast<double>(ns) * 1e-9);
  }
}

struct Row {
  const char *name;
  void (*run)(benchmark::State &, int);
  int leaves;
};

const Row kRows[] = {
    {"get/store", GetStore, 20000},           {"get/lmdb", GetLmdb, 20000},
    {"get/pugixml/20000", GetPugixml, 20000}, {"object10/store", ObjectStore, 20000},
    {"set/store", SetStore, 20000},           {"set/lmdb", SetLmdb, 20000},
    {"set kept/store", SetKeptStore, 20000},  {"set kept/lmdb", SetKeptLmdb, 20000},
    {"get/store/200000", GetStore, 200000},   {"get/pugixml/200000", GetPugixml, 200000},
};

}  // namespace

int main(int argc, char **argv) {
  program = argv[0];
  if (argc == 4 && strcmp(argv[1], "once") == 0) return LoadOnce(argv[2], atoi(argv[3]));
  for (const Row &row : kRows) benchmark::RegisterBenchmark(row.name, row.run, row.leaves);
  for (const char *who : {"store", "peers"})
    for (int leaves : {20000, 200000})
      benchmark::RegisterBenchmark(
          (std::string("load/") + who + "/" + std::to_string(leaves)).c_str(), Loads, who, leaves)
          ->UseManualTime();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
