// What the LTE modem is asked about itself and its storage, what it answers, and what is known of
// it. How the commands reach it is in modem_route.h.
//
// All on the thread of "sysmgr:capabinfo".
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "sms_pdu.h"

/* Result code of the last action on short messages; an answer with "ERROR" puts the modem's number
   there. */
extern int32_t msgResult;

enum {
  SHORTMSG_DONE = 0,
  SHORTMSG_NOTHING = 200, /* to do, or no such action */
  SHORTMSG_SEND_FAILED = 400,
  SHORTMSG_STORE_FAILED = 401,
  SHORTMSG_CENTRE_FAILED = 402,
  SHORTMSG_DELETE_FAILED = 403,
  SHORTMSG_PHONEBOOK_FAILED = 404,
};

/* What is known of the modem. */
struct ShortMsgState {
  char msgStorage[8]; /* "ME": the modem's memory; anything else: the SIM */
  int used, total;    /* of that storage */
  int pbUsed, pbTotal;
  char SCA[SHORTMSG_NUMBER_SIZE + 1]; /* as the modem gave it; "" until it was read */
};
extern ShortMsgState short_msg_state;

/* Whether the short messages are those of the modem's memory. */
bool ModemUsesMemory();

/* Puts the number of an "ERROR" answer into msgResult, if it has one. */
void ModemErrorNumber(const char *answer);

/* An answer for a record: its first 200 bytes in one line, without the ends of lines around it. */
std::string ModemSaid(std::string_view answer);

/* Commands with their answers. 0, or -1 (logged) with msgResult where the modem gave a number. */
int ModemPduMode();
int ModemSelectGsm();                          /* the character set of messages */
int ModemSetServiceCentre(const char *number); /* it is read again before the next send */
int ModemPhonebookFill();
int ModemSelectStorage(); /* and its fill */
int ModemDeleteMessage(int index);
int ModemDeletePhonebookEntry(int index);
int ModemSelectPhonebook(); /* the SIM's */
int ModemPhonebookUcs2();   /* its names as UCS2 hexadecimal digits */
int ModemReadPhonebook(int first, int last, char *answer, size_t size); /* terminated */
int ModemAddPhonebookEntry(const char *number, const char *name); /* name: UCS2 as hex digits */

/* Reads the service centre unless it is known. Without it, or when it is no number, it stays "",
   and PDUs leave it to the SIM. */
void ModemReadServiceCentre();
