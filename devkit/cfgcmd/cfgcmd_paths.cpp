// Paths as people write them, and the base that they are below; see cfgcmd_paths.h.
#include "cfgcmd_paths.h"

#include <fnmatch.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <new>
#include <unordered_set>

#include "ams_store.h"
#include "cfgcmd_print.h"
#include "endpoint_call.h"
#include "nearest.h"
#include "new_file.h"
#include "nodes.h"
#include "store_desk.h"

const Outcome kNoStore = {EXIT_REFUSED, "there is no data-model store: " + HowToStart("dbmgr:")};

namespace {

constexpr char kBaseFile[] = "/var/run/devkit/base";
constexpr char kUnknown[] = "no parameter \"",
               kUnknownEnd[] = "\": \"cfgcmd tree\" lists what there is";

Words NamesOf(std::string_view path) {
  Words names;
  for (size_t end; (end = path.find('.')) != path.npos; path.remove_prefix(end + 1))
    names.emplace_back(path.substr(0, end));
  names.emplace_back(path);
  return names;
}

std::string LastName(const std::string &path) { return path.substr(path.rfind('.') + 1); }

std::string Above(const std::string &path) {
  return path.substr(0, path.find('.') == path.npos ? 0 : path.rfind('.'));
}

/* Names of a pattern and of a path, from these on. */
bool Matches(const std::string *wanted, const std::string *wanted_end, const std::string *name,
             const std::string *end) {
  if (wanted == wanted_end) return name == end;
  if (*wanted == "**")
    return Matches(wanted + 1, wanted_end, name, end) ||
           (name != end && Matches(wanted, wanted_end, name + 1, end));
  return name != end && fnmatch(wanted->c_str(), name->c_str(), 0) == 0 &&
         Matches(wanted + 1, wanted_end, name + 1, end);
}

struct Search {
  Words wanted;
  std::vector<std::string> *found;
};

int Compare(const AmsDeskNode &node, void *context) {
  Search *search = static_cast<Search *>(context);
  const Words names = NamesOf(node.path);
  const Words &wanted = search->wanted;
  if (Matches(wanted.data(), wanted.data() + wanted.size(), names.data(),
              names.data() + names.size()))
    search->found->emplace_back(node.path);
  return 0;
}

Outcome Expand(const std::string &pattern, std::vector<std::string> *paths) {
  if (pattern.size() >= AMS_PATH_SIZE)
    return {EXIT_REFUSED, "the pattern is " + std::to_string(pattern.size()) + " bytes, at most " +
                              std::to_string(AMS_PATH_SIZE - 1) + " can be"};
  if (!AttachStore()) return kNoStore;
  Search search = {NamesOf(pattern), paths};
  Words &wanted = search.wanted;
  auto both = [](const std::string &a, const std::string &b) { return a == "**" && b == "**"; };
  wanted.erase(std::unique(wanted.begin(), wanted.end(), both), wanted.end());
  std::string top = Above(pattern.substr(0, pattern.find('*')) + "x"); /* names without a "*" */
  if (top.empty()) top = kRoot;
  if (ams_check_node(gptXmlTrees->root, top.c_str()) != 0) return {EXIT_REFUSED, WrongPath(top)};
  const size_t before = paths->size();
  if (ams_desk_walk(top.c_str(), true, Compare, &search) != 0) throw std::bad_alloc();
  if (paths->size() > before) return {};
  return {EXIT_REFUSED, "nothing matches \"" + pattern + "\": \"cfgcmd tree " + top +
                            "\" lists what there is; \"*\" is one name, \"**\" any number"};
}

bool IsBelowOne(const std::string &path, const std::unordered_set<std::string> &all) {
  for (std::string above = Above(path); !above.empty(); above = Above(above))
    if (all.count(above) != 0) return true;
  return false;
}

/* The deepest node on the way to `path` that exists; "" when not even the root does. */
std::string DeepestOf(const std::string &path) {
  std::string deepest;
  for (size_t end = path.find('.');; end = path.find('.', end + 1)) {
    std::string part = path.substr(0, end);
    if (part.empty() || part.back() == '.' || ams_check_node(gptXmlTrees->root, part.c_str()) != 0)
      return deepest;
    deepest = part;
    if (end == path.npos) return deepest;
  }
}

std::string Quoted(const std::string &text) { return "\"" + text + "\""; }

Outcome KeepBase(const std::string &base) {
  int result = base.empty() ? unlink(kBaseFile) : WriteNewFile(kBaseFile, base + "\n");
  if (result == 0 || (base.empty() && errno == ENOENT)) return {};
  return {EXIT_REFUSED, std::string("cannot keep the base in ") + kBaseFile + ": " +
                            strerror(errno) + "; --base PATH gives it to one call"};
}

/* ".." goes one name up, as cd does. */
Outcome Base(const Words &words, const Options &options) {
  const std::string now = options.base;
  if (words.empty()) {
    const std::string shown = now.empty() ? "/" : now;
    return {EXIT_DONE, options.json ? JsonText({{"base", shown}}) : shown + "\n"};
  }
  if (words[0].empty() || words[0] == "/") return KeepBase("");
  const std::string base = words[0] == ".." ? Above(now) : FullPath(words[0], now);
  if (base.empty()) return KeepBase("");
  if (!AttachStore()) return kNoStore;
  if (ams_check_node(gptXmlTrees->root, base.c_str()) != 0) return {EXIT_REFUSED, WrongPath(base)};
  return KeepBase(base);
}

}  // namespace

std::string KeptBase() {
  std::string base;
  std::ifstream file(kBaseFile);
  char line[AMS_PATH_SIZE + 1];
  if (file.getline(line, sizeof line)) base = line;
  return base;
}

std::string FullPath(const std::string &path, const std::string &base) {
  const bool twice = path.size() > 1 && path.compare(path.size() - 2, 2, "..") == 0; /* no path */
  const std::string bare = twice ? path : Bare(path);
  if (base.empty() || bare.substr(0, bare.find('.')) == kRoot) return bare;
  return bare.empty() ? base : base + "." + bare;
}

bool AttachStore() {
  if (gptXmlTrees == nullptr) gptXmlTrees = ShmPoolCliInit();
  return gptXmlTrees != nullptr && gptXmlTrees->root != nullptr;
}

bool IsPattern(const std::string &path) { return path.find('*') != std::string::npos; }

Outcome PathsOf(const Words &words, const Options &options, std::vector<std::string> *paths) {
  std::vector<std::string> all;
  for (const std::string &word : words) {
    const std::string path = FullPath(word, options.base);
    Outcome outcome;
    if (IsPattern(path))
      outcome = Expand(path, &all);
    else
      all.push_back(path);
    if (outcome.status != EXIT_DONE) return outcome;
  }
  const std::unordered_set<std::string> said(all.begin(), all.end());
  std::unordered_set<std::string> taken;
  for (const std::string &path : all)
    if (!IsBelowOne(path, said) && taken.insert(path).second) paths->push_back(path);
  return {};
}

std::string WrongPath(const std::string &path) {
  const std::string unknown = kUnknown + path;
  if (!AttachStore()) return unknown + kUnknownEnd;
  const std::string deepest = DeepestOf(path);
  if (deepest.empty()) {
    const std::string full = std::string(kRoot) + "." + path;
    const bool left_out = ams_check_node(gptXmlTrees->root, full.c_str()) == 0;
    return unknown + "\": paths begin with \"" + kRoot + "\"" +
           (left_out ? ", did you mean " + Quoted(full) + "?"
                     : "; \"cfgcmd tree\" lists what there is");
  }
  const std::string rest = path.substr(std::min(path.size(), deepest.size() + 1));
  const std::string name = rest.substr(0, rest.find('.'));
  Words names;
  for (const std::string &child : Children(deepest)) names.push_back(LastName(child));
  const std::string near = Nearest(name, names);
  return unknown + "\": " + Quoted(deepest) + " has no " + Quoted(name) +
         (near.empty() ? "; \"cfgcmd tree " + deepest + "\" lists what there is"
                       : ", did you mean " + Quoted(near) + "?");
}

std::string ExplainedRefusal(const std::string &text) {
  const size_t begin = strlen(kUnknown), end = text.find(kUnknownEnd, begin);
  if (text.compare(0, begin, kUnknown) != 0 || end == text.npos) return text;
  return WrongPath(text.substr(begin, end - begin)) + text.substr(end + strlen(kUnknownEnd));
}

const Verb kPathVerbs[] = {
    {"base", "[PATH]", "Have paths begin below PATH from now on, \"/\": at the root; print it", 0,
     1, true, false, Base},
    {},
};
