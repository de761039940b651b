// A module's thread with its sockets, its timers and its message table; see module.h.
#include "module.h"

#include <pthread.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "ams_print.h"
#include "endpoint.h"
#include "folder.h"
#include "print_desk.h"
#include "tds_desk.h"
#include "wire.h"

namespace {

constexpr uint32_t kNoMemoryPause = 100; /* ms */

/* A handler that lacks memory is over. */
void CallRow(Module *module, const MsgEntry &row, const void *data, uint32_t length) {
  try {
    row.handler(static_cast<int32_t>(module->work.id), data, length);
  } catch (const std::bad_alloc &) {
    AMS_PRINT(5, "%s: no memory to handle message 0x%x from %s", module->name.c_str(),
              module->work.id, module->work.sender);
    module->work.fault = ENOMEM;
  }
}

/* Calls the handler of the message in work; a call that it neither answers nor holds is refused at
   once, so that its sender does not wait in vain. */
void Dispatch(Module *module, const MessageInWork &work, const void *data, uint32_t length) {
  const MsgEntry *row = ModuleRow(module, work.id);
  if (row == nullptr && work.connection != nullptr) row = ModuleRow(module, TDS_MSG_ANY);
  module->work = work;
  ams_desk_forget_failures(); /* those that are logged now are this message's */
  if (row != nullptr) {
    CallRow(module, *row, data, length);
  } else if (!work.wants_answer) {
    AMS_PRINT(2, "%s: message 0x%x from %s has no row, dropped", module->name.c_str(), work.id,
              work.sender);
  }
  if (module->work.wants_answer)
    ConnectionRefuse(work.connection, work.sequence,
                     module->work.fault != 0 ? module->work.fault : ENOMSG);
  module->work = {"", nullptr, 0, 0, false, 0};
}

/* A message of a connection that has a name. */
void Handle(Module *module, Connection *connection, const WireFrame &frame) {
  const WireHead &head = frame.head;
  const char *sender = connection->sender.c_str();
  bool call = head.kind == WireKind::CALL;
  if (connection->noted != head.sequence) connection->note.clear();
  if (!IsRuntimeId(head.id)) {
    Dispatch(module, {sender, connection, head.id, head.sequence, call, 0}, frame.data,
             head.length);
    return;
  }
  AMS_PRINT(3, "%s: message 0x%x from %s is dropped: only the runtime itself sends that id",
            module->name.c_str(), head.id, sender);
  if (call) ConnectionRefuse(connection, head.sequence, EPERM);
}

/* One frame of one connection. False when there was none. */
bool Receive(Module *module, Connection *connection, WireFrame *frame) {
  int got = WireReceive(WatchFd(connection->key), &connection->announced, frame, MSG_DONTWAIT);
  if (got < 0 && errno == EAGAIN) return false;
  const WireHead &head = frame->head;
  bool hello = got == 1 && head.kind == WireKind::HELLO;
  bool message = got == 1 && (head.kind == WireKind::POST || head.kind == WireKind::CALL);
  if (message && !connection->sender.empty()) {
    Handle(module, connection, *frame);
    return true;
  }
  if (got == 1 && head.kind == WireKind::NOTE && head.length > 0 &&
      head.length <= kAmsDeskFailures) {
    connection->noted = head.sequence + 1;
    connection->note.assign(static_cast<const char *>(frame->data), head.length);
    return true;
  }
  if (hello && head.length > 1 && head.length <= TDS_NAME_SIZE && connection->sender.empty()) {
    const char *name = static_cast<const char *>(frame->data);
    connection->sender.assign(name, strnlen(name, head.length - 1));
    if (!connection->sender.empty()) {
      TidyNoLonger(module);
      return true;
    }
  }
  if (got != 0) AMS_PRINT(3, "%s: bad frame, connection closed", module->name.c_str());
  ConnectionClose(module, connection->key);
  return true;
}

/* A frame of a connection. Of one that sends without waiting for answers those behind it, too,
   until the clock's next millisecond: nobody else, and no timer, waits for more than one of a slow
   handler's messages. The module's messages to itself are not to pile up meanwhile. */
void ReceiveSome(Module *module, WatchKey key, WireFrame *frame) {
  Connection *connection = ConnectionOf(module, key);
  if (connection == nullptr) return;
  const bool look = ConnectionBeginTurn(connection);
  const uint64_t begun = look ? MonotonicMs() : 0;
  bool had = Receive(module, connection, frame);
  while (look && had && module->local.empty() && MonotonicMs() == begun) {
    connection = ConnectionOf(module, key);
    if (connection == nullptr) return;
    had = Receive(module, connection, frame);
    if (ConnectionOf(module, key) != nullptr) ConnectionLooked(connection, had);
  }
}

/* Sets the module's clock; 0 stops it. */
void SetClock(Module *module, uint64_t time) {
  struct itimerspec wake = {};
  wake.it_value.tv_sec = static_cast<time_t>(time / 1000);
  wake.it_value.tv_nsec = static_cast<long>(time % 1000) * 1000000;
  module->wake_at = time;
  (void)timerfd_settime(module->clock, TFD_TIMER_ABSTIME, &wake, nullptr); /* no argument is bad */
}

/* What the module gets from its own runtime. */
MessageInWork OwnMessage(const Module *module, uint32_t id) {
  return {module->name.c_str(), nullptr, id, 0, false, 0};
}

void FireTimers(Module *module, uint64_t now) {
  for (int timer = 0; timer < TDS_TIMERS; ++timer) {
    uint64_t *deadline = &module->deadlines[static_cast<size_t>(timer)];
    if (*deadline == 0 || *deadline > now) continue;
    *deadline = 0;
    Dispatch(module, OwnMessage(module, TDS_MSG_TIMER + static_cast<uint32_t>(timer)), nullptr, 0);
  }
}

void HandleDue(Module *module) {
  FireTimers(module, MonotonicMs());
  ConnectionsTidy(module);
  ModuleSetClock(module);
}

void HandleEvent(Thread *thread, WatchKey key, WireFrame *frame) {
  Module *module = thread->module;
  switch (WatchKindOf(key)) {
    case WatchKind::LISTENER:
      (void)ConnectionAccept(module, WatchFd(key)); /* somebody may have gone before his turn */
      return;
    case WatchKind::CONNECTION:
      return ReceiveSome(module, key, frame);
    case WatchKind::PEER:
      return PeerReadable(thread, key);
    case WatchKind::FOLDER:
      return FolderChanged(module, WatchFd(key));
    case WatchKind::CLOCK:
      return HandleDue(module);
  }
}

void HandleLocal(Module *module) {
  for (size_t waiting = module->local.size(); waiting > 0; --waiting) {
    LocalMessage message = std::move(module->local.front());
    module->local.pop_front();
    Dispatch(module, {message.sender.c_str(), nullptr, message.id, 0, false, 0},
             message.payload.empty() ? nullptr : message.payload.data(),
             static_cast<uint32_t>(message.payload.size()));
  }
}

/* The messages to itself, what is due, then what has come: fairness among senders comes from the
   order of the epoll set, in which the clock would come behind all of them. */
void Turn(Thread *thread, WireFrame *frame) {
  Module *module = thread->module;
  HandleLocal(module);
  if (module->wake_at != 0 && module->wake_at <= MonotonicMs()) HandleDue(module);
  struct epoll_event events[16];
  int count = epoll_wait(module->epoll, events, 16, module->local.empty() ? -1 : 0);
  for (int i = 0; i < count; ++i) {
    HandleEvent(thread, events[i].data.u64, frame);
    frame->large.reset();
  }
}

}  // namespace

const MsgEntry *ModuleRow(const Module *module, uint32_t id) {
  for (const MsgEntry *row = module->table; row->handler != nullptr; ++row)
    if (row->id == id) return row;
  return nullptr;
}

void ModuleSetClock(Module *module) {
  uint64_t next = module->tidy_at == 0 ? UINT64_MAX : module->tidy_at;
  for (uint64_t deadline : module->deadlines)
    if (deadline != 0) next = std::min(next, deadline);
  SetClock(module, next == UINT64_MAX ? 0 : next);
}

void ModuleWakeBy(Module *module, uint64_t time) {
  if (module->wake_at == 0 || time < module->wake_at) SetClock(module, time);
}

WatchKey ModuleWatch(Module *module, WatchKind kind, int fd) {
  struct epoll_event event = {};
  event.events = kind == WatchKind::LISTENER ? EPOLLIN : EPOLLIN | EPOLLRDHUP;
  event.data.u64 = WatchKeyOf(kind, ++module->last_serial, fd);
  if (epoll_ctl(module->epoll, EPOLL_CTL_ADD, fd, &event) == 0) return event.data.u64;
  AMS_PRINT(4, "%s: epoll_ctl: %s", module->name.c_str(), strerror(errno));
  return 0;
}

int ModuleServe(Module *module, const char *name) {
  int fd = WireListen(name);
  if (fd < 0) {
    AMS_PRINT(4, "cannot serve %s: %s", name,
              errno == EADDRINUSE ? "another process serves it" : strerror(errno));
    return -1;
  }
  WatchKey key = ModuleWatch(module, WatchKind::LISTENER, fd);
  if (key == 0) {
    close(fd);
    return -1;
  }
  module->names.emplace_back(name);
  module->listeners.push_back(key);
  return 0;
}

Module::~Module() {
  for (WatchKey key : listeners) close(WatchFd(key));
  if (folder >= 0) close(folder);
  if (clock >= 0) close(clock);
  if (epoll >= 0) close(epoll);
}

int ModuleOpen(Module *module, const char *name, const MsgEntry *table) {
  module->name = name;
  module->table = table;
  module->work.sender = "";
  module->epoll = epoll_create1(EPOLL_CLOEXEC);
  if (module->epoll < 0) {
    AMS_PRINT(4, "%s: epoll_create1: %s", name, strerror(errno));
    return -1;
  }
  module->clock = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
  if (module->clock < 0) {
    AMS_PRINT(4, "%s: timerfd_create: %s", name, strerror(errno));
    return -1;
  }
  if (ModuleWatch(module, WatchKind::CLOCK, module->clock) == 0) return -1;
  if (ModuleServe(module, name) != 0) return -1;
  FolderWatch(module);
  return 0;
}

void *ModuleThread(void *argument) {
  Module *module = static_cast<Module *>(argument);
  Thread *thread = ThisThread();
  thread->name = module->name;
  thread->module = module;
  AMS_PrintThreadModule(module->name.c_str());
  WireFrame frame;
  if (ModuleRow(module, TDS_MSG_INIT) != nullptr)
    Dispatch(module, OwnMessage(module, TDS_MSG_INIT), nullptr, 0);
  tds_give_back(); /* a start takes more than the work after it */
  for (;;) try {
      for (;;) Turn(thread, &frame);
    } catch (const std::bad_alloc &) { /* what was not read yet waits in its socket */
      AMS_PRINT(5, "%s: no memory for messages, waiting for some", module->name.c_str());
      tds_delay(kNoMemoryPause);
    }
  return nullptr;
}
