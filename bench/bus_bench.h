// What the bus benchmarks share: samples of round trips and how they are reported.
#pragma once

#include <time.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

inline uint64_t Nanoseconds() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000000000U + static_cast<uint64_t>(now.tv_nsec);
}

/* Sizes on the wire of the request that is measured, and of its acknowledgement. */
struct WireSizes {
  size_t request, answer;
};

/* Round trips through bare SOCK_SEQPACKET sockets: client and server (hops 1), or with a relay
   process between them (hops 2: four messages). Starts the processes; they end with the caller. */
std::function<void()> BareTrip(WireSizes sizes, int hops);

/* Calls a second that a bare server with an epoll set answers to `clients` connections. */
double BareRate(WireSizes sizes, int clients, int calls);

/* Round trips of a sd-bus method call with texts of the same sizes through a private dbus-daemon.
   Empty when there is no dbus-daemon. */
std::function<void()> DbusTrip(WireSizes sizes);
