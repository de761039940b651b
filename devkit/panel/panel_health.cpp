// Samples, and the calls that show them; see panel_health.h.
#include "panel_health.h"

#include <unistd.h>

#include <algorithm>
#include <deque>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <vector>

#include "panel_http.h"
#include "panel_program.h"
#include "requests.h"
#include "tds_desk.h"

namespace {

constexpr size_t kSamples = 300;
constexpr size_t kTimesMax = 10000; /* of one second: more tell nothing new */

struct Sample {
  size_t requests;
  double median, p99;   /* ms; negative: no request ended */
  double sysmgr, dbmgr; /* MiB resident */
};

std::mutex mutex;
std::vector<double> times;
size_t ended = 0;
std::deque<Sample> samples;
int64_t last = 0; /* number of samples.back() */

double Resident(const char *name) {
  pid_t pid = 0;
  double all = 0, resident = 0;
  std::ifstream("/var/run/devkit/" + std::string(name)) >> pid;
  std::ifstream("/proc/" + std::to_string(pid) + "/statm") >> all >> resident;
  return resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / (1024 * 1024);
}

/* Of sorted times, the least that so many of them are not above. */
double Quantile(const std::vector<double> &sorted, double part) {
  if (sorted.empty()) return -1;
  return sorted[static_cast<size_t>(part * static_cast<double>(sorted.size() - 1))];
}

/* Bytes that wait in the sockets of each endpoint: "u_seq ESTAB 0 0 /var/run/tds/NAME ...". */
Json Queues() {
  std::map<std::string, int64_t> waiting;
  std::string text;
  (void)RunProgram({"ss", "-Hxan"}, &text); /* without it the page shows none */
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string kind, state, path;
    int64_t received = 0, sent = 0;
    words >> kind >> state >> received >> sent >> path;
    const std::string folder = std::string(kTdsFolder) + "/";
    if (path.compare(0, folder.size(), folder) != 0) continue;
    const bool listens = state == "LISTEN"; /* what it counts are connections */
    waiting[path.substr(folder.size())] += listens ? 0 : received;
  }
  return waiting;
}

Json JsonOf(const Sample &sample) {
  Json json = {{"requests", sample.requests}, {"sysmgr", sample.sysmgr}, {"dbmgr", sample.dbmgr}};
  if (sample.median >= 0) json["median"] = sample.median;
  if (sample.p99 >= 0) json["p99"] = sample.p99;
  return json;
}

/* The samples behind number "after". */
Json Health(const Json &asked) {
  const auto after = ControlNumber(asked, "after", 0);
  if (after < 0) return ControlReply(EXIT_USAGE, "\"after\" is the number of a sample");
  Json reply = ControlReply(EXIT_DONE, ""), list = Json::array();
  reply["queues"] = Queues();
  std::lock_guard<std::mutex> lock(mutex);
  const auto all = static_cast<int64_t>(samples.size());
  const int64_t known = after > last ? 0 : after; /* a number from before this start */
  for (int64_t at = std::max<int64_t>(0, all - (last - known)); at < all; ++at)
    list.push_back(JsonOf(samples[static_cast<size_t>(at)]));
  reply["last"] = last;
  reply["samples"] = std::move(list);
  return reply;
}

Json Memory(const Json &) {
  const Outcome outcome = DaemonMemory(kUsualLimit);
  return ControlReply(outcome.status, outcome.text);
}

}  // namespace

void HealthCount(double total_ms) {
  std::lock_guard<std::mutex> lock(mutex);
  ++ended;
  if (times.size() < kTimesMax) times.push_back(total_ms);
}

void HealthSample() {
  const double sysmgr = Resident("sysmgr"), dbmgr = Resident("dbmgr");
  std::lock_guard<std::mutex> lock(mutex);
  std::sort(times.begin(), times.end());
  samples.push_back({ended, Quantile(times, 0.5), Quantile(times, 0.99), sysmgr, dbmgr});
  if (samples.size() > kSamples) samples.pop_front();
  ++last;
  times.clear();
  ended = 0;
}

const PanelCall kHealthCalls[] = {{"health", Health}, {"memory", Memory}, {}};
