// Texts to send: any bytes into the records of their messages, from there into PDUs and back.
#include "check.h"
#include "sms_parts.h"
#include "sms_pdu.h"

namespace {

/* Counted by hand: two for a character behind an escape. */
void CheckSeptets(const char *text, size_t most) {
  size_t septets = strlen(text);
  for (; *text != '\0'; ++text) septets += strchr("[]{}|\\^~", *text) != nullptr ? 1 : 0;
  Check(septets <= most, "a part has more septets than a message");
}

/* Whether each character can be one of a message: in UTF-8 as it should be, of at most three bytes;
   when all are ASCII no control character, whose septet stands for another one. */
bool IsPlain(const char *text) {
  bool ascii = true, controls = false;
  while (*text != '\0') {
    auto lead = static_cast<uint8_t>(*text++);
    int more = lead < 0x80 ? 0 : lead < 0xE0 ? 1 : 2;
    unsigned value = more == 0 ? lead : lead & (more == 1 ? 0x1F : 0x0F);
    if ((lead >= 0x80 && lead < 0xC0) || lead >= 0xF0) return false;
    for (int at = 0; at < more; ++at, ++text) {
      if ((*text & 0xC0) != 0x80) return false;
      value = value << 6 | (*text & 0x3F);
    }
    if (value < (more == 0 ? 0u : more == 1 ? 0x80u : 0x800u)) return false;
    ascii = ascii && more == 0;
    controls = controls || (value < ' ' && value != '\r' && value != '\n');
  }
  return !ascii || !controls;
}

/* The text of a part's PDU. */
std::string SentText(const ShortMsgParam &record, const ShortMsgHeader *header, int number) {
  char pdu[SHORTMSG_PDU_SIZE], text[SHORTMSG_TEXT_SIZE];
  ShortMsgParam decoded = {};
  ShortMsgEntry entry;
  int length = PduEncode(&record, pdu, header);
  Check(length > 0 && strlen(pdu) == static_cast<size_t>(length), "the length is not the PDU's");
  Check(PduTpduLength(pdu, length) <= 164, "the modem takes no TPDU of that length");
  decoded.stat = SHORTMSG_SENT;
  PduDecode(pdu, &decoded, &entry, text);
  CheckTexts(text);
  Check(strcmp(decoded.TPA, record.TPA) == 0, "the number is another one");
  Check(entry.hasUdh == (header != nullptr), "the header is lost");
  if (header != nullptr) Check(entry.concatSeq == number, "the part has another number");
  return text;
}

/* Each part is a message with its escapes and header, and the parts are all of the text. */
void SplitText(const char *text, size_t size) {
  ShortMsgParts parts;
  ShortMsgParam record = {};
  ShortMsgHeader header;
  std::string sent;
  strcpy(record.TPA, "8613800138000");
  int total = ShortMsgPartsOf(text, size, &parts), given = 0;
  if (total < 0) return;
  bool at_end = false; /* of a part, where an "@" may be lost: nothing tells it from fill bits */
  while (ShortMsgNextPart(&parts, &record, &header) != 0) {
    CheckTexts(record.TP_UD);
    if (parts.dcs == SHORTMSG_DCS_7BIT) {
      CheckSeptets(record.TP_UD, total > 1 ? 152 : 160);
      at_end = at_end || (record.TP_UD[0] != '\0' && record.TP_UD[strlen(record.TP_UD) - 1] == '@');
    }
    sent += SentText(record, total > 1 ? &header : nullptr, ++given);
  }
  Check(given == total, "there are more or fewer parts than were told");
  Check(parts.at == parts.end, "the parts are not all of the text");
  if (strlen(text) == size && !at_end && IsPlain(text))
    Check(sent == text, "what arrives is another text");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  SplitText(Block(data, size, 1).get(), size);
  return 0;
}
