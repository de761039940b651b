// The network's answers to USSD commands, as a modem lists them.
#pragma once

#include <string>

/* What `+CUSD: 1,"TEXT",DCS` says, as UTF-8 or as the bytes that it is: TEXT is all between the
   first quote and the next one with a comma behind it, DCS a data coding of the cell broadcast
   kind. "" when it has none. At most 4096 bytes of `answer` are read. Pure; any thread. */
std::string CusdText(std::string answer);
