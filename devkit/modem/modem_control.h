// What modemctl asks of the modem simulator: one JSON object each way over a stream socket, the
// request ended by closing that direction.
#pragma once

#include <ctime>
#include <nlohmann/json.hpp>

#include "exit_status.h"
#include "modem_state.h"

/* Where both meet. */
constexpr char kModemSocket[] = "/var/run/devkit/modem.sock";

using ModemJson = nlohmann::ordered_json;

/* {"verb": ..., its arguments} -> {"status": N, "text": what to print, or the reason}, of "state"
   the "state" too. Plugging in and out is only noted in `attached`: the caller acts on it. */
ModemJson ModemControl(Modem *modem, const ModemJson &request, time_t now);
