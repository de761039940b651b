// The connections that a thread keeps to the endpoints it has sent to.
#pragma once

#include <cstdint>
#include <string>

#include "watch.h"
#include "wire.h"

struct Thread;

struct Peer {
  std::string name;
  int fd;                 /* -1: it took no connection */
  WatchKey key;           /* in the module's epoll set */
  uint32_t sequence;      /* of the last call */
  uint32_t receive_limit; /* ms, as last set on the socket */
  bool full;              /* a sender has waited for room in vain, so posts wait no more */
  WireHead announced;     /* of what is being received */
};

/* Sends a frame to `name`. A connection whose other side was restarted is opened anew, once. The
   peer, or NULL with errno. */
Peer *PeerSend(Thread *thread, const char *name, WireKind kind, uint32_t id, const void *data,
               uint32_t length);

/* Waits until `end`, ms of the monotonic clock, for the answer to the call that was sent last: it
   is the thread's `answer` then. Answers to calls that were given up before are dropped here. 0, or
   -1 with errno; then the peer may be gone. */
int PeerAwait(Thread *thread, Peer *peer, uint64_t end);

/* Reads what came back on a peer's connection between calls: late answers, or its end. */
void PeerReadable(Thread *thread, WatchKey key);
