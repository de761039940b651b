// What a thread asks of the runtime: to send, to call, to answer, to be waked; see tds_desk.h and
// the board's tds.h.
#include "tds_desk.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "ams_print.h"
#include "endpoint.h"
#include "module.h"
#include "print_desk.h"

namespace {

constexpr size_t kLocalBound = 1024; /* messages that a module may have waiting from itself */

bool IsOwnName(const Thread *thread, std::string_view name) {
  if (thread->module == nullptr) return false;
  const std::vector<std::string> &names = thread->module->names;
  return std::find(names.begin(), names.end(), name) != names.end();
}

bool MaySend(uint32_t id, const char *dest) {
  errno = dest == nullptr ? ENOENT : EPERM;
  return dest != nullptr && !IsRuntimeId(id);
}

/* `take(answer, length)` gets an answer that has bytes; std::bad_alloc: it has no memory for them.
   0, or -1 with errno. */
template <class Take>
int Call(uint32_t id, const void *data, uint32_t len, const char *dest, uint32_t limit_ms,
         Take take) {
  Thread *thread = ThisThread();
  const uint64_t end = MonotonicMs() + std::max(limit_ms, 1U);
  if (!MaySend(id, dest)) return -1;
  if (IsOwnName(thread, dest)) {
    errno = EDEADLK;
    return -1;
  }
  const int result = OrNoMemory([=] {
    Peer *peer = PeerSend(thread, dest, WireKind::CALL, id, data, len);
    if (peer == nullptr || PeerAwait(thread, peer, end) != 0) return -1;
    const WireFrame &answer = thread->answer;
    if (answer.head.length != 0) take(static_cast<const char *>(answer.data), answer.head.length);
    return 0;
  });
  thread->answer.large.reset();
  return result;
}

/* A message to the module itself never waits for room in a socket that only it can empty. */
int PostToSelf(Thread *thread, uint32_t id, const void *data, uint32_t length) {
  std::deque<LocalMessage> &local = thread->module->local;
  if (length > TDS_PAYLOAD_MAX || local.size() >= kLocalBound) {
    errno = length > TDS_PAYLOAD_MAX ? EMSGSIZE : EAGAIN;
    return -1;
  }
  local.push_back({id, std::string(static_cast<const char *>(data), length), ThreadName(thread)});
  return 0;
}

/* With a note of what has failed while the message in work was handled. What is wrong with its way
   shows at the message that follows. */
int Post(Thread *thread, uint32_t id, const void *data, uint32_t length, const char *dest) {
  const std::string_view note = thread->module == nullptr ? "" : ams_desk_failures();
  if (!note.empty())
    (void)PeerSend(thread, dest, WireKind::NOTE, 0, note.data(),
                   static_cast<uint32_t>(note.size()));
  return PeerSend(thread, dest, WireKind::POST, id, data, length) == nullptr ? -1 : 0;
}

/* 0, or -1 with errno (logged). */
int SendAnswer(const Connection *connection, uint32_t id, uint32_t sequence, const void *data,
               uint32_t length) {
  if (WireSend(WatchFd(connection->key), WireKind::ANSWER, id, sequence, data, length,
               MSG_DONTWAIT) == 0)
    return 0;
  int reason = errno;
  int level = reason == EPIPE || reason == ECONNRESET ? 2 : 4; /* a caller may have given up */
  AMS_PRINT(level, "answer to %s: %s", connection->sender.c_str(), WireFault(reason));
  errno = reason;
  return -1;
}

Module *OwnModule(const char *call) {
  Module *module = ThisThread()->module;
  if (module == nullptr) AMS_PRINT(4, "%s: only a module thread may call it", call);
  return module;
}

int SetDeadline(const char *call, int timer, uint64_t deadline) {
  Module *module = OwnModule(call);
  if (module == nullptr) return -1;
  if (timer < 0 || timer >= TDS_TIMERS) {
    AMS_PRINT(4, "%s: timer %d, a module has 0 to %d", call, timer, TDS_TIMERS - 1);
    return -1;
  }
  module->deadlines[static_cast<size_t>(timer)] = deadline;
  if (deadline != 0) ModuleWakeBy(module, deadline);
  return 0;
}

}  // namespace

int tds_call(uint32_t id, const void *data, uint32_t len, const char *dest, uint32_t limit_ms,
             std::string *reply) {
  std::string answer;
  const int result = Call(id, data, len, dest, limit_ms, [&](const char *bytes, uint32_t length) {
    answer.assign(bytes, length);
  });
  *reply = std::move(answer);
  return result;
}

int SendMsg_syn_lib(uint32_t id, const void *data, uint32_t len, const char *dest, void **reply,
                    uint32_t *reply_len) {
  *reply = nullptr;
  *reply_len = 0;
  auto copy = [=](const char *answer, uint32_t length) {
    *reply = __tds_strndup(answer, length, "SendMsg_syn_lib");
    if (*reply == nullptr) throw std::bad_alloc();
    *reply_len = length;
  };
  if (Call(id, data, len, dest, TDS_SYN_LIMIT, copy) == 0) return 0;
  AMS_PRINT(4, "message 0x%x to %s: %s", id, dest == nullptr ? "(null)" : dest, WireFault(errno));
  return -1;
}

int SendMsg(uint32_t id, const void *data, uint32_t len, const char *dest) {
  Thread *thread = ThisThread();
  int result = OrNoMemory([=] {
    if (!MaySend(id, dest)) return -1;
    if (IsOwnName(thread, dest)) return PostToSelf(thread, id, data, len);
    return Post(thread, id, data, len, dest);
  });
  if (result == 0) return 0;
  AMS_PRINT(4, "message 0x%x to %s: %s", id, dest == nullptr ? "(null)" : dest, WireFault(errno));
  return -1;
}

int tds_serve_also(const char *name) {
  Module *module = OwnModule("tds_serve_also");
  return module == nullptr ? -1 : ModuleServe(module, name);
}

int SetTimer(int timer, uint32_t ms) {
  /* A part of the clock's millisecond is over, so one more, lest it fire early. */
  return SetDeadline("SetTimer", timer, MonotonicMs() + ms + 1);
}

int KillTimer(int timer) { return SetDeadline("KillTimer", timer, 0); }

int SynAckData_lib(const void *data, uint32_t len, uint32_t id, const char *dest) {
  Module *module = OwnModule("SynAckData_lib");
  if (module == nullptr) return -1;
  MessageInWork *work = &module->work;
  if (!work->wants_answer || dest == nullptr || strcmp(dest, work->sender) != 0) {
    AMS_PRINT(2, "SynAckData_lib: no call of %s is in work", dest == nullptr ? "(null)" : dest);
    return -1;
  }
  if (SendAnswer(work->connection, id, work->sequence, data, len) != 0) {
    work->fault = errno;
    return -1;
  }
  work->wants_answer = false;
  return 0;
}

std::string_view tds_note() {
  const Module *module = ThisThread()->module;
  const Connection *connection = module == nullptr ? nullptr : module->work.connection;
  return connection == nullptr ? std::string_view() : connection->note;
}

pid_t tds_sender_pid() {
  const Module *module = ThisThread()->module;
  const Connection *connection = module == nullptr ? nullptr : module->work.connection;
  return connection == nullptr ? 0 : connection->pid;
}

uint64_t tds_hold_reply() {
  Module *module = OwnModule("tds_hold_reply");
  if (module == nullptr || !module->work.wants_answer) return 0;
  MessageInWork *work = &module->work;
  module->held.push_back({module->last_token + 1, work->connection->key, work->id, work->sequence});
  work->wants_answer = false;
  return ++module->last_token;
}

int tds_reply_held(uint64_t token, const void *data, uint32_t len) {
  Module *module = OwnModule("tds_reply_held");
  if (module == nullptr) return -1;
  auto found =
      std::lower_bound(module->held.begin(), module->held.end(), token,
                       [](const HeldAnswer &held, uint64_t wanted) { return held.token < wanted; });
  if (found == module->held.end() || found->token != token) return -1;
  const HeldAnswer answer = *found;
  module->held.erase(found);
  const Connection *connection = ConnectionOf(module, answer.key);
  if (connection == nullptr) return -1;
  if (SendAnswer(connection, answer.id, answer.sequence, data, len) == 0) return 0;
  ConnectionRefuse(connection, answer.sequence, errno);
  return -1;
}
