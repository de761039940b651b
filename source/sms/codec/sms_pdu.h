// PDUs of short messages: the hexadecimal text that a modem in PDU mode takes and lists, to and
// from message records. A PDU is the service centre's address and a TPDU of 3GPP TS 23.040:
// SMS-SUBMIT for what is sent or stored, SMS-DELIVER for what was received.
//
// Any text at all can be decoded: it ends at the first character that is no hexadecimal digit, what
// its lengths promise beyond that is not there, and what is longer than a field is cut. Nothing
// here uses the heap. The functions without SHORTMSG_ in their name have no state either and may be
// called from any thread.
#pragma once

#include <cstddef>
#include <cstdint>

#include "sms_text.h"

enum { SHORTMSG_DCS_7BIT = 0, SHORTMSG_DCS_UCS2 = 8 }; /* any other is taken for 8-bit data */

/* Status of a stored message, as "+CMGL:" tells it. */
enum { SHORTMSG_UNREAD = 0, SHORTMSG_READ = 1, SHORTMSG_UNSENT = 2, SHORTMSG_SENT = 3 };

enum {
  SHORTMSG_NUMBER_SIZE = 21, /* 20 characters and the NUL */
  SHORTMSG_TEXT_SIZE = 320,
  SHORTMSG_HEADER_SIZE = 7, /* octets of the header of a long message's part */
  /* The longest PDU of a record with its NUL, and two characters that end it on the modem's line */
  SHORTMSG_PDU_SIZE = 1360,
};

/* A message. To encode, texts that fill their array need no NUL. */
struct ShortMsgParam {
  char SCA[SHORTMSG_NUMBER_SIZE]; /* service centre; to encode, without a "+" */
  char TPA[SHORTMSG_NUMBER_SIZE]; /* who sent it; to encode, who gets it, without a "+" */
  uint8_t TP_PID;
  uint8_t TP_DCS;
  char TP_SCTS[SHORTMSG_NUMBER_SIZE]; /* YYMMDDhhmmsszz; "" for what was not received */
  /* Decoded: UTF-8; of a 7-bit message with a header, the header's bits come first as septets.
     To encode: UTF-8; for a UCS2 part of a long message the hexadecimal digits of its units. */
  char TP_UD[SHORTMSG_TEXT_SIZE];
  int16_t index; /* where the modem keeps it */
  int16_t stat;  /* SHORTMSG_UNREAD...; to be set before decoding */
};

/* A message of the inbox or outbox. The decoder fills the last four. */
struct ShortMsgEntry {
  int16_t index, stat;
  char number[32];
  char parts[128]; /* for the indexes of a long message's parts; nobody here needs them */
  char content[2048];
  char time[32];
  uint8_t taken;
  uint8_t hasUdh;
  char concatRef[8]; /* the digits of the reference in the PDU: 2, 4 or none */
  uint8_t concatTotal, concatSeq;
};

/* The user-data header of a part. */
struct ShortMsgHeader {
  uint8_t octets[SHORTMSG_HEADER_SIZE];
};

/* ---- without state ---- */

/* Writes the SMS-SUBMIT of `record`, with `header` before its text if there is one. Returns its
   length. The numbers and the text of a part go into the PDU as they are: digits are the caller's
   business. */
int PduEncode(const ShortMsgParam *record, char (&pdu)[SHORTMSG_PDU_SIZE],
              const ShortMsgHeader *header);

/* Reads a PDU into `record` by its `stat`, into the last four fields of `entry`, and the text
   without a header into `text`, zero-filled. Returns the length of TP_UD: septets of a 7-bit text,
   bytes of any other. */
int PduDecode(const char *pdu, ShortMsgParam *record, ShortMsgEntry *entry,
              char (&text)[SHORTMSG_TEXT_SIZE]);

/* Octets of the TPDU in a PDU of `length` characters, as "AT+CMGS=" wants them: without the service
   centre's address. */
int PduTpduLength(const char *pdu, int length);

/* ---- of the services module's thread: with trace lines and the state of a list read ---- */

/* What decoding leaves for the list that is being read. The reader of a list clears it first. */
struct ShortMsgDecoded {
  char longRef[8];               /* the first reference of a long message that was seen */
  char text[SHORTMSG_TEXT_SIZE]; /* the last message's, without a header */
};
extern ShortMsgDecoded short_msg_decoded;

/* As PduEncode and PduDecode; the text and the first reference go into short_msg_decoded. */
int SHORTMSG_EncodePdu(const ShortMsgParam *record, char (&pdu)[SHORTMSG_PDU_SIZE],
                       const ShortMsgHeader *header);
int SHORTMSG_DecodePdu(const char *pdu, ShortMsgParam *record, ShortMsgEntry *entry);
