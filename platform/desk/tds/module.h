// A module: its sockets, its timers and the message in work. Touched by its own thread alone.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "connections.h"
#include "tds_desk.h"

struct HeldAnswer {
  uint64_t token;
  WatchKey key;
  uint32_t id, sequence;
};

/* A message that does not come through a socket: one to the module itself, or of the runtime. */
struct LocalMessage {
  uint32_t id;
  std::string payload;
  std::string sender;
};

struct MessageInWork {
  const char *sender;     /* "" outside a handler */
  Connection *connection; /* NULL for a local message */
  uint32_t id, sequence;
  bool wants_answer;
  int fault; /* why an answer could not be given; 0: none was tried */
};

struct Module {
  std::string name;
  const MsgEntry *table;
  int epoll = -1;
  int clock = -1;   /* readable from when on something is due: a timer, ConnectionsTidy */
  uint64_t wake_at; /* what it is set to, ms of the monotonic clock; 0: nothing */
  std::vector<std::string> names; /* name and those served beside it */
  std::vector<WatchKey> listeners;
  std::vector<std::unique_ptr<Connection>> connections; /* by descriptor; NULL: none */
  std::deque<Newcomer> newcomers; /* by age; some have said their name since */
  uint64_t tidy_at;    /* ms of the monotonic clock when ConnectionsTidy is due; 0: nothing to do */
  uint64_t crowded_at; /* when there was last no room for one more; 0: never */
  bool accept_paused;
  int folder = -1;  /* the watch of the sockets' folder; -1: none */
  bool folder_gone; /* and it could not be made again yet */
  std::vector<std::pair<uint32_t, std::string>> asked; /* for notifications: id and publisher */
  uint64_t last_serial;
  std::array<uint64_t, TDS_TIMERS> deadlines; /* ms of the monotonic clock; 0: not running */
  std::deque<LocalMessage> local;
  MessageInWork work;
  std::vector<HeldAnswer> held; /* by token, the latest at the end */
  uint64_t last_token;
  ~Module();
};

/* Makes the module's epoll set and its listening socket. 0 or -1 (logged). */
int ModuleOpen(Module *module, const char *name, const MsgEntry *table);

/* Serves one more endpoint name. 0 or -1 (logged). */
int ModuleServe(Module *module, const char *name);

/* The module's thread: init message, then messages and timers for ever. */
void *ModuleThread(void *module);

/* Puts a descriptor into the module's epoll set. Its key, or 0 (logged). */
WatchKey ModuleWatch(Module *module, WatchKind kind, int fd);

/* At the latest then, ms of the monotonic clock, the module's thread looks for what is due. It may
   be early: whoever moves a deadline on leaves the clock as it is, and saves a system call. */
void ModuleWakeBy(Module *module, uint64_t time);

/* Sets the module's clock to what is due next. */
void ModuleSetClock(Module *module);

/* The table's row for `id`, or NULL. */
const MsgEntry *ModuleRow(const Module *module, uint32_t id);

/* Ids that only the runtime itself sends: the init message, a peer's end, the timers. */
constexpr bool IsRuntimeId(uint32_t id) {
  return id == TDS_MSG_INIT || id == TDS_MSG_PEER_GONE ||
         (id >= TDS_MSG_TIMER && id < TDS_MSG_TIMER + TDS_TIMERS);
}
