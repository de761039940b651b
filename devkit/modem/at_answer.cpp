// Answers of a modem taken apart; see at_answer.h.
#include "at_answer.h"

#include "exit_status.h"
#include "modem_tty.h"

size_t AnswerStart(const std::string &text, const std::string &sent, bool *echoed) {
  size_t at = text.find(sent);
  *echoed = at != text.npos;
  at = text.find_first_not_of("\r\n ", *echoed ? at + sent.size() : 0);
  return at != text.npos ? at : text.size();
}

bool EndsInPrompt(const std::string &answer) {
  const size_t before = answer.rfind("\r\n");
  const std::string line = before == answer.npos ? answer : answer.substr(before + 2);
  return line == "> " || line == ">";
}

namespace {

/* The status of a final line, -1 for any other. */
int FinalStatus(const std::string &line) {
  if (line == "OK") return EXIT_DONE;
  bool refused = line == "ERROR" || line.compare(0, 11, "+CMS ERROR:") == 0 ||
                 line.compare(0, 11, "+CME ERROR:") == 0;
  return refused ? EXIT_REFUSED : -1;
}

}  // namespace

size_t AnswerEnd(const std::string &text, size_t start, int *status) {
  while (start < text.size()) {
    size_t end = text.find("\r\n", start);
    if (end == text.npos) {
      *status = EXIT_DONE;
      return EndsInPrompt(text.substr(start)) ? text.size() : text.npos;
    }
    *status = FinalStatus(text.substr(start, end - start));
    if (*status >= 0) return end + 2;
    start = end + 2;
  }
  return text.npos;
}

bool SplitCommand(const std::string &text, std::string *command, std::string *pdu) {
  size_t bar = text.find('|');
  *command = text.substr(0, bar);
  command->erase(command->find_last_not_of("\r\n") + 1);
  *pdu = bar == text.npos ? "" : text.substr(bar + 1);
  pdu->erase(pdu->find_last_not_of("\r\n") + 1);
  *pdu = pdu->substr(0, pdu->find(kEndOfPdu));
  if (!pdu->empty()) *pdu += kEndOfPdu;
  bool any = !command->empty();
  *command += '\r';
  return any;
}
