// The modem's answers: any bytes where at-mngr, nanocom and the scripts leave what the modem said.
// The first byte tells who asks, the rest are the answers, one to each question; the last one to
// all that follow.
#include "ams_common_api.h"
#include "modem_at.h"
#include "modem_route.h"
#include "serve.h"
#include "sms_box.h"
#include "sms_phonebook.h"
#include "sms_send.h"
#include "sms_text.h"
#include "sms_ussd.h"

namespace {

constexpr char kDeviceInfo[] = "/var/tmp/devinfo";
constexpr char kAnswerEnd = '\xFE'; /* no modem has it in a text */
std::string_view answers;
int filter; /* of a list */

/* What the commands leave, in place of the shell. */
constexpr struct {
  const char *command, *file;
} kLeft[] = {{"AT+CUSD=1", "/var/tmp/urc_ussd_file"},
             {"> /var/atTmpResult", "/var/atTmpResult"},
             {"sms_getmsg.sh", "/var/atresult_msg"},
             {"nanocom", "/var/atresult_1"}};

/* What the daemon itself keeps from one question to the next. */
constexpr const char *kKept[] = {"/var/tmp/runCPMSFlag", "/var/tmpUssdRunResult",
                                 "/var/tmpUssdSelectMenu"};

void Fill() {
  ShortMsgState &state = short_msg_state;
  state.used = state.total = state.pbUsed = state.pbTotal = -7;
  if (ModemPhonebookFill() != 0)
    Check(state.pbUsed == -7 || state.pbTotal == -7, "a refusal has numbers");
  (void)ModemSelectStorage(); /* either will do */
  (void)ModemDeleteMessage(1);
}

void Centre() {
  ModemReadServiceCentre();
  CheckTexts(short_msg_state.SCA);
  Check(short_msg_state.SCA[0] == '\0' || IsNumber(short_msg_state.SCA, true),
        "the service centre is no number");
}

void Phonebook() {
  char *text = nullptr;
  size_t size = 0;
  FILE *out = open_memstream(&text, &size);
  int result = ShortMsgPhonebookList(out);
  fclose(out);
  Check(result != 0 || std::string_view(text).substr(size - 3) == "|,|", "the list breaks off");
  free(text);
}

void Inbox() {
  char text[4096];
  memset(text, 'z', sizeof text); /* what stays of it is not terminated */
  if (SHORTMSG_SMS_Get(filter, text, sizeof text) != 0) return;
  CheckTexts(text);
  Check(text[0] == '\0' || std::string_view(text).substr(strlen(text) - 3) == "|,|",
        "the last record is cut");
  for (const char *at = text; *at != '\0'; ++at) /* cmgl_fuzz looks at what a page must not get */
    Check(static_cast<uint8_t>(*at) >= 0x20 && *at != 0x7F, "a character that the store refuses");
}

void ServiceCode() {
  UssdSend("*100#");
  (void)UssdReport(); /* there is no leaf to take the menu */
}

void Send(const std::string &text) {
  PutFile(kDeviceInfo, "2c7c 0125"); /* its tty is a file: it is opened for its lock alone */
  (void)SHORTMSG_SendMessage("13800138000", text.c_str(), "86");
}
void SendShort() { Send("text"); }
void SendLong() { Send(std::string(300, 'x')); }

/* The hot-plug scripts tell which modem there is. */
void Device() {
  char path[128];
  memset(path, 'z', sizeof path);
  PutFile(kDeviceInfo, TakePiece(&answers, kAnswerEnd));
  path[0] = '\0';
  ModemDevicePath(path);
  CheckTexts(path);
  Check(path[0] == '\0' || strncmp(path, "/dev/tty", 8) == 0, "a device that is no modem's");
}

}  // namespace

WRAPPED(int, system, const char *line) {
  for (const auto &left : kLeft) {
    if (strstr(line, left.command) == nullptr) continue;
    std::string_view rest = answers, answer = TakePiece(&rest, kAnswerEnd);
    PutFile(left.file, answer);
    if (!rest.empty()) answers = rest;
    break;
  }
  return 0;
}
WRAPPED(int, usleep, useconds_t) { return 0; }
WRAPPED(unsigned, sleep, unsigned seconds) { return SleepOfOthers(seconds); }
WRAPPED(void, tds_delay, uint32_t) {}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  Serve(); /* without a tree: no leaf is there */
  stdout = Nowhere();
  PutFile("/dev/ttyUSB3", "");
  return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  void (*const asked[])() = {Fill,        Centre,    Phonebook, Inbox,
                             ServiceCode, SendShort, Device,    SendLong};
  short_msg_state = {};
  answers = TextOf(data + 1, size - 1);
  filter = data[0] / 8 % 4;
  asked[data[0] % 8]();
  for (const auto &left : kLeft) (void)unlink(left.file); /* most are gone already */
  for (const char *kept : kKept) (void)unlink(kept);
  return 0;
}
