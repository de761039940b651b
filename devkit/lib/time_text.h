// Times for people and for JSON.
#pragma once

#include <cstdint>
#include <string>

/* The time of day: milliseconds since 1970. Any thread, as both. */
int64_t TimeMs();

/* "2026-11-26T18:10:00.123" of milliseconds since 1970, in the zone of the gateway. */
std::string TimeText(int64_t milliseconds);
