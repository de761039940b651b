// Sending and storing short messages on the modem.
//
// On the thread of "sysmgr:capabinfo"; each waits for the modem. 0, or -1. Texts are UTF-8 and stay
// the caller's.
#pragma once

#include "sms_pdu.h"

/* Sends or stores `text`, in as many messages as it takes. `country`: the code that `number` is
   dialled from, "+86", "0086", or "". `status`: SHORTMSG_UNSENT or _SENT. */
int SHORTMSG_SendMessage(const char *number, const char *text, const char *country);
int SHORTMSG_saveMessage(const char *number, const char *text, const char *country, int status);
