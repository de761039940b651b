// The modem simulator's command line: bytes in, bytes out.
#pragma once

#include <ctime>
#include <string>
#include <string_view>

#include "modem_command.h"

struct ModemOutput {
  std::string echo;        /* at once */
  std::string answer;      /* "" when no command ended */
  bool misbehaves = false; /* SLOW and DROP are for this answer: the caller's business */
};

/* Takes bytes up to the end of the first command or PDU among them, and says how many. `now` is for
   time stamps. */
size_t ModemFeed(Modem *modem, std::string_view bytes, time_t now, ModemOutput *output);

/* NULL: the modem has no such command. */
const AtRow *FindAtRow(const std::string &name);
