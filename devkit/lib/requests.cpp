// The client side of requests and messages; see requests.h.
#include "requests.h"

#include <algorithm>
#include <utility>

#include "ams_store.h"
#include "appt_request.h"
#include "endpoint_call.h"
#include "log_file.h"
#include "nodes.h"
#include "prosctl_thread.h"
#include "tds_desk.h"

namespace {

/* The outcome of a request that was not answered in time, with the modules that are to blame. */
Outcome NotInTime(Outcome outcome, const std::string &url, uint32_t limit_ms) {
  std::string reply;
  DbmgrAnswer answer;
  /* dbmgr answers this one at once, however little time the request was given */
  limit_ms = std::max(limit_ms, kUsualLimit);
  if (Call(kDbmgrName, kDbmgrWaits, url, limit_ms, &reply).status == EXIT_DONE &&
      DbmgrGetAnswer(std::move(reply), &answer) == 0 && !answer.text.empty())
    outcome.text += "; it waits for " + answer.text;
  return outcome;
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

}  // namespace

Outcome Call(const char *dest, uint32_t id, const std::string &payload, uint32_t limit_ms,
             std::string *reply) {
  Outcome outcome;
  std::string answer;
  outcome.status = CallEndpoint(dest, id, payload, limit_ms, &answer);
  (outcome.status == EXIT_DONE ? *reply : outcome.text) = std::move(answer);
  return outcome;
}

namespace {

/* As Ask; `message`: the request, or the question whether it could be done. */
Outcome AskWith(uint32_t message, uint32_t command, const std::string &url,
                const std::string &value, uint32_t limit_ms, DbmgrAnswer *answer) {
  if (url.size() > UINT16_MAX)
    return {EXIT_REFUSED, "the path is longer than 65535 bytes: check it"};
  std::string bytes = DbmgrPutRequest({command, url, value});
  std::string reply;
  Outcome outcome = Call(kDbmgrName, message, bytes, limit_ms, &reply);
  if (outcome.status == EXIT_NO_ANSWER) return NotInTime(outcome, url, limit_ms);
  if (outcome.status != EXIT_DONE) return outcome;
  if (DbmgrGetAnswer(std::move(reply), answer) != 0) return kDamagedAnswer;
  if (answer->result < 0) return {EXIT_REFUSED, answer->text};
  return {};
}

/* Sends each of them, until one is refused: its outcome, and the objects before it. */
Outcome AskEach(const std::vector<Group> &groups, uint32_t message, uint32_t limit_ms,
                std::string *done) {
  for (const Group &group : groups) {
    DbmgrAnswer answer;
    Outcome outcome = AskWith(message, APPT_CMD_SET, group.object, group.value, limit_ms, &answer);
    if (outcome.status != EXIT_DONE) return outcome;
    *done += (done->empty() ? "" : ", ") + group.object;
  }
  return {};
}

}  // namespace

Outcome Ask(uint32_t command, const std::string &url, const std::string &value, uint32_t limit_ms,
            DbmgrAnswer *answer) {
  return AskWith(kDbmgrRequest, command, url, value, limit_ms, answer);
}

Outcome SetLeaves(const std::vector<std::string> &words, uint32_t limit_ms) {
  std::vector<Group> groups;
  for (size_t i = 0; i < words.size(); i += 2)
    if (AddToGroup(&groups, Bare(words[i]), words[i + 1]) != 0)
      return {EXIT_REFUSED,
              "\"" + words[i] + "\": give the full path, and a value without byte 0x03"};
  std::string done;
  if (groups.size() > 1) { /* one is checked whole when it is done */
    Outcome checked = AskEach(groups, kDbmgrCheck, limit_ms, &done);
    if (checked.status != EXIT_DONE) return checked;
    done.clear();
  }
  Outcome outcome = AskEach(groups, kDbmgrRequest, limit_ms, &done);
  if (outcome.status != EXIT_DONE && !done.empty()) outcome.text += "; set before it: " + done;
  return outcome;
}

Outcome DaemonMemory(uint32_t limit_ms) {
  const uint64_t offset = FileSize(kDaemonLog);
  std::string reply;
  Outcome outcome = Call(kDaemon, PROSCTL_MALLOC, "", limit_ms, &reply);
  if (outcome.status == EXIT_DONE) outcome.text = AppendedSince(kDaemonLog, offset);
  return outcome; /* it prints the table before it answers */
}
