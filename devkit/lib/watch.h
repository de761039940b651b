// What a watcher and the data-base manager say to each other: kDbmgrWatch, a synchronous message,
// whose question and answer are JSON. Any thread.
//
// A question is answered once there is something new, or after a while without: whoever asks again
// and again sees all that passes. While nobody has asked for some seconds nothing is noted. An
// event is
//   {"kind": "request", "time", "client", "pid", "command", "path", "module", "op",
//    "leaves": [{"path", "before", "after"}],
//    "commands": [{"line", "at_ms", "took_ms", "unsure"}],
//    "result": "done" | "refused", "text", "queued_ms", "module_ms", "total_ms"}
// without what there is not: "unsure" are command lines that another module may have run as well;
// or
//   {"kind": "notification", "time", "publisher", "id", "text"}.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "control.h"

constexpr uint32_t kDbmgrWatch = 0x110003;

/* What a watcher has seen: of which run of dbmgr, and which event comes next. Of a run that it does
   not know, as at its start, it learns only where the next events begin. */
struct WatchPlace {
  uint64_t run = 0, next = 0;
};

/* `paths`: of requests only those at or below one of them; none: all. */
std::string WatchQuestion(const WatchPlace &place, const std::vector<std::string> &paths);
bool WatchGetQuestion(const std::string &bytes, WatchPlace *place, std::vector<std::string> *paths);

/* `missed`: events that were forgotten before this watcher asked. */
struct WatchNews {
  WatchPlace place;
  uint64_t missed = 0;
  Json events = Json::array();
};

std::string WatchAnswer(const WatchNews &news);
bool WatchGetAnswer(const std::string &bytes, WatchNews *news);
