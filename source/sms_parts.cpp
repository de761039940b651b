// A text to send as the records of its messages; see sms_parts.h.
#include "sms_parts.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr int kPartsMax = 255;

/* How much of a text goes into a message and into a part of a long one: characters, not septets.
   145 instead of the 153 that a header leaves is on purpose: it leaves room for 7 escapes. */
constexpr size_t k7bitSingle = 160, k7bitPart = 145;
constexpr size_t kUcs2Single = 70, kUcs2Part = 65;

static_assert(4 * kUcs2Single < SHORTMSG_TEXT_SIZE, "a unit takes 4 bytes of broken UTF-8 at most");
static_assert(4 * kUcs2Part < SHORTMSG_TEXT_SIZE, "a unit is 4 hexadecimal digits");

size_t Units(const char *at, const char *end) {
  size_t units = 0;
  for (; at < end; ++units) (void)Utf8Next(&at, end); /* only counted */
  return units;
}

void TakeBytes(ShortMsgParts *parts, size_t n, ShortMsgParam *record) {
  n = std::min(n, static_cast<size_t>(parts->end - parts->at));
  memcpy(record->TP_UD, parts->at, n);
  record->TP_UD[n] = '\0';
  parts->at += n;
}

void TakeUnitDigits(ShortMsgParts *parts, ShortMsgParam *record) {
  uint8_t units[2 * kUcs2Part];
  size_t length = 0;
  while (parts->at < parts->end && length < sizeof units) {
    uint16_t unit = Utf8Next(&parts->at, parts->end);
    units[length++] = static_cast<uint8_t>(unit >> 8);
    units[length++] = static_cast<uint8_t>(unit);
  }
  BytesToHex(units, record->TP_UD, length);
}

}  // namespace

int ShortMsgPartsOf(const char *text, size_t n, ShortMsgParts *parts) {
  *parts = {text, text + n, static_cast<uint8_t>(TextDcs(text, n)), 0, 0};
  bool ucs2 = parts->dcs == SHORTMSG_DCS_UCS2;
  size_t length = ucs2 ? Units(text, parts->end) : n, part = ucs2 ? kUcs2Part : k7bitPart;
  size_t total = length <= (ucs2 ? kUcs2Single : k7bitSingle) ? 1 : (length + part - 1) / part;
  if (total > kPartsMax) return -1;
  parts->total = static_cast<int>(total);
  return parts->total;
}

int ShortMsgNextPart(ShortMsgParts *parts, ShortMsgParam *record, ShortMsgHeader *header) {
  if (parts->given == parts->total) return 0;
  ++parts->given;
  record->TP_DCS = parts->dcs;
  if (parts->total == 1)
    TakeBytes(parts, sizeof record->TP_UD - 1, record); /* it is all, and fits */
  else if (parts->dcs == SHORTMSG_DCS_UCS2)
    TakeUnitDigits(parts, record);
  else
    TakeBytes(parts, k7bitPart, record);
  /* A concatenation header with a 16-bit reference, which is one fixed value for every message, on
     purpose: a receiver puts parts together by the sender's number too. */
  *header = {{0x06, 0x08, 0x04, 0x77, 0x0E, static_cast<uint8_t>(parts->total),
              static_cast<uint8_t>(parts->given)}};
  return 1;
}
