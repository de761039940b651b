// The inbox and the outbox: the modem's list of messages as records for the web page.
//
// On the thread of "sysmgr:capabinfo".
#pragma once

#include <cstddef>
#include <string>

#include "sms_pdu.h"

/* Counted by the last list read. */
struct ShortMsgCounts {
  int received, sent, unsent;
};
extern ShortMsgCounts short_msg_counts;

/* Has the modem list its messages and writes the list into `text`, cut behind the last whole record
   that fits. `filter`: 0 received, 1 sent, 2 unsent, anything else all. 0; -1: the modem gave none.
 */
int SHORTMSG_SMS_Get(int filter, char *text, size_t size);

/* Forgets what is known of the message at `index` of the storage: another one may take its place.
 */
void ShortMsgForget(int index);
