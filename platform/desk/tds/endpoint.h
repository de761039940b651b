// Who the calling thread is, and whom it has sent to.
#pragma once

#include <cerrno>
#include <cstdint>
#include <new>
#include <string>
#include <vector>

#include "peers.h"
#include "wire.h"

struct Module;

/* One a thread. */
struct Thread {
  std::string name; /* of a module; empty: the process's */
  Module *module;   /* NULL on a thread that is no module */
  std::vector<Peer> peers;
  WireFrame answer; /* of calls; a message in work has its own frame */
  ~Thread();
};
Thread *ThisThread();

/* The name that a thread sends under. */
const std::string &ThreadName(const Thread *thread);

uint64_t MonotonicMs();

/* What `work` returns, 0 or -1 with errno; without memory for it -1 with ENOMEM. */
template <class Work>
int OrNoMemory(Work work) {
  try {
    return work();
  } catch (const std::bad_alloc &) {
    errno = ENOMEM;
    return -1;
  }
}
