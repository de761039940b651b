// Calls about what is around the gateway: its processes and lamps, the front panel's keys, the
// modem's network, the version manager and its image server.
#include <algorithm>
#include <climits>
#include <cstring>
#include <fstream>

#include "ams_store.h"
#include "appt_request.h"
#include "log_file.h"
#include "modem_control.h"
#include "panel_http.h"
#include "panel_program.h"
#include "panel_watch.h"
#include "requests.h"
#include "sms_pdu.h"
#include "tds_desk.h"
#include "vermgt_image.h"

namespace {

constexpr char kKeys[] = "/var/devkit/keys";
constexpr char kButtons[] = "sysmgr:button_proc";
constexpr uint32_t kKeyEvent = 0x100051;
constexpr size_t kKeyWords = 5; /* of a record: line, event, on press, trigger time, abandon time */
constexpr size_t kKeysMax = 64;
constexpr char kImages[] = "/var/www/";

Json Done() { return ControlReply(EXIT_DONE, ""); }

Json State(const Json &) {
  Json reply = Done();
  reply["processes"] = WatchProcesses();
  reply["lamps"] = WatchLamps();
  return reply;
}

Json Run(const std::vector<std::string> &words) {
  if (RunProgram(words, nullptr) == 0) return Done();
  return ControlReply(EXIT_REFUSED, words[0] + " failed: /var/log/devkit/panel.log says why");
}

/* "name", "act": start, stop or restart. */
Json Process(const Json &asked) {
  const std::string name = asked.at("name"), act = asked.at("act");
  if (!WatchProcesses().contains(name) || (act != "start" && act != "stop" && act != "restart"))
    return ControlReply(EXIT_USAGE, "start, stop or restart one of the gateway's processes");
  return Run({"gateway-daemon", act, name});
}

/* ---- keys ---- */

/* The board's names of the driver's events: lines "MSG_MONITOR_EVT_NAME=1". */
std::string NameOfEvent(int32_t event) {
  std::ifstream file("/usr/syscfg/key_event.sh");
  constexpr char kBegin[] = "MSG_MONITOR_EVT_";
  for (std::string line; std::getline(file, line);) {
    const size_t equals = line.find('=');
    if (line.compare(0, sizeof kBegin - 1, kBegin) == 0 && equals != line.npos &&
        line.substr(equals + 1) == std::to_string(event))
      return line.substr(sizeof kBegin - 1, equals - sizeof kBegin + 1);
  }
  return "";
}

/* What the key driver was told at the daemon's start. */
Json Keys(const Json &) {
  const std::string bytes = AppendedSince(kKeys, 0, kKeysMax * kKeyWords * sizeof(int32_t));
  Json reply = Done(), list = Json::array();
  int32_t words[kKeyWords];
  for (size_t at = 0; at + sizeof words <= bytes.size(); at += sizeof words) {
    memcpy(words, bytes.data() + at, sizeof words);
    list.push_back({{"line", words[0]},
                    {"event", words[1]},
                    {"name", NameOfEvent(words[1])},
                    {"on_press", words[2] != 0},
                    {"trigger", words[3]},
                    {"abandon", words[4]}});
  }
  reply["keys"] = std::move(list);
  return reply;
}

/* The driver's event of a key. */
Json Press(const Json &asked) {
  const int32_t message[] = {0, ControlNumber(asked, "event", INT_MIN)};
  if (message[1] == INT_MIN) return ControlReply(EXIT_USAGE, "\"event\" is a key's number");
  if (SendMsg(kKeyEvent, message, sizeof message, kButtons) == 0) return Done();
  return ControlReply(EXIT_REFUSED, std::string(kButtons) + " takes no message: does sysmgr run?");
}

/* ---- modem ---- */

/* Whom a message is from or for, and its text. */
void AddText(Json *message, int stat) {
  ShortMsgParam record = {};
  ShortMsgEntry entry = {};
  char text[SHORTMSG_TEXT_SIZE];
  record.stat = static_cast<int16_t>(stat);
  PduDecode(message->at("pdu").get<std::string>().c_str(), &record, &entry, text);
  (*message)["text"] = text;
  (*message)["number"] = record.TPA;
  (*message)["time"] = record.TP_SCTS;
  (*message)["part"] = {std::string(entry.concatRef), entry.concatSeq, entry.concatTotal};
}

void AddTexts(Json *state) {
  for (Json &message : state->at("sent")) AddText(&message, SHORTMSG_SENT);
  for (auto &[name, storage] : state->at("storages").items())
    for (Json &message : storage.at("messages")) AddText(&message, message.at("status").get<int>());
}

/* The body is what modemctl would ask. */
Json AskModem(const Json &asked) {
  Json reply = ControlAsk(kModemSocket, asked, 5);
  if (reply.is_null())
    return ControlReply(EXIT_NO_ANSWER, "the modem's simulator does not answer: start modem");
  if (reply.contains("state")) AddTexts(&reply["state"]);
  return reply;
}

/* ---- firmware ---- */

/* The body is what vermgtctl would ask. */
Json VersionManager(const Json &asked) {
  std::string bytes;
  const Outcome outcome = Call(kVersionManager, VERSION_CONTROL, ControlBytes(asked), 5000, &bytes);
  if (outcome.status != EXIT_DONE) return ControlReply(outcome.status, outcome.text);
  Json reply = ControlReplyIn(bytes.c_str());
  return reply.is_null() ? ControlReply(EXIT_NO_ANSWER, "the version manager's answer is damaged")
                         : reply;
}

/* Puts an image with this "text" on the server, which starts if it does not run; "damaged" ones are
   refused by the version manager. */
Json Image(const Json &asked) {
  const std::string name = asked.at("name"), text = asked.at("text");
  if (name.empty() || name.size() > 64 || name[0] == '.' || name.find('/') != name.npos)
    return ControlReply(EXIT_USAGE, "a file name of 1 to 64 bytes without \"/\", please");
  Json reply = Run({"image-server", "start", "desk", "desk"});
  if (reply["status"] != EXIT_DONE) return reply;
  std::string image = ImageOf(text.empty() ? "firmware" : text), why;
  if (asked.value("damaged", false)) image.back() ^= 1;
  if (ImageWrite((kImages + name).c_str(), image, &why) != 0)
    return ControlReply(EXIT_REFUSED, why);
  return reply;
}

}  // namespace

const PanelCall kDeskCalls[] = {
    {"state", State},    {"process", Process},       {"keys", Keys},   {"press", Press},
    {"modem", AskModem}, {"vermgt", VersionManager}, {"image", Image}, {},
};
