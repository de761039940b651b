// What modemctl asks of the modem simulator: one JSON object each way over a stream socket, the
// request ended by closing that direction.
#pragma once

#include <ctime>

#include "control.h"
#include "modem_state.h"

/* Where both meet. */
constexpr char kModemSocket[] = "/var/run/devkit/modem.sock";

/* {"verb": ..., its arguments} -> {"status": N, "text": what to print, or the reason}, of "state"
   the "state" too. Plugging in and out is only noted in `attached`: the caller acts on it. */
Json ModemControl(Modem *modem, const Json &request, time_t now);
