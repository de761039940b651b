// Who is let in, and who has to go when descriptors are short; see connections.h.
#include "connections.h"

#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "ams_print.h"
#include "endpoint.h"
#include "folder.h"
#include "module.h"
#include "wire.h"

namespace {

constexpr rlim_t kMostDescriptors = 1000; /* of the process, by the kernel's lowest-number rule */
constexpr rlim_t kSpareDescriptors = 24;  /* what handlers need beside connections */
constexpr uint64_t kHelloLimit = 5000;    /* ms that a connection may stay without a name */
constexpr uint64_t kTidyPeriod = 1000;    /* ms */
constexpr uint64_t kAcceptPause = 100;    /* ms */
constexpr uint8_t kPatience = 8;          /* looks in vain that end a burst */
constexpr uint8_t kTurns = 16;            /* without a burst, before there is a look */
constexpr uint64_t kCrowdOver = 1000;     /* ms without a refusal after which one is news again */

rlim_t DescriptorBound() {
  struct rlimit limit;
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur <= kSpareDescriptors)
    return kMostDescriptors;
  return std::min(kMostDescriptors, limit.rlim_cur - kSpareDescriptors);
}

/* Logged once, until there was room for a while. */
void Crowded(Module *module, const char *what) {
  uint64_t now = MonotonicMs();
  if (module->crowded_at == 0 || now - module->crowded_at > kCrowdOver)
    AMS_PRINT(4, "%s: no room for more connections: %s", module->name.c_str(), what);
  module->crowded_at = now;
}

void PauseAccept(Module *module, bool pause) {
  module->accept_paused = pause;
  for (WatchKey key : module->listeners) {
    struct epoll_event event = {};
    if (!pause) event.events = EPOLLIN;
    event.data.u64 = key;
    epoll_ctl(module->epoll, EPOLL_CTL_MOD, WatchFd(key), &event);
  }
  if (pause) TidyBy(module, MonotonicMs() + kAcceptPause);
}

/* No name, and nothing to read that could be one. */
bool IsSilent(const Connection *connection) {
  char byte;
  return connection->sender.empty() &&
         recv(WatchFd(connection->key), &byte, 1, MSG_PEEK | MSG_DONTWAIT) < 0 && errno == EAGAIN;
}

/* Forgets the newcomers that have spoken; the oldest that has not, or NULL. */
const Newcomer *OldestSilent(Module *module) {
  while (!module->newcomers.empty()) {
    const Connection *connection = ConnectionOf(module, module->newcomers.front().key);
    if (connection != nullptr && IsSilent(connection)) return &module->newcomers.front();
    module->newcomers.pop_front();
  }
  return nullptr;
}

/* Its own sequence numbers start at 1, so 0 is the whole connection. */
void TurnAway(int fd, int reason) {
  (void)WireSend(fd, WireKind::REFUSED, static_cast<uint32_t>(reason), 0, nullptr, 0,
                 MSG_DONTWAIT); /* a client that is gone needs no reason */
}

/* Makes room for somebody who has something to say. */
bool CloseOldestSilent(Module *module) {
  const Newcomer *oldest = OldestSilent(module);
  if (oldest == nullptr) return false;
  TurnAway(WatchFd(oldest->key), EUSERS);
  ConnectionClose(module, oldest->key);
  return true;
}

/* A listening socket stays ready while nobody can be accepted: without the pause the thread would
   ask again and again. */
void AcceptFailed(Module *module, int reason) {
  if (reason != EMFILE && reason != ENFILE && reason != ENOBUFS && reason != ENOMEM)
    return; /* the other side went away before its turn */
  Crowded(module, strerror(reason));
  if (!CloseOldestSilent(module)) PauseAccept(module, true);
}

/* Takes a connection in. 0 or -1 with errno. */
int Admit(Module *module, int fd, pid_t peer) {
  size_t at = static_cast<size_t>(fd);
  uint64_t now = MonotonicMs();
  std::unique_ptr<Connection> connection(new Connection{});
  connection->pid = peer;
  connection->sender.reserve(TDS_NAME_SIZE); /* its hello is not to fail for that */
  if (at >= module->connections.size()) module->connections.resize(at + 1);
  module->newcomers.push_back({0, now});
  WatchKey key = ModuleWatch(module, WatchKind::CONNECTION, fd);
  if (key == 0) {
    module->newcomers.pop_back();
    return -1;
  }
  module->newcomers.back().key = connection->key = key;
  module->connections[at] = std::move(connection);
  TidyBy(module, now + kTidyPeriod);
  return 0;
}

}  // namespace

void TidyBy(Module *module, uint64_t time) {
  if (module->tidy_at == 0 || time < module->tidy_at) module->tidy_at = time;
  ModuleWakeBy(module, time);
}

Connection *ConnectionOf(const Module *module, WatchKey key) {
  size_t at = static_cast<size_t>(WatchFd(key));
  Connection *connection =
      at < module->connections.size() ? module->connections[at].get() : nullptr;
  return connection != nullptr && connection->key == key ? connection : nullptr;
}

void ConnectionClose(Module *module, WatchKey key) {
  module->connections[static_cast<size_t>(WatchFd(key))].reset();
  close(WatchFd(key));
}

void TidyNoLonger(Module *module) {
  if (OldestSilent(module) != nullptr || module->accept_paused || module->folder_gone) return;
  module->tidy_at = 0;
  ModuleSetClock(module);
}

bool ConnectionBeginTurn(Connection *connection) {
  return connection->patience > 0 || ++connection->turns % kTurns == 0;
}

void ConnectionLooked(Connection *connection, bool had) {
  if (had)
    connection->patience = kPatience;
  else if (connection->patience > 0)
    --connection->patience;
}

void ConnectionRefuse(const Connection *connection, uint32_t sequence, int reason) {
  int fd = WatchFd(connection->key);
  if (WireSend(fd, WireKind::REFUSED, static_cast<uint32_t>(reason), sequence, nullptr, 0,
               MSG_DONTWAIT) != 0)
    shutdown(fd, SHUT_RDWR); /* the end of the connection tells it, too, and comes back as event */
}

int ConnectionAccept(Module *module, int listener) {
  int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
  if (fd < 0) {
    AcceptFailed(module, errno);
    return -1;
  }
  const pid_t peer = WirePeer(fd);
  if (peer < 0) {
    AMS_PRINT(3, "%s: connection refused: not a process of our own user", module->name.c_str());
    close(fd);
    return 0;
  }
  int reason = 0;
  if (static_cast<size_t>(fd) >= DescriptorBound()) {
    Crowded(module, "too many are open");
    if (!CloseOldestSilent(module)) reason = EUSERS;
  }
  if (reason == 0 && OrNoMemory([=] { return Admit(module, fd, peer); }) == 0) return 0;
  if (reason == 0 && (reason = errno) == ENOMEM) Crowded(module, strerror(reason));
  TurnAway(fd, reason);
  close(fd);
  return 0;
}

void ConnectionsTidy(Module *module) {
  uint64_t now = MonotonicMs();
  if (module->tidy_at == 0 || now < module->tidy_at) return;
  module->tidy_at = 0;
  if (module->accept_paused) PauseAccept(module, false);
  if (module->folder_gone) FolderServe(module);
  while (const Newcomer *oldest = OldestSilent(module)) {
    if (now - oldest->since < kHelloLimit) return TidyBy(module, now + kTidyPeriod);
    AMS_PRINT(2, "%s: a connection that never said its name is closed", module->name.c_str());
    ConnectionClose(module, oldest->key);
  }
}
