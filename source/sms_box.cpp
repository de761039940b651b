// The inbox and the outbox: a list read from the modem by its script, long messages put together,
// records for the web page.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "ams_common_api.h"
#include "ams_config_api.h"
#include "modem_at.h"
#include "op_rows.h"
#include "sms_actions.h"
#include "sms_list.h"

namespace {

constexpr char kStorageSelected[] = "/var/tmp/runCPMSFlag"; /* once a boot */
constexpr char kListed[] = "/var/atresult_msg";
constexpr char kCellLock[] =
    "InternetGatewayDevice.WANDevice.3.WANDongleInterfaceConfig.X_KVO-CellLock";
constexpr size_t kEntries = 128;
constexpr int kTests = 200; /* 10 ms apart */

/* The list in work. Kept from list to list: fresh memory for it would cost more than reading it. */
struct Box {
  size_t count;
  ShortMsgEntry entries[kEntries];
};
Box box;

/* What was unread when it was listed. The modem turns it into read; for the user it stays unread.
 */
bool unread_sim[SHORTMSG_MARKS], unread_memory[SHORTMSG_MARKS];

bool InMemory() { return strcmp(shortMsgState.msgStorage, "ME") == 0; }

/* ---- records ---- */

/* The parts that are there of each long message, by their number. */
using Entries = std::vector<const ShortMsgEntry *>;
using Parts = std::unordered_map<std::string, Entries>;

std::string PartsKey(const ShortMsgEntry &entry) {
  return std::string(entry.concatRef, strnlen(entry.concatRef, sizeof entry.concatRef)) + '/' +
         std::to_string(entry.concatTotal) + '/' + entry.number;
}

Parts PartsOf(const Entries &order) {
  Parts parts;
  for (const ShortMsgEntry *entry : order)
    if (entry->hasUdh != 0) parts[PartsKey(*entry)].push_back(entry);
  for (auto &[key, list] : parts)
    std::stable_sort(list.begin(), list.end(), [](const ShortMsgEntry *a, const ShortMsgEntry *b) {
      return a->concatSeq < b->concatSeq;
    });
  return parts;
}

bool Passes(const ShortMsgEntry &entry, int filter) {
  switch (filter) {
    case 0:
      return entry.stat == SHORTMSG_UNREAD || entry.stat == SHORTMSG_READ;
    case 1:
      return entry.stat == SHORTMSG_SENT;
    case 2:
      return entry.stat == SHORTMSG_UNSENT;
    default:
      return true;
  }
}

/* The status for the user. */
int Status(const ShortMsgEntry &entry, bool (&keep_unread)[SHORTMSG_MARKS]) {
  if (entry.index < 0 || entry.index >= SHORTMSG_MARKS) return entry.stat;
  bool *keep = &keep_unread[entry.index];
  if (entry.stat == SHORTMSG_UNREAD) *keep = true;
  if (entry.stat == SHORTMSG_SENT || entry.stat == SHORTMSG_UNSENT) *keep = false; /* another one */
  return *keep ? int{SHORTMSG_UNREAD} : entry.stat;
}

/* Puts the further parts of a long message behind its first one. Of two with one number the first
   counts. */
void AppendParts(const ShortMsgEntry &entry, const Parts &parts, std::string *index,
                 std::string *content) {
  auto found = parts.find(PartsKey(entry));
  if (entry.hasUdh == 0 || found == parts.end()) return;
  int last = 1;
  for (const ShortMsgEntry *part : found->second) {
    if (part->concatSeq <= last || part->concatSeq > entry.concatTotal) continue;
    last = part->concatSeq;
    *index += "," + std::to_string(part->index);
    *content += part->content;
  }
}

/* Each field is followed by its mark, the last one too. */
std::string Record(const ShortMsgEntry &entry, const Parts &parts,
                   bool (&keep_unread)[SHORTMSG_MARKS]) {
  std::string index = std::to_string(entry.index), content = entry.content;
  AppendParts(entry, parts, &index, &content);
  std::string record;
  for (const std::string &field : {index, std::to_string(Status(entry, keep_unread)),
                                   std::string(entry.number), std::string(entry.time), content})
    record += field + "}-{";
  return record + "|,|";
}

/* ---- the modem's list ---- */

void CountStatus(int status) {
  if (status == SHORTMSG_SENT) ++shortMsgState.sent;
  if (status == SHORTMSG_UNSENT) ++shortMsgState.unsent;
  if (status == SHORTMSG_UNREAD || status == SHORTMSG_READ) ++shortMsgState.received;
}

/* A message of the provider's that asks for another cell. It is carried out and never shown. */
bool IsCellLock(const ShortMsgEntry &entry) {
  if (entry.stat != SHORTMSG_UNREAD && entry.stat != SHORTMSG_READ) return false;
  bool provider = strcmp(entry.number, "907") == 0 || strcmp(entry.number, "909") == 0;
  return provider && strstr(shortMsgDecoded.text, "1036") != nullptr && LeafInt(kCellLock) == 1;
}

void LockCell(int index) {
  cfgSystemCmd("at-mngr AT+QCELLLOCK=0 > /dev/null");
  usleep(500);
  cfgSystemCmd("at-mngr AT+QCELLLOCK=1 > /dev/null");
  if (ModemDeleteMessage(index) == 0) ShortMsgForgetUnread(index); /* else it comes again */
}

void Keep(const std::string &lines) {
  ShortMsgEntry last, &entry = box.count < kEntries ? box.entries[box.count] : last;
  entry = {};
  if (ShortMsgParseEntry(lines.c_str(), &entry) != 0) {
    AMS_PRINT(3, "listed message passed over, it cannot be read: %.80s\n", lines.c_str());
    return;
  }
  CountStatus(entry.stat);
  if (IsCellLock(entry))
    LockCell(entry.index);
  else if (box.count < kEntries)
    ++box.count;
  else
    AMS_PRINT(3, "message %d is not listed: %zu are, delete some\n", entry.index, kEntries);
}

/* The PDU that the last "+CMGL:" line waits for. */
bool IsPdu(const char *line) { return HexValue(line[0]) >= 0 && strpbrk(line, "+:RKr") == nullptr; }

/* 0 after "OK"; -1 after "ERROR", or when the list breaks off. A head without its PDU is passed
   over; blank lines may stand anywhere. */
int ReadEntries(FILE *file) {
  char line[1024];
  std::string head;
  while (fgets(line, sizeof line, file) != nullptr) {
    if (!head.empty() && IsPdu(line)) {
      Keep(head + line);
      head.clear();
    } else if (strstr(line, "+CMGL: ") != nullptr) {
      head = line;
    } else if (strstr(line, "ERROR") != nullptr) {
      ModemErrorNumber(line);
      return -1;
    } else if (strstr(line, "OK") != nullptr) {
      return 0;
    }
  }
  return -1;
}

void SelectStorage() {
  if (access(kStorageSelected, F_OK) == 0) return;
  if (ModemStorageFill(shortMsgState.msgStorage, &shortMsgState.used, &shortMsgState.total) == 0)
    cfgSystemCmd("echo 1 > %s", kStorageSelected);
}

/* Has the script list the messages and opens what it left; NULL when it left nothing in 2 s. */
FILE *AskForList(int filter) {
  char command[64];
  (void)unlink(kListed); /* of a list that was given up: the script's own comes later */
  snprintf(command, sizeof command, "%s %d &", "/usr/syscfg/sms_getmsg.sh", filter);
  printf("Fun:%s cmd: %s\n", "SHORTMSG_SMS_Get", command);
  cfgSystemCmd("%s", command);
  for (int test = 0; test < kTests; ++test) {
    FILE *file = fopen(kListed, "re");
    if (file != nullptr) return file;
    usleep(10000);
  }
  return nullptr;
}

}  // namespace

void ShortMsgFormatList(ShortMsgEntry *entries, size_t count, int filter,
                        bool (&keep_unread)[SHORTMSG_MARKS], char *text, size_t size) {
  Entries order;
  for (size_t i = 0; i < count; ++i) order.push_back(&entries[i]);
  std::stable_sort(order.begin(), order.end(), [](const ShortMsgEntry *a, const ShortMsgEntry *b) {
    return strcmp(a->time, b->time) > 0;
  });
  const Parts parts = PartsOf(order);
  size_t length = 0;
  for (const ShortMsgEntry *entry : order) {
    if (!Passes(*entry, filter) || (entry->hasUdh != 0 && entry->concatSeq != 1)) continue;
    std::string record = Record(*entry, parts, keep_unread);
    if (length + record.size() >= size) {
      AMS_PRINT(3, "the list ends before message %d: %zu bytes are full\n", entry->index, size);
      break;
    }
    memcpy(text + length, record.data(), record.size());
    length += record.size();
  }
  text[length] = '\0';
}

void ShortMsgForgetUnread(int index) {
  if (index >= 0 && index < SHORTMSG_MARKS)
    (InMemory() ? unread_memory : unread_sim)[index] = false;
}

int SHORTMSG_SMS_Get(int filter, char *text, size_t size) {
  shortMsgState.received = shortMsgState.sent = shortMsgState.unsent = 0;
  shortMsgDecoded = {};
  SelectStorage();
  ShortMsgReadServiceCentre();
  FILE *file = AskForList(filter);
  if (file == nullptr) return -1;
  box.count = 0;
  int result = ReadEntries(file);
  fclose(file);
  (void)unlink(kListed); /* it was just there */
  if (result == 0)
    ShortMsgFormatList(box.entries, box.count, filter, InMemory() ? unread_memory : unread_sim,
                       text, size);
  return result;
}
