// Candidates for the shells' completion that only the gateway knows; see cfgcmd_complete.h.
#include "cfgcmd_complete.h"

#include <dirent.h>

#include <algorithm>
#include <memory>
#include <sstream>

#include "ams_store.h"
#include "cfgcmd_messages.h"
#include "cfgcmd_paths.h"
#include "nodes.h"
#include "tds_desk.h"

namespace {

enum NodeKind : unsigned { LEAF = 1, WRITABLE = 2, OBJECT = 4, ARRAY = 8, INSTANCE = 16 };

/* What the node is: of a parameter, too, whether it can be set; of a row, that it is an object. */
unsigned KindsOf(const std::string &path, const std::string &type) {
  if (type == "array") return ARRAY;
  const bool number = path.find_first_not_of("0123456789", path.rfind('.') + 1) == path.npos;
  if (type == "object") return number ? INSTANCE | OBJECT : OBJECT;
  return Attribute(path, "writable") == "0" ? LEAF : LEAF | WRITABLE;
}

/* Nodes one level below what is typed up to its last ".": those that are wanted, and with a "."
   those that something may be below. */
Candidates Paths(unsigned wanted, const std::string &word) {
  if (!AttachStore()) return {};
  const std::string base = KeptBase();
  const size_t dot = word.rfind('.');
  const std::string shown = word.substr(0, dot == word.npos ? 0 : dot + 1);
  std::vector<std::string> nodes;
  if (!shown.empty() || !base.empty()) nodes = Children(FullPath(shown, base));
  if (shown.empty()) nodes.push_back(kRoot);
  Candidates found;
  for (const std::string &node : nodes) {
    const std::string type = Attribute(node, "type"), help = Attribute(node, "description");
    const unsigned kinds = KindsOf(node, type);
    const std::string text = node == kRoot ? node : shown + node.substr(node.rfind('.') + 1);
    if ((kinds & wanted) != 0) found.push_back({text, help});
    if ((kinds & LEAF) == 0) found.push_back({text + ".", help});
  }
  return found;
}

/* Values that the file names for the parameter. */
Candidates Values(const std::string &path) {
  if (!AttachStore()) return {};
  const std::string full = FullPath(path, KeptBase());
  std::string values = Attribute(full, "values");
  if (values.empty() && Attribute(full, "type") == "boolean") values = "0,1";
  Candidates found;
  std::istringstream list(values);
  for (std::string value; std::getline(list, value, ',');) found.push_back({value, ""});
  return found;
}

/* A parameter, or behind its "=" a value. */
Candidates Parameters(const std::string &word) {
  const size_t equals = word.find('=');
  if (equals == word.npos) return Paths(WRITABLE, word);
  Candidates found = Values(word.substr(0, equals));
  for (Candidate &candidate : found) candidate.text.insert(0, word.substr(0, equals + 1));
  return found;
}

/* Words behind "plan", as the verb that is planned takes them. */
Candidates PlannedWords(const Typed &typed) {
  const std::string &verb = typed.before.front();
  if (verb == "add") return Paths(ARRAY, typed.word);
  if (verb == "del") return Paths(INSTANCE, typed.word);
  bool is_value = false; /* PARAMETER=VALUE is both */
  for (size_t at = 1; at < typed.before.size(); ++at)
    is_value = !is_value && typed.before[at].find('=') == std::string::npos;
  return is_value ? Values(typed.before.back()) : Parameters(typed.word);
}

Candidates Endpoints() {
  Candidates found;
  std::unique_ptr<DIR, int (*)(DIR *)> folder(opendir(kTdsFolder), closedir);
  while (const dirent *entry = folder == nullptr ? nullptr : readdir(folder.get()))
    if (entry->d_type == DT_SOCK) found.push_back({entry->d_name, ""});
  std::sort(found.begin(), found.end(),
            [](const Candidate &a, const Candidate &b) { return a.text < b.text; });
  return found;
}

/* Without "sysmgr:" as well, as it is said for short. */
Candidates ModuleNames() {
  Candidates found = {{"all", "every module"}, {"default", "whatever is no module's"}};
  for (const std::string &name : Modules()) {
    found.push_back({name, ""});
    found.push_back({name.substr(name.find(':') + 1), ""});
  }
  return found;
}

}  // namespace

Candidates CandidatesOfKind(const std::string &kind, const Typed &typed) {
  const std::string &word = typed.word;
  if (kind == "PATH") return Paths(LEAF | OBJECT | ARRAY, word);
  if (kind == "PARAMETER") return Parameters(word);
  if (kind == "ARRAY") return Paths(ARRAY, word);
  if (kind == "INSTANCE") return Paths(INSTANCE, word);
  if (kind == "VALUE" && !typed.before.empty()) return Values(typed.before.back());
  if (kind == "WORD" && !typed.before.empty()) return PlannedWords(typed);
  if (kind == "NAME") return Endpoints();
  if (kind == "MODULE") return ModuleNames();
  return {};
}
