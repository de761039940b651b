// The op functions of short messages, and the actions that they run. How messages are sent is in
// sms_send.cpp, how they are listed in sms_box.cpp.
#include "sms_func.h"

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

/* One index of a list, -1 when it is none: 0 would be the first message of a modem. */
int IndexOf(const std::string &text) {
  if (text.find_first_not_of("0123456789") != text.npos || text.size() > 6) return -1;
  return atoi(text.c_str());
}

int DeleteEach(const char *list, int (*remove)(int)) {
  std::vector<std::string> pieces = Pieces(list, ',');
  for (const std::string &piece : pieces) {
    int index = IndexOf(piece);
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

int DeleteMessages(const ActionArg &arg) { return DeleteEach(arg.argument, ModemDeleteMessage); }

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

void ReadBox(int filter, const char *path) {
  std::string list(kListRoom, '\0');
  if (SHORTMSG_SMS_Get(filter, list.data(), list.size()) == 0)
    (void)cfgStatusSetStr(path, list.c_str()); /* logged by the store */
}

/* Text behind `mark` in the request's value, up to the next leaf. */
std::string Behind(const char *value, const char *mark) {
  const char *found = value == nullptr ? nullptr : strstr(value, mark);
  if (found == nullptr) return "";
  found += strlen(mark);
  return std::string(found, strcspn(found, "\x03"));
}

int RunAction(const char *code, const std::string &argument, const char *content,
              const char *country) {
  int result = ShortMsgAction(code, argument.c_str(), content, country);
  (void)ams_mxml_sset_leaf_int(SHORT_MSG "MsgResult", result); /* logged by the store */
  return result == SHORTMSG_DONE || result == SHORTMSG_NOTHING ? 0 : -1;
}

template <size_t N>
void ReadLeaf(const OpFuncArg *arg, const char *name, char (&value)[N]) {
  std::string path = std::string(arg->path) + "." + name;
  if (ams_mxml_get_leaf_value(path.c_str(), value) != 0) *value = '\0';
}

}  // namespace

int ShortMsgAction(const char *code, const char *argument, const char *content,
                   const char *country) {
  int action = atoi(code);
  bool known = action >= 0 && action < static_cast<int>(std::size(kActions));
  msgResult = known ? kActions[action]({argument, content, country}) : SHORTMSG_NOTHING;
  return msgResult;
}

namespace {

/* Runs the action that the request's leaves say. */
int RunAsked(const OpFuncArg *arg) {
  char argument[256], content[kContentRoom];
  ReadLeaf(arg, "ActionArgument", argument);
  ReadLeaf(arg, "ActionContent", content);
  return RunAction(Behind(arg->value, "ActionCode=").c_str(), argument, content, "");
}

bool Sets(const OpFuncArg *arg, const char *leaf) {
  return arg->op == TMF_SET && arg->value != nullptr && strstr(arg->value, leaf) != nullptr;
}

}  // namespace

/* A list that cannot be read leaves the one that was read last. */
int FuncServShortMsg(OpFuncArg *arg) {
  if (arg == nullptr) return -1;
  LOG_AS("FuncHandleShortMsg", arg);
  if (arg->op == TMF_GET && AsksFor(arg->value, "MsgInbox")) ReadBox(0, SHORT_MSG "MsgInbox");
  if (arg->op == TMF_GET && AsksFor(arg->value, "MsgOutbox")) ReadBox(1, SHORT_MSG "MsgOutbox");
  if (Sets(arg, "DelIdx")) return RunAction("3", Behind(arg->value, "DelIdx="), "", "");
  return Sets(arg, "ActionCode=") ? RunAsked(arg) : 0;
}

/* One recipient's failure does not keep the message from the others. */
int FuncServShortMsgSend(OpFuncArg *arg) {
  if (arg == nullptr) return -1;
  LOG_AS("FuncHandleShortMsgSend", arg);
  if (arg->op != TMF_SET) return 0;
  char country[32], recipients[1024], content[kContentRoom];
  ReadLeaf(arg, "MsgCountryCode", country);
  ReadLeaf(arg, "MsgTo", recipients);
  ReadLeaf(arg, "MsgContent", content);
  int result = 0;
  for (const std::string &recipient : Pieces(recipients, ';'))
    if (RunAction("7", recipient, content, country) != 0) result = -1;
  return result;
}

int FuncServShortMsgUssdSend(OpFuncArg *arg) {
  if (arg == nullptr) return -1;
  LOG_AS("FuncServShortMsgUssdSend", arg);
  if (arg->op == TMF_GET) UssdReport();
  if (arg->op == TMF_SET) UssdSend(Behind(arg->value, "Command=").c_str());
  return 0;
}
