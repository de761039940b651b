// Verbs that go to the data-base manager: each builds a request and prints the answer.
#include "appt_request.h"
#include "cfgcmd.h"
#include "cfgcmd_print.h"
#include "nodes.h"

namespace {

Outcome Get(const Words &words, const Options &options) {
  DbmgrAnswer answer;
  Outcome outcome = Ask(APPT_CMD_GET, words[0], "", options.limit_ms, &answer);
  if (outcome.status != EXIT_DONE) return outcome;
  std::string path = Bare(words[0]);
  if (answer.kind != DbmgrText::LEAF) return {EXIT_DONE, NodeText(path, answer.text, options.json)};
  return {EXIT_DONE, options.json ? JsonText({{path, answer.text}}) : answer.text + "\n"};
}

Outcome Set(const Words &words, const Options &options) {
  if (words.size() % 2 != 0) return {EXIT_USAGE, "a value for each path"};
  return SetLeaves(words, options.limit_ms);
}

Outcome Add(const Words &words, const Options &options) {
  DbmgrAnswer answer;
  Outcome outcome = Ask(APPT_CMD_ADD, words[0], "", options.limit_ms, &answer);
  if (outcome.status != EXIT_DONE) return outcome;
  return {EXIT_DONE, options.json ? JsonText({{"path", answer.text}}) : answer.text + "\n"};
}

Outcome Del(const Words &words, const Options &options) {
  DbmgrAnswer answer;
  return Ask(APPT_CMD_DEL, words[0], "", options.limit_ms, &answer);
}

Outcome List(const Words &words, const Options &options) {
  DbmgrAnswer answer;
  Outcome outcome = Ask(APPT_CMD_LIST, words[0], "", options.limit_ms, &answer);
  if (outcome.status != EXIT_DONE) return outcome;
  if (!options.json) return {EXIT_DONE, answer.text + "\n"};
  return {EXIT_DONE, JsonText(Json::parse("[" + answer.text + "]", nullptr, false))};
}

Outcome Attr(const Words &words, const Options &options) {
  DbmgrAnswer answer;
  Outcome outcome = Ask(APPT_CMD_ATTR, words[0], "", options.limit_ms, &answer);
  if (outcome.status != EXIT_DONE) return outcome;
  std::string path = Bare(words[0]);
  if (answer.kind == DbmgrText::LEAF)
    path = path.substr(0, path.rfind('.')); /* its own name is in the text */
  return {EXIT_DONE, AttributeText(path, answer.text, options.json)};
}

Outcome Refresh(const Words &words, const Options &options) {
  DbmgrAnswer answer;
  return Ask(APPT_CMD_REFRESH, words[0], "", options.limit_ms, &answer);
}

}  // namespace

const Verb kRequestVerbs[] = {
    {"get", "PATH", "Value of a parameter; path=value lines of anything else", 1, 1, false, true,
     Get},
    {"set", "PATH VALUE...", "Set parameters; those of one object travel together", 2, 200, true,
     true, Set},
    {"add", "ARRAY", "Add an instance and print its path", 1, 1, false, true, Add},
    {"del", "INSTANCE", "Delete an instance", 1, 1, false, true, Del},
    {"list", "ARRAY", "Instance numbers of an array", 1, 1, false, true, List},
    {"attr", "PATH", "Values with their attributes", 1, 1, false, true, Attr},
    {"refresh", "PATH", "Have the values brought up to date", 1, 1, false, true, Refresh},
    {},
};
