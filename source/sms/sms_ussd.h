// USSD: a command to the network, whose answer is a menu that expires.
//
// On the thread of "sysmgr:capabinfo".
#pragma once

/* Uptime in seconds when the last answer came; 0: none has. */
extern long short_msg_ussd_time;

/* Sends a USSD command, or ends the session with "cancel"; an empty one does nothing. What the
   network answers is kept for UssdReport. Waits up to 30 s for it. */
void UssdSend(const char *command);

/* Has a menu that is 61 s old expire, and writes the one that is left as a status. -1 (logged): it
   cannot be written. */
int UssdReport();
