// The verbs of all files, and how one is run; see cfgcmd.h.
#include "cfgcmd.h"

namespace {

const Verb *const kTables[] = {kRequestVerbs, kStoreVerbs, kMessageVerbs, kStandinVerbs,
                               kBatchVerbs};

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

Outcome RunVerb(const Verb &verb, const Words &words, const Options &options) {
  Outcome outcome = {EXIT_USAGE, ""};
  if (TakesAsMany(verb, words)) outcome = verb.run(words, options);
  if (outcome.status == EXIT_USAGE)
    outcome.text =
        "usage: " + Usage(verb) + (outcome.text.empty() ? "" : " (" + outcome.text + ")");
  return outcome;
}
