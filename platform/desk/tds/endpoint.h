// A thread's side of the runtime: whom it has sent to, and, for a module thread, its sockets,
// timers and the message in work. Everything here is touched by its own thread alone.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "wire.h"

/* What an event of the epoll set is about: the kind of its descriptor, a serial that is never used
   twice, and the descriptor. An event of one that was closed meanwhile is nobody's, whatever its
   number is now; a held answer cannot reach a later client. */
using WatchKey = uint64_t;
enum class WatchKind : uint8_t { kListener, kConnection, kPeer };
constexpr int kFdBits = 24, kSerialBits = 38;
constexpr int WatchFd(WatchKey key) { return static_cast<int>(key & ((1U << kFdBits) - 1)); }
constexpr WatchKind WatchKindOf(WatchKey key) {
  return static_cast<WatchKind>(key >> (kFdBits + kSerialBits));
}

/* An endpoint that this thread has sent to: one connection, kept open. */
struct Peer {
  std::string name;
  int fd;                 /* -1: it took no connection */
  WatchKey key;           /* in the module's epoll set */
  uint32_t sequence;      /* of the last call */
  uint32_t receive_limit; /* ms, as last set on the socket */
  bool full;              /* a sender has waited for room in vain, so posts wait no more */
};

/* A connection that somebody opened to this module. */
struct Connection {
  WatchKey key;
  std::string sender; /* empty until its hello came */
};

struct Newcomer {
  WatchKey key;
  uint64_t since; /* ms of the monotonic clock */
};

struct HeldAnswer {
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
  int epoll;
  std::vector<std::string> names; /* name and those served beside it */
  std::vector<WatchKey> listeners;
  std::vector<std::unique_ptr<Connection>> connections; /* by descriptor; NULL: none */
  std::deque<Newcomer> newcomers; /* by age; some have said their name since */
  uint64_t tidy_at;    /* ms of the monotonic clock when ConnectionsTidy is due; 0: nothing to do */
  uint64_t crowded_at; /* when there was last no room for one more; 0: never */
  bool accept_paused;
  uint64_t last_serial;
  std::array<uint64_t, TDS_TIMERS> deadlines; /* ms of the monotonic clock; 0: not running */
  std::deque<LocalMessage> local;
  MessageInWork work;
  std::unordered_map<uint64_t, HeldAnswer> held;
  uint64_t last_token;
  ~Module();
};

/* One a thread. */
struct Thread {
  std::string name; /* as Sender shows it; empty: the process's name */
  Module *module;   /* NULL on a thread that is no module */
  std::vector<Peer> peers;
  WireFrame answer; /* of calls; a message in work has its own frame */
  ~Thread();
};
Thread *ThisThread();

/* The process's endpoint name; settable once, by SysInit. */
const std::string &ProcessName();
void SetProcessName(std::string name);

uint64_t MonotonicMs();

/* ---- peers.cpp ---- */

/* Reads what came back on a peer's connection between calls: late answers, or its end. */
void PeerReadable(Thread *thread, WatchKey key);

/* ---- connections.cpp ---- */

/* Takes the next connection of a listening socket. */
void ConnectionAccept(Module *module, int listener);

/* The connection, or NULL when it is closed. */
Connection *ConnectionOf(const Module *module, WatchKey key);
void ConnectionClose(Module *module, WatchKey key);

/* A connection has said its name: with no silent one left there is nothing to tidy, and the thread
   need not look at the clock for it. */
void ConnectionNamed(Module *module);

/* Tells a caller that its call gets no answer, and why (an errno). */
void ConnectionRefuse(const Connection *connection, uint32_t sequence, int reason);

/* What is due at `tidy_at`. */
void ConnectionsTidy(Module *module);

/* ---- module.cpp ---- */

/* Makes the module's epoll set and its listening socket. 0 or -1 (logged). */
int ModuleOpen(Module *module, const char *name, const MsgEntry *table);

/* The module's thread: init message, then messages and timers for ever. */
void *ModuleThread(void *module);

int ModuleListen(Module *module, const char *name);

/* Puts a descriptor into the module's epoll set. Its key, or 0 (logged). */
WatchKey ModuleWatch(Module *module, WatchKind kind, int fd);

/* The table's row for `id`, or NULL. */
const MsgEntry *ModuleRow(const Module *module, uint32_t id);

/* Ids that only the runtime itself sends: the init message, a peer's end, the timers. */
constexpr bool IsRuntimeId(uint32_t id) {
  return id == TDS_MSG_INIT || id == TDS_MSG_PEER_GONE ||
         (id >= TDS_MSG_TIMER && id < TDS_MSG_TIMER + TDS_TIMERS);
}
