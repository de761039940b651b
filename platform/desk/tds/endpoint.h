// Who the calling thread is, and whom it has sent to.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "peers.h"
#include "wire.h"

struct Module;

/* One a thread. */
struct Thread {
  std::string name; /* as Sender shows it; empty: the process's name */
  Module *module;   /* NULL on a thread that is no module */
  std::vector<Peer> peers;
  WireFrame answer; /* of calls; a message in work has its own frame */
  ~Thread();
};
Thread *ThisThread();

/* The process's endpoint name. */
const std::string &ProcessName();

uint64_t MonotonicMs();
