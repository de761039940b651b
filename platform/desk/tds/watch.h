// What an event of a module's epoll set is about: the kind of its descriptor, a serial that is
// never used twice, and the descriptor. An event of one that was closed meanwhile is nobody's,
// whatever its number is now; a held answer cannot reach a later client.
#pragma once

#include <cstdint>

using WatchKey = uint64_t;
enum class WatchKind : uint8_t { LISTENER, CONNECTION, PEER };

constexpr int kFdBits = 24, kSerialBits = 38;

constexpr WatchKey WatchKeyOf(WatchKind kind, uint64_t serial, int fd) {
  return static_cast<uint64_t>(kind) << (kFdBits + kSerialBits) |
         (serial & ((UINT64_C(1) << kSerialBits) - 1)) << kFdBits | static_cast<uint64_t>(fd);
}
constexpr int WatchFd(WatchKey key) { return static_cast<int>(key & ((1U << kFdBits) - 1)); }
constexpr WatchKind WatchKindOf(WatchKey key) {
  return static_cast<WatchKind>(key >> (kFdBits + kSerialBits));
}
