// Verbs that read or write the data-model store without asking anybody: the tree, and status
// writes.
#include <algorithm>
#include <cstring>
#include <deque>
#include <memory_resource>
#include <new>
#include <unordered_map>

#include "ams_store.h"
#include "cfgcmd_paths.h"
#include "cfgcmd_print.h"
#include "parse.h"
#include "store_desk.h"

namespace {

/* What the nodes with the same attributes of the file share. */
struct Shown {
  std::string description, op, mod, min, max, values, range;
  bool writable;
};

/* One node as the tree shows it. */
struct Row {
  std::pmr::string path, value;
  const char *type, *access;
  const Shown *shown;
  const std::string *module; /* that serves it */
  bool is_leaf;
};

/* The texts of all rows lie one behind the other: there are many of them. */
struct Rows {
  size_t top = 0;     /* levels of the path that is the first */
  uint32_t depth = 0; /* levels below it that are wanted */
  std::unordered_map<const AmsDeskAttributes *, const Shown *> shown_of; /* in this walk */
  std::vector<std::pair<std::string, const std::string *>> way; /* what names a module above */
  std::deque<Shown> shown;
  std::deque<std::string> modules; /* of the paths */
  std::pmr::monotonic_buffer_resource texts;
  std::pmr::vector<Row> rows{&texts};
};

/* "{1..9}", "{a,b}"; of a string the most bytes. */
std::string RangeOf(const AmsDeskAttributes &of) {
  if (!of.values.empty()) return "{" + std::string(of.values) + "}";
  if (of.min.empty() && of.max.empty()) return "";
  return "{" + std::string(of.min) + ".." + std::string(of.max) + "}";
}

const Shown &ShownOf(Rows *all, const AmsDeskAttributes *of) {
  const Shown *&shown = all->shown_of[of];
  if (shown != nullptr) return *shown;
  auto text = [](std::string_view view) { return std::string(view); };
  all->shown.push_back({text(of->description), text(of->op), text(of->mod), text(of->min),
                        text(of->max), text(of->values), RangeOf(*of), of->writable != "0"});
  return *(shown = &all->shown.back());
}

/* The module of the node: its own, or that of what is above. */
const std::string *ModuleOf(Rows *all, const AmsDeskNode &node, const Shown &shown) {
  auto below = [&](const std::string &above) {
    return node.path.size() > above.size() && node.path[above.size()] == '.' &&
           node.path.compare(0, above.size(), above) == 0;
  };
  while (!all->way.empty() && !below(all->way.back().first)) all->way.pop_back();
  if (!node.mod.empty()) all->way.emplace_back(node.path, &shown.mod);
  return all->way.empty() ? &all->modules.back() : all->way.back().second;
}

/* Whether it can be set, added to, or deleted. */
const char *AccessOf(const AmsDeskNode &node, bool writable) {
  if (node.is_leaf) return writable ? "rw" : "r";
  if (strcmp(node.type, "array") == 0) return "add";
  const size_t name = node.path.rfind('.') + 1;
  return node.path.find_first_not_of("0123456789", name) == node.path.npos ? "del" : "-";
}

int AddRow(const AmsDeskNode &node, void *context) {
  Rows *all = static_cast<Rows *>(context);
  auto text = [all](std::string_view view) { return std::pmr::string(view, &all->texts); };
  const Shown &shown = ShownOf(all, node.attributes);
  const std::string *module = ModuleOf(all, node, shown);
  if (all->depth != UINT32_MAX && static_cast<size_t>(std::count(node.path.begin(), node.path.end(),
                                                                 '.')) > all->top + all->depth)
    return 0;
  all->rows.push_back({text(node.path), text(node.value), node.type, AccessOf(node, shown.writable),
                       &shown, module, node.is_leaf});
  return 0;
}

/* What acts on an object or array stands in the place of a value. */
std::string ActorOf(const Row &row) {
  if (row.shown->op.empty() && row.shown->mod.empty()) return "";
  return (row.shown->op.empty() ? "-" : row.shown->op) + "@" +
         (row.module->empty() ? "-" : *row.module);
}

/* Cells that are longer do not move those of the other rows. */
constexpr size_t kWide = 40;

void Widen(size_t *width, size_t size) {
  if (size <= kWide) *width = std::max(*width, size);
}

std::string Columns(const std::pmr::vector<Row> &rows) {
  size_t paths = 0, types = 0, values = 0;
  for (const Row &row : rows) {
    paths = std::max(paths, row.path.size());
    Widen(&types, strlen(row.type) + row.shown->range.size());
    Widen(&values, row.is_leaf ? row.value.size() : ActorOf(row).size());
  }
  std::string text;
  text.reserve(rows.size() * (paths + types + values + kWide));
  for (const Row &row : rows) {
    auto cell = [&text](std::string_view value, size_t width) {
      text.append(value).append(std::max(width, value.size()) - value.size() + 2, ' ');
    };
    cell(row.path, paths);
    if (row.shown->range.empty())
      cell(row.type, types);
    else
      cell(row.type + row.shown->range, types);
    cell(row.access, strlen("add"));
    if (row.is_leaf)
      cell(row.value, values);
    else
      cell(ActorOf(row), values);
    text += row.shown->description;
    while (text.back() == ' ') text.pop_back();
    text += '\n';
  }
  return text;
}

Json RowAsJson(const Row &row) {
  Json entry = {{"path", row.path.c_str()}, {"type", row.type}, {"access", row.access}};
  if (row.is_leaf) entry["value"] = row.value.c_str();
  const std::pair<const char *, const std::string &> texts[] = {
      {"min", row.shown->min}, {"max", row.shown->max}, {"values", row.shown->values},
      {"op", row.shown->op},   {"module", *row.module}, {"description", row.shown->description}};
  for (const auto &[name, text] : texts)
    if (!text.empty()) entry[name] = text;
  return entry;
}

std::string RowsAsJson(const std::pmr::vector<Row> &rows) {
  Json list = Json::array();
  for (const Row &row : rows) list.push_back(RowAsJson(row));
  return JsonText(list);
}

/* Adds the rows of the path and of what is below it. */
Outcome AddRows(const std::string &path, Rows *all) {
  char module[AMS_NAME_SIZE];
  all->top = static_cast<size_t>(std::count(path.begin(), path.end(), '.'));
  all->modules.emplace_back(ams_desk_mod(path.c_str(), module, sizeof module) == 0 ? module : "");
  all->way.clear();
  all->shown_of.clear();
  if (ams_desk_walk(path.c_str(), true, AddRow, all) == 0) return {};
  if (ams_check_node(gptXmlTrees->root, path.c_str()) >= 0) throw std::bad_alloc();
  return {EXIT_REFUSED, WrongPath(path)};
}

Outcome Tree(const Words &words, const Options &options) {
  std::vector<std::string> paths;
  Outcome outcome;
  if (!AttachStore()) return kNoStore;
  if (words.empty())
    paths.push_back(options.base.empty() ? kRoot : options.base);
  else
    outcome = PathsOf(words, options, &paths);
  Rows all;
  all.depth = options.depth;
  for (size_t i = 0; i < paths.size() && outcome.status == EXIT_DONE; ++i)
    outcome = AddRows(paths[i], &all);
  if (outcome.status == EXIT_DONE)
    outcome.text = options.json ? RowsAsJson(all.rows) : Columns(all.rows);
  return outcome;
}

bool TakeDepth(const std::string &value, Options *options) {
  int64_t depth;
  if (!ParseDecimal(value, 0, AMS_PATH_SIZE, &depth)) return false;
  options->depth = static_cast<uint32_t>(depth);
  return true;
}

const VerbOption kTreeOptions[] = {
    {"--depth", "N", "No more than N levels below the path", TakeDepth},
    {},
};

Outcome Sset(const Words &words, const Options &options) {
  if (!AttachStore()) return kNoStore;
  const std::string path = FullPath(words[0], options.base);
  if (ams_check_node(gptXmlTrees->root, path.c_str()) != 0) return {EXIT_REFUSED, WrongPath(path)};
  if (ams_sset_node_value(gptXmlTrees->root, path.c_str(), words[1].c_str()) != 0)
    return {EXIT_REFUSED, "the store refused \"" + path +
                              "\": it takes parameters, with values of at most 32768 bytes, while "
                              "/dev/shm has room"};
  return {};
}

}  // namespace

const Verb kStoreVerbs[] = {
    {"tree", "[--depth N] [PATH...]",
     "What there is: path, type with range, access, value or OP@MODULE, description", 0, 200, false,
     true, Tree, kTreeOptions},
    {"sset", "PATH VALUE", "Write a status straight to the store, read-only ones too", 2, 2, true,
     true, Sset},
    {},
};
