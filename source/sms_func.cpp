// The op functions of short messages, and the actions that they run. How messages are sent is in
// sms_send.cpp, how they are listed in sms_box.cpp.
#include "sms_func.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "ams_config_api.h"
#include "modem_at.h"
#include "sms_actions.h"

ShortMsgState shortMsgState = {};

namespace {

#define SHORT_MSG "InternetGatewayDevice.Services.X_KVO_ShortMsg."

constexpr size_t kListRoom = 25600, kContentRoom = 4096;

/* The handlers log under names of their own, which the field's log readers know. */
#define LOG_AS(name, arg)                                                       \
  AMS_PRINT(2, "%s: op: %d, path: %s, value: %s", name, (arg)->op, (arg)->path, \
            (arg)->value == nullptr ? "(null)" : (arg)->value)

/* The pieces of a list, empty ones left out. */
std::vector<std::string> Pieces(std::string_view text, char separator) {
  std::vector<std::string> pieces;
  while (!text.empty()) {
    size_t end = std::min(text.find(separator), text.size());
    if (end > 0) pieces.emplace_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return pieces;
}

/* Whether `value` asks for the leaf `name`. */
bool AsksFor(const char *value, const char *name) {
  for (const std::string &piece : Pieces(value == nullptr ? "" : value, AMS_SEPARATOR))
    if (piece == name) return true;
  return false;
}

/* ---- actions ---- */

/* -1 when it is none: 0 would be the first message of a modem, and the action that deletes. */
int NumberOf(const std::string &text) {
  if (text.empty() || text.find_first_not_of("0123456789") != text.npos) return -1;
  return static_cast<int>(std::min(strtol(text.c_str(), nullptr, 10), long{INT32_MAX}));
}

int DeleteEach(const char *list, int (*remove)(int)) {
  std::vector<std::string> pieces = Pieces(list, ',');
  for (const std::string &piece : pieces) {
    int index = NumberOf(piece);
    if (index < 0 || remove(index) != 0) return SHORTMSG_DELETE_FAILED;
  }
  return pieces.empty() ? SHORTMSG_NOTHING : SHORTMSG_DONE;
}

struct ActionArg {
  const char *argument, *content, *country;
};

/* The character set is the modem's for what follows. Where it cannot be had, the step that needs it
   fails by itself. */
void SelectGsm() { (void)ModemCharacterSet("GSM"); }

int DeleteMessage(int index) {
  if (ModemDeleteMessage(index) != 0) return -1;
  ShortMsgForget(index);
  return 0;
}

int DeleteMessages(const ActionArg &arg) { return DeleteEach(arg.argument, DeleteMessage); }

int SelectOnly(const ActionArg &) {
  SelectGsm();
  return SHORTMSG_NOTHING;
}

int Send(const ActionArg &arg) {
  SelectGsm();
  int sent = SHORTMSG_SendMessage(arg.argument, arg.content, arg.country);
  return sent == 0 ? SHORTMSG_DONE : SHORTMSG_SEND_FAILED;
}

int Store(const ActionArg &arg, int status) {
  SelectGsm();
  int stored = SHORTMSG_saveMessage(arg.argument, arg.content, arg.country, status);
  return stored == 0 ? SHORTMSG_DONE : SHORTMSG_STORE_FAILED;
}

/* Stored as sent first, so that what went out is in the outbox whatever happens then. */
int StoreAndSend(const ActionArg &arg) {
  /* It selects the storage; the counts are for whoever asks next. */
  (void)ModemStorageFill(shortMsgState.msgStorage, &shortMsgState.used, &shortMsgState.total);
  int result = Store(arg, SHORTMSG_SENT);
  if (result != SHORTMSG_DONE) return result;
  int sent = SHORTMSG_SendMessage(arg.argument, arg.content, arg.country);
  return sent == 0 ? SHORTMSG_DONE : SHORTMSG_SEND_FAILED;
}

int StoreUnsent(const ActionArg &arg) { return Store(arg, SHORTMSG_UNSENT); }

int DeletePhonebook(const ActionArg &arg) {
  return DeleteEach(arg.argument, ShortMsgPhonebookDelete);
}

int AddPhonebook(const ActionArg &arg) {
  int added = ShortMsgPhonebookAdd(arg.argument, arg.content);
  return added == 0 ? SHORTMSG_DONE : SHORTMSG_PHONEBOOK_FAILED;
}

int Nothing(const ActionArg &) { return SHORTMSG_NOTHING; }

/* A changed service centre is read again before the next send. */
int SetServiceCentre(const ActionArg &arg) {
  if (ModemSetServiceCentre(arg.argument) != 0) return SHORTMSG_CENTRE_FAILED;
  shortMsgState.SCA[0] = '\0';
  return SHORTMSG_DONE;
}

/* By action code. */
int (*const kActions[])(const ActionArg &) = {
    DeleteMessages,  DeleteMessages, DeleteMessages, DeleteMessages, SelectOnly,
    SelectOnly,      Send,           StoreAndSend,   StoreUnsent,    DeletePhonebook,
    DeletePhonebook, AddPhonebook,   Nothing,        Nothing,        SetServiceCentre,
};

/* ---- op functions ---- */

/* A list that cannot be read leaves the one that was read last; -1 when it cannot be stored. */
int ReadBox(int filter, const char *path) {
  std::string list(kListRoom, '\0');
  if (SHORTMSG_SMS_Get(filter, list.data(), list.size()) != 0) return 0;
  return cfgStatusSetStr(path, list.c_str());
}

/* The text that the request sets the leaf `name` to. False when it does not set it. */
bool SetsLeaf(const OpFuncArg *arg, const std::string &name, std::string *text) {
  if (arg->op != TMF_SET || arg->value == nullptr) return false;
  for (const std::string &piece : Pieces(arg->value, AMS_SEPARATOR))
    if (piece.compare(0, name.size() + 1, name + "=") == 0) {
      *text = piece.substr(name.size() + 1);
      return true;
    }
  return false;
}

/* Tells the result of what the request asked for. */
int Report(int result) {
  (void)ams_mxml_sset_leaf_int(SHORT_MSG "MsgResult", result); /* logged by the store */
  return result == SHORTMSG_DONE || result == SHORTMSG_NOTHING ? 0 : -1;
}

/* 0; -1 (logged) when the value may be cut: half a list of recipients has another last one. */
template <size_t N>
int ReadLeaf(const OpFuncArg *arg, const char *name, char (&value)[N]) {
  std::string path = std::string(arg->path) + "." + name;
  *value = '\0';
  (void)ams_mxml_get_leaf_value(path.c_str(), value); /* without the node it stays "" */
  if (strlen(value) < N - 1) return 0;
  AMS_PRINT(4, "%s has more than %zu bytes, nothing done: make it shorter\n", path.c_str(), N - 2);
  return -1;
}

}  // namespace

int ShortMsgAction(const char *code, const char *argument, const char *content,
                   const char *country) {
  int action = NumberOf(code);
  bool known = action >= 0 && action < static_cast<int>(std::size(kActions));
  msgResult = known ? kActions[action]({argument, content, country}) : SHORTMSG_NOTHING;
  return msgResult;
}

namespace {

/* Runs the action that the request's leaves say. */
int RunAsked(const OpFuncArg *arg, const std::string &code) {
  char argument[256], content[kContentRoom];
  if (NumberOf(code) < 0) {
    AMS_PRINT(4, "action \"%s\" refused: give the number of one\n", code.c_str());
    return -1;
  }
  if (ReadLeaf(arg, "ActionArgument", argument) != 0 ||
      ReadLeaf(arg, "ActionContent", content) != 0)
    return -1;
  return Report(ShortMsgAction(code.c_str(), argument, content, ""));
}

}  // namespace

int FuncServShortMsg(OpFuncArg *arg) {
  if (arg == nullptr) return -1;
  LOG_AS("FuncHandleShortMsg", arg);
  int result = 0;
  std::string text;
  if (arg->op == TMF_GET && AsksFor(arg->value, "MsgInbox"))
    result = ReadBox(0, SHORT_MSG "MsgInbox");
  if (arg->op == TMF_GET && AsksFor(arg->value, "MsgOutbox"))
    result |= ReadBox(1, SHORT_MSG "MsgOutbox");
  if (SetsLeaf(arg, "DelIdx", &text)) return Report(ShortMsgAction("3", text.c_str(), "", ""));
  return SetsLeaf(arg, "ActionCode", &text) ? RunAsked(arg, text) : result;
}

/* One recipient's failure does not keep the message from the others; it is the result. */
int FuncServShortMsgSend(OpFuncArg *arg) {
  if (arg == nullptr) return -1;
  LOG_AS("FuncHandleShortMsgSend", arg);
  if (arg->op != TMF_SET) return 0;
  char country[32], recipients[1024], content[kContentRoom];
  if (ReadLeaf(arg, "MsgCountryCode", country) != 0 || ReadLeaf(arg, "MsgTo", recipients) != 0 ||
      ReadLeaf(arg, "MsgContent", content) != 0)
    return -1;
  int result = SHORTMSG_NOTHING;
  for (const std::string &recipient : Pieces(recipients, ';')) {
    int sent = ShortMsgAction("7", recipient.c_str(), content, country);
    if (result == SHORTMSG_NOTHING || result == SHORTMSG_DONE) result = sent;
  }
  return Report(result);
}

int FuncServShortMsgUssdSend(OpFuncArg *arg) {
  if (arg == nullptr) return -1;
  LOG_AS("FuncServShortMsgUssdSend", arg);
  if (arg->op == TMF_GET) return UssdReport();
  std::string command;
  if (SetsLeaf(arg, "Command", &command)) UssdSend(command.c_str());
  return 0;
}
