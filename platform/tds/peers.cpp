// Sending: the connections that a thread keeps to the endpoints it has sent to, posts and calls.
#include <errno.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "endpoint.h"

namespace {

constexpr size_t kLocalBound = 1024; /* messages that a module may have waiting from itself */

const std::string &ThreadName(const Thread *thread) {
  return thread->name.empty() ? ProcessName() : thread->name;
}

Peer *FindPeer(Thread *thread, const char *name) {
  for (Peer &peer : thread->peers)
    if (peer.name == name) return &peer;
  return nullptr;
}

Peer *OpenPeer(Thread *thread, const char *name) {
  int fd = WireConnect(name);
  if (fd < 0) return nullptr;
  const std::string &own = ThreadName(thread);
  if (WireSend(fd, WireKind::kHello, 0, 0, own.c_str(), static_cast<uint32_t>(own.size()) + 1, 0) !=
      0) {
    int reason = errno;
    close(fd);
    errno = reason;
    return nullptr;
  }
  thread->peers.push_back({name, fd, 0, 0});
  if (thread->module != nullptr) ModuleWatch(thread->module, fd);
  return &thread->peers.back();
}

/* Sends a frame to `name`. A connection whose other side was restarted is opened anew, once. */
Peer *SendTo(Thread *thread, const char *name, WireKind kind, uint32_t id, const void *data,
             uint32_t length) {
  for (int attempt = 0; attempt < 2; ++attempt) {
    Peer *peer = FindPeer(thread, name);
    if (peer == nullptr) peer = OpenPeer(thread, name);
    if (peer == nullptr) return nullptr;
    if (WireSend(peer->fd, kind, id, ++peer->sequence, data, length, 0) == 0) return peer;
    if (errno != EPIPE && errno != ECONNRESET && errno != ENOTCONN) return nullptr;
    PeerLost(thread, peer->fd);
  }
  errno = EPIPE;
  return nullptr;
}

void SetReceiveLimit(Peer *peer, uint32_t ms) {
  if (peer->receive_limit == ms) return;
  struct timeval wait = {static_cast<time_t>(ms / 1000),
                         static_cast<suseconds_t>(ms % 1000) * 1000};
  setsockopt(peer->fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof(wait));
  peer->receive_limit = ms;
}

/* Waits for the answer with the peer's present sequence number; answers to calls that were given
   up before are dropped here. 0, or -1 with errno. */
int AwaitAnswer(Thread *thread, Peer *peer, uint32_t limit_ms) {
  uint64_t end = 0;
  for (uint32_t wait = std::max(limit_ms, 1U);;) {
    SetReceiveLimit(peer, wait);
    int got = WireReceive(peer->fd, &thread->answer, 0);
    if (got == 0) {
      PeerLost(thread, peer->fd);
      errno = EPIPE;
      return -1;
    }
    if (got < 0 && errno != EBADMSG) {
      if (errno == EAGAIN) errno = ETIMEDOUT;
      return -1;
    }
    const WireHead &head = thread->answer.head;
    if (got == 1 && head.sequence == peer->sequence) {
      if (head.kind == WireKind::kAnswer) return 0;
      errno = ENOMSG;
      return -1;
    }
    uint64_t now = MonotonicMs();
    if (end == 0) end = now + limit_ms; /* the limit is kept from the first stale answer on */
    if (now >= end) {
      errno = ETIMEDOUT;
      return -1;
    }
    wait = static_cast<uint32_t>(end - now);
  }
}

bool IsOwnName(const Thread *thread, const char *name) {
  if (thread->module == nullptr) return false;
  const std::vector<std::string> &names = thread->module->names;
  return std::find(names.begin(), names.end(), name) != names.end();
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

const char *SendFault(int reason) {
  switch (reason) {
    case ENOENT:
      return "no such endpoint, is its process running?";
    case EPIPE:
      return "its process is gone";
    case ENOMSG:
      return "its handler gave no answer";
    case ETIMEDOUT:
      return "no answer in time";
    case EAGAIN:
      return "its queue stayed full";
    case EMSGSIZE:
      return "the payload is larger than 1 MiB";
    default:
      return strerror(reason);
  }
}

}  // namespace

Thread::~Thread() {
  for (const Peer &peer : peers) close(peer.fd);
}

void PeerLost(Thread *thread, int fd) {
  auto lost = std::find_if(thread->peers.begin(), thread->peers.end(),
                           [fd](const Peer &peer) { return peer.fd == fd; });
  if (lost == thread->peers.end()) return;
  Module *module = thread->module;
  if (module != nullptr && ModuleRow(module, TDS_MSG_PEER_GONE) != nullptr)
    module->local.push_back({TDS_MSG_PEER_GONE, lost->name + '\0', lost->name});
  close(fd);
  thread->peers.erase(lost);
}

void PeerReadable(Thread *thread, int fd) {
  if (WireReceive(fd, &thread->answer, MSG_DONTWAIT) == 0) PeerLost(thread, fd);
}

int tds_call(uint32_t id, const void *data, uint32_t len, const char *dest, uint32_t limit_ms,
             void **reply, uint32_t *reply_len) {
  Thread *thread = ThisThread();
  *reply = nullptr;
  *reply_len = 0;
  if (dest == nullptr || IsOwnName(thread, dest)) {
    errno = dest == nullptr ? ENOENT : EDEADLK;
    return -1;
  }
  Peer *peer = SendTo(thread, dest, WireKind::kCall, id, data, len);
  if (peer == nullptr || AwaitAnswer(thread, peer, limit_ms) != 0) return -1;
  uint32_t length = thread->answer.head.length;
  if (length == 0) return 0;
  char *copy =
      __tds_strndup(static_cast<const char *>(thread->answer.data), length, "SendMsg_syn_lib");
  if (copy == nullptr) {
    errno = ENOMEM;
    return -1;
  }
  *reply = copy;
  *reply_len = length;
  return 0;
}

int SendMsg_syn_lib(uint32_t id, const void *data, uint32_t len, const char *dest, void **reply,
                    uint32_t *reply_len) {
  if (tds_call(id, data, len, dest, TDS_SYN_LIMIT, reply, reply_len) == 0) return 0;
  TDS_LOG(2, "message 0x%x to %s: %s", id, dest == nullptr ? "(null)" : dest, SendFault(errno));
  return -1;
}

int SendMsg(uint32_t id, const void *data, uint32_t len, const char *dest) {
  Thread *thread = ThisThread();
  bool sent;
  if (dest != nullptr && IsOwnName(thread, dest)) {
    sent = PostToSelf(thread, id, data, len) == 0;
  } else {
    errno = ENOENT;
    sent = dest != nullptr && SendTo(thread, dest, WireKind::kPost, id, data, len) != nullptr;
  }
  if (sent) return 0;
  TDS_LOG(2, "message 0x%x to %s: %s", id, dest == nullptr ? "(null)" : dest, SendFault(errno));
  return -1;
}
