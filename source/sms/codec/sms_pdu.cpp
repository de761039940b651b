// PDUs of short messages; see sms_pdu.h.
#include "sms_pdu.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "sms_trace.h"

ShortMsgDecoded short_msg_decoded;

namespace {

constexpr uint8_t kInternational = 0x91; /* type of address: international number, ISDN plan */

/* ---- encoding ---- */

/* A PDU in the making. SHORTMSG_PDU_SIZE holds all that a record can become, see below. */
struct PduText {
  char *at, *end;
};

constexpr size_t kNumberMax = SHORTMSG_NUMBER_SIZE - 1;
/* The most octets that a text can have: ASCII as UCS2. With an escape for each character it is
 * less.
 */
constexpr size_t kDataMax = 2 * SHORTMSG_TEXT_SIZE;
static_assert(
    2 * (2 + kNumberMax / 2 + 2 + 2 + kNumberMax / 2 + 4 + SHORTMSG_HEADER_SIZE + kDataMax) + 3 <=
        SHORTMSG_PDU_SIZE,
    "every record fits");

Span<char> Left(const PduText &to) { return {to.at, static_cast<size_t>(to.end - to.at)}; }

void PutOctets(PduText *to, const uint8_t *octets, size_t n) {
  to->at += BytesToHex(octets, Left(*to), n);
}

void PutOctet(PduText *to, size_t octet) {
  auto byte = static_cast<uint8_t>(octet);
  PutOctets(to, &byte, 1);
}

void PutText(PduText *to, const char *text, size_t n) {
  n = std::min(n, Left(*to).size - 1);
  memcpy(to->at, text, n);
  to->at[n] = '\0';
  to->at += n;
}

/* The type is always international, also of a short number such as an operator's. */
void PutNumber(PduText *to, size_t length_octet, const char *digits, size_t n) {
  PutOctet(to, length_octet);
  PutOctet(to, kInternational);
  to->at += InvertNumbers(digits, Left(*to), n);
}

void Put7bit(PduText *to, const char *text, size_t length, const ShortMsgHeader *header) {
  char terminated[SHORTMSG_TEXT_SIZE + 1]; /* the NUL is packed too, it brings out the last bits */
  memcpy(terminated, text, length);
  terminated[length] = '\0';
  uint8_t packed[kDataMax];
  int escapes, count = Encode7bit(terminated, packed, length + 1, &escapes);
  /* The header's 7 octets are the bits of 8 septets, so no fill bits stand between. */
  PutOctet(to, length + (header == nullptr ? 0 : 8) + static_cast<size_t>(escapes));
  if (header != nullptr) PutOctets(to, header->octets, sizeof header->octets);
  PutOctets(to, packed, static_cast<size_t>(count));
}

/* Lengths beyond an octet are cut to it: what sms_parts.h makes of a text is shorter. */
void PutData(PduText *to, const ShortMsgParam *record, const ShortMsgHeader *header) {
  const char *text = record->TP_UD;
  size_t length = strnlen(text, sizeof record->TP_UD);
  if (record->TP_DCS == SHORTMSG_DCS_7BIT) {
    Put7bit(to, text, length, header);
  } else if (header == nullptr && record->TP_DCS == SHORTMSG_DCS_UCS2) {
    uint8_t units[kDataMax];
    auto count = static_cast<size_t>(Utf8ToUcs2(text, units, length));
    PutOctet(to, count);
    PutOctets(to, units, count);
  } else if (header == nullptr) {
    PutOctet(to, length);
    PutOctets(to, reinterpret_cast<const uint8_t *>(text), length);
  } else if (record->TP_DCS == SHORTMSG_DCS_UCS2) {
    PutOctet(to, length / 2 + SHORTMSG_HEADER_SIZE);
    PutOctets(to, header->octets, sizeof header->octets);
    PutText(to, text, length); /* the digits of its units already */
  } else {
    /* Parts of 8-bit data are not supported, on purpose: the PDU ends here, and in the place of the
       length stands the destination's type once more. */
    PutOctet(to, kInternational);
  }
}

/* ---- decoding ---- */

/* All octets that the lengths of a PDU can reach: addresses, time stamp, fixed fields, text. */
constexpr size_t kOctetsMax = 256 + 2 + 130 + 2 + 7 + 1 + 255;

/* A PDU's octets from `at` on. Reading past the end gives zeros and goes no further. */
struct Octets {
  const uint8_t *at, *end;
};

size_t Left(const Octets &from) { return static_cast<size_t>(from.end - from.at); }

uint8_t TakeOctet(Octets *from) { return from->at < from->end ? *from->at++ : uint8_t{0}; }

/* The next `n` octets, or those that there are. */
Octets Take(Octets *from, size_t n) {
  Octets taken = {from->at, from->at + std::min(n, Left(*from))};
  from->at = taken.end;
  return taken;
}

uint8_t OctetAt(const Octets &from, size_t at) {
  return at < Left(from) ? from.at[at] : uint8_t{0};
}

/* Digits of semi-octets in reading order, without the "F" that fills up the last octet. */
void PutDigits(const Octets &from, char (&text)[SHORTMSG_NUMBER_SIZE]) {
  uint8_t swapped[kNumberMax / 2];
  size_t n = std::min(Left(from), sizeof swapped);
  for (size_t at = 0; at < n; ++at)
    swapped[at] = static_cast<uint8_t>(from.at[at] << 4 | from.at[at] >> 4);
  int length = BytesToHex(swapped, text, n);
  if (length > 0 && text[length - 1] == 'F') text[length - 1] = '\0';
}

/* The sender's type of address would tell a name from a number, but is not asked, on purpose: any
   semi-octet from A to E makes it a name, also of a number with "*" or "#", and a name whose octets
   have none reads as a number. A name is limited by the length of the message's text, on purpose
   too, so one of 7 letters mostly ends in the "@" of its fill bits, and one of 8 letters before a
   very short text loses its last. */
void PutSender(const Octets &from, size_t text_septets, char (&text)[SHORTMSG_NUMBER_SIZE]) {
  auto is_letter = [](uint8_t digit) { return digit >= 0xA && digit <= 0xE; };
  bool is_name = std::any_of(from.at, from.end, [is_letter](uint8_t octet) {
    return is_letter(octet >> 4) || is_letter(octet & 0x0F);
  });
  if (is_name)
    Decode7bit(from.at, text, Left(from), text_septets);
  else
    PutDigits(from, text);
}

/* What the user-data header says of a long message. `data` starts with the header, `pdu_text` is
   the same place in the PDU's text, where the reference is copied from as it stands. Which kind of
   header it is, is not asked: its length tells. */
void TakeHeader(const Octets &data, const char *pdu_text, uint8_t dcs, ShortMsgEntry *entry) {
  uint8_t length = OctetAt(data, 0);
  size_t ref = length == 5 ? 1 : length == 6 ? 2 : 0;
  if (ref == 0 && dcs != SHORTMSG_DCS_7BIT) return;
  if (Left(data) >= 3 + ref) memcpy(entry->concatRef, pdu_text + 2 * 3, 2 * ref);
  entry->concatTotal = OctetAt(data, 3 + ref);
  entry->concatSeq = OctetAt(data, 4 + ref);
}

void ClearBehind(int length, char (&text)[SHORTMSG_TEXT_SIZE]) {
  memset(text + length, 0, sizeof text - static_cast<size_t>(length));
}

/* 7-bit: the header's septets stay in TP_UD, whose length and places are counted with them. */
int Text7bit(const Octets &data, size_t skip, ShortMsgParam *record,
             char (&text)[SHORTMSG_TEXT_SIZE], size_t udl) {
  int septets, length = Decode7bit(data.at, record->TP_UD, Left(data), udl, 0, &septets);
  ClearBehind(length, record->TP_UD);
  if (skip > 0)
    length = Decode7bit(data.at, text, Left(data), udl, skip);
  else
    memcpy(text, record->TP_UD, static_cast<size_t>(length));
  ClearBehind(length, text);
  return septets;
}

/* UCS2 and 8-bit: `data` is the text alone. */
int TextOctets(const Octets &data, ShortMsgParam *record, char (&text)[SHORTMSG_TEXT_SIZE]) {
  int length = static_cast<int>(Left(data)); /* at most 255: it is an octet in the PDU */
  if (record->TP_DCS == SHORTMSG_DCS_UCS2)
    length = Ucs2ToUtf8(data.at, record->TP_UD, Left(data));
  else
    memcpy(record->TP_UD, data.at, Left(data));
  ClearBehind(length, record->TP_UD);
  memcpy(text, record->TP_UD, sizeof text);
  return length;
}

/* PduDecode; `text_length` gets TP-UDL, of UCS2 and 8-bit data without the header. */
int Decode(const char *pdu, ShortMsgParam *record, ShortMsgEntry *entry,
           char (&text)[SHORTMSG_TEXT_SIZE], int *text_length) {
  uint8_t octets[kOctetsMax];
  Octets from = {octets, octets + HexRunToBytes(pdu, octets)};
  bool received = record->stat == SHORTMSG_UNREAD || record->stat == SHORTMSG_READ;
  memset(entry->concatRef, 0, sizeof entry->concatRef);
  entry->concatTotal = entry->concatSeq = 0;

  Octets centre = Take(&from, TakeOctet(&from));
  (void)TakeOctet(&centre); /* its type */
  PutDigits(centre, record->SCA);
  /* TP-RP, the bit above TP-UDHI, counts as a header too, on purpose. */
  entry->hasUdh = TakeOctet(&from) >> 6 != 0;
  if (!received) (void)TakeOctet(&from); /* TP-MR */
  size_t digits = TakeOctet(&from);
  (void)TakeOctet(&from); /* type of the address */
  Octets address = Take(&from, (digits + 1) / 2);
  record->TP_PID = TakeOctet(&from);
  record->TP_DCS = TakeOctet(&from);
  record->TP_SCTS[0] = '\0';
  if (received)
    PutDigits(Take(&from, 7), record->TP_SCTS);
  else
    (void)TakeOctet(&from); /* TP-VP, taken for one octet whatever the first octet says of it */
  size_t udl = TakeOctet(&from);

  bool septets = record->TP_DCS == SHORTMSG_DCS_7BIT;
  size_t header = 0; /* its length, in septets or octets */
  if (entry->hasUdh != 0) {
    TakeHeader(from, pdu + 2 * (from.at - octets), record->TP_DCS, entry);
    size_t udhl = OctetAt(from, 0);
    header = septets ? (8 * udhl + 14) / 7 : udhl + 1;
    if (!septets) {
      (void)Take(&from, header);
      udl -= std::min(udl, header);
    }
  }
  PutSender(address, udl, record->TPA);
  *text_length = static_cast<int>(udl);
  Octets data = Take(&from, septets ? (7 * udl + 7) / 8 : udl);
  return septets ? Text7bit(data, header, record, text, udl) : TextOctets(data, record, text);
}

}  // namespace

int PduEncode(const ShortMsgParam *record, char (&pdu)[SHORTMSG_PDU_SIZE],
              const ShortMsgHeader *header) {
  PduText to = {pdu, pdu + sizeof pdu};
  size_t sca = strnlen(record->SCA, kNumberMax), tpa = strnlen(record->TPA, kNumberMax);
  PutNumber(&to, (sca + 1) / 2 + 1, record->SCA, sca);
  PutOctet(&to, header == nullptr ? 0x11 : 0x51); /* SMS-SUBMIT, relative validity; TP-UDHI */
  PutOctet(&to, 0x00);                            /* TP-MR: the modem numbers its messages */
  PutNumber(&to, tpa, record->TPA, tpa);
  PutOctet(&to, record->TP_PID);
  PutOctet(&to, record->TP_DCS);
  PutOctet(&to, 0x00); /* TP-VP: 5 minutes, the shortest, on purpose: an old message is not sent */
  PutData(&to, record, header);
  return static_cast<int>(to.at - pdu);
}

int PduDecode(const char *pdu, ShortMsgParam *record, ShortMsgEntry *entry,
              char (&text)[SHORTMSG_TEXT_SIZE]) {
  int text_length;
  return Decode(pdu, record, entry, text, &text_length);
}

int PduTpduLength(const char *pdu, int length) {
  uint8_t centre = 0;
  HexToBytes(pdu, {&centre, 1}, length < 2 ? 0 : 2);
  return length / 2 - (centre + 1);
}

int SHORTMSG_EncodePdu(const ShortMsgParam *record, char (&pdu)[SHORTMSG_PDU_SIZE],
                       const ShortMsgHeader *header) {
  /* The number is a fixed one, which readers of the console look for. */
  if (header == nullptr && record->TP_DCS == SHORTMSG_DCS_7BIT)
    printf("%s,%d,nSrcLength=%d\n", __func__, 827,
           static_cast<int>(strnlen(record->TP_UD, sizeof record->TP_UD)));
  return PduEncode(record, pdu, header);
}

int SHORTMSG_DecodePdu(const char *pdu, ShortMsgParam *record, ShortMsgEntry *entry) {
  ShortMsgDecoded &decoded = short_msg_decoded;
  int text_length, length = Decode(pdu, record, entry, decoded.text, &text_length);
  if (decoded.longRef[0] == '\0') memcpy(decoded.longRef, entry->concatRef, sizeof decoded.longRef);
  SMS_TRACE("pDst->SCA=[%s]\n", record->SCA);
  SMS_TRACE("%s-%d:nDstLength=%d, ucUDL=%d\n%s, %d\n\n", __func__, __LINE__, length, text_length,
            record->TP_UD, record->TP_DCS);
  return length;
}
