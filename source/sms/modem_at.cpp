// The LTE modem's AT commands and answers; see modem_at.h.
//
// The texts reach at-mngr through a shell: a carriage return stands as it is, inner double quotes
// are escaped. The character set of messages is quoted whole and has no carriage return, unlike the
// phonebook's: the tool takes both.
#include "modem_at.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "ams_common_api.h"
#include "modem_route.h"
#include "op_values.h"

int32_t msgResult = 0;
ShortMsgState short_msg_state = {};

namespace {

/* A command whose answer has a value, one row each. It stands behind the first `before` that
   follows the mark; 0 stands for any character. */
struct Question {
  const char *command, *mark;
  char before;
};

constexpr Question kCentre = {"AT+CSCA?\r", "+CSCA: ", '"'};   /* +CSCA: "+861380",145 */
constexpr Question kPhonebook = {"AT+CPBS?\r", "+CPBS:", ','}; /* +CPBS: "SM",3,250 */
constexpr Question kSim = {"AT+CPMS=\\\"SM\\\",\\\"SM\\\",\\\"SM\\\"\r",
                           "+CPMS:", 0}; /* +CPMS: 3,20,... */
constexpr Question kMemory = {"AT+CPMS=\\\"ME\\\",\\\"ME\\\",\\\"ME\\\"\r", "+CPMS:", 0};

struct Answer {
  char text[1024];
};

/* 0 when the answer has "OK" or what it was to begin with, -1 else. */
int Judge(const Answer &answer, const char *mark) {
  if (strstr(answer.text, "ERROR") != nullptr) {
    ModemErrorNumber(answer.text);
    return -1;
  }
  if (strstr(answer.text, "OK") != nullptr) return 0;
  return mark != nullptr && strstr(answer.text, mark) != nullptr ? 0 : -1;
}

int Ask(const char *command, const char *mark, Answer *answer) {
  *answer = {};
  /* No answer at all is judged as an empty one. */
  (void)AtMngrCommand(command, answer->text, sizeof answer->text - 1);
  return Judge(*answer, mark);
}

/* Records a command, which a carriage return ends, and its answer. Returns -1. */
int Failed(int level, const char *command, const char *answer) {
  constexpr size_t kMost = 80;
  AMS_PRINT(level, "%.*s failed, the modem answered \"%s\"\n",
            static_cast<int>(std::min(strcspn(command, "\r"), kMost)), command,
            ModemSaid(answer).c_str());
  return -1;
}

__attribute__((format(printf, 1, 2))) int Tell(const char *format, ...) {
  char command[MODEM_LINE_LIMIT]; /* a longer one is cut here and refused as too long */
  Answer answer;
  va_list args;
  va_start(args, format);
  vsnprintf(command, sizeof command, format, args);
  va_end(args);
  return Ask(command, nullptr, &answer) == 0 ? 0 : Failed(4, command, answer.text);
}

/* The answer's value; "" when it has none. */
const char *AskValue(const Question &question, Answer *answer) {
  if (Ask(question.command, question.mark, answer) != 0) return "";
  const char *value = strstr(answer->text, question.mark);
  if (value == nullptr) return "";
  value += strlen(question.mark);
  if (question.before != 0) value = strchr(value, question.before);
  return value == nullptr || *value == '\0' ? "" : value + 1;
}

int AskFill(const Question &question, int level, int *used, int *total) {
  Answer answer;
  if (sscanf(AskValue(question, &answer), "%d,%d", used, total) == 2) return 0;
  return Failed(level, question.command, answer.text);
}

}  // namespace

bool ModemUsesMemory() { return strcmp(short_msg_state.msgStorage, "ME") == 0; }

std::string ModemSaid(std::string_view answer) {
  constexpr char kEnds[] = " \r\n";
  constexpr size_t kMost = 200;
  answer.remove_prefix(std::min(answer.find_first_not_of(kEnds), answer.size()));
  answer = answer.substr(0, kMost);
  return PrintableText(answer.substr(0, answer.find_last_not_of(kEnds) + 1));
}

/* "+CMS ERROR: 302": the number begins at the twelfth byte. A plain "ERROR" has none. */
void ModemErrorNumber(const char *answer) {
  if (strlen(answer) > 11) (void)sscanf(answer + 11, "%d", &msgResult); /* else as it is */
}

int ModemPduMode() { return Tell("AT+CMGF=0\r"); }

int ModemSelectGsm() { return Tell("'AT+CSCS=\"GSM\"'"); }

int ModemSetServiceCentre(const char *number) {
  if (!IsNumber(number, true)) {
    AMS_PRINT(4, "service centre refused, give its number: %s\n", number);
    return -1;
  }
  if (ModemSelectGsm() != 0 || Tell("AT+CSCA=\\\"%s\\\"\r", number) != 0) return -1;
  short_msg_state.SCA[0] = '\0';
  return 0;
}

void ModemReadServiceCentre() {
  if (short_msg_state.SCA[0] != '\0') return;
  Answer answer;
  std::string_view number = AskValue(kCentre, &answer);
  number = number.substr(0, number.find('"'));
  if (number.size() < sizeof short_msg_state.SCA && IsNumber(number, true))
    *std::copy(number.begin(), number.end(), short_msg_state.SCA) = '\0';
}

int ModemPhonebookFill() {
  return AskFill(kPhonebook, 4, &short_msg_state.pbUsed, &short_msg_state.pbTotal);
}

int ModemSelectStorage() {
  /* whoever needs it goes on without, to a failure of his own */
  return AskFill(ModemUsesMemory() ? kMemory : kSim, 3, &short_msg_state.used,
                 &short_msg_state.total);
}

int ModemSelectPhonebook() { return Tell("AT+CPBS=\\\"SM\\\"\r"); }

int ModemPhonebookUcs2() { return Tell("AT+CSCS=\\\"UCS2\\\"\r"); }

int ModemReadPhonebook(int first, int last, char *answer, size_t size) {
  char command[48];
  snprintf(command, sizeof command, "AT+CPBR=%d,%d\r", first, last);
  int length = AtMngrCommand(command, answer, static_cast<int>(size - 1));
  answer[length < 0 ? 0 : length] = '\0';
  if (strstr(answer, "ERROR") == nullptr) return 0;
  ModemErrorNumber(answer);
  return Failed(4, command, answer);
}

int ModemDeleteMessage(int index) { return Tell("AT+CMGD=%d\r", index); }

int ModemDeletePhonebookEntry(int index) { return Tell("AT+CPBW=%d\r", index); }

/* The empty index lets the modem choose the place. */
int ModemAddPhonebookEntry(const char *number, const char *name) {
  if (!IsNumber(number, true) || !IsHex(name)) {
    AMS_PRINT(4, "phonebook entry refused, give digits and a name as UCS2 hex digits: %s, %s\n",
              number, name);
    return -1;
  }
  if (ModemSelectPhonebook() != 0 || ModemPhonebookUcs2() != 0) return -1;
  return Tell("AT+CPBW=,\\\"%s\\\",129,\\\"%s\\\"\r", number, name);
}
