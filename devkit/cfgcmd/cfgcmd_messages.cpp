// Verbs that are messages to endpoints: process control of the daemon, any message, waiting for
// endpoints; and the record of informs. See cfgcmd_messages.h.
#include "cfgcmd_messages.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "appt_request.h"
#include "cfgcmd_print.h"
#include "endpoint_call.h"
#include "parse.h"
#include "prosctl_thread.h"
#include "tds_desk.h"

namespace {

constexpr char kDaemon[] = "sysmgr";
constexpr char kDaemonLog[] = "/var/log/devkit/sysmgr.log";
constexpr char kInforms[] = "/var/log/devkit/informs";

using Clock = std::chrono::steady_clock;

/* Sends a control message to the daemon and prints its reply; "failed" and the like are refusals.
 */
Outcome Control(uint32_t id, const std::string &payload, const Options &options) {
  std::string reply;
  Outcome outcome = Call(kDaemon, id, payload, options, &reply);
  if (outcome.status != EXIT_DONE) return outcome;
  if (reply.find("failed") != std::string::npos || reply.find("not write") != std::string::npos)
    return {EXIT_REFUSED, reply};
  return {EXIT_DONE, options.json ? JsonText({{"reply", reply}}) : reply + "\n"};
}

/* Blanks and colons are allowed between bytes. */
bool FromHex(std::string text, std::string *bytes) {
  auto between = [](char c) { return c == ' ' || c == ':'; };
  text.erase(std::remove_if(text.begin(), text.end(), between), text.end());
  return BytesFromHex(text, bytes);
}

}  // namespace

Outcome Call(const char *dest, uint32_t id, const std::string &payload, const Options &options,
             std::string *reply) {
  Outcome outcome;
  std::string answer;
  outcome.status = CallEndpoint(dest, id, payload, options.limit_ms, &answer);
  (outcome.status == EXIT_DONE ? *reply : outcome.text) = std::move(answer);
  return outcome;
}

bool ParseMessage(const Words &words, Message *message) {
  if (!ParseNumber(words[1], 0, UINT32_MAX, &message->id)) return false;
  for (size_t i = 2; i < words.size(); ++i) {
    if (words[i] == "--wait")
      message->wait = true;
    else if (words[i] == "--text" && i + 1 < words.size())
      message->payload = words[++i] + std::string(1, '\0');
    else if (words[i] == "--hex" && i + 1 < words.size() &&
             FromHex(words[i + 1], &message->payload))
      ++i;
    else
      return false;
  }
  return true;
}

namespace {

/* Waits until `name` answers that it knows no such message: its init is over by then. */
Outcome WaitForOne(int watch, const std::string &name, Clock::time_point end) {
  for (;;) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
    if (left <= 0)
      return {EXIT_NO_ANSWER, name + " is not there in time: look at its log in /var/log/devkit"};
    void *reply = nullptr;
    uint32_t length = 0;
    if (tds_call(kProbe, nullptr, 0, name.c_str(), static_cast<uint32_t>(left), &reply, &length) ==
        0) {
      __tds_free(reply);
      return {};
    }
    if (errno == ENOMSG) return {};
    if (errno == ETIMEDOUT) continue; /* the check above ends it */
    /* A socket appears a moment before it takes connections, hence the short look again. */
    pollfd change = {watch, POLLIN, 0};
    char events[4096];
    if (poll(&change, 1, 20) > 0 && read(watch, events, sizeof events) < 0 && errno != EAGAIN)
      return {EXIT_REFUSED, std::string("cannot watch ") + kTdsFolder + ": " + strerror(errno)};
  }
}

Outcome Send(const Words &words, const Options &options) {
  Message message;
  if (!ParseMessage(words, &message)) return {EXIT_USAGE, ""};
  uint32_t id = static_cast<uint32_t>(message.id);
  if (!message.wait) {
    int sent = SendMsg(id, message.payload.data(), static_cast<uint32_t>(message.payload.size()),
                       words[0].c_str());
    if (sent == 0) return {};
    return {EXIT_REFUSED, words[0] + " takes no message: is the name right, does it run?"};
  }
  std::string reply;
  Outcome outcome = Call(words[0].c_str(), id, message.payload, options, &reply);
  return outcome.status == EXIT_DONE ? Outcome{EXIT_DONE, reply + "\n"} : outcome;
}

Outcome Level(const Words &words, const Options &options) {
  int64_t level;
  if (words[0].size() > 31 || !ParseNumber(words[1], INT32_MIN, INT32_MAX, &level))
    return {EXIT_USAGE, "a name of at most 31 bytes, and a number"};
  std::string payload = words[0];
  payload.resize(36);
  appt_PutWord(&payload[32], static_cast<uint32_t>(level));
  return Control(PROSCTL_PRINT_LEVEL, payload, options);
}

/* The daemon judges the word. */
Outcome Trace(const Words &words, const Options &options) {
  return Control(PROSCTL_TRACE, words[0] + std::string(1, '\0'), options);
}

/* The daemon prints the table to its own log before it answers. */
Outcome Mem(const Words &, const Options &options) {
  uint64_t offset = FileSize(kDaemonLog);
  std::string reply;
  Outcome outcome = Call(kDaemon, PROSCTL_MALLOC, "", options, &reply);
  if (outcome.status != EXIT_DONE) return outcome;
  std::string table = AppendedSince(kDaemonLog, offset);
  return {EXIT_DONE, options.json ? JsonText({{"text", table}}) : table};
}

Outcome Wait(const Words &words, const Options &options) {
  (void)mkdir(kTdsFolder, 0700); /* as the first endpoint does; else the watch fails */
  int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (watch < 0 || inotify_add_watch(watch, kTdsFolder, IN_CREATE | IN_MOVED_TO) < 0) {
    Outcome outcome = {EXIT_REFUSED,
                       std::string("cannot watch ") + kTdsFolder + ": " + strerror(errno)};
    if (watch >= 0) close(watch);
    return outcome;
  }
  auto end = Clock::now() + std::chrono::milliseconds(options.limit_ms);
  Outcome outcome;
  for (size_t i = 0; i < words.size() && outcome.status == EXIT_DONE; ++i)
    outcome = WaitForOne(watch, words[i], end);
  close(watch);
  return outcome;
}

Outcome Inform(const Words &words, const Options &) {
  std::string line = "manully_inform";
  for (const std::string &word : words) line += " " + word;
  line += '\n';
  int file = open(kInforms, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  bool written =
      file >= 0 && write(file, line.data(), line.size()) == static_cast<ssize_t>(line.size());
  Outcome outcome;
  if (!written)
    outcome = {EXIT_REFUSED,
               std::string("cannot record the inform in ") + kInforms + ": " + strerror(errno)};
  if (file >= 0) close(file);
  return outcome;
}

}  // namespace

const Verb kMessageVerbs[] = {
    {"send", "NAME ID [--wait] [--text T | --hex H]", "Send any message to any endpoint", 2, 5,
     true, true, Send},
    {"level", "MODULE N", "Print level of a module of the daemon, or of all", 2, 2, false, true,
     Level},
    {"trace", "on|off", "Message trace of the daemon", 1, 1, false, true, Trace},
    {"mem", "", "The daemon's live memory by tag", 0, 0, false, true, Mem},
    {"wait", "NAME...", "Wait until endpoints serve messages", 1, 50, false, false, Wait},
    {"manully_inform", "WORD...", "Record an inform for the management client", 1, 50, true, true,
     Inform},
    {},
};
