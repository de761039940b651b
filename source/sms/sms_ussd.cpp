// USSD commands and menus; see sms_ussd.h.
#include "sms_ussd.h"

#include <sys/sysinfo.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "ams_common_api.h"
#include "ams_config_api.h"
#include "ams_config_shell.h"
#include "op_values.h"
#include "sms_text.h"

long short_msg_ussd_time = 0;

namespace {

constexpr char kRunResult[] = "/var/tmpUssdRunResult";
constexpr char kMenu[] = "/var/tmpUssdSelectMenu";
constexpr char kAnswer[] = "/var/tmp/urc_ussd_file"; /* by who takes the modem's own messages */
constexpr int kTests = 6;
constexpr unsigned kTestPause = 5; /* s */
constexpr long kMenuLife = 61;     /* s */
constexpr size_t kAnswerRoom = 4096;

long UpTime() {
  struct sysinfo info = {};
  return sysinfo(&info) == 0 ? info.uptime : 0;
}

std::string ReadText(const char *path) {
  char text[kAnswerRoom];
  FILE *file = fopen(path, "re");
  if (file == nullptr) return "";
  size_t length = fread(text, 1, sizeof text, file);
  fclose(file);
  return std::string(text, length);
}

void WriteText(const char *path, const std::string &text) {
  FILE *file = fopen(path, "we");
  bool written = file != nullptr && fwrite(text.data(), 1, text.size(), file) == text.size();
  if (file != nullptr && fclose(file) != 0) written = false;
  if (!written) AMS_PRINT(4, "USSD answer lost, cannot write %s: %m; make room\n", path);
}

/* "" when none came. */
std::string AwaitAnswer() {
  for (int test = 0; test < kTests; ++test) {
    if (access(kAnswer, F_OK) == 0) {
      std::string text = ReadText(kAnswer);
      (void)unlink(kAnswer); /* it was just there */
      return text;
    }
    sleep(kTestPause);
  }
  return "";
}

/* ---- +CUSD: 1,"TEXT",DCS ---- */

enum Coding { CODING_PLAIN, CODING_7BIT, CODING_8BIT, CODING_UCS2 };

/* Data coding of the cell broadcast kind, as modems give it. */
Coding CodingOf(int dcs) {
  int low = dcs & 0x0f;
  if (dcs == 17 || (low >= 8 && low <= 11)) return CODING_UCS2;
  if (dcs == 1) return CODING_PLAIN;
  if (dcs == 15 || (low >= 1 && low <= 3)) return CODING_7BIT;
  return low >= 4 && low <= 7 ? CODING_8BIT : CODING_PLAIN;
}

std::string Decode(const std::string &digits, int dcs) {
  uint8_t bytes[kAnswerRoom];
  char text[2 * kAnswerRoom] = "";
  Coding coding = CodingOf(dcs);
  if (coding == CODING_PLAIN) return digits;
  size_t length = static_cast<size_t>(HexToBytes(digits.c_str(), bytes, digits.size()));
  if (coding == CODING_8BIT) return std::string(reinterpret_cast<char *>(bytes), length);
  if (coding == CODING_UCS2)
    Ucs2ToUtf8(bytes, text, length);
  else
    Decode7bit(bytes, text, length, length * 8 / 7);
  return text;
}

/* The text between the first quote and the next one with a comma behind it; quotes inside stay. */
std::string MenuOf(const std::string &answer) {
  size_t start = answer.find('"');
  size_t end = start == answer.npos ? start : answer.find("\",", start + 1);
  if (end == answer.npos) return "";
  return Decode(answer.substr(start + 1, end - start - 1), atoi(answer.c_str() + end + 2));
}

/* ---- the menu ---- */

/* A command that failed is told apart from one that did not, and that is all: nobody reads the
   word, and none is to be invented. It keeps a menu from expiring while the result is there. */
bool HasRunResult() {
  if (access(kRunResult, F_OK) != 0) return false;
  std::string result = ReadText(kRunResult);
  bool success = result.find("OK") != result.npos || result.find("ok") != result.npos;
  AMS_PRINT(1, "USSD command: %s\n", success ? "Success" : "Fail");
  return true;
}

void ExpireMenu() {
  if (access(kMenu, F_OK) != 0 || short_msg_ussd_time == 0) return;
  if (UpTime() - short_msg_ussd_time < kMenuLife) return;
  (void)unlink(kMenu); /* either may be missing */
  (void)unlink(kRunResult);
}

/* The menu's lines with "<br>" between them. */
std::string JoinedMenu() {
  char line[256];
  std::string menu;
  FILE *file = fopen(kMenu, "re");
  if (file == nullptr) return menu;
  for (bool first = true; fgets(line, sizeof line, file) != nullptr; first = false) {
    line[strcspn(line, "\r\n")] = '\0';
    menu += (first ? "" : "<br>") + PrintableText(line);
  }
  fclose(file);
  return menu.substr(0, kAnswerRoom - 1);
}

}  // namespace

void UssdSend(const char *command) {
  if (*command == '\0') return;
  (void)unlink(kRunResult); /* of the command before; there may be none */
  if (strcmp(command, "cancel") == 0) {
    cfgSystemCmd("at-mngr 'AT+CUSD=2'");
    return;
  }
  (void)unlink(kAnswer); /* a late answer to another command must not be taken for this one's */
  cfgSystemCmd("at-mngr 'AT+CSCS=\"GSM\"'");
  cfgSystemCmd("at-mngr 'AT+CUSD=1,\"%s\",15' > /var/tmpValue1", command);
  std::string answer = AwaitAnswer();
  if (answer.empty()) return;
  if (answer.find("CUSD:") == answer.npos) {
    WriteText(kRunResult, answer);
    return;
  }
  WriteText(kMenu, MenuOf(answer));
  short_msg_ussd_time = UpTime();
}

int UssdReport() {
  if (!HasRunResult()) ExpireMenu();
  return cfgStatusSetStr("InternetGatewayDevice.Services.X_KVO_ShortMsg.USSD.Menu",
                         JoinedMenu().c_str());
}
