// Control messages to the process as a whole. Each is answered to its sender.
#include "prosctl_thread.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "appt_request.h"

namespace {

constexpr size_t kNameSize = 32; /* the module name at the start of a print-level request */

void SetLevel(PrtMapEntry *row, int32_t level) {
  __atomic_store_n(&row->level, level, __ATOMIC_RELAXED);
}

/* Gives `level` to every row for "all", else to the first one whose name contains `name`: an empty
   name thereby reaches "default". Whether there was one. */
bool ChangeLevel(const char *name, int32_t level) {
  bool all = strcmp(name, "all") == 0;
  for (PrtMapEntry *row = DF_PRT_MAP; row->name != nullptr; ++row) {
    if (!all && strstr(row->name, name) == nullptr) continue;
    SetLevel(row, level);
    if (!all) return true;
  }
  return all;
}

void Reply(int32_t id, const char *text, size_t length, const char *sender) {
  (void)SynAckData_lib(text, static_cast<uint32_t>(length), static_cast<uint32_t>(id),
                       sender); /* logged there; a sender that did not wait gets none */
}

void PrintLevelHandle(int32_t id, const void *data, uint32_t len) {
  char sender[TDS_NAME_SIZE], reply[64] = "change prt level failed!", name[kNameSize + 1] = "";
  Sender(sender);
  AMS_PRINT(3, "senderSPid is %s", sender);
  if (len >= kNameSize + 4) {
    memcpy(name, data, kNameSize);
    uint32_t level = appt_GetWord(static_cast<const char *>(data) + kNameSize);
    if (ChangeLevel(name, static_cast<int32_t>(level)))
      snprintf(reply, sizeof(reply), "change prt level succeed!");
  }
  Reply(id, reply, strlen(reply), sender);
}

void TraceHandle(int32_t id, const void *data, uint32_t len) {
  char sender[TDS_NAME_SIZE];
  const char *text = static_cast<const char *>(data);
  std::string word(text, text == nullptr ? 0 : strnlen(text, len)), reply;
  Sender(sender);
  if (word == "on" || word == "off") {
    appt_SetTrace(word == "on");
    reply = "trace switch " + word;
  } else {
    AMS_PRINT(3, "The trace status you input is %s, not correct.", word.c_str());
    reply = "trace status not write:" + word;
  }
  Reply(id, reply.c_str(), reply.size(), sender);
}

void MallocHandle(int32_t id, const void *, uint32_t) {
  char sender[TDS_NAME_SIZE];
  Sender(sender);
  printf("senderSPid %s \n", sender);
  tds_show_malloc();
  Reply(id, "\0\0\0\0", 4, sender);
}

void InitHandle(int32_t, const void *, uint32_t) {}

}  // namespace

const MsgEntry prosCtlMsgTab[] = {
    {TDS_MSG_INIT, InitHandle},
    {PROSCTL_PRINT_LEVEL, PrintLevelHandle},
    {PROSCTL_TRACE, TraceHandle},
    {PROSCTL_MALLOC, MallocHandle},
    {0, nullptr},
};
