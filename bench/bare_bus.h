// Round trips through bare sockets: the floor of the bus.
#pragma once

#include <cstddef>
#include <functional>

/* Sizes on the wire of the request that is measured, and of its acknowledgement. */
struct WireSizes {
  size_t request, answer;
};

/* How a server waits for the next message: in epoll_wait, as one of several clients has to, or in
   the read itself. */
enum BareWait { BARE_EPOLL, BARE_READ };

/* Round trips through bare SOCK_SEQPACKET sockets: client and server (hops 1), or with a relay
   process between them (hops 2: four messages). Starts the processes; they end with the caller. */
std::function<void()> BareTrip(WireSizes sizes, int hops, BareWait wait);

/* The calling thread is to let the one that wakes it go on. A client of several connections
   measures the scheduler otherwise, which lets it answer each answer, or all of them together. */
void DoNotPreempt();

/* Calls a second that a bare server with an epoll set answers to `clients` connections. */
double BareRate(WireSizes sizes, int clients, int calls);
