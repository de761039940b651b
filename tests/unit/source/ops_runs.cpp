// The functions that case files run by name; tests/data/ops/README.md tells their arguments.
#include "ops_runs.h"

#include <cstdio>
#include <sstream>

#include "ams_config_path.h"
#include "ams_config_util.h"
#include "appt_dispatch.h"
#include "download_func.h"
#include "mgtsrvr_func.h"
#include "modem_at.h"
#include "sms_box.h"
#include "sms_phonebook.h"
#include "support.h"
#include "voip_path.h"
#include "webserver_func.h"

namespace {

/* COMMAND URL [VALUE]; without a command there is no request. */
int Call(int (*call)(MsgArg *), const std::string &arguments) {
  uint32_t command = 0;
  std::string url, value;
  std::istringstream(arguments) >> command >> url >> value;
  const std::string frame = RequestFrame(7, command, url);
  MsgArg arg = {};
  if (command != 0) arg.raw = reinterpret_cast<const uint8_t *>(frame.data());
  arg.url = url.c_str();
  arg.value = value.empty() ? nullptr : value.c_str();
  return call(&arg);
}

/* The modem's error and the numbers that it gave. */
int Told(int result, int used, int total) {
  printf("%d %d %d\n", msgResult, used, total);
  return result;
}

int Storage(const std::string &name) {
  ShortMsgState &state = short_msg_state;
  snprintf(state.msgStorage, sizeof state.msgStorage, "%s", name.c_str());
  const int result = ModemSelectStorage();
  return Told(result, state.used, state.total);
}

/* FILTER SIZE; behind the counts stands the list. */
int Box(const std::string &arguments) {
  int filter = 0;
  size_t size = 0;
  std::istringstream(arguments) >> filter >> size;
  std::string text(size, 'x');
  const int result = SHORTMSG_SMS_Get(filter, text.data(), size);
  const ShortMsgCounts &counts = short_msg_counts;
  printf("%d %d %d: %s\n", counts.received, counts.sent, counts.unsent, text.c_str());
  return result;
}

/* The last number, all of them, the connection's name. */
int Path(const std::string &path) {
  char name[16] = "";
  int32_t indexes[8];
  const int count = cfgPathIndexes(path.c_str(), indexes);
  printf("%d:", cfgPathLastIndex(path.c_str()));
  for (int at = 0; at < count; ++at) printf(" %d", indexes[at]);
  const int result = cfgWanConnName(path.c_str(), name);
  printf(" %s\n", name);
  return result;
}

/* FLAG NAME PATH; the path has room for 31 bytes. */
int Cut(const std::string &arguments) {
  int flag = 0;
  std::string name, text;
  char path[32];
  std::istringstream(arguments) >> flag >> name >> text;
  snprintf(path, sizeof path, "%s", text.c_str());
  const int result = cfgPathCut(path, name.c_str(), flag);
  puts(path);
  return result;
}

int Hex(const std::string &text) {
  char hex[9] = "as it is";
  const int result = cfgHexEncode(text.c_str(), hex);
  puts(hex);
  return result;
}

int Key(const std::string &file) {
  char value[16] = "old";
  const int result = cfgFileKeyGet(file.c_str(), "KEY=", value);
  puts(value);
  return result;
}

int WanRules(const std::string &) {
  return cfgWanRulesParse(0, "wan1", 0, "x") | cfgWanRulesParse(7, "wan1", -1, "x") |
         cfgWanRulesParseWhole(0, "wan2", "y") | cfgWanRulesClean(0, "wan1") |
         cfgWanRulesClean(1, "wan1") | cfgWanRulesApply(0, "wan1", "z") |
         cfgWanRulesApply(1, "wan1", nullptr);
}

int SaveNothing(const std::string &) {
  SaveNodeWANPath("A", 1);
  SaveNodeWANPath("\3", 2); /* no value has this byte */
  DelNodeWANPath(nullptr, 2);
  return 0;
}

int DownloadImage(const std::string &) {
  const int failed = tr069_download_image_thread(nullptr) != nullptr;
  AMS_PrintThreadModule("default"); /* as before: it is a thread of its own */
  return failed;
}

int PhonebookFill(const std::string &) {
  const int result = ModemPhonebookFill();
  return Told(result, short_msg_state.pbUsed, short_msg_state.pbTotal);
}

}  // namespace

const OpsRun kOpsRuns[] = {
    {"address", [](const std::string &text) { return cfgIsIpv4Addr(text.c_str()); }},
    {"array", [](const std::string &words) { return Call(appt_Do_Array, words); }},
    {"box", Box},
    {"cut", Cut},
    {"download", DownloadImage},
    {"drop", [](const std::string &file) { return cfgFileDropLines(file.c_str(), "abc"); }},
    {"hex", Hex},
    {"key", Key},
    {"nand", [](const std::string &) { return cfgFlashIsNand(); }},
    {"object", [](const std::string &words) { return Call(appt_Do_Obj_NoData, words); }},
    {"object-data", [](const std::string &words) { return Call(appt_Do_Obj_Data, words); }},
    {"op", [](const std::string &words) { return Call(appt_Do_OpFunc, words); }},
    {"path", Path},
    {"phonebook", [](const std::string &) { return ShortMsgPhonebookList(stdout); }},
    {"phonebook-fill", PhonebookFill},
    {"save", SaveNothing},
    {"storage", Storage},
    {"voice", [](const std::string &) { return VoipStart(), 0; }},
    {"wan-rules", WanRules},
    {"web-restart",
     [](const std::string &) {
       return WebServerRestart({2, {8080, 8081}}), 0;
     }},
    {nullptr, nullptr},
};
