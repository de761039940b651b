// What a request can have done with short messages and the SIM's phonebook, by the code of an
// action.
#pragma once

#include <string>
#include <string_view>
#include <vector>

enum {
  ACTION_DELETE = 3, /* the messages of a list "1,2,3"; so do 0, 1 and 2 */
  ACTION_SEND = 6,
  ACTION_STORE_AND_SEND = 7,
  ACTION_STORE = 8,
  ACTION_DELETE_PHONEBOOK = 9, /* the entries of a list; so does 10 */
  ACTION_ADD_PHONEBOOK = 11,   /* `argument` the number, `content` the name */
  ACTION_SET_CENTRE = 14,      /* the service centre */
};

/* Runs an action; other codes do nothing. Returns its result (modem_at.h), which is in msgResult
   too. `content` and `country` may be "". Texts are UTF-8 and stay the caller's. On the thread of
   "sysmgr:capabinfo"; it waits for the modem. */
int ShortMsgAction(int code, const char *argument, const char *content, const char *country);

/* The number that `text` is in decimal digits, INT32_MAX for a larger one; -1 when it is none: 0
   would be the first message of a modem, and the action that deletes. Any thread. */
int ShortMsgNumber(const std::string &text);

/* The pieces of a list, empty ones left out. */
std::vector<std::string> ShortMsgPieces(std::string_view list, char separator);
