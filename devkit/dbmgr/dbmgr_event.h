// A request or a notification that a watcher is told of, as it is noted and as it is told. Any
// thread.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "control.h"

constexpr size_t kWatchedTextMax = 1024; /* bytes of a reason, or of a notification */

/* A request's time with a module; ns of the monotonic clock, 0: not yet. */
struct Stay {
  std::string module;
  uint64_t sent, begun, acknowledged; /* begun: the module was done with what it had before */
};

struct Watched {
  uint64_t number = 0;
  int64_t time = 0;              /* ms since 1970, when it came */
  uint64_t begun = 0, ended = 0; /* ns of the monotonic clock */
  std::string client;
  pid_t pid = 0;
  bool is_notification = false;
  uint32_t command = 0; /* of a notification its id */
  std::string path, text;
  std::vector<std::string> paths; /* of a "set", as in its plan */
  std::string before, after;      /* ValuesOf these */
  std::vector<Stay> stays;
  int32_t result = 0;
  size_t bytes = 0;
};

/* What it takes, about. */
size_t EventBytes(const Watched &event);

/* Whether it is at or below one of the paths; with none it is, and a notification always. */
bool EventIsBelow(const Watched &event, const std::vector<std::string> &paths);

/* All of it but the command lines. */
Json EventJson(const Watched &event);

/* Whether the module may have worked on it at that time. */
bool WasAt(const Stay &stay, uint64_t time);

double MsBetween(uint64_t begin, uint64_t end);
