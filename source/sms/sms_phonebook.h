// The SIM's phonebook.
//
// On the thread of "sysmgr:capabinfo"; each waits for the modem. 0, or -1.
#pragma once

#include <cstdio>

/* -1 also when `index` is none of it. */
int ShortMsgPhonebookDelete(int index);

/* For who shows it beside the data model, which has no list of it: writes the whole phonebook to
   `out`. Called again within 4 s it sets msgResult to SHORTMSG_NOTHING, and reads all the same. */
int ShortMsgPhonebookList(FILE *out);
