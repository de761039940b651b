// What at-mngr and nanocom read: a modem's answer as it comes in, and a file with a command and a
// PDU. What was sent, or the file, to a byte 0xFE; then all that came.
#include "at_answer.h"
#include "check.h"
#include "exit_status.h"

namespace {

constexpr char kBlanks[] = "\r\n ";

void Command(const std::string &file) {
  std::string command, pdu, again, pdu_again;
  const bool any = SplitCommand(file, &command, &pdu);
  Check(any == (command != "\r") && command.back() == '\r', "a command without its end, or none");
  Check(command.find('|') == command.npos, "a command with a PDU in it");
  Check(pdu.empty() || pdu.find('\x1A') == pdu.size() - 1, "a PDU that does not end where it ends");
  Check(SplitCommand(command + '|' + pdu, &again, &pdu_again) == any && again == command &&
            pdu_again == pdu,
        "what was read is read as something else");
}

/* With less of it there is no answer yet, or a prompt; more of it changes nothing. */
void Answer(const std::string &sent, const std::string &text) {
  bool echoed;
  int status = -1;
  const size_t start = AnswerStart(text, sent, &echoed);
  Check(start <= text.size() && echoed == (text.find(sent) != text.npos), "it begins nowhere");
  Check(start == text.size() || strchr(kBlanks, text[start]) == nullptr || text[start] == '\0',
        "it begins with a blank");
  const size_t end = AnswerEnd(text, start, &status);
  if (end == text.npos) return;
  Check(end > start && end <= text.size(), "it ends nowhere");
  Check(status == EXIT_DONE || status == EXIT_REFUSED, "there is no such status");
  const std::string answer = text.substr(start, end - start);
  if (EndsInPrompt(answer)) return;
  Check(answer.size() > 2 && answer.compare(answer.size() - 2, 2, "\r\n") == 0,
        "its last line has no end");
  for (size_t length = start; length < end; length += 1 + (end - start) / 16) {
    const bool prompt = EndsInPrompt(text.substr(start, length - start));
    Check((AnswerEnd(text.substr(0, length), start, &status) == text.npos) == !prompt,
          "it ends before its end");
  }
  Check(AnswerEnd(text + "+CME ERROR: 10\r\n", start, &status) == end, "it ends behind its end");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::string_view input = TextOf(data, size);
  const std::string sent(TakePiece(&input, '\xFE'));
  Command(sent);
  Answer(sent, std::string(input));
  return 0;
}
