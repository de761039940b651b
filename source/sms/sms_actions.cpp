// The actions of short messages, a row each; see sms_actions.h.
#include "sms_actions.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iterator>

#include "ams_common_api.h"
#include "modem_at.h"
#include "sms_box.h"
#include "sms_phonebook.h"
#include "sms_send.h"

namespace {

int DeleteEach(const char *list, int (*remove)(int)) {
  std::vector<std::string> pieces = ShortMsgPieces(list, ',');
  for (const std::string &piece : pieces) {
    int index = ShortMsgNumber(piece);
    if (index < 0)
      AMS_PRINT(4, "\"%s\" not deleted: give numbers with commas between\n", piece.c_str());
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

int SetServiceCentre(const ActionArg &arg) {
  return ModemSetServiceCentre(arg.argument) == 0 ? SHORTMSG_DONE : SHORTMSG_CENTRE_FAILED;
}

const struct {
  int code;
  int (*run)(const ActionArg &);
} kActions[] = {
    {0, DeleteMessages},
    {1, DeleteMessages},
    {2, DeleteMessages},
    {ACTION_DELETE, DeleteMessages},
    {4, SelectOnly},
    {5, SelectOnly},
    {ACTION_SEND, Send},
    {ACTION_STORE_AND_SEND, StoreAndSend},
    {ACTION_STORE, StoreUnsent},
    {ACTION_DELETE_PHONEBOOK, DeletePhonebook},
    {10, DeletePhonebook},
    {ACTION_ADD_PHONEBOOK, AddPhonebook},
    {ACTION_SET_CENTRE, SetServiceCentre},
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

int ShortMsgNumber(const std::string &text) {
  if (!IsNumber(text, false)) return -1;
  return static_cast<int>(std::min(strtol(text.c_str(), nullptr, 10), long{INT32_MAX}));
}

int ShortMsgAction(int code, const char *argument, const char *content, const char *country) {
  auto row = std::find_if(std::begin(kActions), std::end(kActions),
                          [code](const auto &action) { return action.code == code; });
  msgResult = row == std::end(kActions) ? SHORTMSG_NOTHING : row->run({argument, content, country});
  return msgResult;
}
