// The modem simulator's short messages: storages, service centre, lists, sending, and what the
// network brings. PDU mode only: text mode can be selected, and then refuses.
#pragma once

#include <ctime>
#include <string>
#include <vector>

#include "modem_command.h"

extern const AtRow kSmsRows[]; /* a row without a name ends them */

/* ---- the network's side ---- */

constexpr size_t kModemWaitingMax = 1000;

/* A message for this modem: where it landed as "SM 3", "" while it waits for room. */
std::string ModemReceive(Modem *modem, const std::string &pdu);
std::string ModemDeliverWaiting(Modem *modem); /* the same of the last one that waited */

/* A text from a number or name, in as many parts as it needs: their PDUs into `pdus`. NULL, or why
   there are none. */
const char *ModemDeliverText(Modem *modem, const std::string &from, const std::string &text,
                             const struct tm &when, std::vector<std::string> *pdus);
