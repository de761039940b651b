// What the tests of short messages share: the gateway's data model and the modem behind the shell.
#pragma once

#include <filesystem>
#include <fstream>
#include <map>

#include "capabinfo_thread.h"
#include "modem_at.h"
#include "modem_route.h"
#include "services_func.h"
#include "sms_actions.h"
#include "sms_box.h"
#include "sms_func.h"
#include "sms_phonebook.h"
#include "sms_send.h"
#include "sms_ussd.h"
#include "support.h"

namespace fs = std::filesystem;

#define SHORT_MSG "InternetGatewayDevice.Services.X_KVO_ShortMsg"

inline void WriteText(const std::string &path, const std::string &text) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

/* Stands for the modem: answers by the first key that a line holds. */
class ShortMsg : public GatewayTest {
 protected:
  void SetUp() override {
    GatewayTest::SetUp();
    for (const char *file :
         {"/var/atcmd_lock", "/var/atresult_1", "/var/atTmpResult", "/var/tmp/runCPMSFlag",
          "/var/atresult_msg", "/var/tmpUssdRunResult", "/var/tmpUssdSelectMenu", "/var/nanocom",
          "/var/tmp/urc_ussd_file", "/var/sms_debug", "/var/sms_log", "/dev/ttyUSB3"})
      fs::remove(file);
    short_msg_state = {};
    short_msg_ussd_time = 0;
    msgResult = 0;
    answers_.clear();
    WriteText("/var/tmp/devinfo", "2c7c 0125\n");
    WriteText("/dev/ttyUSB3", ""); /* locks as a tty does; its queues are not there */
    OnSystem([this](const std::string &line) { Leave(line); });
  }

  /* The queries' answers, by a piece of the line; "OK" for any other. */
  std::map<std::string, std::string> answers_;

 private:
  void Leave(const std::string &line) {
    if (line.find("nanocom") != line.npos) WriteText("/var/atresult_1", Answer("nanocom"));
    if (line.find("sms_getmsg") != line.npos) WriteText("/var/atresult_msg", Answer("sms_getmsg"));
    if (line.find("echo 1 >") != line.npos) WriteText("/var/tmp/runCPMSFlag", "1\n");
    if (line.find(" > /var/atTmpResult") != line.npos) WriteText("/var/atTmpResult", Answer(line));
    if (line.find("AT+CUSD=1") != line.npos && answers_.count("urc") == 1)
      WriteText("/var/tmp/urc_ussd_file", answers_["urc"]);
  }

  std::string Answer(const std::string &line) {
    for (const auto &[piece, answer] : answers_)
      if (line.find(piece) != line.npos) return answer;
    return "OK\r\n";
  }
};

#define AT(command) "at-mngr " command " > /var/atTmpResult"

constexpr char kGsm[] = AT("'AT+CSCS=\"GSM\"'"), kPduMode[] = AT("AT+CMGF=0\r");
constexpr char kReadCentre[] = AT("AT+CSCA?\r"), kUcs2[] = AT("AT+CSCS=\\\"UCS2\\\"\r");
constexpr char kSimStorage[] = AT("AT+CPMS=\\\"SM\\\",\\\"SM\\\",\\\"SM\\\"\r");
constexpr char kSimBook[] = AT("AT+CPBS=\\\"SM\\\"\r"), kBook[] = AT("AT+CPBS?\r");

inline int Set(const std::string &value) {
  return RunOp(kCapabInfoFuncTable, "FuncServShortMsg", TMF_SET, SHORT_MSG, value.c_str());
}
