// A table of rows of ten parameters through the typed views, beside the bare store calls that it
// takes: loading 1,000 rows; loading 100 and copying them into an empty table, where each write is
// kept on flash, with all that is kept already.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "ams_config_tree.h"
#include "ams_store.h"
#include "tds.h"

namespace {

#define TOP "InternetGatewayDevice.Services."

constexpr int kRows = 1000, kCopied = 100;
constexpr char kValue[] = "value of a parameter";
const char *const kNames[] = {"Enable", "ServiceName", "AccessDirection", "SourceRange", "Action",
                              "Port",   "Protocol",    "Description",     "Interface",   "Order"};
const auto row = ConfigRowOf(kNames[0], kNames[1], kNames[2], kNames[3], kNames[4], kNames[5],
                             kNames[6], kNames[7], kNames[8], kNames[9]);
ConfigArray source = ConfigArrayOf(TOP "Source.", row), target = ConfigArrayOf(TOP "Target.", row);

std::string RowElement(const std::string &tag, const std::string &end, const std::string &value) {
  std::string xml = "<" + tag + ">";
  for (const char *name : kNames)
    xml += std::string("<") + name + " type=\"string\">" + value + "</" + name + ">";
  return xml + "</" + end + ">\n";
}

/* The store with so many rows of the source and none of the target. */
void LoadStore(int count) {
  std::string rows = RowElement("Template", "Template", ""), table = "type=\"array\">" + rows;
  std::string xml = "<InternetGatewayDevice type=\"object\"><Services type=\"object\"><Target " +
                    table + "</Target><Source " + table;
  for (int i = 1; i <= count; ++i)
    xml += RowElement("Instance id=\"" + std::to_string(i) + "\"", "Instance", kValue);
  xml += "</Source></Services></InternetGatewayDevice>";
  if (gptXmlTrees == nullptr && (gptXmlTrees = ShmPoolSrvInit()) == nullptr) abort();
  FILE *file = fmemopen(xml.data(), xml.size(), "r");
  if (file == nullptr) abort();
  gptXmlTrees->root = ams_mxmlLoadFile(nullptr, file, nullptr);
  fclose(file);
  if (gptXmlTrees->root == nullptr) abort();
}

std::vector<std::string> Paths(const char *table, int count) {
  std::vector<std::string> paths;
  for (int i = 1; i <= count; ++i)
    for (const char *name : kNames) paths.push_back(table + std::to_string(i) + "." + name);
  return paths;
}

/* The texts are kept until all are read, as whoever wants a table keeps them. */
void ReadAll(const std::vector<std::string> &paths) {
  static std::vector<char *> texts;
  texts.resize(paths.size());
  for (size_t i = 0; i < paths.size(); ++i)
    if (ams_get_node_value(gptXmlTrees->root, paths[i].c_str(), &texts[i]) != 0) abort();
  for (char *text : texts) __tds_free(text);
}

void LoadTree(benchmark::State &state) {
  LoadStore(kRows);
  for (auto _ : state) {
    if (ConfigArrayGet(&source) != 0 || source.count != kRows) abort();
    ConfigArrayDestroy(&source);
  }
}

void LoadReads(benchmark::State &state) {
  LoadStore(kRows);
  const std::vector<std::string> paths = Paths(TOP "Source.", kRows);
  for (auto _ : state) ReadAll(paths);
}

void CopyTree(benchmark::State &state) {
  for (auto _ : state) {
    state.PauseTiming();
    LoadStore(kCopied);
    state.ResumeTiming();
    if (ConfigArrayGet(&source) != 0 || ConfigArrayFill(&target, &source) != 0) abort();
    ConfigArrayDestroy(&source);
  }
}

void CopyCalls(benchmark::State &state) {
  const std::vector<std::string> from = Paths(TOP "Source.", kCopied),
                                 to = Paths(TOP "Target.", kCopied);
  for (auto _ : state) {
    state.PauseTiming();
    LoadStore(kCopied);
    state.ResumeTiming();
    char url[AMS_PATH_SIZE];
    ReadAll(from);
    for (size_t i = 0; i < to.size(); ++i) {
      if (i % std::size(kNames) == 0 && ams_add_obj(gptXmlTrees->root, TOP "Target", url) != 0)
        abort();
      if (ams_set_node_value(gptXmlTrees->root, to[i].c_str(), kValue) != 0) abort();
    }
  }
}

BENCHMARK(LoadTree)->Name("tree/load");
BENCHMARK(LoadReads)->Name("tree/reads");
BENCHMARK(CopyTree)->Name("tree/copy")->Iterations(3);
BENCHMARK(CopyCalls)->Name("tree/calls")->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
