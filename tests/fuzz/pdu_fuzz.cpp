// PDUs and records: any bytes through the decoder and the encoder. The first byte tells the status,
// the rest is either in turn.
#include "check.h"
#include "sms_pdu.h"

namespace {

struct Decoded {
  ShortMsgParam record;
  ShortMsgEntry entry;
  char text[SHORTMSG_TEXT_SIZE];
};

void Decode(const char *pdu, int16_t stat, Decoded *to) {
  memset(to, 'z', sizeof *to); /* what stays of it is not terminated */
  to->record.stat = stat;
  int length = PduDecode(pdu, &to->record, &to->entry, to->text);
  Check(length >= 0 && length < SHORTMSG_TEXT_SIZE, "the length is none of a text");
  CheckTexts(to->record.SCA, to->record.TPA, to->record.TP_SCTS, to->record.TP_UD, to->text,
             to->entry.concatRef);
  Check(to->record.stat == stat, "the status is not the caller's");
}

/* What was decoded can be encoded, and decodes to itself from then on. */
void DecodePdu(const uint8_t *data, size_t size, int16_t stat) {
  Decoded first, second, third;
  char pdu[SHORTMSG_PDU_SIZE];
  auto text = Block(data, size, 1);
  Decode(text.get(), stat, &first);
  Check(PduEncode(&first.record, pdu, nullptr) == static_cast<int>(strlen(pdu)),
        "the length is not the PDU's");
  Decode(pdu, SHORTMSG_SENT, &second);
  if (first.record.TP_DCS == SHORTMSG_DCS_7BIT) return; /* codes that stand for others change */
  if (strlen(first.record.TP_UD) > 127 ||
      strspn(first.record.TPA, "0123456789") < strlen(first.record.TPA))
    return; /* more than an octet counts, or a name, which is no address to send to */
  PduEncode(&second.record, pdu, nullptr);
  Decode(pdu, SHORTMSG_SENT, &third);
  Check(strcmp(second.text, third.text) == 0, "a text changes when it is encoded again");
  Check(strcmp(first.record.TPA, third.record.TPA) == 0, "a number changes");
}

/* Bytes as a record, whose texts need not be terminated, with a header of the same bytes. */
void EncodeRecord(const uint8_t *data, size_t size) {
  ShortMsgParam record;
  ShortMsgHeader header;
  char pdu[SHORTMSG_PDU_SIZE];
  memset(&record, 'x', sizeof record);
  memset(&header, 0, sizeof header);
  if (size > 0) memcpy(&record, data, size < sizeof record ? size : sizeof record);
  if (size > 0) memcpy(&header, data, size < sizeof header ? size : sizeof header);
  const uint8_t alphabets[] = {SHORTMSG_DCS_7BIT, SHORTMSG_DCS_UCS2, 4};
  const ShortMsgHeader *const headers[] = {nullptr, &header};
  for (uint8_t dcs : alphabets) {
    record.TP_DCS = dcs;
    for (const ShortMsgHeader *with : headers) {
      int length = PduEncode(&record, pdu, with);
      Check(length > 0 && length < SHORTMSG_PDU_SIZE - 2, "a PDU has no room for its end");
      Check(pdu[length] == '\0', "a PDU is not terminated");
    }
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  auto stat = static_cast<int16_t>(data[0] & 3);
  DecodePdu(data + 1, size - 1, stat);
  EncodeRecord(data + 1, size - 1);
  return 0;
}
