// The message runtime: a queue and a thread an endpoint, one thread for the timers; see
// platform/include/tds.h. What is kept here lives for ever, for its threads are never joined.
#include "tds.h"

#include <time.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "ams_print.h"

namespace {

using Clock = std::chrono::steady_clock;
using Ms = std::chrono::milliseconds;

constexpr size_t kQueueMessages = 1000; /* of one endpoint; their bytes: TDS_PAYLOAD_MAX */

/* What a caller of SendMsg_syn_lib waits for. */
struct Call {
  std::condition_variable done;
  bool over = false, answered = false; /* over: with an answer, refused, or too late for one */
  void *reply = nullptr;
  uint32_t length = 0;
};

struct Message {
  uint32_t id = 0, length = 0;
  std::unique_ptr<char[]> data;
  std::string sender;
  std::shared_ptr<Call> call; /* NULL: nobody waits */
  unsigned start = 0;         /* of a timer's expiry: which start of the timer it belongs to */
};

struct Endpoint {
  std::string name;
  const MsgEntry *table;
  bool module;
  std::deque<Message> queue;
  size_t bytes = 0;   /* in the queue */
  bool stuck = false; /* a sender has waited in vain since a message was taken */
  std::condition_variable filled, taken;
  unsigned starts[TDS_TIMERS] = {}; /* counts SetTimer and KillTimer */
};

struct Expiry {
  Endpoint *owner;
  int timer;
  unsigned start;
};

/* All of it, under one mutex. */
struct Runtime {
  std::mutex mutex;
  std::map<std::string, std::unique_ptr<Endpoint>> endpoints;
  std::string process;
  std::map<std::pair<std::string, uint32_t>, std::set<std::string>> registrants; /* by publisher */
  std::multimap<Clock::time_point, Expiry> timers;
  std::condition_variable timers_changed;
};
Runtime &runtime = *new Runtime;
using Lock = std::unique_lock<std::mutex>;

thread_local Endpoint *self;   /* of this thread; NULL: none */
thread_local Message *in_work; /* by this thread's handler */

bool OfTheRuntime(uint32_t id) {
  return id == TDS_MSG_INIT || (id >= TDS_MSG_TIMER && id < TDS_MSG_TIMER + TDS_TIMERS);
}

bool IsName(const char *name) {
  return name != nullptr && name[0] != '\0' && name[0] != '.' && strchr(name, '/') == nullptr &&
         strnlen(name, TDS_NAME_SIZE) < TDS_NAME_SIZE;
}

const MsgEntry *RowOf(const Endpoint &endpoint, uint32_t id) {
  for (const MsgEntry *row = endpoint.table; row->handler != nullptr; ++row)
    if (row->id == id) return row;
  return nullptr;
}

std::string SelfName() {
  if (self != nullptr) return self->name;
  Lock lock(runtime.mutex);
  return runtime.process;
}

void CopyName(const std::string &from, char *name, size_t size) {
  if (size > 0) snprintf(name, size, "%s", from.c_str());
}

/* ---- module threads ---- */

Message Next(Endpoint *endpoint) {
  Lock lock(runtime.mutex);
  endpoint->filled.wait(lock, [&] { return !endpoint->queue.empty(); });
  Message message = std::move(endpoint->queue.front());
  endpoint->queue.pop_front();
  endpoint->bytes -= message.length;
  endpoint->stuck = false;
  endpoint->taken.notify_all();
  return message;
}

/* Whether it is that of a timer which was set anew or killed since. */
bool Stale(const Message &message) {
  if (message.id < TDS_MSG_TIMER || message.id >= TDS_MSG_TIMER + TDS_TIMERS) return false;
  Lock lock(runtime.mutex);
  return self->starts[message.id - TDS_MSG_TIMER] != message.start;
}

void Handle(Message *message) {
  if (Stale(*message)) return;
  if (const MsgEntry *row = RowOf(*self, message->id)) {
    in_work = message;
    try {
      row->handler(static_cast<int32_t>(message->id), message->data.get(), message->length);
    } catch (const std::bad_alloc &) {
      AMS_PRINT(5, "%s: no memory to handle message 0x%x of %s\n", self->name.c_str(), message->id,
                message->sender.c_str());
    }
    in_work = nullptr;
  } else {
    AMS_PRINT(2, "%s: no row for message 0x%x of %s\n", self->name.c_str(), message->id,
              message->sender.c_str());
  }
  if (message->call == nullptr) return;
  Lock lock(runtime.mutex);
  message->call->over = true; /* refused, if there was no answer */
  message->call->done.notify_all();
}

void Serve(Endpoint *endpoint) {
  self = endpoint;
  AMS_PrintThreadModule(endpoint->name.c_str());
  Message init;
  init.id = TDS_MSG_INIT;
  init.sender = endpoint->name;
  Handle(&init);
  for (;;) {
    Message message = Next(endpoint);
    Handle(&message);
  }
}

void ServeTimers() {
  Lock lock(runtime.mutex);
  for (;;) {
    const auto first = runtime.timers.begin();
    if (first == runtime.timers.end()) {
      runtime.timers_changed.wait(lock);
    } else if (const Clock::time_point due = first->first; due > Clock::now()) {
      runtime.timers_changed.wait_until(lock, due);
    } else {
      Message message; /* there is always room for one */
      message.id = TDS_MSG_TIMER + static_cast<uint32_t>(first->second.timer);
      message.start = first->second.start;
      message.sender = first->second.owner->name;
      first->second.owner->queue.push_back(std::move(message));
      first->second.owner->filled.notify_one();
      runtime.timers.erase(first);
    }
  }
}

/* ---- sending ---- */

bool HasRoom(const Endpoint &endpoint, uint32_t length) {
  return endpoint.queue.size() < kQueueMessages &&
         (endpoint.bytes == 0 || endpoint.bytes + length <= TDS_PAYLOAD_MAX);
}

/* Under the lock. What is wrong with the sending, or NULL. */
const char *Enqueue(Lock *lock, const std::string &dest, Message message, bool wait_anew,
                    Clock::time_point limit) {
  const auto found = runtime.endpoints.find(dest);
  if (found == runtime.endpoints.end()) return "no such endpoint";
  Endpoint &endpoint = *found->second;
  if (message.call != nullptr && &endpoint == self) return "it would wait for itself";
  const auto room = [&] { return HasRoom(endpoint, message.length); };
  if (endpoint.stuck && !wait_anew && !room()) return "its queue is still full";
  if (!endpoint.taken.wait_until(*lock, limit, room)) {
    endpoint.stuck = true;
    return "its queue is full";
  }
  endpoint.bytes += message.length;
  endpoint.queue.push_back(std::move(message));
  endpoint.filled.notify_one();
  return nullptr;
}

/* Sends, with a call to wait for or without. 0, or -1 (logged). */
int Send(uint32_t id, const void *data, uint32_t length, const char *dest,
         const std::shared_ptr<Call> &call) {
  const Clock::time_point start = Clock::now();
  const char *wrong = dest == nullptr            ? "no endpoint is named"
                      : OfTheRuntime(id)         ? "the id is the runtime's own"
                      : length > TDS_PAYLOAD_MAX ? "it is too large"
                                                 : nullptr;
  if (wrong == nullptr) {
    Message message;
    message.id = id;
    message.length = length;
    message.data.reset(length > 0 ? new (std::nothrow) char[length] : nullptr);
    if (message.data != nullptr) memcpy(message.data.get(), data, length);
    if (length > 0 && message.data == nullptr) wrong = "no memory";
    message.sender = SelfName();
    message.call = call;
    Lock lock(runtime.mutex);
    if (wrong == nullptr)
      wrong = Enqueue(&lock, dest, std::move(message), call != nullptr,
                      start + Ms(call != nullptr ? TDS_SYN_LIMIT : 2000));
    if (wrong == nullptr && call != nullptr) {
      if (!call->done.wait_until(lock, start + Ms(TDS_SYN_LIMIT), [&] { return call->over; }))
        wrong = "no answer in time";
      else if (!call->answered)
        wrong = "no answer was given";
      call->over = true;
    }
  }
  if (wrong != nullptr)
    AMS_PRINT(4, "message 0x%x of %u bytes to %s: %s\n", id, length, dest == nullptr ? "?" : dest,
              wrong);
  return wrong == nullptr ? 0 : -1;
}

}  // namespace

/* The first name up to its colon is the process's. */
int SysInit(const struct ModuleEntry *modules) {
  Lock lock(runtime.mutex);
  std::map<std::string, std::unique_ptr<Endpoint>> added;
  const auto add = [&](const std::string &name, const MsgEntry *table, bool module) {
    if (!IsName(name.c_str()) || runtime.endpoints.count(name) != 0 || added.count(name) != 0) {
      AMS_PRINT(4, "SysInit: %s is no name, or is taken\n", name.c_str());
      return false;
    }
    auto endpoint = std::make_unique<Endpoint>();
    endpoint->name = name;
    endpoint->table = table;
    endpoint->module = module;
    added[name] = std::move(endpoint);
    return true;
  };
  if (modules->name == nullptr) return -1;
  const std::string first = modules->name, process = first.substr(0, first.find(':'));
  if (!add(process, prosCtlMsgTab, false)) return -1;
  for (; modules->name != nullptr; ++modules)
    if (!add(modules->name, modules->table, true)) return -1;
  runtime.process = process;
  try {
    std::thread(ServeTimers).detach();
    for (auto &[name, endpoint] : added) {
      Endpoint *served = (runtime.endpoints[name] = std::move(endpoint)).get();
      std::thread(Serve, served).detach();
    }
  } catch (const std::system_error &error) {
    AMS_PRINT(4, "SysInit: no thread: %s\n", error.what());
    return -1;
  }
  return 0;
}

int SendMsg(uint32_t id, const void *data, uint32_t len, const char *dest) {
  return Send(id, data, len, dest, nullptr);
}

int SendMsg_syn_lib(uint32_t id, const void *data, uint32_t len, const char *dest, void **reply,
                    uint32_t *reply_len) {
  const auto call = std::make_shared<Call>();
  const int result = Send(id, data, len, dest, call);
  *reply = result == 0 ? call->reply : nullptr;
  *reply_len = result == 0 ? call->length : 0;
  return result;
}

int SynAckData_lib(const void *data, uint32_t len, uint32_t id, const char *dest) {
  Call *call = in_work == nullptr || dest == nullptr || in_work->sender != dest
                   ? nullptr
                   : in_work->call.get();
  char *copy = nullptr;
  if (call != nullptr && len > 0 && len <= TDS_PAYLOAD_MAX &&
      (copy = static_cast<char *>(__tds_malloc(size_t{len} + 1, "tds answer"))) != nullptr) {
    memcpy(copy, data, len);
    copy[len] = '\0';
  }
  if (call != nullptr && (len == 0 || copy != nullptr)) {
    Lock lock(runtime.mutex);
    if (!call->over) {
      call->reply = copy;
      call->length = len;
      call->over = call->answered = true;
      call->done.notify_all();
      return 0;
    }
  }
  __tds_free(copy);
  AMS_PRINT(4, "answer 0x%x of %u bytes to %s: nobody waits for it, or it is too large\n", id, len,
            dest == nullptr ? "?" : dest);
  return -1;
}

void tds_self(char *name, size_t size) { CopyName(SelfName(), name, size); }

void tds_self_thread_name(char *name, size_t size) { CopyName(SelfName(), name, size); }

void tds_sender(char *name, size_t size) {
  CopyName(in_work == nullptr ? "" : in_work->sender, name, size);
}

/* ---- timers and notifications ---- */

namespace {

/* Ends what the timer was started for. Returns its start count, or NULL (logged). Under the lock.
 */
unsigned *Restarted(int timer) {
  if (self == nullptr || !self->module || timer < 0 || timer >= TDS_TIMERS) {
    AMS_PRINT(4, "timer %d: there is none, or this is no module's thread\n", timer);
    return nullptr;
  }
  for (auto at = runtime.timers.begin(); at != runtime.timers.end();)
    at = at->second.owner == self && at->second.timer == timer ? runtime.timers.erase(at)
                                                               : std::next(at);
  return &++self->starts[timer];
}

}  // namespace

int SetTimer(int timer, uint32_t ms) {
  Lock lock(runtime.mutex);
  const unsigned *start = Restarted(timer);
  if (start == nullptr) return -1;
  runtime.timers.insert({Clock::now() + Ms(ms), {self, timer, *start}});
  runtime.timers_changed.notify_one();
  return 0;
}

int KillTimer(int timer) {
  Lock lock(runtime.mutex);
  return Restarted(timer) == nullptr ? -1 : 0;
}

int TDS_RegisterNotifyList(uint32_t id, const char *publisher) {
  if (self == nullptr || !self->module || !IsName(publisher)) {
    AMS_PRINT(4, "notification 0x%x: no such publisher, or this is no module's thread\n", id);
    return -1;
  }
  Lock lock(runtime.mutex);
  runtime.registrants[{publisher, id}].insert(self->name);
  return 0;
}

int TDS_NotifyRegistrant(uint32_t id, const void *data, uint32_t len) {
  if (len > TDS_PAYLOAD_MAX || OfTheRuntime(id)) {
    AMS_PRINT(4, "notification 0x%x of %u bytes: too large, or the runtime's own\n", id, len);
    return -1;
  }
  const std::string publisher = SelfName();
  std::set<std::string> receivers;
  {
    Lock lock(runtime.mutex);
    receivers = runtime.registrants[{publisher, id}];
  }
  if (self != nullptr && RowOf(*self, id) != nullptr) receivers.insert(publisher);
  for (const std::string &receiver : receivers)
    (void)SendMsg(id, data, len, receiver.c_str()); /* logged, and passed over */
  return 0;
}

void tds_delay(uint32_t ms) { std::this_thread::sleep_for(Ms(ms)); }

void tds_gettime(int32_t *seconds, int32_t *milliseconds) {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  *seconds = static_cast<int32_t>(now.tv_sec);
  *milliseconds = static_cast<int32_t>(now.tv_nsec / 1000000);
}
