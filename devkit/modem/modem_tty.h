// The modem simulator's pseudo-terminal, under the name of the board's modem tty, and what the
// hot-plug scripts write about the modem.
#pragma once

#include "modem_state.h"

/* The tty that the daemon's table of USB modems has for "2c7c 0125". */
constexpr char kModemTty[] = "/dev/ttyUSB3";

/* What ends the text of a PDU, and what gives it up. */
constexpr char kEndOfPdu = 0x1A, kEscape = 0x1B;

/* Plugged in or out, as the state says. 0, or -1 (said on standard error): it is out. */
int TtyFollow(Modem *modem);
void TtyDetach();

/* What poll is to wait for: the descriptor, the events, and how many milliseconds at most. */
int TtyFile();
short TtyEvents();
int TtyPatience(); /* -1: for ever */

/* Behind poll: moves bytes, has the modem take commands and answers them, as it behaves. `events`
   are those of the descriptor. */
void TtyWork(Modem *modem, short events);
