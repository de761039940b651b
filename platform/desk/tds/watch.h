// What an event of a module's epoll set is about: the kind of its descriptor, a serial that is
// never used twice, and the descriptor. An event of one that was closed meanwhile is nobody's,
// whatever its number is now; a held answer cannot reach a later client.
#pragma once

#include <cstdint>

using WatchKey = uint64_t;
enum class WatchKind : uint8_t { LISTENER, CONNECTION, PEER, FOLDER, CLOCK };

WatchKey WatchKeyOf(WatchKind kind, uint64_t serial, int fd);
int WatchFd(WatchKey key);
WatchKind WatchKindOf(WatchKey key);
