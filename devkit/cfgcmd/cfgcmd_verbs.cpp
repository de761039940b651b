// The verbs of all files, and how one is run; see cfgcmd.h.
#include <cstddef>

#include "cfgcmd.h"
#include "cfgcmd_paths.h"

namespace {

const Verb *const kTables[] = {kRequestVerbs, kStoreVerbs,   kPathVerbs,
                               kMessageVerbs, kStandinVerbs, kBatchVerbs,
                               kMonitorVerbs, kPlanVerbs,    kChangeVerbs};

/* NULL: the verb has none of that name. */
const VerbOption *OptionNamed(const Verb &verb, const std::string &name) {
  if (name.size() < 2 || name[0] != '-' || verb.options == nullptr) return nullptr;
  for (const VerbOption *option = verb.options; option->names != nullptr; ++option)
    if (("," + std::string(option->names) + ",").find("," + name + ",") != std::string::npos)
      return option;
  return nullptr;
}

}  // namespace

std::string Usage(const Verb &verb) {
  return std::string("cfgcmd ") + verb.name + " " + verb.arguments;
}

bool TakesAsMany(const Verb &verb, const Words &words) {
  return words.size() >= verb.least && words.size() <= verb.most;
}

std::vector<const Verb *> AllVerbs() {
  std::vector<const Verb *> verbs;
  for (const Verb *row : kTables)
    for (; row->name != nullptr; ++row) verbs.push_back(row);
  return verbs;
}

std::string TakeOptions(const Verb &verb, Words *words, Options *options) {
  Words left;
  size_t at = 0;
  for (; at < words->size(); ++at) {
    const std::string &word = (*words)[at];
    const VerbOption *option = OptionNamed(verb, word);
    if (option == nullptr && verb.free_words) break;
    if (option == nullptr) {
      left.push_back(word);
      continue;
    }
    const bool has_value = option->value[0] != '\0';
    if (has_value && at + 1 == words->size()) return word + " needs its " + option->value;
    const std::string value = has_value ? (*words)[++at] : "";
    if (!option->take(value, options)) return word + " cannot have \"" + value + "\"";
  }
  left.insert(left.end(), words->begin() + static_cast<ptrdiff_t>(at), words->end());
  *words = left;
  return "";
}

Outcome RunVerb(const Verb &verb, const Words &words, const Options &options) {
  Outcome outcome = {EXIT_USAGE, ""};
  if (TakesAsMany(verb, words)) outcome = verb.run(words, options);
  if (outcome.status == EXIT_USAGE)
    outcome.text =
        "usage: " + Usage(verb) + (outcome.text.empty() ? "" : " (" + outcome.text + ")");
  if (outcome.status == EXIT_REFUSED) outcome.text = ExplainedRefusal(outcome.text);
  return outcome;
}
