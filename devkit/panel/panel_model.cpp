// Calls about the data model. What there is comes from the store, which nobody waits for; values
// and changes go through the data-base manager as cfgcmd's do.
#include <fnmatch.h>

#include <algorithm>
#include <cctype>
#include <mutex>
#include <sstream>

#include "ams_store.h"
#include "appt_request.h"
#include "log_file.h"
#include "nodes.h"
#include "panel_http.h"
#include "panel_program.h"
#include "requests.h"
#include "store_desk.h"

namespace {

constexpr char kRoot[] = "InternetGatewayDevice";
constexpr size_t kFoundMax = 200;
constexpr size_t kCommandsMax = 64 * 1024; /* bytes of the lines that a request is shown with */

const char *const kAttributes[] = {"type",        "op",  "check", "writable",
                                   "description", "min", "max",   "values"};

Json ReplyOf(const Outcome &outcome) { return ControlReply(outcome.status, outcome.text); }

bool Attach() {
  static std::mutex mutex;
  std::lock_guard<std::mutex> lock(mutex);
  if (gptXmlTrees == nullptr) gptXmlTrees = ShmPoolCliInit();
  return gptXmlTrees != nullptr && gptXmlTrees->root != nullptr;
}

Json NoStore() { return ControlReply(EXIT_REFUSED, "there is no data-model store: start dbmgr"); }

Json NoNode(const std::string &path) {
  return ControlReply(EXIT_REFUSED, "no parameter \"" + path + "\": it may be deleted by now");
}

bool Exists(const std::string &path) {
  return ams_check_node(gptXmlTrees->root, path.c_str()) == 0;
}

/* A node as the page shows it; what it has not is left out. */
Json Node(const std::string &path) {
  Json node = {{"path", path}};
  for (const char *name : kAttributes) {
    const std::string text = Attribute(path, name);
    if (!text.empty()) node[name] = text;
  }
  char mod[AMS_VALUE_MAX];
  if (ams_desk_mod(path.c_str(), mod, sizeof mod) == 0) node["mod"] = mod;
  char value[AMS_VALUE_MAX + 1];
  if (ams_mxml_get_leaf(path.c_str(), value, sizeof value) == 0) node["value"] = value;
  return node;
}

/* Whether there are objects or arrays below: leaves have no children of their own. */
bool HasObjects(const std::string &path) {
  const std::vector<std::string> children = Children(path);
  return std::any_of(children.begin(), children.end(), [](const std::string &child) {
    const std::string type = Attribute(child, "type");
    return type == "object" || type == "array";
  });
}

Json Nodes(const Json &asked) {
  if (!Attach()) return NoStore();
  const std::string path = Bare(asked.value("path", kRoot));
  if (!Exists(path)) return NoNode(path);
  Json reply = ControlReply(EXIT_DONE, ""), list = Json::array();
  for (const std::string &child : Children(path)) {
    Json node = Node(child);
    if (!node.contains("value") && HasObjects(child)) node["below"] = true;
    list.push_back(std::move(node));
  }
  reply["node"] = Node(path);
  reply["nodes"] = std::move(list);
  return reply;
}

struct Search {
  std::string text; /* with wildcards: a pattern for the whole path */
  bool pattern;
  std::vector<std::string> found;
};

bool Has(std::string_view text, const std::string &part) {
  auto same = [](char one, char other) {
    return tolower(static_cast<unsigned char>(one)) == tolower(static_cast<unsigned char>(other));
  };
  return std::search(text.begin(), text.end(), part.begin(), part.end(), same) != text.end();
}

/* Ends the walk when there is enough. */
int Look(const AmsDeskNode &node, void *context) {
  Search *search = static_cast<Search *>(context);
  const std::string path(node.path);
  const bool fits = search->pattern
                        ? fnmatch(search->text.c_str(), path.c_str(), FNM_CASEFOLD) == 0
                        : Has(path.substr(std::min(path.size(), sizeof kRoot)), search->text) ||
                              Has(node.value, search->text) ||
                              Has(node.attributes->description, search->text);
  if (fits) search->found.push_back(path);
  return search->found.size() > kFoundMax ? 1 : 0;
}

/* Part of a path, a value or a meaning; with "*" or "?" a pattern for the end of paths. */
Json Find(const Json &asked) {
  if (!Attach()) return NoStore();
  Search search = {asked.at("text"), false, {}};
  if (search.text.compare(0, sizeof kRoot, std::string(kRoot) + ".") == 0)
    search.text.erase(0, sizeof kRoot);
  if (search.text.empty() || search.text.size() > AMS_PATH_SIZE)
    return ControlReply(EXIT_USAGE, "search for 1 to 256 bytes");
  search.pattern = search.text.find_first_of("*?[") != search.text.npos;
  if (search.pattern) search.text = "*" + search.text;
  if (ams_desk_walk(kRoot, true, Look, &search) < 0) return NoStore();
  Json reply = ControlReply(EXIT_DONE, ""), list = Json::array();
  reply["more"] = search.found.size() > kFoundMax;
  search.found.resize(std::min(search.found.size(), kFoundMax));
  for (const std::string &path : search.found) list.push_back(Node(path));
  reply["nodes"] = std::move(list);
  return reply;
}

/* Runs a request, and shows the command lines that were started meanwhile. */
template <typename Request>
Json WithCommands(Request request) {
  if (!Attach()) return NoStore();
  const uint64_t offset = FileSize(kCommandsLog);
  Json reply = request(), list = Json::array();
  std::istringstream lines(AppendedSince(kCommandsLog, offset, kCommandsMax));
  for (std::string line; std::getline(lines, line);) list.push_back(line);
  reply["commands"] = std::move(list);
  return reply;
}

Json AskFor(uint32_t command, const std::string &path, const char *answer_name) {
  return WithCommands([&] {
    DbmgrAnswer answer;
    const Outcome outcome = Ask(command, path, "", kUsualLimit, &answer);
    Json reply = ReplyOf(outcome);
    if (outcome.status == EXIT_DONE && answer_name != nullptr) reply[answer_name] = answer.text;
    return reply;
  });
}

Json Get(const Json &asked) { return AskFor(APPT_CMD_GET, asked.at("path"), "value"); }
Json Add(const Json &asked) { return AskFor(APPT_CMD_ADD, asked.at("path"), "path"); }
Json Delete(const Json &asked) { return AskFor(APPT_CMD_DEL, asked.at("path"), nullptr); }
Json Refresh(const Json &asked) { return AskFor(APPT_CMD_REFRESH, asked.at("path"), nullptr); }

/* "leaves": paths and values in turn. */
Json Set(const Json &asked) {
  const std::vector<std::string> words = asked.at("leaves");
  if (words.empty() || words.size() % 2 != 0)
    return ControlReply(EXIT_USAGE, "a value for each path");
  return WithCommands([&] { return ReplyOf(SetLeaves(words, kUsualLimit)); });
}

/* What "words", a set, add or del as cfgcmd takes it, would do: from a copy of the gateway. */
Json Plan(const Json &asked) {
  std::vector<std::string> program = {"cfgcmd", "--json", "plan"};
  const std::vector<std::string> words = asked.at("words");
  if (words.size() < 2 || words[1].compare(0, sizeof kRoot - 1, kRoot) != 0)
    return ControlReply(EXIT_USAGE, "what to plan, and a path");
  program.insert(program.end(), words.begin(), words.end());
  std::string text;
  const int status = RunProgram(program, &text);
  Json plan = JsonIn(text);
  if (!plan.is_object())
    return ControlReply(EXIT_REFUSED, "no plan: /var/log/devkit/panel.log says why");
  Json reply = ControlReply(status, plan.value("text", ""));
  reply["plan"] = std::move(plan);
  return reply;
}

/* Status: what the line, the phone or the stick is now, whoever asks. */
Json Status(const Json &asked) {
  if (!Attach()) return NoStore();
  const std::string path = asked.at("path"), value = asked.at("value");
  if (!Exists(path)) return NoNode(path);
  if (ams_sset_node_value(gptXmlTrees->root, path.c_str(), value.c_str()) == 0)
    return ControlReply(EXIT_DONE, "");
  return ControlReply(EXIT_REFUSED,
                      "the store refused \"" + path + "\": it takes parameters alone");
}

}  // namespace

const PanelCall kModelCalls[] = {
    {"nodes", Nodes},   {"find", Find},       {"get", Get},       {"set", Set},   {"add", Add},
    {"delete", Delete}, {"refresh", Refresh}, {"status", Status}, {"plan", Plan}, {},
};
