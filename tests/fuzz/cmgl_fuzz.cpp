// Lists as a modem writes them: any bytes through the parser of "+CMGL:" lines.
#include "check.h"
#include "sms_list.h"

namespace {

/* What is left of a content without its line ends and entities has nothing that a page takes for
   markup. */
void CheckContent(std::string text) {
  for (const char *piece : {"<br>", "&quot;", "&#39;", "&#92;", "&#60;", "&#62;", "&#37;", "&#38;"})
    for (size_t at; (at = text.find(piece)) != text.npos;) text.replace(at, strlen(piece), " ");
  Check(text.find_first_of("\"'\\<>&%\r\n") == text.npos, "a character is not escaped");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  auto text = Block(data, size, 1);
  ShortMsgEntry entry;
  memset(&entry, 'z', sizeof entry); /* what stays of it is not terminated */
  if (ShortMsgParseEntry(text.get(), &entry) != 0) return 0;
  Check(strstr(text.get(), "+CMGL:") != nullptr, "an entry out of nothing");
  CheckTexts(entry.number, entry.parts, entry.content, entry.time, entry.concatRef);
  CheckContent(entry.content);
  Check(entry.time[0] == '2' || strcmp(entry.time, " ") == 0, "the time is none");
  return 0;
}
