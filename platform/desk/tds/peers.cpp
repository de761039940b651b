// Connections to others, and frames on them; see peers.h.
#include "peers.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "ams_print.h"
#include "endpoint.h"
#include "module.h"
#include "wire.h"

namespace {

Peer *FindPeer(Thread *thread, std::string_view name) {
  for (Peer &peer : thread->peers)
    if (peer.name == name) return &peer;
  return nullptr;
}

/* Closes the connection; a module that has a row for TDS_MSG_PEER_GONE is told. */
void PeerLost(Thread *thread, Peer *peer) {
  Module *module = thread->module;
  if (module != nullptr && ModuleRow(module, TDS_MSG_PEER_GONE) != nullptr)
    module->local.push_back({TDS_MSG_PEER_GONE, peer->name + '\0', peer->name});
  close(peer->fd);
  thread->peers.erase(thread->peers.begin() + (peer - thread->peers.data()));
}

/* The peer with a connection, opened where there is none; NULL with errno. */
Peer *OpenPeer(Thread *thread, const char *name, bool wait) {
  Peer *peer = FindPeer(thread, name);
  if (peer != nullptr && peer->fd >= 0) return peer;
  Peer fresh = {
      peer == nullptr ? name : "", -1, 0, 0, 0, false, {}}; /* a failure holds no socket */
  if (peer == nullptr) thread->peers.reserve(thread->peers.size() + 1);
  int fd = WireConnect(name, wait || peer == nullptr);
  if (fd < 0 && errno != EAGAIN) return nullptr;
  if (peer == nullptr) {
    fresh.full = fd < 0;
    thread->peers.push_back(std::move(fresh));
    peer = &thread->peers.back();
  }
  if (fd < 0) return nullptr;
  if (thread->module != nullptr) {
    peer->key = ModuleWatch(thread->module, WatchKind::PEER, fd);
    if (peer->key == 0) { /* its end would not be seen */
      close(fd);
      errno = ENOMEM;
      return nullptr;
    }
  }
  peer->fd = fd;
  const std::string &own = ThreadName(thread);
  (void)WireSend(fd, WireKind::HELLO, 0, 0, own.c_str(), static_cast<uint32_t>(own.size()) + 1,
                 0); /* whatever is wrong with it shows at the message that follows */
  return peer;
}

/* Why the other side has turned the connection away, an errno; 0 when it has not. */
int WhyTurnedAway(Thread *thread, Peer *peer) {
  const WireHead &head = thread->answer.head;
  while (WireReceive(peer->fd, &peer->announced, &thread->answer, MSG_DONTWAIT) == 1)
    if (head.kind == WireKind::REFUSED && head.sequence == 0) return static_cast<int>(head.id);
  return 0;
}

/* A wait that is a little longer than it should be is not worth a system call a message. */
void SetReceiveLimit(Peer *peer, uint32_t ms) {
  constexpr uint32_t kSlack = 10;
  if (peer->receive_limit >= ms && peer->receive_limit < ms + kSlack) return;
  struct timeval wait = {static_cast<time_t>(ms / 1000),
                         static_cast<suseconds_t>(ms % 1000) * 1000};
  setsockopt(peer->fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof(wait));
  peer->receive_limit = ms;
}

}  // namespace

Peer *PeerSend(Thread *thread, const char *name, WireKind kind, uint32_t id, const void *data,
               uint32_t length) {
  bool call = kind == WireKind::CALL;
  for (int attempt = 0; attempt < 2; ++attempt) {
    Peer *peer = OpenPeer(thread, name, call);
    if (peer == nullptr) return nullptr;
    int flags = peer->full && !call ? MSG_DONTWAIT : 0;
    if (WireSend(peer->fd, kind, id, ++peer->sequence, data, length, flags) == 0) {
      peer->full = false;
      return peer;
    }
    if (errno == EAGAIN) peer->full = true;
    if (errno != EPIPE && errno != ECONNRESET && errno != ENOTCONN) return nullptr;
    int reason = WhyTurnedAway(thread, peer);
    PeerLost(thread, peer);
    errno = reason != 0 ? reason : EPIPE;
    if (reason != 0) return nullptr;
  }
  return nullptr;
}

int PeerAwait(Thread *thread, Peer *peer, uint64_t end) {
  const WireHead &head = thread->answer.head;
  for (uint64_t now = MonotonicMs(); now < end; now = MonotonicMs()) {
    SetReceiveLimit(peer, static_cast<uint32_t>(end - now));
    int got = WireReceive(peer->fd, &peer->announced, &thread->answer, 0);
    if (got < 0 && (errno == EBADMSG || errno == EINTR)) continue;
    if (got < 0) {
      if (errno == EAGAIN) errno = ETIMEDOUT;
      return -1;
    }
    bool whole = got == 0 || (head.kind == WireKind::REFUSED && head.sequence == 0);
    if (!whole && head.sequence != peer->sequence) continue;
    if (!whole && head.kind == WireKind::ANSWER) return 0;
    if (whole) PeerLost(thread, peer);
    errno = got == 0 ? EPIPE : head.kind == WireKind::REFUSED ? static_cast<int>(head.id) : ENOMSG;
    return -1;
  }
  errno = ETIMEDOUT;
  return -1;
}

void PeerReadable(Thread *thread, WatchKey key) {
  auto peer = std::find_if(thread->peers.begin(), thread->peers.end(),
                           [key](const Peer &one) { return one.key == key; });
  if (peer == thread->peers.end()) return;
  int got = WireReceive(peer->fd, &peer->announced, &thread->answer, MSG_DONTWAIT);
  thread->answer.large.reset();
  const WireHead &head = thread->answer.head;
  if (got == 1 && head.kind == WireKind::REFUSED && head.sequence == 0)
    AMS_PRINT(4, "%s has dropped what was sent to it: %s", peer->name.c_str(),
              WireFault(static_cast<int>(head.id)));
  if (got == 0) PeerLost(thread, &*peer);
}
