// Routing; see dbmgr_route.h.
#include "dbmgr_route.h"

#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <deque>
#include <map>
#include <memory>
#include <new>
#include <set>
#include <string_view>
#include <unordered_map>

#include "ams_store.h"
#include "appt_request.h"
#include "dbmgr_commands.h"
#include "dbmgr_watch.h"
#include "leaf_list.h"
#include "nvram.h"
#include "store_desk.h"
#include "tds_desk.h"
#include "time_text.h"

namespace {

constexpr size_t kInFlight = 32;  /* well below the bound of a module's message queue */
constexpr size_t kWaiting = 1024; /* a module that hangs must not eat the memory */
constexpr char kDamaged[] = "the request is damaged: is the client of this gateway?";
constexpr char kLog[] = "/var/log/devkit/sysmgr.log";

/* A client's request that the store serves when several modules are done. */
struct Whole {
  uint64_t client; /* token of the answer that was put off; 0: it was refused */
  Plan plan;
  size_t missing; /* modules that are not done */
};

struct Module;

struct Request {
  uint64_t client = 0; /* token of the answer that was put off */
  Plan plan;
  Module *module = nullptr;     /* that it is sent to */
  std::shared_ptr<Whole> whole; /* what it is a part of, instead of a client's own */
  uint64_t sent = 0;            /* its place among all that were sent, once it was */
  std::string who;              /* "set": whose it is, "cfgcmd[123]" */
  int64_t came = 0;             /* ms since 1970 */
};

using RequestPtr = std::unique_ptr<Request>;

struct Module {
  std::deque<RequestPtr> waiting;
  size_t in_flight = 0;
};

/* The routing thread's own; modules are never removed, there are a handful. */
std::map<std::string, Module, std::less<>> modules;
std::unordered_map<uint32_t, RequestPtr> in_flight; /* by msgChainId */

/* Chain ids start anywhere, so that an acknowledgement meant for an earlier run finds nobody. */
uint32_t NextChainId() {
  static uint32_t next =
      (static_cast<uint32_t>(getpid()) << 16) ^ static_cast<uint32_t>(time(nullptr));
  do {
    ++next;
  } while (next == 0 || in_flight.count(next) != 0);
  return next;
}

void Answer(uint64_t client, const DbmgrAnswer &answer) {
  std::string bytes = DbmgrPutAnswer(answer);
  (void)tds_reply_held(client, bytes.data(),
                       static_cast<uint32_t>(bytes.size())); /* client gone: its loss */
  WatchAnswered(client, answer);
}

void Refuse(uint64_t client, const std::string &why) { Answer(client, {-1, DbmgrText::TEXT, why}); }

/* Takes no memory; a client that has its answer gets no other. */
void RefuseWithoutMemory(uint64_t client) {
  static const char kAnswer[] =
      "\xff\xff\xff\xff\x01the data-base manager has no memory for it: ask again later";
  AMS_PRINT(5, "no memory for a request or its answer: the client is told to ask again");
  (void)tds_reply_held(client, kAnswer, sizeof kAnswer - 1);
  WatchAnswered(client, {-1, DbmgrText::TEXT, ""});
}

/* Whose request it is, or is a part of. */
uint64_t ClientOf(const Request &request) {
  return request.whole == nullptr ? request.client : request.whole->client;
}

/* The first part that is refused ends the whole, the last one that is done lets the store serve it.
 */
void HandOut(const Request &request, const DbmgrAnswer &answer) {
  if (request.whole == nullptr) return Answer(request.client, answer);
  Whole &whole = *request.whole;
  --whole.missing;
  if (whole.client == 0 || (answer.result >= 0 && whole.missing > 0)) return;
  Answer(whole.client, answer.result < 0 ? answer : ServeFromStore(whole.plan));
  whole.client = 0;
}

void FinishWithoutMemory(const Request &request) {
  RefuseWithoutMemory(ClientOf(request));
  if (request.whole != nullptr) request.whole->client = 0;
}

/* `make` makes the answer. */
template <class Make>
void Finish(const Request &request, Make make) {
  try {
    HandOut(request, make());
  } catch (const std::bad_alloc &) {
    FinishWithoutMemory(request);
  }
}

template <class Make>
void Refuse(const Request &request, Make why) {
  Finish(request, [=] { return DbmgrAnswer{-1, DbmgrText::TEXT, why()}; });
}

/* Head, url and value as the framework reads them; the plan's texts fit in one-byte lengths. */
std::string Frame(uint32_t chain, const Plan &plan) {
  std::string frame(APPT_HEAD_SIZE, '\0');
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
  request->plan.before = ValuesOf(request->plan);
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
  const Request &started = *request;
  const uint32_t chain = NextChainId();
  try {
    RequestPtr &place = in_flight[chain];
    if (Send(chain, request.get()) == 0) {
      ++started.module->in_flight;
      place = std::move(request);
      return;
    }
    in_flight.erase(chain);
    Refuse(started, [&] {
      return started.plan.module +
             " is not running or takes no messages: "
             "\"gateway-daemon restart sysmgr\" starts it";
    });
  } catch (const std::bad_alloc &) {
    in_flight.erase(chain);
    FinishWithoutMemory(started);
  }
}

/* Sends what waits while there is room. */
void Pump(Module *module) {
  while (!module->waiting.empty() && module->in_flight < kInFlight) {
    RequestPtr request = std::move(module->waiting.front());
    module->waiting.pop_front();
    Start(std::move(request));
  }
}

void Enqueue(RequestPtr request) {
  Module *module = request->module = &modules[request->plan.module];
  if (module->waiting.empty() && module->in_flight < kInFlight) return Start(std::move(request));
  if (module->waiting.size() < kWaiting) return module->waiting.push_back(std::move(request));
  Refuse(*request, [&] {
    return request->plan.module + " is busy, " + std::to_string(kWaiting) +
           " requests wait for it: try later";
  });
}

/* A request to each of the modules that the plan asks. */
void EnqueueParts(const Request &request) {
  auto whole =
      std::make_shared<Whole>(Whole{request.client, request.plan, request.plan.asks.size()});
  for (const Ask &ask : whole->plan.asks) {
    auto part = std::make_unique<Request>();
    part->plan.command = APPT_CMD_REFRESH;
    part->plan.module = ask.module;
    part->plan.url = ask.url;
    part->whole = whole;
    Enqueue(std::move(part));
  }
}

/* "name=value" and the separator, as a module answers for one leaf: the bare value. */
std::string BareValue(std::string_view text) {
  Leaf leaf = {};
  (void)NextLeaf(&text, &leaf); /* an empty text is an empty value */
  return std::string(leaf.has_value ? leaf.value : leaf.name);
}

/* The reply text of an acknowledgement, "" when it has none. Its NUL may be missing. */
std::string ReplyText(const void *data, uint32_t length) {
  std::string_view text(static_cast<const char *>(data) + APPT_ACK_HEAD_SIZE,
                        length - APPT_ACK_HEAD_SIZE);
  return std::string(text.substr(0, text.find('\0')));
}

DbmgrAnswer AnswerOf(const Request &request, int32_t result, uint32_t code,
                     const std::string &text) {
  const Plan &plan = request.plan;
  if (result < 0) return RefusedBy(plan.module, plan, Reason(tds_note(), kLog), text);
  if (code != APPT_CODE_RESULT_VALUE) {
    if ((FindCommand(plan.command)->traits & ANSWERS) == 0) return {result, DbmgrText::NONE, ""};
    return {-1, DbmgrText::TEXT,
            plan.module + " answered without the value of \"" +
                (plan.leaf.empty() ? plan.url : plan.leaf) + "\": " + Reason(tds_note(), kLog)};
  }
  if (plan.leaf.empty()) return {result, DbmgrText::TEXT, text};
  return {result, DbmgrText::LEAF, plan.command == APPT_CMD_GET ? BareValue(text) : text};
}

/* What the parameters' changes are noted under is who asked, not who did it. Without memory or room
   for that the module's name stands. */
void NoteWho(const Request &request) {
  for (const std::string &path : request.plan.paths)
    (void)ams_desk_changed_by(path.c_str(), request.who.c_str(), request.came);
}

/* Now, and who the sender of the message in work is. */
void TakeWho(Request *request) {
  char name[TDS_NAME_SIZE];
  Sender(name);
  request->who = std::string(name) + "[" + std::to_string(tds_sender_pid()) + "]";
  request->came = TimeMs();
}

/* A change goes to the flash, to the settings in use, to the tree. Whoever died between two of them
   left one that the next start would bring: the settings in use decide, before anybody is told what
   is. */
void FinishKeeping() {
  (void)nvram_commit(NVTYPE_STAGING); /* both log what they cannot do */
  (void)update_from_nvram(gptXmlTrees->root, NVTYPE_STAGING);
}

/* Whether one of the two is the other, or lies below it. */
bool IsRelated(const std::string &one, const std::string &other) {
  size_t shorter = std::min(one.size(), other.size());
  return one.compare(0, shorter, other, 0, shorter) == 0;
}

/* Nobody waits for the module any more: for all that it has, or for what it got before `end`. */
void GiveUp(Module *module, uint64_t end, const char *why) {
  for (auto it = in_flight.begin(); it != in_flight.end();) {
    const Request &request = *it->second;
    if (request.module != module || request.sent >= end) {
      ++it;
      continue;
    }
    Finish(request, [&] { return NoAnswerTo(request.plan, request.plan.module + why, kLog); });
    it = in_flight.erase(it);
    --module->in_flight;
  }
}

void Route(uint64_t client, const void *data, uint32_t length) {
  auto request = std::make_unique<Request>();
  Plan &plan = request->plan;
  DbmgrRequest asked;
  std::string why;
  request->client = client;
  if (DbmgrGetRequest(data, length, &asked) != 0) return Refuse(client, kDamaged);
  WatchBegun(client, asked);
  if (PlanRequest(asked, &plan, &why) != 0) return Refuse(client, why);
  WatchPlanned(client, plan);
  if (!plan.paths.empty()) TakeWho(request.get());
  if (!plan.module.empty()) return Enqueue(std::move(request));
  if (!plan.asks.empty()) return EnqueueParts(*request);
  plan.before = ValuesOf(plan);
  const DbmgrAnswer answer = ServeFromStore(plan);
  if (answer.result >= 0) NoteWho(*request);
  Answer(client, answer);
}

/* The modules, by name, whose requests one for `url` may wait for. */
std::string WaitedFor(const std::string &url) {
  std::string names;
  std::set<std::string> waited_for;
  for (const auto &[chain, request] : in_flight)
    if (IsRelated(request->plan.url, url)) waited_for.insert(request->plan.module);
  for (const auto &[name, module] : modules)
    for (const RequestPtr &request : module.waiting)
      if (IsRelated(request->plan.url, url)) waited_for.insert(name);
  for (const std::string &name : waited_for) names += (names.empty() ? "" : ", ") + name;
  return names;
}

}  // namespace

void RouteRequest(int32_t, const void *data, uint32_t length) {
  uint64_t client = tds_hold_reply();
  if (client == 0) {
    AMS_PRINT(2, "a request that waits for no answer is dropped: use a synchronous message");
    return;
  }
  try {
    Route(client, data, length);
  } catch (const std::bad_alloc &) {
    RefuseWithoutMemory(client);
  }
}

void RouteCheck(int32_t, const void *data, uint32_t length) {
  uint64_t client = tds_hold_reply();
  if (client == 0) return;
  try {
    Plan plan;
    DbmgrRequest asked;
    std::string why = kDamaged;
    if (DbmgrGetRequest(data, length, &asked) != 0 || PlanRequest(asked, &plan, &why) != 0)
      return Refuse(client, why);
    Answer(client, {});
  } catch (const std::bad_alloc &) {
    RefuseWithoutMemory(client);
  }
}

void RouteWaits(int32_t, const void *data, uint32_t length) {
  uint64_t client = tds_hold_reply();
  if (client == 0) return;
  try {
    Answer(client, {0, DbmgrText::TEXT, WaitedFor({static_cast<const char *>(data), length})});
  } catch (const std::bad_alloc &) {
    RefuseWithoutMemory(client);
  }
}

void RouteAcknowledgement(int32_t, const void *data, uint32_t length) {
  if (length < APPT_ACK_HEAD_SIZE) {
    AMS_PRINT(4, "an acknowledgement of %u bytes is dropped: its head has %d", length,
              APPT_ACK_HEAD_SIZE);
    return;
  }
  const char *bytes = static_cast<const char *>(data);
  uint32_t chain = appt_GetWord(bytes);
  auto found = in_flight.find(chain);
  if (found == in_flight.end()) {
    AMS_PRINT(2, "an acknowledgement of 0X%x, which nobody waits for, is dropped", chain);
    return;
  }
  const RequestPtr request = std::move(found->second);
  Module *module = request->module;
  in_flight.erase(found);
  --module->in_flight;
  WatchAcknowledged(ClientOf(*request), request->plan.module);

  int32_t result = static_cast<int32_t>(appt_GetWord(bytes + APPT_AT_RESULT));
  if (result >= 0) NoteWho(*request);
  Finish(*request, [&] {
    return AnswerOf(*request, result, appt_GetWord(bytes + APPT_AT_CODE), ReplyText(data, length));
  });
  /* A module answers in order: an acknowledgement that it could not send does not come any more. */
  GiveUp(module, request->sent, " could not acknowledge it");
  Pump(module);
}

void RouteNoObject(int32_t, const void *data, uint32_t length) {
  /* The acknowledgement with -1 follows and answers the client. */
  if (length >= 4) AMS_PRINT(2, "the node of request 0X%x has no usable type", appt_GetWord(data));
}

void RoutePeerGone(int32_t, const void *data, uint32_t length) {
  const std::string_view name(static_cast<const char *>(data), length);
  const auto module = modules.find(name.substr(0, name.find('\0')));
  if (module == modules.end()) return;
  FinishKeeping();
  GiveUp(&module->second, UINT64_MAX, " died before it answered");
  Pump(&module->second);
}
