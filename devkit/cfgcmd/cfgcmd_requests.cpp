// Verbs that go to the data-base manager: each builds a request and prints the answer.
#include <algorithm>

#include "appt_request.h"
#include "cfgcmd_messages.h"
#include "cfgcmd_print.h"
#include "dbmgr_proto.h"
#include "nodes.h"

namespace {

/* The outcome of a request that was not answered in time, with the modules that are to blame. */
Outcome NotInTime(Outcome outcome, const std::string &url, Options options) {
  std::string reply;
  DbmgrAnswer answer;
  /* dbmgr answers this one at once, however little time the request was given */
  options.limit_ms = std::max(options.limit_ms, Options().limit_ms);
  if (Call(kDbmgrName, kDbmgrWaits, url, options, &reply).status == EXIT_DONE &&
      DbmgrGetAnswer(reply.data(), reply.size(), &answer) == 0 && !answer.text.empty())
    outcome.text += "; it waits for " + answer.text;
  return outcome;
}

/* Asks and judges: an outcome that is not done carries the reason. */
Outcome Ask(uint32_t command, const std::string &url, const std::string &value,
            const Options &options, DbmgrAnswer *answer, uint32_t message = kDbmgrRequest) {
  if (url.size() > UINT16_MAX)
    return {EXIT_REFUSED, "the path is longer than 65535 bytes: check it"};
  std::string bytes = DbmgrPutRequest({command, url, value});
  std::string reply;
  Outcome outcome = Call(kDbmgrName, message, bytes, options, &reply);
  if (outcome.status == EXIT_NO_ANSWER) return NotInTime(outcome, url, options);
  if (outcome.status != EXIT_DONE) return outcome;
  if (DbmgrGetAnswer(reply.data(), reply.size(), answer) != 0)
    return {EXIT_REFUSED, "the answer is damaged: is the gateway of this client?"};
  if (answer->result < 0) return {EXIT_REFUSED, answer->text};
  return {};
}

/* Parameters of one object, in the order in which the objects came first. */
struct Group {
  std::string object, value;
};

int AddToGroup(std::vector<Group> *groups, const std::string &path, const std::string &value) {
  size_t dot = path.rfind('.');
  if (dot == std::string::npos || value.find(AMS_SEPARATOR) != std::string::npos) return -1;
  std::string object = path.substr(0, dot), leaf = path.substr(dot + 1) + "=" + value;
  for (Group &group : *groups) {
    if (group.object != object) continue;
    group.value += static_cast<char>(AMS_SEPARATOR) + leaf;
    return 0;
  }
  groups->push_back({object, leaf});
  return 0;
}

/* Sends each of them, until one is refused: its outcome, and the objects before it. */
Outcome AskEach(const std::vector<Group> &groups, uint32_t message, const Options &options,
                std::string *done) {
  for (const Group &group : groups) {
    DbmgrAnswer answer;
    Outcome outcome = Ask(APPT_CMD_SET, group.object, group.value, options, &answer, message);
    if (outcome.status != EXIT_DONE) return outcome;
    *done += (done->empty() ? "" : ", ") + group.object;
  }
  return {};
}

Outcome Get(const Words &words, const Options &options) {
  DbmgrAnswer answer;
  Outcome outcome = Ask(APPT_CMD_GET, words[0], "", options, &answer);
  if (outcome.status != EXIT_DONE) return outcome;
  std::string path = Bare(words[0]);
  if (answer.kind != DbmgrText::LEAF) return {EXIT_DONE, NodeText(path, answer.text, options.json)};
  return {EXIT_DONE, options.json ? JsonText({{path, answer.text}}) : answer.text + "\n"};
}

Outcome Set(const Words &words, const Options &options) {
  if (words.size() % 2 != 0) return {EXIT_USAGE, "a value for each path"};
  std::vector<Group> groups;
  for (size_t i = 0; i < words.size(); i += 2)
    if (AddToGroup(&groups, Bare(words[i]), words[i + 1]) != 0)
      return {EXIT_REFUSED,
              "\"" + words[i] + "\": give the full path, and a value without byte 0x03"};
  std::string done;
  if (groups.size() > 1) { /* one is checked whole when it is done */
    Outcome checked = AskEach(groups, kDbmgrCheck, options, &done);
    if (checked.status != EXIT_DONE) return checked;
    done.clear();
  }
  Outcome outcome = AskEach(groups, kDbmgrRequest, options, &done);
  if (outcome.status != EXIT_DONE && !done.empty()) outcome.text += "; set before it: " + done;
  return outcome;
}

Outcome Add(const Words &words, const Options &options) {
  DbmgrAnswer answer;
  Outcome outcome = Ask(APPT_CMD_ADD, words[0], "", options, &answer);
  if (outcome.status != EXIT_DONE) return outcome;
  return {EXIT_DONE, options.json ? JsonText({{"path", answer.text}}) : answer.text + "\n"};
}

Outcome Del(const Words &words, const Options &options) {
  DbmgrAnswer answer;
  return Ask(APPT_CMD_DEL, words[0], "", options, &answer);
}

Outcome List(const Words &words, const Options &options) {
  DbmgrAnswer answer;
  Outcome outcome = Ask(APPT_CMD_LIST, words[0], "", options, &answer);
  if (outcome.status != EXIT_DONE) return outcome;
  if (!options.json) return {EXIT_DONE, answer.text + "\n"};
  return {EXIT_DONE, JsonText(Json::parse("[" + answer.text + "]", nullptr, false))};
}

Outcome Attr(const Words &words, const Options &options) {
  DbmgrAnswer answer;
  Outcome outcome = Ask(APPT_CMD_ATTR, words[0], "", options, &answer);
  if (outcome.status != EXIT_DONE) return outcome;
  std::string path = Bare(words[0]);
  if (answer.kind == DbmgrText::LEAF)
    path = path.substr(0, path.rfind('.')); /* its own name is in the text */
  return {EXIT_DONE, AttributeText(path, answer.text, options.json)};
}

Outcome Refresh(const Words &words, const Options &options) {
  DbmgrAnswer answer;
  return Ask(APPT_CMD_REFRESH, words[0], "", options, &answer);
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
