// Modules that only pass messages on: what the runtime takes without the work that it is for.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr char kEcho[] = "echo:bench", kRelay[] = "relay:bench";
constexpr uint32_t kRelayed = 0x110101;

/* Serves one of them for ever, or until nobody takes what it sends: kEcho acknowledges each
   EV_APPT_MSG_REQUEST with `size` bytes, kRelay has each call of kRelayed acknowledged by kEcho and
   answers it with that. Main thread, first use of the runtime in the process. */
[[noreturn]] void ServeRuntime(const char *name, size_t size);
