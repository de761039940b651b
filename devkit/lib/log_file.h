// Logs that others append to. Any thread.
#pragma once

#include <cstdint>
#include <string>

/* Where the daemon's command lines are recorded, and how the stubs were called. */
constexpr char kCommandsLog[] = "/var/log/devkit/commands";
/* The same with the time of each, "NANOSECONDS LINE" of the monotonic clock. */
constexpr char kCommandTimes[] = "/var/log/devkit/command_times";
constexpr char kCallsLog[] = "/var/log/devkit/calls";

/* Size of a file, 0 when there is none; and what was written behind `offset` since, `most` bytes of
   it. */
uint64_t FileSize(const char *path);
std::string AppendedSince(const char *path, uint64_t offset, size_t most = SIZE_MAX);
