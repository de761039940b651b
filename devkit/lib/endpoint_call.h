// Calls of the gateway's processes, with a reason for people where one fails. Any thread.
#pragma once

#include <cstdint>
#include <string>

#include "exit_status.h"

/* Asks the endpoint `dest` and waits for its answer for so many milliseconds. `*reply` gets the
   answer's bytes, or, unless it is EXIT_DONE, the reason in one line that says what to do:
   EXIT_NO_ANSWER when it was not answered in time, else EXIT_REFUSED. A terminal is told of a long
   wait while it lasts. */
ExitStatus CallEndpoint(const char *dest, uint32_t id, const std::string &payload,
                        uint32_t limit_ms, std::string *reply);

/* What to do about an endpoint that nobody serves; inside the desk's sandbox which process to
   start. */
std::string HowToStart(const std::string &endpoint);
