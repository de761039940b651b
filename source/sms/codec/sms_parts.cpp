// A text to send as the records of its messages; see sms_parts.h.
#include "sms_parts.h"

#include <cstring>

namespace {

constexpr int kPartsMax = 255;

/* How much of a text goes into one message. */
struct Room {
  int characters, codes; /* codes: what the characters become, septets or units */
};

/* Of an alphabet: a message of its own, and a part of a long one. */
struct Rooms {
  Room single, part;
};

/* 145 characters where a header leaves 152 septets are on purpose: mostly their escapes fit then.
 */
constexpr Rooms k7bit = {{160, 160}, {145, 152}}, kUcs2 = {{70, 70}, {65, 65}};

static_assert(4 * kUcs2.single.codes < SHORTMSG_TEXT_SIZE,
              "a unit takes 4 bytes of broken UTF-8 at most");
static_assert(4 * kUcs2.part.codes < SHORTMSG_TEXT_SIZE, "a unit is 4 hexadecimal digits");

const Rooms &RoomsOf(const ShortMsgParts &parts) {
  return parts.dcs == SHORTMSG_DCS_UCS2 ? kUcs2 : k7bit;
}

/* How many septets or units the character at `*at` becomes; moves `*at` behind it. */
int TakeCharacter(const ShortMsgParts &parts, const char **at) {
  if (parts.dcs == SHORTMSG_DCS_7BIT) return GsmSeptets(*(*at)++);
  (void)Utf8Next(at, parts.end); /* only passed over */
  return 1;
}

/* Where a message that begins at `at` ends: behind the last character that fits. */
const char *MessageEnd(const ShortMsgParts &parts, const char *at, Room room) {
  while (at < parts.end && room.characters-- > 0) {
    const char *next = at;
    room.codes -= TakeCharacter(parts, &next);
    if (room.codes < 0) break;
    at = next;
  }
  return at;
}

}  // namespace

int ShortMsgPartsOf(const char *text, size_t n, ShortMsgParts *parts) {
  *parts = {text, text + n, static_cast<uint8_t>(TextDcs(text, n)), 1, 0};
  const Rooms &rooms = RoomsOf(*parts);
  if (MessageEnd(*parts, text, rooms.single) == parts->end) return 1;
  for (const char *at = text; (at = MessageEnd(*parts, at, rooms.part)) < parts->end;)
    if (++parts->total > kPartsMax) return -1;
  return parts->total;
}

int ShortMsgNextPart(ShortMsgParts *parts, ShortMsgParam *record, ShortMsgHeader *header) {
  if (parts->given == parts->total) return 0;
  ++parts->given;
  record->TP_DCS = parts->dcs;
  const char *end =
      parts->total == 1 ? parts->end : MessageEnd(*parts, parts->at, RoomsOf(*parts).part);
  auto length = static_cast<size_t>(end - parts->at);
  if (parts->total > 1 && parts->dcs == SHORTMSG_DCS_UCS2) {
    uint8_t units[2 * kUcs2.part.codes];
    int bytes = Utf8ToUcs2(parts->at, units, length);
    BytesToHex(units, record->TP_UD, static_cast<size_t>(bytes));
  } else {
    memcpy(record->TP_UD, parts->at, length);
    record->TP_UD[length] = '\0';
  }
  parts->at = end;
  /* A concatenation header with a 16-bit reference, which is one fixed value for every message, on
     purpose: a receiver puts parts together by the sender's number too. */
  *header = {{0x06, 0x08, 0x04, 0x77, 0x0E, static_cast<uint8_t>(parts->total),
              static_cast<uint8_t>(parts->given)}};
  return 1;
}
