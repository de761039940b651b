// The SIM's phonebook; see sms_phonebook.h.
#include "sms_phonebook.h"

#include <time.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "ams_common_api.h"
#include "modem_at.h"

namespace {

constexpr int kBlock = 30;         /* entries a query */
constexpr int kMostPlaces = 10000; /* no SIM has so many: what a modem says beyond is a mistake */
constexpr int kPause = 4;          /* s between two listings */

/* The text between the first two double quotes. */
std::string Unquoted(const char *text) {
  const char *quote = strchr(text, '"');
  if (quote == nullptr) return text;
  return std::string(quote + 1, strcspn(quote + 1, "\""));
}

/* +CPBR: 1,"12345",129,"0041" */
int WriteEntry(const char *line, FILE *out) {
  char index[16], number[64], type[16], name[128];
  if (sscanf(line, "%15[^,],%63[^,],%15[^,],%127s", index, number, type, name) != 4) return -1;
  fprintf(out, "%s}-{%s}-{%s}-{%s|,|", index, Unquoted(number).c_str(), type,
          Unquoted(name).c_str());
  return 0;
}

/* How many entries the answer has. */
int WriteEntries(const char *answer, FILE *out) {
  constexpr char kMark[] = "+CPBR:";
  int count = 0;
  for (const char *at = answer; (at = strstr(at, kMark)) != nullptr;) {
    at += sizeof kMark - 1;
    at += strspn(at, " ");
    if (WriteEntry(at, out) == 0) ++count;
  }
  return count;
}

void NoteListing() {
  static long last = -kPause;
  struct timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now); /* cannot fail: the clock is always there */
  if (now.tv_sec - last < kPause) msgResult = SHORTMSG_NOTHING;
  last = now.tv_sec;
}

int KnowTotal() {
  if (short_msg_state.pbTotal > 0) return 0;
  return ModemPhonebookFill();
}

}  // namespace

int ShortMsgPhonebookDelete(int index) {
  if (KnowTotal() != 0) return -1;
  if (index < 1 || index > short_msg_state.pbTotal) {
    AMS_PRINT(4, "phonebook entry %d not deleted: give one from 1 to %d\n", index,
              short_msg_state.pbTotal);
    return -1;
  }
  return ModemDeletePhonebookEntry(index);
}

int ShortMsgPhonebookList(FILE *out) {
  NoteListing();
  if (ModemSelectPhonebook() != 0 || KnowTotal() != 0) return -1;
  int found = 0;
  const int last = std::min(short_msg_state.pbTotal, kMostPlaces);
  for (int start = 1; start <= last && found < short_msg_state.pbUsed; start += kBlock) {
    char answer[16384] = "";
    if (ModemPhonebookUcs2() != 0) return -1;
    if (ModemReadPhonebook(start, start + kBlock - 1, answer, sizeof answer) == 0)
      found += WriteEntries(answer, out);
  }
  if (found == 0) fputs("not found", out);
  fprintf(out, "%s}-{%s}-{%s}-{%s|,|", "PhoneNoIdx", "PhoneNo", "PhoneNoType", "PhoneName");
  return 0;
}
