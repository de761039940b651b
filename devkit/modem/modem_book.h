// The modem simulator's SIM phonebook and its dialogues with the network (USSD).
#pragma once

#include "modem_command.h"

extern const AtRow kBookRows[]; /* a row without a name ends them */
