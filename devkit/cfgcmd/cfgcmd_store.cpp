// Verbs that read or write the data-model store without asking anybody: the tree, status writes,
// and the candidates of the shell's completion.
#include <algorithm>
#include <cstring>
#include <memory_resource>
#include <new>

#include "ams_store.h"
#include "cfgcmd.h"
#include "cfgcmd_print.h"
#include "endpoint_call.h"
#include "nodes.h"
#include "store_desk.h"

namespace {

constexpr char kRoot[] = "InternetGatewayDevice";

bool Attach() {
  if (gptXmlTrees == nullptr) gptXmlTrees = ShmPoolCliInit();
  return gptXmlTrees != nullptr && gptXmlTrees->root != nullptr;
}

const Outcome kNoStore = {EXIT_REFUSED, "there is no data-model store: " + HowToStart("dbmgr:")};

/* One node as the tree shows it. */
struct Row {
  std::pmr::string path, value, description;
  const char *type;
  bool is_leaf;
};

/* The texts of all rows lie one behind the other: there are many of them. */
struct Rows {
  std::pmr::monotonic_buffer_resource texts;
  std::pmr::vector<Row> rows{&texts};
};

int AddRow(const AmsDeskNode &node, void *context) {
  Rows *all = static_cast<Rows *>(context);
  auto text = [all](std::string_view view) { return std::pmr::string(view, &all->texts); };
  all->rows.push_back(
      {text(node.path), text(node.value), text(node.description), node.type, node.is_leaf});
  return 0;
}

std::string Columns(const std::pmr::vector<Row> &rows) {
  size_t paths = 0, types = 0, values = 0, others = 0;
  for (const Row &row : rows) {
    paths = std::max(paths, row.path.size());
    types = std::max(types, strlen(row.type));
    if (row.value.size() <= 40) values = std::max(values, row.value.size());
    others += row.description.size() + (row.value.size() <= 40 ? 0 : row.value.size());
  }
  std::string text;
  text.reserve(others + rows.size() * (paths + types + values + sizeof "      \n"));
  for (const Row &row : rows) {
    auto cell = [&text](std::string_view value, size_t width) {
      text.append(value).append(std::max(width, value.size()) - value.size() + 2, ' ');
    };
    cell(row.path, paths);
    cell(row.type, types);
    cell(row.value, values);
    text += row.description;
    while (text.back() == ' ') text.pop_back();
    text += '\n';
  }
  return text;
}

std::string RowsAsJson(const std::pmr::vector<Row> &rows) {
  Json list = Json::array();
  for (const Row &row : rows) {
    Json entry = {{"path", row.path.c_str()}, {"type", row.type}};
    if (row.is_leaf) entry["value"] = row.value.c_str();
    if (!row.description.empty()) entry["description"] = row.description.c_str();
    list.push_back(std::move(entry));
  }
  return JsonText(list);
}

Outcome Tree(const Words &words, const Options &options) {
  if (!Attach()) return kNoStore;
  std::string path = words.empty() ? kRoot : Bare(words[0]);
  Rows all;
  if (ams_desk_walk(path.c_str(), true, AddRow, &all) != 0) {
    if (ams_check_node(gptXmlTrees->root, path.c_str()) >= 0) throw std::bad_alloc();
    return {EXIT_REFUSED, "no parameter \"" + path + "\": \"cfgcmd tree\" lists what there is"};
  }
  return {EXIT_DONE, options.json ? RowsAsJson(all.rows) : Columns(all.rows)};
}

Outcome Sset(const Words &words, const Options &) {
  if (!Attach()) return kNoStore;
  const char *path = words[0].c_str();
  if (ams_check_node(gptXmlTrees->root, path) != 0)
    return {EXIT_REFUSED, "no parameter \"" + words[0] + "\": \"cfgcmd tree\" lists what there is"};
  if (ams_sset_node_value(gptXmlTrees->root, path, words[1].c_str()) != 0)
    return {EXIT_REFUSED, "the store refused \"" + words[0] +
                              "\": it takes parameters, with values of at most 32768 bytes, while "
                              "/dev/shm has room"};
  return {};
}

/* Candidates for the word that is being typed: verbs, or paths one level deeper. */
Outcome Complete(const Words &words, const Options &) {
  bool verbs = !words.empty() && words[0] == "--verbs";
  std::string typed = words.size() > (verbs ? 1 : 0) ? words.back() : "";
  std::string text;
  auto offer = [&](const std::string &candidate) {
    if (candidate.compare(0, typed.size(), typed) == 0) text += candidate + "\n";
  };
  if (verbs) {
    for (const Verb *verb : AllVerbs())
      if (verb->help[0] != '\0') offer(verb->name);
    return {EXIT_DONE, text};
  }
  if (!Attach()) return kNoStore;
  size_t dot = typed.rfind('.');
  std::vector<std::string> paths = {kRoot};
  if (dot != std::string::npos) paths = Children(typed.substr(0, dot));
  for (const std::string &path : paths) {
    const std::string type = Attribute(path, "type");
    offer(type == "object" || type == "array" ? path + "." : path);
  }
  return {EXIT_DONE, text};
}

}  // namespace

const Verb kStoreVerbs[] = {
    {"tree", "[PATH]", "List what there is: path, type, value, description", 0, 1, false, true,
     Tree},
    {"sset", "PATH VALUE", "Write a status straight to the store, read-only ones too", 2, 2, true,
     true, Sset},
    {"complete", "[--verbs] WORD", "", 0, 2, true, false, Complete},
    {},
};
