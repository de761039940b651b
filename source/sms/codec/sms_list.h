// Messages as a modem lists them: a "+CMGL:" line and the PDU line behind it become an entry of the
// inbox or outbox. Which entries are kept, put together and shown is the handler's business.
#pragma once

#include <cstddef>

#include "sms_pdu.h"

/* Reads the first "+CMGL:" of `text` and its PDU, which ends at its line's end, into `entry`, with
   the content escaped for a web page. Decodes with SHORTMSG_DecodePdu, so on the services module's
   thread. 0; -1 (not logged), `entry` undefined, when index, status, the three commas or the PDU
   are missing. */
int ShortMsgParseEntry(const char *text, ShortMsgEntry *entry);
