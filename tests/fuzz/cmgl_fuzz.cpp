// Lists as a modem writes them: any bytes through the parser of "+CMGL:" lines.
#include <cstdint>
#include <cstring>
#include <memory>

#include "check.h"
#include "sms_list.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::unique_ptr<char[]> text(new char[size + 1]);
  memcpy(text.get(), data, size);
  text[size] = '\0';
  ShortMsgEntry entry;
  memset(&entry, 'z', sizeof entry); /* what stays of it is not terminated */
  if (ShortMsgParseEntry(text.get(), &entry) != 0) return 0;
  Check(strstr(text.get(), "+CMGL:") != nullptr, "an entry out of nothing");
  CheckText(entry.number, "the number is not terminated");
  CheckText(entry.parts, "the list of parts is not terminated");
  CheckText(entry.content, "the content is not terminated");
  CheckText(entry.time, "the time is not terminated");
  CheckText(entry.concatRef, "the reference is not terminated");
  Check(strpbrk(entry.content, "\"'\\%\r\n") == nullptr, "a character is not escaped");
  Check(entry.time[0] == '2' || strcmp(entry.time, " ") == 0, "the time is none");
  return 0;
}
