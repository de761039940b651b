// Noting what passes, and telling it; see dbmgr_watch.h. What a request costs while it is watched
// is a copy of its texts: events are made of them when a watcher is told.
#include "dbmgr_watch.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <deque>
#include <map>
#include <memory>
#include <new>
#include <vector>

#include "ams_print.h"
#include "ams_store.h"
#include "dbmgr_commands.h"
#include "dbmgr_event.h"
#include "dbmgr_notify.h"
#include "dbmgr_shell.h"
#include "dbmgr_timers.h"
#include "tds_desk.h"
#include "time_text.h"
#include "watch.h"

namespace {

constexpr size_t kKeptMax = 1000, kBytesMax = 4 * 1024 * 1024; /* of events that are told later */
constexpr size_t kToldMax = 200;                               /* in one answer */
constexpr size_t kWatchersMax = 64;
constexpr size_t kPathMostly = 95; /* bytes of a path, as its plan has it, or fewer */
constexpr uint32_t kTellMs = 50;   /* events of so long go out together */
constexpr uint32_t kPauseMs = 800; /* without events; of a second a client tells a terminal */
constexpr uint64_t kForgetNs = 5 * 1000000000ULL; /* without a question */

struct Watcher {
  uint64_t token;
  WatchPlace place;
  std::vector<std::string> paths;
};

struct Begun {
  uint64_t client;
  std::unique_ptr<Watched> event; /* not NULL */
};

bool watched = false;
uint64_t last_question = 0; /* ns of the monotonic clock */
uint64_t run = 0;           /* of this process; a watcher of an earlier one begins anew */
std::vector<Begun> begun;   /* in the order of their clients, which is that of their coming */
std::deque<std::unique_ptr<Watched>> kept; /* none is NULL */
size_t kept_bytes = 0;
uint64_t next_number = 0; /* of the event that comes next */
std::vector<Watcher> watchers;
std::map<std::string, uint64_t, std::less<>> acknowledged; /* when each module did so last */
bool telling = false, pausing = false;                     /* their timers run */

uint64_t Now() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000000000 + static_cast<uint64_t>(now.tv_nsec);
}

void Forget() {
  begun.clear();
  kept.clear();
  kept_bytes = 0;
}

/* What was noted of the request so far, or the end. */
std::vector<Begun>::iterator BegunOf(uint64_t client) {
  const auto found =
      std::lower_bound(begun.begin(), begun.end(), client,
                       [](const Begun &each, uint64_t wanted) { return each.client < wanted; });
  return found != begun.end() && found->client == client ? found : begun.end();
}

/* `work` on the request, if it is watched. */
template <class Work>
void Note(uint64_t client, Work work) {
  if (!watched || client == 0) return;
  const auto found = BegunOf(client);
  if (found == begun.end()) return;
  try {
    work(found->event.get());
  } catch (const std::bad_alloc &) {
    begun.erase(found);
  }
}

void TellSoon() {
  if (telling || watchers.empty()) return;
  telling = SetTimer(WATCH_TELL_TIMER, kTellMs) == 0;
}

void PauseLater() {
  if (!pausing) pausing = SetTimer(WATCH_PAUSE_TIMER, kPauseMs) == 0;
}

void Keep(std::unique_ptr<Watched> event) {
  event->number = next_number;
  event->bytes = EventBytes(*event);
  kept.push_back(std::move(event));
  ++next_number;
  kept_bytes += kept.back()->bytes;
  while (kept.size() > kKeptMax || kept_bytes > kBytesMax) {
    kept_bytes -= kept.front()->bytes;
    kept.pop_front();
  }
  TellSoon();
}

/* Whether the watcher has not seen it, and wants to. */
bool IsNews(const Watched &event, const Watcher &watcher) {
  return event.number >= watcher.place.next && EventIsBelow(event, watcher.paths);
}

bool HasNews(const Watcher &watcher) {
  return std::any_of(kept.begin(), kept.end(),
                     [&](const auto &event) { return IsNews(*event, watcher); });
}

bool WasWith(const Watched &event, const std::string &module) {
  return std::any_of(event.stays.begin(), event.stays.end(),
                     [&](const Stay &stay) { return stay.module == module; });
}

/* Whether another module was at work on `other` when the command was started. */
bool MayBeOf(const Watched &other, const CommandRun &command, const Watched &event) {
  return &other != &event &&
         std::any_of(other.stays.begin(), other.stays.end(), [&](const Stay &stay) {
           return WasAt(stay, command.at) && !WasWith(event, stay.module);
         });
}

Json CommandJson(const CommandRun &command, const Watched &event) {
  auto may_be_of = [&](const auto &other) { return MayBeOf(*other, command, event); };
  Json json = {{"line", command.line}, {"at_ms", MsBetween(event.begun, command.at)}};
  if (std::any_of(kept.begin(), kept.end(), may_be_of) ||
      std::any_of(begun.begin(), begun.end(),
                  [&](const Begun &each) { return may_be_of(each.event); }))
    json["unsure"] = true;
  return json;
}

/* A module runs one line after the other: each lasts until the next, or to the end, with what the
   module itself does behind it. */
void AddTimes(double end, Json *list) {
  for (auto command = list->rbegin(); command != list->rend(); ++command) {
    const double at = (*command)["at_ms"];
    (*command)["took_ms"] = std::round((end - at) * 1e3) / 1e3;
    end = at;
  }
}

Json Commands(const Watched &event) {
  Json list = Json::array();
  for (const CommandRun &command : CommandsBetween(event.begun, event.ended))
    if (std::any_of(event.stays.begin(), event.stays.end(),
                    [&](const Stay &stay) { return WasAt(stay, command.at); }))
      list.push_back(CommandJson(command, event));
  if (event.stays.size() == 1) AddTimes(MsBetween(event.begun, event.stays[0].acknowledged), &list);
  return list;
}

void Tell(const Watcher &watcher) {
  WatchNews news;
  news.place = {run, next_number};
  if (watcher.place.run == run && !kept.empty() && kept.front()->number > watcher.place.next)
    news.missed = kept.front()->number - watcher.place.next;
  for (const auto &event : kept) {
    if (!IsNews(*event, watcher)) continue;
    if (news.events.size() == kToldMax) {
      news.place.next = event->number;
      break;
    }
    Json json = EventJson(*event);
    if (Json commands = Commands(*event); !commands.empty()) json["commands"] = std::move(commands);
    news.events.push_back(std::move(json));
  }
  const std::string bytes = WatchAnswer(news);
  (void)tds_reply_held(watcher.token, bytes.data(),
                       static_cast<uint32_t>(bytes.size())); /* gone: its loss */
}

/* Answers those that `ready` picks. Without memory they are to begin anew. */
template <class Ready>
void TellThose(Ready ready) {
  const auto told = std::stable_partition(watchers.begin(), watchers.end(),
                                          [&](const Watcher &each) { return !ready(each); });
  try {
    CommandsRead();
    std::for_each(told, watchers.end(), Tell);
  } catch (const std::bad_alloc &) {
    static const char kAnew[] = R"({"run":0,"next":0,"missed":0,"events":[]})";
    Forget();
    std::for_each(told, watchers.end(), [](const Watcher &each) {
      (void)tds_reply_held(each.token, kAnew, sizeof kAnew - 1);
    });
  }
  watchers.erase(told, watchers.end());
}

void Begin() {
  if (run == 0) run = static_cast<uint64_t>(time(nullptr)) << 20 ^ Now();
  watched = true;
  CommandsBegin();
}

void End() {
  watched = false;
  Forget();
  CommandsEnd();
  acknowledged.clear();
  NotifyWatchEnd();
}

}  // namespace

void WatchBegun(uint64_t client, const DbmgrRequest &asked) {
  if (!watched) return;
  try {
    auto event = std::make_unique<Watched>();
    char name[TDS_NAME_SIZE];
    Sender(name);
    event->time = TimeMs();
    event->begun = Now();
    event->client = name;
    event->pid = tds_sender_pid();
    event->command = asked.command;
    event->path.reserve(kPathMostly);
    event->path = asked.url;
    begun.push_back({client, std::move(event)});
  } catch (const std::bad_alloc &) {
  }
}

void WatchPlanned(uint64_t client, const Plan &plan) {
  Note(client, [&](Watched *event) {
    event->path = plan.paths.size() == 1 ? plan.paths[0] : plan.leaf.empty() ? plan.url : plan.leaf;
    event->paths = plan.paths;
    event->before = ValuesOf(plan.paths);
  });
}

void WatchSent(uint64_t client, const std::string &module) {
  Note(client, [&](Watched *event) { event->stays.push_back({module, Now(), 0, 0}); });
}

void WatchUnsent(uint64_t client) {
  Note(client, [](Watched *event) { event->stays.pop_back(); });
}

void WatchAcknowledged(uint64_t client, const std::string &module) {
  if (!watched) return;
  const uint64_t now = Now();
  Note(client, [&](Watched *event) {
    uint64_t &before = acknowledged[module]; /* it works in order, one at a time */
    for (Stay &stay : event->stays) {
      if (stay.module != module || stay.acknowledged != 0) continue;
      stay.begun = std::max(stay.sent, before);
      stay.acknowledged = now;
      break;
    }
    before = now;
  });
}

void WatchAnswered(uint64_t client, int32_t result, std::string_view text) {
  if (!watched) return;
  const auto found = BegunOf(client);
  if (found == begun.end()) return;
  std::unique_ptr<Watched> event = std::move(found->event);
  begun.erase(found);
  try {
    event->ended = Now();
    event->result = result;
    if (text.find(static_cast<char>(AMS_SEPARATOR)) == text.npos) /* no whole object */
      event->text.assign(text.substr(0, kWatchedTextMax));
    event->after = ValuesOf(event->paths);
    for (Stay &stay : event->stays)
      if (stay.acknowledged == 0) stay = {stay.module, stay.sent, stay.sent, event->ended};
    Keep(std::move(event));
  } catch (const std::bad_alloc &) {
  }
}

void WatchAsked(int32_t, const void *data, uint32_t length) {
  Watcher watcher;
  if (!WatchGetQuestion({static_cast<const char *>(data), length}, &watcher.place, &watcher.paths))
    return; /* none of a watcher's: it is refused */
  if (watchers.size() >= kWatchersMax) {
    AMS_PRINT(4, "%zu watch already, one more is refused", kWatchersMax);
    return;
  }
  if (!watched) Begin();
  PauseLater(); /* which also ends it, should memory lack below */
  NotifyWatch();
  last_question = Now();
  watchers.reserve(watchers.size() + 1); /* behind this nothing lacks: the answer is put off */
  const uint64_t token = watcher.token = tds_hold_reply();
  if (token == 0) return;
  const bool known = watcher.place.run == run;
  if (!known) watcher.place.next = next_number;
  watchers.push_back(std::move(watcher));
  if (!known)
    TellThose([&](const Watcher &each) { return each.token == token; });
  else if (HasNews(watchers.back()))
    TellSoon();
}

void WatchTell(int32_t, const void *, uint32_t) {
  telling = false;
  TellThose(HasNews);
}

void WatchPause(int32_t, const void *, uint32_t) {
  pausing = false;
  TellThose([](const Watcher &) { return true; });
  if (Now() - last_question > kForgetNs)
    End();
  else
    PauseLater();
}

void WatchOther(int32_t id, const void *data, uint32_t length) {
  char sender[TDS_NAME_SIZE];
  Sender(sender);
  if (!watched || !NotifyIsWatched(static_cast<uint32_t>(id), sender)) {
    AMS_PRINT(2, "message 0x%x from %s has no row, dropped", static_cast<uint32_t>(id), sender);
    return;
  }
  auto event = std::make_unique<Watched>();
  event->time = TimeMs();
  event->client = sender;
  event->command = static_cast<uint32_t>(id);
  event->is_notification = true;
  event->text.assign(static_cast<const char *>(data), std::min<size_t>(length, kWatchedTextMax));
  Keep(std::move(event));
}
