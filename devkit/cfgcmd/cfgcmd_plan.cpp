// The verb "plan": what a request would do, seen in a copy of the gateway that does it without
// running a command (gateway-copy); and "snapshot", which makes the copy's store and settings.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <system_error>

#include "ams_store.h"
#include "cfgcmd.h"
#include "cfgcmd_paths.h"
#include "cfgcmd_print.h"
#include "nvram_desk.h"
#include "store_desk.h"
#include "tds_desk.h"

namespace fs = std::filesystem;

namespace {

constexpr char kCopy[] = "GATEWAY_COPY"; /* the environment of a copy has it */
constexpr useconds_t kLookUs = 10000;
constexpr unsigned kQuietLooks = 7; /* the daemon puts things off for less */
constexpr unsigned kLooks = 100;
constexpr char kAnswersRead[] = "/var/log/devkit/answers_read";
constexpr char kTreeBefore[] = "/var/log/devkit/tree_before"; /* the start of the copy's daemon */
constexpr uint32_t kPlanLimit =
    2000; /* ms; who waits longer mostly waits for the modem, which is not there */

Outcome Snapshot(const Words &words, const Options &) {
  if (!AttachStore()) return kNoStore;
  const std::string store = words[0] + "/ams_store", settings = words[0] + "/nvram";
  int rc = ams_desk_copy(store.c_str());
  if (rc == 0) rc = nvram_desk_copy(settings.c_str());
  if (rc == 0) return {};
  return {EXIT_REFUSED, "the store and the settings cannot be copied to " + store + " and " +
                            settings + ", empty folders: " + strerror(rc)};
}

/* ---- what there is ---- */

/* Values of parameters by path; of an object or an array "". */
using Nodes = std::map<std::string, std::string>;

int AddNode(const AmsDeskNode &node, void *context) {
  (*static_cast<Nodes *>(context))[std::string(node.path)] = node.value;
  return 0;
}

Nodes AllNodes() {
  Nodes nodes;
  if (ams_desk_walk(kRoot, true, AddNode, &nodes) != 0) throw std::bad_alloc();
  return nodes;
}

/* The start of a daemon writes statuses anew; what comes then is to find those of the gateway.
   False when the file of these is none. */
bool RestoreStatuses() try {
  const Nodes nodes = AllNodes();
  for (const Json &before : Json::parse(AppendedSince(kTreeBefore, 0))) {
    const auto now = nodes.find(before["path"]);
    if (!before.contains("value") || now == nodes.end() || now->second == before["value"]) continue;
    (void)ams_sset_node_value(gptXmlTrees->root, now->first.c_str(),
                              before["value"].get<std::string>().c_str()); /* it fitted before */
  }
  return true;
} catch (const Json::exception &) {
  return false;
}

struct File {
  off_t size;
  struct timespec written;
  bool operator==(const File &other) const {
    return size == other.size && written.tv_sec == other.written.tv_sec &&
           written.tv_nsec == other.written.tv_nsec;
  }
};
using Files = std::map<std::string, File>;

/* What the gateway's processes keep for themselves. */
bool IsOwn(const fs::path &folder) {
  static const std::set<std::string> own = {"/var/log/devkit", "/var/run/devkit", kTdsFolder,
                                            "/var/nvram"};
  return own.count(folder) != 0;
}

/* Of the gateway's own file system: a checkout may be seen below /tmp. What goes while it is looked
   at is not there. */
Files AllFiles() {
  Files files;
  std::error_code gone;
  for (const char *top : {"/var", "/tmp"}) {
    struct stat whole, info;
    if (stat(top, &whole) != 0) continue;
    fs::recursive_directory_iterator end, at(top, gone);
    for (; at != end; at.increment(gone)) {
      if (lstat(at->path().c_str(), &info) != 0) continue;
      if (S_ISDIR(info.st_mode) && (IsOwn(at->path()) || info.st_dev != whole.st_dev))
        at.disable_recursion_pending();
      if (S_ISREG(info.st_mode)) files[at->path()] = {info.st_size, info.st_mtim};
    }
  }
  return files;
}

/* ---- what has changed ---- */

/* Calls `tell(name, before, now)` for what differs; NULL is what is not there. */
template <class Map, class Tell>
void Compare(const Map &before, const Map &now, Tell tell) {
  for (const auto &[name, value] : before) {
    const auto found = now.find(name);
    if (found == now.end())
      tell(name, &value, nullptr);
    else if (!(found->second == value))
      tell(name, &value, &found->second);
  }
  for (const auto &[name, value] : now)
    if (before.count(name) == 0) tell(name, nullptr, &value);
}

Json NodeChanges(const Nodes &before, const Nodes &now) {
  Json list = Json::array();
  Compare(before, now, [&](const std::string &path, const std::string *was, const std::string *is) {
    Json change = {{"path", path}};
    if (was != nullptr) change["before"] = *was;
    if (is != nullptr) change["after"] = *is;
    list.push_back(std::move(change));
  });
  return list;
}

Json FileChanges(const Files &before, const Files &now) {
  Json list = Json::array();
  Compare(before, now, [&](const std::string &path, const File *was, const File *is) {
    Json change = {{"path", path},
                   {"change", was == nullptr  ? "made"
                              : is == nullptr ? "removed"
                                              : "written"}};
    if (is != nullptr) change["bytes"] = is->size;
    list.push_back(std::move(change));
  });
  return list;
}

std::set<std::string> LinesIn(const char *path) {
  std::set<std::string> lines;
  std::istringstream text(AppendedSince(path, 0));
  for (std::string line; std::getline(text, line);) lines.insert(line);
  return lines;
}

/* What the daemon does a moment later, as at its start, belongs to what it did before. */
void AwaitQuiet() {
  uint64_t before = FileSize(kCommandsLog);
  for (unsigned look = 0, quiet = 0; look < kLooks && quiet < kQuietLooks; ++look) {
    usleep(kLookUs);
    const uint64_t now = FileSize(kCommandsLog);
    quiet = now == before ? quiet + 1 : 0;
    before = now;
  }
}

Json CommandsSince(uint64_t offset) {
  const std::set<std::string> read = LinesIn(kAnswersRead);
  std::istringstream lines(AppendedSince(kCommandsLog, offset));
  Json list = Json::array();
  for (std::string line; std::getline(lines, line);) {
    list.push_back({{"line", line}});
    if (read.count(line) != 0) list.back()["answer_read"] = true;
  }
  return list;
}

bool AnswersRead(const Json &commands) {
  return std::any_of(commands.begin(), commands.end(),
                     [](const Json &command) { return command.contains("answer_read"); });
}

/* ---- what is told ---- */

std::string Text(const Json &change, const char *name) { return change[name].get<std::string>(); }

/* "PATH: "1" -> "2"", "PATH: new, "2"", "PATH: gone". */
std::string NodeText(const Json &change) {
  const std::string path = Text(change, "path");
  if (!change.contains("after")) return path + ": gone\n";
  const std::string after = "\"" + Text(change, "after") + "\"\n";
  if (change.contains("before")) return path + ": \"" + Text(change, "before") + "\" -> " + after;
  return path + ": new" + (Text(change, "after").empty() ? "\n" : ", " + after);
}

std::string PlanText(const Json &plan) {
  std::string text;
  for (const Json &command : plan["commands"])
    text +=
        "+ " + Text(command, "line") +
        (command.contains("answer_read") ? "   (its answer is read: here it had none)\n" : "\n");
  for (const Json &change : plan["nodes"]) text += NodeText(change);
  for (const Json &file : plan["files"])
    text += Text(file, "path") + ": " + Text(file, "change") +
            (file.contains("bytes") ? ", " + file["bytes"].dump() + " bytes\n" : "\n");
  return text;
}

const Verb *ChangeNamed(const std::string &name) {
  for (const Verb *verb = kRequestVerbs; verb->name != nullptr; ++verb)
    if (name == verb->name && (name == "set" || name == "add" || name == "del")) return verb;
  return nullptr;
}

/* Inside a copy. What is refused is told with what was done before. */
Outcome Try(const Verb &verb, const Words &words, const Options &options) {
  if (!AttachStore()) return kNoStore;
  AwaitQuiet();
  if (!RestoreStatuses())
    return {EXIT_NO_ANSWER, std::string(kTreeBefore) + " is no tree: cfgcmd plan has it made"};
  const Nodes nodes = AllNodes();
  const Files files = AllFiles();
  const uint64_t offset = FileSize(kCommandsLog);
  Outcome done = RunVerb(verb, words, options);
  AwaitQuiet();
  const Json commands = CommandsSince(offset);
  if (done.status != EXIT_DONE && AnswersRead(commands))
    done.text += "; a plan's commands give no answers, with them it may go on";
  const Json plan = {{"result", done.status == EXIT_DONE ? "done" : "refused"},
                     {"text", done.text},
                     {"commands", commands},
                     {"nodes", NodeChanges(nodes, AllNodes())},
                     {"files", FileChanges(files, AllFiles())}};
  if (done.status == EXIT_DONE) return {EXIT_DONE, options.json ? JsonText(plan) : PlanText(plan)};
  fputs(TerminalText(options.json ? JsonText(plan) : PlanText(plan), STDOUT_FILENO).c_str(),
        stdout);
  return done;
}

/* This client once more, in a copy. Comes back only when there can be none. */
Outcome InACopy(const Words &words, const Options &options) {
  const uint32_t limit_ms = options.usual_limit ? kPlanLimit : options.limit_ms;
  std::vector<std::string> line = {"gateway-copy", program_invocation_name, "--timeout",
                                   std::to_string(limit_ms / 1000.0)};
  if (options.json) line.push_back("--json");
  if (!options.base.empty()) line.insert(line.end(), {"--base", options.base});
  line.push_back("plan");
  line.insert(line.end(), words.begin(), words.end());
  std::vector<char *> arguments;
  for (std::string &word : line) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  execvp(arguments[0], arguments.data());
  return {EXIT_REFUSED, std::string("plan needs the desk's gateway-copy, which cannot be run: ") +
                            strerror(errno) + "; script/gateway has it"};
}

Outcome Plan(const Words &words, const Options &options) {
  const Verb *verb = ChangeNamed(words[0]);
  Words rest(words.begin() + 1, words.end());
  Options own = options;
  if (verb == nullptr) return {EXIT_USAGE, "plan shows what set, add or del would do"};
  const std::string wrong = TakeOptions(*verb, &rest, &own);
  if (!wrong.empty()) return {EXIT_USAGE, wrong};
  return getenv(kCopy) != nullptr ? Try(*verb, rest, own) : InACopy(words, options);
}

}  // namespace

const Verb kPlanVerbs[] = {
    {"plan", "set|add|del WORD...",
     "What a request would run, write and change, without doing it: in a copy of the gateway", 1,
     201, true, false, Plan},
    {"snapshot", "FOLDER", "Copy the store and the settings, while they are in use", 1, 1, false,
     false, Snapshot},
    {},
};
