// Modules' queues; see dbmgr_queue.h.
#include "dbmgr_queue.h"

#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <deque>
#include <map>
#include <set>
#include <vector>

#include "ams_common_api.h"
#include "appt_request.h"
#include "dbmgr_commands.h"
#include "dbmgr_watch.h"
#include "nodes.h"
#include "tds_desk.h"

struct ModuleQueue {
  std::deque<RequestPtr> waiting;
  size_t in_flight = 0;
};

namespace {

constexpr size_t kInFlight = 32;  /* well below the bound of a module's message queue */
constexpr size_t kWaiting = 1024; /* a module that hangs must not eat the memory */

/* The routing thread's own; modules are never removed, there are a handful. */
std::map<std::string, ModuleQueue, std::less<>> modules;
struct InFlight {
  uint32_t chain; /* msgChainId */
  RequestPtr request;
};
std::vector<InFlight> in_flight; /* as they were sent */

std::vector<InFlight>::iterator FindInFlight(uint32_t chain) {
  return std::find_if(in_flight.begin(), in_flight.end(),
                      [=](const InFlight &each) { return each.chain == chain; });
}

/* Chain ids start anywhere, so that an acknowledgement meant for an earlier run finds nobody. */
uint32_t NextChainId() {
  static uint32_t next =
      (static_cast<uint32_t>(getpid()) << 16) ^ static_cast<uint32_t>(time(nullptr));
  do {
    ++next;
  } while (next == 0 || FindInFlight(next) != in_flight.end());
  return next;
}

/* Head, url and value as the framework reads them; the plan's texts fit in one-byte lengths. */
std::string Frame(uint32_t chain, const Plan &plan) {
  std::string frame;
  frame.reserve(APPT_HEAD_SIZE + plan.url.size() + plan.value.size() + 4);
  frame.assign(APPT_HEAD_SIZE, '\0');
  appt_PutWord(&frame[APPT_AT_CHAIN], chain);
  appt_PutWord(&frame[APPT_AT_COMMAND], plan.command);
  appt_PutWord(&frame[APPT_AT_CODE], APPT_CODE_REQUEST);
  frame += static_cast<char>(plan.url.size());
  frame.append(plan.url.c_str(), plan.url.size() + 1);
  frame += static_cast<char>(plan.value.size());
  if (!plan.value.empty()) frame.append(plan.value.c_str(), plan.value.size() + 1);
  return frame;
}

/* 0, or -1 (logged) when the module does not take it: the request is not in flight then. */
int Send(uint32_t chain, Request *request) {
  static uint64_t last_sent = 0;
  const std::string &name = request->plan.module;
  request->plan.before = ValuesOf(request->plan.paths);
  const std::string frame = Frame(chain, request->plan);
  request->sent = ++last_sent;
  WatchSent(ClientOf(*request), name);
  if (SendMsg(EV_APPT_MSG_REQUEST, frame.data(), static_cast<uint32_t>(frame.size()),
              name.c_str()) == 0)
    return 0;
  WatchUnsent(ClientOf(*request));
  return -1;
}

/* A module that does not take it fails it at once. */
void Start(RequestPtr request) {
  Request &started = *request;
  const uint32_t chain = NextChainId();
  try {
    in_flight.push_back({chain, nullptr});
    in_flight.back().request = std::move(request);
    if (Send(chain, &started) == 0) {
      ++started.module->in_flight;
      return;
    }
    Refuse(started, [&] {
      return started.plan.module +
             " is not running or takes no messages: "
             "\"gateway-daemon restart sysmgr\" starts it";
    });
  } catch (const std::bad_alloc &) {
    HandOutWithoutMemory(started);
  }
  if (const auto failed = FindInFlight(chain); failed != in_flight.end()) in_flight.erase(failed);
}

/* Sends what waits while there is room. */
void Pump(ModuleQueue *module) {
  while (!module->waiting.empty() && module->in_flight < kInFlight) {
    RequestPtr request = std::move(module->waiting.front());
    module->waiting.pop_front();
    Start(std::move(request));
  }
}

/* Nobody waits for the module any more: for all that it has, or for what it got before `end`. */
void GiveUp(ModuleQueue *module, uint64_t end, const char *why) {
  for (auto it = in_flight.begin(); it != in_flight.end();) {
    const Request &request = *it->request;
    if (request.module != module || request.sent >= end) {
      ++it;
      continue;
    }
    Finish(request,
           [&] { return NoAnswerTo(request.plan, request.plan.module + why, kDaemonLog); });
    it = in_flight.erase(it);
    --module->in_flight;
  }
}

/* A request for one of the two asks for something of the other. */
bool IsRelated(const std::string &one, const std::string &other) {
  return IsAtOrBelow(one, other) || IsAtOrBelow(other, one);
}

}  // namespace

void QueuePut(RequestPtr request) {
  ModuleQueue *module = request->module = &modules[request->plan.module];
  if (module->waiting.empty() && module->in_flight < kInFlight) return Start(std::move(request));
  if (module->waiting.size() >= kWaiting)
    return Refuse(*request, [&] {
      return request->plan.module + " is busy, " + std::to_string(kWaiting) +
             " requests wait for it: try later";
    });
  module->waiting.push_back(std::move(request));
  Pump(module);
}

RequestPtr QueueTake(uint32_t chain) {
  const auto found = FindInFlight(chain);
  if (found == in_flight.end()) return nullptr;
  RequestPtr request = std::move(found->request);
  in_flight.erase(found);
  --request->module->in_flight;
  return request;
}

void QueueAcknowledged(const Request &request) {
  GiveUp(request.module, request.sent, " could not acknowledge it");
  Pump(request.module);
}

bool QueueServes(std::string_view endpoint) { return modules.find(endpoint) != modules.end(); }

void QueueGone(std::string_view endpoint) {
  const auto found = modules.find(endpoint);
  if (found == modules.end()) return;
  GiveUp(&found->second, UINT64_MAX, " died before it answered");
  Pump(&found->second);
}

std::string QueueWaitsFor(const std::string &url) {
  std::string names;
  std::set<std::string> waited_for;
  for (const InFlight &sent : in_flight)
    if (IsRelated(sent.request->plan.url, url)) waited_for.insert(sent.request->plan.module);
  for (const auto &[name, module] : modules)
    for (const RequestPtr &request : module.waiting)
      if (IsRelated(request->plan.url, url)) waited_for.insert(name);
  for (const std::string &name : waited_for) names += (names.empty() ? "" : ", ") + name;
  return names;
}
