// A text to send as the records of its messages: the alphabet, and how much of it a part of a long
// message has. Each fits a message, with its escapes. Pure: the text stays the caller's, nothing is
// allocated; any thread.
#pragma once

#include <cstddef>

#include "sms_pdu.h"

/* A text on its way into parts. */
struct ShortMsgParts {
  const char *at, *end; /* what no part has yet; the caller's text */
  uint8_t dcs;          /* SHORTMSG_DCS_7BIT or SHORTMSG_DCS_UCS2 */
  int total, given;
};

/* Starts with `n` bytes of UTF-8. Returns how many parts they take, 1 for a text that fits a single
   message, an empty one included; -1 (not logged) when they are more than the 255 that a header can
   count. */
int ShortMsgPartsOf(const char *text, size_t n, ShortMsgParts *parts);

/* The next part as TP_DCS and TP_UD of `record` and, of a long message, its `header`. 1, or 0 after
   the last. To be encoded with the header when `total` is above 1. */
int ShortMsgNextPart(ShortMsgParts *parts, ShortMsgParam *record, ShortMsgHeader *header);
