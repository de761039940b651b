// The op functions of short messages; see sms_func.h. What they have done is in sms/.
#include "sms_func.h"

#include <string>
#include <string_view>

#include "ams_config_api.h"
#include "leaf_list.h"
#include "modem_at.h"
#include "op_values.h"
#include "sms_actions.h"
#include "sms_box.h"
#include "sms_ussd.h"

namespace {

#define SHORT_MSG "InternetGatewayDevice.Services.X_KVO_ShortMsg."

constexpr size_t kListRoom = 25600, kContentRoom = 4096;

/* A list that cannot be read leaves the one that was read last; -1 when it cannot be stored. */
int ReadBox(int filter, const char *path) {
  std::string list(kListRoom, '\0');
  if (SHORTMSG_SMS_Get(filter, list.data(), list.size()) != 0) return 0;
  return cfgStatusSetStr(path, list.c_str());
}

/* Whether the request asks for the leaf `name`. */
bool AsksFor(const OpFuncArg *arg, std::string_view name) {
  std::string_view list = arg->op == TMF_GET && arg->value != nullptr ? arg->value : "";
  for (Leaf leaf; NextLeaf(&list, &leaf);)
    if (!leaf.has_value && leaf.name == name) return true;
  return false;
}

/* The text that the request sets the leaf `name` to. False when it does not set it. */
bool SetsLeaf(const OpFuncArg *arg, std::string_view name, std::string *text) {
  std::string_view list = arg->op == TMF_SET && arg->value != nullptr ? arg->value : "";
  for (Leaf leaf; NextLeaf(&list, &leaf);)
    if (leaf.has_value && leaf.name == name) {
      *text = leaf.value;
      return true;
    }
  return false;
}

/* Tells the result of what the request asked for. */
int Report(int result) {
  (void)ams_mxml_sset_leaf_int(SHORT_MSG "MsgResult", result); /* logged by the store */
  return result == SHORTMSG_DONE || result == SHORTMSG_NOTHING ? 0 : -1;
}

/* Half a list of recipients has another last one, so a value that would be cut is refused: 0, or -1
   (logged). Without the node `value` is empty. */
template <size_t N>
int ReadLeaf(const OpFuncArg *arg, const char *name, char (&value)[N]) {
  *value = '\0';
  return LeafText((std::string(arg->path) + "." + name).c_str(), value);
}

/* Runs the action that the request's leaves say. */
int RunAsked(const OpFuncArg *arg, const std::string &text) {
  char argument[256], content[kContentRoom];
  int code = ShortMsgNumber(text);
  if (code < 0) {
    AMS_PRINT(4, "action \"%s\" refused: give the number of one\n", text.c_str());
    return -1;
  }
  if (ReadLeaf(arg, "ActionArgument", argument) != 0 ||
      ReadLeaf(arg, "ActionContent", content) != 0)
    return -1;
  return Report(ShortMsgAction(code, argument, content, ""));
}

}  // namespace

const OpForm kShortMsg = {__FILE__, __LINE__, -1, "FuncHandleShortMsg", ""};
const OpForm kShortMsgSend = {__FILE__, __LINE__, -1, "FuncHandleShortMsgSend", ""};
const OpForm kShortMsgUssdSend = {__FILE__, __LINE__, -1, nullptr, ""};

int FuncServShortMsg(OpFuncArg *arg) {
  int result = 0;
  std::string text;
  if (AsksFor(arg, "MsgInbox")) result = ReadBox(0, SHORT_MSG "MsgInbox");
  if (AsksFor(arg, "MsgOutbox")) result |= ReadBox(1, SHORT_MSG "MsgOutbox");
  if (SetsLeaf(arg, "DelIdx", &text))
    return Report(ShortMsgAction(ACTION_DELETE, text.c_str(), "", ""));
  return SetsLeaf(arg, "ActionCode", &text) ? RunAsked(arg, text) : result;
}

/* One recipient's failure does not keep the message from the others; it is the result. */
int FuncServShortMsgSend(OpFuncArg *arg) {
  if (arg->op != TMF_SET) return 0;
  char country[32], recipients[1024], content[kContentRoom];
  if (ReadLeaf(arg, "MsgCountryCode", country) != 0 || ReadLeaf(arg, "MsgTo", recipients) != 0 ||
      ReadLeaf(arg, "MsgContent", content) != 0)
    return -1;
  int result = SHORTMSG_NOTHING;
  for (const std::string &recipient : ShortMsgPieces(recipients, ';')) {
    int sent = ShortMsgAction(ACTION_STORE_AND_SEND, recipient.c_str(), content, country);
    if (result == SHORTMSG_NOTHING || result == SHORTMSG_DONE) result = sent;
  }
  return Report(result);
}

int FuncServShortMsgUssdSend(OpFuncArg *arg) {
  if (arg->op == TMF_GET) return UssdReport();
  std::string command;
  if (SetsLeaf(arg, "Command", &command)) UssdSend(command.c_str());
  return 0;
}
