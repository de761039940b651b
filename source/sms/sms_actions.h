// What can be done with short messages, the SIM's phonebook and USSD on the attached modem. The op
// functions are in sms_func.cpp, the AT commands in modem_at.h, the PDUs in sms_pdu.h.
//
// All on the thread of "sysmgr:capabinfo"; each waits for the modem. 0, or -1 where nothing else is
// said. Texts are UTF-8 and stay the caller's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <set>
#include <string>
#include <string_view>

#include "sms_pdu.h"

/* What is known of the modem and of the last list. */
struct ShortMsgState {
  char msgStorage[8]; /* "ME": the modem's memory; anything else: the SIM */
  int used, total;    /* of that storage */
  int pbUsed, pbTotal;
  int received, sent, unsent;         /* counted by the last list read */
  char SCA[SHORTMSG_NUMBER_SIZE + 1]; /* as the modem gave it; "" until it was read */
  long ussdTime;                      /* uptime in seconds of the last USSD answer */
};
extern ShortMsgState shortMsgState;

/* Results of actions, in msgResult (modem_at.h). */
enum {
  SHORTMSG_DONE = 0,
  SHORTMSG_NOTHING = 200, /* to do, or no such action */
  SHORTMSG_SEND_FAILED = 400,
  SHORTMSG_STORE_FAILED = 401,
  SHORTMSG_CENTRE_FAILED = 402,
  SHORTMSG_DELETE_FAILED = 403,
  SHORTMSG_PHONEBOOK_FAILED = 404,
};

/* Runs action `code` (decimal text; anything else is no action): 0 to 3 delete the messages of a
   list "1,2,3", 6 sends, 7 stores and sends, 8 stores, 9 and 10 delete phonebook entries of a list,
   11 adds one (`argument` the number, `content` the name), 14 sets the service centre. Returns its
   result, which is in msgResult too. `content` and `country` may be "". */
int ShortMsgAction(const char *code, const char *argument, const char *content,
                   const char *country);

/* Reads the service centre unless it is known. Without it, or when it is no number, it stays "",
   and PDUs leave it to the SIM. */
void ShortMsgReadServiceCentre();

/* Sends or stores `text`, in as many messages as it takes. `status`: SHORTMSG_UNSENT or _SENT. */
int SHORTMSG_SendMessage(const char *number, const char *text, const char *country);
int SHORTMSG_saveMessage(const char *number, const char *text, const char *country, int status);

/* The digits that are dialled for `number` from a country with the code `country`. -1 (logged): it
   is longer than a PDU takes. */
int ShortMsgDial(const char *number, const char *country, char (&digits)[SHORTMSG_NUMBER_SIZE]);

/* Writes the list of messages into `text`, cut behind the last whole record that fits. `filter`: 0
   received, 1 sent, 2 unsent, anything else all. -1: the modem gave none. */
int SHORTMSG_SMS_Get(int filter, char *text, size_t size);

/* Forgets what is known of the message at `index` of the storage: another one may take its place.
 */
void ShortMsgForget(int index);

/* What is known of a storage's messages, by index. */
enum { SHORTMSG_MARKS = 255 };
struct ShortMsgMarks {
  bool unread[SHORTMSG_MARKS]; /* was unread when it was listed; the modem turns it into read, for
                                  the user it stays unread */
  std::set<int> unlisted;      /* belongs into no list, which was logged */
};

/* The part of it that asks no modem: sorts `count` entries and writes the records of those that
   pass. What belongs into the list and has no record is logged. */
void ShortMsgFormatList(const ShortMsgEntry *entries, size_t count, int filter,
                        ShortMsgMarks *marks, char *text, size_t size);

/* `text` with U+FFFD for each control character: a value of the store that has byte 0x03 would be
   refused, and none of them has a meaning to who reads it. */
std::string ShortMsgPrintable(std::string_view text);

int ShortMsgPhonebookAdd(const char *number, const char *name);
int ShortMsgPhonebookDelete(int index);

/* Writes the whole phonebook to `out`. Called again within 4 s it sets msgResult to
   SHORTMSG_NOTHING, and reads all the same. */
int ShortMsgPhonebookList(FILE *out);

/* Sends a USSD command, or ends the session with "cancel"; an empty one does nothing. What the
   network answers is kept for UssdReport. Waits up to 30 s for it. */
void UssdSend(const char *command);

/* Has a menu that is 61 s old expire, and writes the one that is left as a status. -1 (logged): it
   cannot be written. */
int UssdReport();
