// The verb "monitor": what passes the data-base manager, as it passes.
#include <poll.h>
#include <unistd.h>

#include <cstdio>

#include "cfgcmd.h"
#include "cfgcmd_paths.h"
#include "cfgcmd_print.h"
#include "watch.h"

namespace {

constexpr useconds_t kAgainUs = 100000; /* between looks for a dbmgr that is gone */
constexpr size_t kShownMax = 200;       /* bytes of a value */

/* A member as it is shown; "" without one. */
std::string Member(const Json &event, const char *name) {
  const auto found = event.find(name);
  if (found == event.end()) return "";
  return found->is_string() ? found->get<std::string>() : found->dump();
}

std::string Short(std::string text) {
  return text.size() > kShownMax ? text.substr(0, kShownMax) + "..." : text;
}

/* The lists of an event; those that are none are empty. */
const Json &ListOf(const Json &event, const char *name) {
  static const Json none = Json::array();
  const auto found = event.find(name);
  return found != event.end() && found->is_array() ? *found : none;
}

std::string RequestText(const Json &event) {
  std::string text = Member(event, "time") + " " + Member(event, "client") + "[" +
                     Member(event, "pid") + "] " + Member(event, "command") + " " +
                     Member(event, "path");
  const std::string module = Member(event, "module"), op = Member(event, "op");
  if (!module.empty()) text += " " + (op.empty() ? "" : op + "@") + module;
  text += ": " + Member(event, "result") + ", " + Member(event, "total_ms") + " ms\n";
  for (const Json &leaf : ListOf(event, "leaves"))
    text += "  " + Member(leaf, "path") + ": \"" + Short(Member(leaf, "before")) + "\" -> \"" +
            Short(Member(leaf, "after")) + "\"\n";
  for (const Json &command : ListOf(event, "commands"))
    text += "  + " + Member(command, "line") +
            (command.contains("unsure") ? "   (or of another request)\n" : "\n");
  const std::string said = Member(event, "text");
  if (!said.empty()) text += "  " + Short(said) + "\n";
  return text;
}

std::string EventText(const Json &event, bool json) {
  if (json) return ControlBytes(event) + "\n";
  if (Member(event, "kind") == "request") return RequestText(event);
  return Member(event, "time") + " " + Member(event, "publisher") + " notifies of " +
         Member(event, "id") + " " + Short(Member(event, "text")) + "\n";
}

/* Whether whoever reads the output is still there. */
bool IsRead() {
  pollfd out = {STDOUT_FILENO, 0, 0};
  return fflush(stdout) == 0 && poll(&out, 1, 0) >= 0 && (out.revents & (POLLERR | POLLNVAL)) == 0;
}

/* What was not seen is part of the output as JSON; else it does not stand between the requests. */
void TellGap(const std::string &what, bool json) {
  if (json)
    fputs((ControlBytes({{"kind", "gap"}, {"text", what}}) + "\n").c_str(), stdout);
  else
    fprintf(stderr, "cfgcmd: %s\n", what.c_str());
}

void Show(const WatchNews &news, bool json) {
  if (news.missed > 0)
    TellGap(std::to_string(news.missed) + " events, of any path, passed faster than they were told",
            json);
  for (const Json &event : news.events)
    fputs(TerminalText(EventText(event, json), STDOUT_FILENO).c_str(), stdout);
}

/* Goes on after a restart of dbmgr. */
Outcome Monitor(const Words &words, const Options &options) {
  WatchPlace place;
  std::vector<std::string> paths;
  bool begun = false, gone = false;
  for (const std::string &word : words) paths.push_back(FullPath(word, options.base));
  while (IsRead()) {
    std::string reply;
    const Outcome outcome =
        Call(kDbmgrName, kDbmgrWatch, WatchQuestion(place, paths), kUsualLimit, &reply);
    if (outcome.status != EXIT_DONE) {
      if (!begun) return outcome;
      if (!gone) fprintf(stderr, "cfgcmd: %s; waiting for it\n", outcome.text.c_str());
      gone = true;
      usleep(kAgainUs);
      continue;
    }
    WatchNews news;
    if (!WatchGetAnswer(reply, &news)) return kDamagedAnswer;
    if (gone) fprintf(stderr, "cfgcmd: %s is there again\n", kDbmgrName);
    if (!begun) fputs("cfgcmd: watching, Ctrl-C ends it\n", stderr);
    if (begun && news.place.run != place.run)
      TellGap(
          "dbmgr was started anew, or had no memory for more: what it had in work and what "
          "passed meanwhile is not shown",
          options.json);
    begun = true;
    gone = false;
    place = news.place;
    Show(news, options.json);
  }
  return {EXIT_REFUSED, "standard output is not read any more"};
}

}  // namespace

const Verb kMonitorVerbs[] = {
    {"monitor", "[PATH...]", "Print each request as it passes, and notifications", 0, 50, false,
     false, Monitor, nullptr, true},
    {},
};
