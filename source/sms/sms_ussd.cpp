// USSD commands and menus; see sms_ussd.h.
#include "sms_ussd.h"

#include <sys/sysinfo.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "ams_common_api.h"
#include "ams_config_api.h"
#include "ams_config_shell.h"
#include "file_handle.h"
#include "op_values.h"
#include "sms_cusd.h"

long short_msg_ussd_time = 0;

namespace {

constexpr char kRunResult[] = "/var/tmpUssdRunResult";
constexpr char kMenu[] = "/var/tmpUssdSelectMenu";
constexpr char kAnswer[] = "/var/tmp/urc_ussd_file"; /* by who takes the modem's own messages */
constexpr unsigned kTests = 6;
constexpr unsigned kTestPause = 5; /* s */
constexpr long kMenuLife = 61;     /* s */
constexpr size_t kAnswerRoom = 4096;

long UpTime() {
  struct sysinfo info = {};
  return sysinfo(&info) == 0 ? info.uptime : 0;
}

std::string ReadText(const char *path) {
  char text[kAnswerRoom];
  const FileHandle file(fopen(path, "re"));
  if (file == nullptr) return "";
  return std::string(text, fread(text, 1, sizeof text, file.get()));
}

void WriteText(const char *path, const std::string &text) {
  FILE *file = fopen(path, "we");
  bool written = file != nullptr && fwrite(text.data(), 1, text.size(), file) == text.size();
  if (file != nullptr && fclose(file) != 0) written = false;
  if (!written) AMS_PRINT(4, "USSD answer lost, cannot write %s: %m; make room\n", path);
}

/* "" when none came. */
std::string AwaitAnswer() {
  for (unsigned test = 0; test < kTests; ++test) {
    if (access(kAnswer, F_OK) == 0) {
      std::string text = ReadText(kAnswer);
      (void)unlink(kAnswer); /* it was just there */
      return text;
    }
    sleep(kTestPause);
  }
  return "";
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
  const FileHandle file(fopen(kMenu, "re"));
  if (file == nullptr) return menu;
  for (bool first = true; fgets(line, sizeof line, file.get()) != nullptr; first = false) {
    line[strcspn(line, "\r\n")] = '\0';
    menu += (first ? "" : "<br>") + PrintableText(line);
  }
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
  if (answer.empty())
    AMS_PRINT(4, "service code %s: no answer in %u s\n", command, kTests * kTestPause);
  if (answer.empty()) return;
  if (answer.find("CUSD:") == answer.npos) {
    WriteText(kRunResult, answer);
    return;
  }
  WriteText(kMenu, CusdText(answer));
  short_msg_ussd_time = UpTime();
}

int UssdReport() {
  if (!HasRunResult()) ExpireMenu();
  return cfgStatusSetStr("InternetGatewayDevice.Services.X_KVO_ShortMsg.USSD.Menu",
                         JoinedMenu().c_str());
}
