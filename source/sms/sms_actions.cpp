// The actions of short messages, a row each; see sms_actions.h.
#include "sms_actions.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iterator>

#include "modem_at.h"
#include "sms_box.h"
#include "sms_phonebook.h"
#include "sms_send.h"

namespace {

/* -1 when it is none: 0 would be the first message of a modem, and the action that deletes. */
int NumberOf(const std::string &text) {
  if (!IsNumber(text, false)) return -1;
  return static_cast<int>(std::min(strtol(text.c_str(), nullptr, 10), long{INT32_MAX}));
}

int DeleteEach(const char *list, int (*remove)(int)) {
  std::vector<std::string> pieces = ShortMsgPieces(list, ',');
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
void SelectGsm() { (void)ModemSelectGsm(); }

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
  (void)ModemSelectStorage();
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
  int added = ModemAddPhonebookEntry(arg.argument, arg.content);
  return added == 0 ? SHORTMSG_DONE : SHORTMSG_PHONEBOOK_FAILED;
}

int Nothing(const ActionArg &) { return SHORTMSG_NOTHING; }

int SetServiceCentre(const ActionArg &arg) {
  return ModemSetServiceCentre(arg.argument) == 0 ? SHORTMSG_DONE : SHORTMSG_CENTRE_FAILED;
}

/* By action code. */
int (*const kActions[])(const ActionArg &) = {
    DeleteMessages,  DeleteMessages, DeleteMessages, DeleteMessages, SelectOnly,
    SelectOnly,      Send,           StoreAndSend,   StoreUnsent,    DeletePhonebook,
    DeletePhonebook, AddPhonebook,   Nothing,        Nothing,        SetServiceCentre,
};

}  // namespace

std::vector<std::string> ShortMsgPieces(std::string_view list, char separator) {
  std::vector<std::string> pieces;
  while (!list.empty()) {
    size_t end = std::min(list.find(separator), list.size());
    if (end > 0) pieces.emplace_back(list.substr(0, end));
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  return pieces;
}

int ShortMsgAction(const char *code, const char *argument, const char *content,
                   const char *country) {
  int action = NumberOf(code);
  bool known = action >= 0 && action < static_cast<int>(std::size(kActions));
  msgResult = known ? kActions[action]({argument, content, country}) : SHORTMSG_NOTHING;
  return msgResult;
}
