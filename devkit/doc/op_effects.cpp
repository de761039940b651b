// What the op functions do; see op_effects.h.
#include "op_effects.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>

#include "op_rows.h"
#include "port_daemon.h"
#include "sup_main.h"

namespace {

/* "NAME OPS: TEXT". */
int ReadList(const char *file, Effects *effects) {
  std::ifstream lines(file);
  if (!lines) return Fail(std::string("cannot read ") + file);
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line[0] == '#') continue;
    size_t blank = line.find(' '), colon = line.find(": ");
    std::string name = line.substr(0, blank);
    if (colon == std::string::npos || colon <= blank) return Fail("no NAME OPS: TEXT: " + line);
    (*effects)[name].push_back({line.substr(blank + 1, colon - blank - 1), line.substr(colon + 2)});
  }
  return 0;
}

/* Calls `each` with each row of the FUNC tables. */
template <typename Each>
void ForRows(Each each) {
  for (const OpFuncEntry *const *table = kFuncTables; *table != nullptr; ++table)
    for (const OpFuncEntry *row = *table; row->name != nullptr; ++row) each(*row);
}

/* The line without folders and what becomes of its output, PATH and N in the place of its argument.
 */
std::string LineText(const ScriptLine &line) {
  std::istringstream words(line.format);
  std::string text, word;
  bool behind = false;
  while (words >> word) {
    behind = word.back() == '&';
    if (behind) word.pop_back();
    if (word.empty() || word.find(">") != word.npos) continue;
    if (text.empty()) word.erase(0, word.rfind('/') + 1); /* npos + 1 is 0 */
    size_t argument = word.find(line.arg == ARG_PATH ? "%s" : "%d");
    if (argument != word.npos) word.replace(argument, 2, line.arg == ARG_PATH ? "PATH" : "N");
    text += (text.empty() ? "" : " ") + word;
  }
  return "`" + text + "`" + (behind ? " in the background" : "");
}

/* What a script does at each op; ops at which it does the same stand together. */
std::vector<Effect> ScriptEffects(const Script &script) {
  const std::pair<unsigned, const char *> ops[] = {
      {ON_INIT, "start"}, {ON_GET, "get"}, {ON_SET, "set"}, {ON_ADD, "add"}, {ON_DEL, "del"}};
  std::vector<Effect> effects;
  for (const auto &[op, name] : ops) {
    std::string text;
    for (const ScriptLine &line : script.lines)
      if (line.format != nullptr && (line.ops & op) != 0)
        text += (text.empty() ? "" : ", then ") + LineText(line);
    auto same = std::find_if(effects.begin(), effects.end(),
                             [&](const Effect &effect) { return effect.text == text; });
    if (text.empty()) continue;
    if (same == effects.end())
      effects.push_back({name, text});
    else
      same->ops += std::string(",") + name;
  }
  return effects;
}

/* A daemon whose lines its row does not have is called as in the line that kills it. */
std::vector<Effect> DaemonEffects(const PortDaemon &daemon) {
  auto leaf = [](std::string path) { return "`" + path.substr(path.rfind('.') + 1) + "`"; };
  const std::string enable = leaf(daemon.enable), ports = leaf(daemon.ports);
  const std::string kill = LineText({0, daemon.kill});
  const std::string program = "`" + kill.substr(kill.rfind(' ') + 1);
  const std::string start = daemon.each == nullptr ? program + " on the ports of " + ports
                                                   : LineText({0, daemon.each, ARG_INSTANCE}) +
                                                         " for each port N of " + ports;
  return {{"start", "while " + enable + " is 1: " + start},
          {"set", "when " + enable + " is 0 or 1: " + kill + "; then as at the start"}};
}

/* A row whose handler another one has, too, of which something was read, does the same. */
void AddTwins(Effects *effects) {
  std::map<OpFunc, std::string> told;
  ForRows([&](const OpFuncEntry &row) {
    if (effects->count(row.name) != 0) told.emplace(row.handler, row.name);
  });
  ForRows([&](const OpFuncEntry &row) {
    auto twin = told.find(row.handler);
    if (row.handler != nullptr && twin != told.end())
      effects->emplace(row.name, std::vector<Effect>{{"", twin->second}});
  });
}

/* Adds what the tables say themselves to what was read: of a daemon that may be more than its row
   tells. */
int AddRows(Effects *effects) {
  int result = 0;
  ForRows([&](const OpFuncEntry &row) {
    if (row.daemon != nullptr)
      for (const Effect &effect : DaemonEffects(*row.daemon))
        (*effects)[row.name].push_back(effect);
    if (row.script == nullptr) return;
    if (!effects->emplace(row.name, ScriptEffects(*row.script)).second)
      result =
          Fail(std::string(row.name) + " is a script: it needs no line in the list of effects");
  });
  return result;
}

}  // namespace

int Fail(const std::string &what, ExitStatus status) {
  std::cerr << "datamodel_doc: " << what << '\n';
  return status;
}

int ReadEffects(const char *file, Effects *effects) {
  if (ReadList(file, effects) != 0) return EXIT_REFUSED;
  AddTwins(effects);
  return AddRows(effects) == 0 ? EXIT_DONE : EXIT_REFUSED;
}

std::map<std::string, bool> TableNames() {
  std::map<std::string, bool> names;
  ForRows(
      [&](const OpFuncEntry &row) { names[row.name] = names[row.name] || row.handler != nullptr; });
  return names;
}

int PrintPrograms() {
  std::set<std::string> programs;
  auto add = [&programs](const char *format) {
    std::istringstream words(format == nullptr ? "" : format);
    for (std::string word; words >> word;)
      if (word.compare(0, 5, "/usr/") == 0)
        programs.insert(word.substr(0, word.find_first_of("&;")));
  };
  ForRows([&](const OpFuncEntry &row) {
    if (row.daemon != nullptr) add(row.daemon->each);
    if (row.script == nullptr) return;
    for (const ScriptLine &line : row.script->lines) add(line.format);
  });
  for (const std::string &program : programs) std::cout << program << '\n';
  return std::cout.flush() ? 0 : Fail("cannot write");
}
