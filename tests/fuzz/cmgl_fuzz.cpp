// Lists as a modem writes them: any bytes through the parser of "+CMGL:" lines.
#include "check.h"
#include "sms_list.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  auto text = Block(data, size, 1);
  ShortMsgEntry entry;
  memset(&entry, 'z', sizeof entry); /* what stays of it is not terminated */
  if (ShortMsgParseEntry(text.get(), &entry) != 0) return 0;
  Check(strstr(text.get(), "+CMGL:") != nullptr, "an entry out of nothing");
  CheckTexts(entry.number, entry.parts, entry.content, entry.time, entry.concatRef);
  Check(strpbrk(entry.content, "\"'\\%\r\n") == nullptr, "a character is not escaped");
  Check(entry.time[0] == '2' || strcmp(entry.time, " ") == 0, "the time is none");
  return 0;
}
