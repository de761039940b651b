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

/* An endpoint that this thread has sent to: one connection, kept open. */
struct Peer {
  std::string name;
  int fd;
  uint32_t sequence;      /* of the last call */
  uint32_t receive_limit; /* ms, as last set on the socket */
};

/* A connection that somebody opened to this module. */
struct Connection {
  int fd;
  uint64_t serial;    /* never used twice, so that a held answer cannot reach a later client */
  std::string sender; /* empty until its hello came */
};

struct HeldAnswer {
  int fd;
  uint64_t serial;
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
};

struct Module {
  std::string name;
  const MsgEntry *table;
  int epoll;
  std::vector<std::string> names; /* name and those served beside it */
  std::vector<int> listeners;
  std::vector<std::unique_ptr<Connection>> connections; /* by descriptor; NULL: none */
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

/* Closes the connection to `name`; a module that has a row for TDS_MSG_PEER_GONE is told. */
void PeerLost(Thread *thread, int fd);

/* Reads what came back on a peer's connection between calls: late answers, or its end. */
void PeerReadable(Thread *thread, int fd);

/* ---- module.cpp ---- */

/* Makes the module's epoll set and its listening socket. 0 or -1 (logged). */
int ModuleOpen(Module *module, const char *name, const MsgEntry *table);

/* The module's thread: init message, then messages and timers for ever. */
void *ModuleThread(void *module);

int ModuleListen(Module *module, const char *name);
void ModuleWatch(Module *module, int fd);

/* The table's row for `id`, or NULL. */
const MsgEntry *ModuleRow(const Module *module, uint32_t id);
