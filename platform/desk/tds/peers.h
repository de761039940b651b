// The connections that a thread keeps to the endpoints it has sent to.
#pragma once

#include <cstdint>
#include <string>

#include "watch.h"

struct Thread;

struct Peer {
  std::string name;
  int fd;                 /* -1: it took no connection */
  WatchKey key;           /* in the module's epoll set */
  uint32_t sequence;      /* of the last call */
  uint32_t receive_limit; /* ms, as last set on the socket */
  bool full;              /* a sender has waited for room in vain, so posts wait no more */
};

/* Reads what came back on a peer's connection between calls: late answers, or its end. */
void PeerReadable(Thread *thread, WatchKey key);
