// The parts of a key; see watch.h.
#include "watch.h"

namespace {

constexpr int kFdBits = 24, kSerialBits = 37;

}  // namespace

WatchKey WatchKeyOf(WatchKind kind, uint64_t serial, int fd) {
  return static_cast<uint64_t>(kind) << (kFdBits + kSerialBits) |
         (serial & ((UINT64_C(1) << kSerialBits) - 1)) << kFdBits | static_cast<uint64_t>(fd);
}

int WatchFd(WatchKey key) { return static_cast<int>(key & ((1U << kFdBits) - 1)); }

WatchKind WatchKindOf(WatchKey key) {
  return static_cast<WatchKind>(key >> (kFdBits + kSerialBits));
}
