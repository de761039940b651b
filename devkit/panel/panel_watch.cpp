// Watching; see panel_watch.h.
#include "panel_watch.h"

#include <signal.h>

#include <chrono>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <thread>

#include "log_file.h"
#include "panel_events.h"
#include "panel_health.h"

namespace {

constexpr size_t kAtOnce = 256 * 1024; /* bytes of a log that are read in one go */
constexpr size_t kLineMax = 4096;      /* of a line that is shown */
constexpr size_t kLampsMax = 32;
constexpr char kLedScript[] = "/usr/syscfg/led.sh ";

const char *const kProcesses[] = {"dbmgr", "sysmgr", "modem", "vermgt"};

std::mutex mutex;
std::map<std::string, std::string> lamps;

/* A log and how far it was read. */
struct Tail {
  const char *path, *kind;
  uint64_t offset;
  std::string rest; /* of a line whose end is not there yet */
};

void NoteLamp(const std::string &line) {
  if (line.compare(0, sizeof kLedScript - 1, kLedScript) != 0) return;
  std::istringstream words(line.substr(sizeof kLedScript - 1));
  std::string name, rest;
  words >> name;
  std::getline(words >> std::ws, rest);
  std::lock_guard<std::mutex> lock(mutex);
  if (lamps.size() < kLampsMax || lamps.count(name) != 0) lamps[name] = rest;
}

void Read(Tail *tail, bool tell) {
  if (FileSize(tail->path) < tail->offset) tail->offset = 0; /* it was begun anew */
  for (std::string text; !(text = AppendedSince(tail->path, tail->offset, kAtOnce)).empty();) {
    tail->offset += text.size();
    std::istringstream lines(tail->rest + text);
    tail->rest.clear();
    for (std::string line; std::getline(lines, line);) {
      if (lines.eof()) {
        tail->rest = line.substr(0, kLineMax);
        break;
      }
      NoteLamp(line);
      if (tell) EventAdd({{"kind", tail->kind}, {"line", line.substr(0, kLineMax)}});
    }
  }
}

bool Runs(const char *name) {
  pid_t pid = 0;
  std::string is;
  std::ifstream("/var/run/devkit/" + std::string(name)) >> pid;
  if (pid > 0) std::ifstream("/proc/" + std::to_string(pid) + "/comm") >> is;
  return is == name && kill(pid, 0) == 0;
}

}  // namespace

Json WatchProcesses() {
  Json processes = Json::object();
  for (const char *name : kProcesses) processes[name] = Runs(name);
  return processes;
}

Json WatchLamps() {
  std::lock_guard<std::mutex> lock(mutex);
  Json list = Json::object();
  for (const auto &[name, words] : lamps) list[name] = words;
  return list;
}

void WatchForEver() {
  Tail commands = {kCommandsLog, "command", FileSize(kCommandsLog), ""};
  Tail calls = {kCallsLog, "call", 0, ""}; /* lamps that were switched at the start count, too */
  Read(&calls, false);
  Json before;
  for (unsigned look = 0;; ++look, std::this_thread::sleep_for(std::chrono::milliseconds(250))) {
    if (look % 4 == 0) HealthSample();
    Json now = WatchProcesses();
    if (now != before) EventAdd({{"kind", "processes"}, {"processes", now}});
    before = std::move(now);
    Read(&commands, true);
    Read(&calls, true);
  }
}
