// What a request can have done with short messages and the SIM's phonebook, by the code of an
// action.
#pragma once

#include <string>
#include <string_view>
#include <vector>

/* Runs action `code` (decimal text; anything else is no action): 0 to 3 delete the messages of a
   list "1,2,3", 6 sends, 7 stores and sends, 8 stores, 9 and 10 delete phonebook entries of a list,
   11 adds one (`argument` the number, `content` the name), 14 sets the service centre. Returns its
   result (modem_at.h), which is in msgResult too. `content` and `country` may be "". Texts are
   UTF-8 and stay the caller's. On the thread of "sysmgr:capabinfo"; it waits for the modem. */
int ShortMsgAction(const char *code, const char *argument, const char *content,
                   const char *country);

/* The pieces of a list, empty ones left out. */
std::vector<std::string> ShortMsgPieces(std::string_view list, char separator);
