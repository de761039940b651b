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
#include <iterator>
#include <sstream>

#include "appt_request.h"
#include "cfgcmd_print.h"
#include "parse.h"
#include "prosctl_thread.h"
#include "tds_desk.h"

namespace {

constexpr char kInforms[] = "/var/log/devkit/informs";

using Clock = std::chrono::steady_clock;

/* The rows of the daemon's print-level map, in its order. */
const char *const kModules[] = {"default", "sysmgr:devInfo", "sysmgr:capabinfo", "sysmgr:mgtsrvr",
                                "sysmgr:button_proc"};

constexpr int kLevels = 5; /* from 1 */

/* "a, b and c" */
std::string Enumerated(const Words &names) {
  std::string text;
  for (size_t i = 0; i < names.size(); ++i)
    text += (i == 0 ? "" : i + 1 == names.size() ? " and " : ", ") + names[i];
  return text;
}

}  // namespace

const Words &Modules() {
  static const Words modules(std::begin(kModules) + 1, std::end(kModules));
  return modules;
}

namespace {

/* Sends a control message to the daemon, which answers `expected`: then the outcome is the
   sentence, or the JSON. */
Outcome Control(uint32_t id, const std::string &payload, const char *expected,
                const Options &options, const std::string &sentence, const Json &json) {
  std::string reply;
  Outcome outcome = Call(kDaemon, id, payload, options.limit_ms, &reply);
  if (outcome.status != EXIT_DONE) return outcome;
  if (reply != expected) return {EXIT_REFUSED, std::string(kDaemon) + " refused it: " + reply};
  return {EXIT_DONE, options.json ? JsonText(json) : sentence + "\n"};
}

/* Blanks and colons are allowed between bytes. */
bool FromHex(std::string text, std::string *bytes) {
  auto between = [](char c) { return c == ' ' || c == ':'; };
  text.erase(std::remove_if(text.begin(), text.end(), between), text.end());
  return BytesFromHex(text, bytes);
}

}  // namespace

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
    std::string reply;
    if (tds_call(kProbe, nullptr, 0, name.c_str(), static_cast<uint32_t>(left), &reply) == 0 ||
        errno == ENOMSG)
      return {};
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
  Outcome outcome = Call(words[0].c_str(), id, message.payload, options.limit_ms, &reply);
  if (outcome.status != EXIT_DONE) return outcome;
  if (!options.json) return {EXIT_DONE, reply + "\n"};
  std::string text = reply;
  if (!text.empty() && text.back() == '\0') text.pop_back(); /* it ends a text */
  return {EXIT_DONE,
          JsonText({{"length", reply.size()}, {"hex", HexFromBytes(reply)}, {"text", text}})};
}

/* Those that a name reaches, as in the daemon: all, or the first one that has it as a part. */
Words Reached(const std::string &name) {
  if (name == "all") return {std::begin(kModules), std::end(kModules)};
  for (const char *module : kModules)
    if (strstr(module, name.c_str()) != nullptr) return {module};
  return {};
}

Outcome Level(const Words &words, const Options &options) {
  int64_t level;
  const Words reached = Reached(words[0]);
  if (reached.empty())
    return {EXIT_USAGE, "there is no module \"" + words[0] + "\", but default, " +
                            Enumerated(Modules()) + ", or all of them"};
  if (!ParseNumber(words[1], 1, kLevels, &level))
    return {EXIT_USAGE, "there is no level \"" + words[1] +
                            "\", but 1 progress, 2 and 3 what is "
                            "worth a line, 4 failures, 5 no memory"};
  std::string payload = words[0];
  payload.resize(36);
  appt_PutWord(&payload[32], static_cast<uint32_t>(level));
  const std::string from = level == kLevels ? "" : " and above";
  return Control(PROSCTL_PRINT_LEVEL, payload, "change prt level succeed!", options,
                 Enumerated(reached) + (reached.size() == 1 ? " logs" : " log") +
                     " records of level " + words[1] + from + " from now on",
                 {{"modules", reached}, {"level", level}});
}

Outcome Trace(const Words &words, const Options &options) {
  const std::string &word = words[0];
  if (word != "on" && word != "off") return {EXIT_USAGE, "it is \"on\" or \"off\""};
  const std::string what =
      word == "on" ? std::string("is traced into ") + kDaemonLog : "is not traced";
  return Control(PROSCTL_TRACE, word + std::string(1, '\0'), ("trace switch " + word).c_str(),
                 options, "each message of " + Enumerated(Modules()) + " " + what + " from now on",
                 {{"modules", Modules()}, {"trace", word}});
}

/* Of the table that the daemon's heap prints: "TAG  BLOCKS  BYTES", the last row their sum. Records
   of other threads may stand between the lines. */
Json TagsOf(const std::string &table) {
  Json tags = Json::array();
  std::istringstream lines(table);
  for (std::string line; std::getline(lines, line);) {
    const size_t end = line.find_last_not_of(' ', line.find("  "));
    std::istringstream numbers(line.substr(std::min(line.size(), end + 1)));
    long blocks, bytes;
    std::string more;
    if (numbers >> blocks >> bytes && !(numbers >> more))
      tags.push_back({{"tag", line.substr(0, end + 1)}, {"blocks", blocks}, {"bytes", bytes}});
  }
  return tags;
}

Outcome Mem(const Words &, const Options &options) {
  const Outcome outcome = DaemonMemory(options.limit_ms);
  if (outcome.status != EXIT_DONE) return outcome;
  Json tags = TagsOf(outcome.text);
  if (tags.empty())
    return {EXIT_REFUSED, std::string("no table of blocks in ") + kDaemonLog + ": ask again"};
  const Json total = tags.back();
  tags.erase(tags.size() - 1);
  if (options.json)
    return {EXIT_DONE, JsonText({{"modules", Modules()},
                                 {"blocks", total["blocks"]},
                                 {"bytes", total["bytes"]},
                                 {"tags", tags}})};
  std::string text = std::string(kDaemon) + ", which serves " + Enumerated(Modules()) + ", holds " +
                     total["blocks"].dump() + " blocks of " + total["bytes"].dump() +
                     " bytes in all" + (tags.empty() ? ".\n" : ":\n");
  for (const Json &tag : tags) {
    char line[128];
    snprintf(line, sizeof line, "%-40s %10ld blocks %12ld bytes\n",
             tag["tag"].get<std::string>().c_str(), tag["blocks"].get<long>(),
             tag["bytes"].get<long>());
    text += line;
  }
  return {EXIT_DONE, text};
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
    {"level", "MODULE 1|2|3|4|5", "Log a module's records from this level on", 2, 2, false, true,
     Level},
    {"trace", "on|off", "Message trace of the daemon", 1, 1, false, true, Trace},
    {"mem", "", "The daemon's live memory by tag", 0, 0, false, true, Mem},
    {"wait", "NAME...", "Wait until endpoints serve messages", 1, 50, false, false, Wait},
    {"manully_inform", "WORD...", "Record an inform for the management client", 1, 50, true, true,
     Inform},
    {},
};
