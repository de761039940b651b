// The inbox and the outbox: a list read from the modem by its script, long messages put together,
// records for the web page.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "ams_common_api.h"
#include "ams_config_shell.h"
#include "modem_at.h"
#include "op_values.h"
#include "sms_actions.h"
#include "sms_list.h"

namespace {

constexpr char kStorageSelected[] = "/var/tmp/runCPMSFlag"; /* once a boot */
constexpr char kListed[] = "/var/atresult_msg";
constexpr char kCellLock[] =
    "InternetGatewayDevice.WANDevice.3.WANDongleInterfaceConfig.X_KVO-CellLock";
constexpr size_t kEntries = 128;

/* The list in work. Kept from list to list: fresh memory for it would cost more than reading it. */
struct Box {
  size_t count;
  ShortMsgEntry entries[kEntries];
};
Box box;

ShortMsgMarks sim_marks, memory_marks;

ShortMsgMarks &Marks() {
  return strcmp(shortMsgState.msgStorage, "ME") == 0 ? memory_marks : sim_marks;
}

/* ---- records ---- */

using Entries = std::vector<const ShortMsgEntry *>;

bool IsReceived(const ShortMsgEntry &entry) {
  return entry.stat == SHORTMSG_UNREAD || entry.stat == SHORTMSG_READ;
}

bool Passes(const ShortMsgEntry &entry, int filter) {
  switch (filter) {
    case 0:
      return IsReceived(entry);
    case 1:
      return entry.stat == SHORTMSG_SENT;
    case 2:
      return entry.stat == SHORTMSG_UNSENT;
    default:
      return true;
  }
}

/* Whether `entry` has a record of its own: the further parts of a long message do not. */
bool IsFirst(const ShortMsgEntry &entry) { return entry.hasUdh == 0 || entry.concatSeq == 1; }

/* The status for the user. */
int Status(const ShortMsgEntry &entry, bool (&keep_unread)[SHORTMSG_MARKS]) {
  if (entry.index < 0 || entry.index >= SHORTMSG_MARKS) return entry.stat;
  bool *keep = &keep_unread[entry.index];
  if (entry.stat == SHORTMSG_UNREAD) *keep = true;
  if (!IsReceived(entry)) *keep = false; /* another one */
  return *keep ? int{SHORTMSG_UNREAD} : entry.stat;
}

/* A box of its own each: what was received (read or not), what was sent, the drafts. */
bool InOneBox(const ShortMsgEntry &left, const ShortMsgEntry &right) {
  return left.stat == right.stat || (IsReceived(left) && IsReceived(right));
}

Entries::iterator FindPart(const ShortMsgEntry &first, int number, Entries *parts) {
  return std::find_if(parts->begin(), parts->end(), [&](const ShortMsgEntry *part) {
    return part->concatSeq == number && part->concatTotal == first.concatTotal &&
           InOneBox(*part, first) &&
           memcmp(part->concatRef, first.concatRef, sizeof part->concatRef) == 0 &&
           strcmp(part->number, first.number) == 0;
  });
}

/* Takes the further parts of a long message out of `parts` and puts them behind its first one. A
   part is of one message only: two of one sender may have the same reference, as all that this
   gateway sends have. */
void AppendParts(const ShortMsgEntry &first, Entries *parts, std::string *index,
                 std::string *content) {
  for (int number = 2; first.hasUdh != 0 && number <= first.concatTotal; ++number) {
    auto part = FindPart(first, number, parts);
    if (part == parts->end()) continue;
    *index += "," + std::to_string((*part)->index);
    *content += (*part)->content;
    parts->erase(part);
  }
}

/* Each field is followed by its mark, the last one too. */
std::string Record(const ShortMsgEntry &entry, const std::string &index, const std::string &content,
                   ShortMsgMarks *marks) {
  marks->unlisted.erase(entry.index);
  std::string record;
  for (const std::string &field : {index, std::to_string(Status(entry, marks->unread)),
                                   std::string(entry.number), std::string(entry.time), content})
    record += field + "}-{";
  return ShortMsgPrintable(record + "|,|");
}

/* Parts that no record took would stay in the storage unseen. */
void LogUnlisted(const Entries &parts, int filter, ShortMsgMarks *marks) {
  for (const ShortMsgEntry *part : parts)
    if (Passes(*part, filter) && marks->unlisted.insert(part->index).second)
      AMS_PRINT(3,
                "message %d is not listed: its header or reply path makes it part %d of %d, and "
                "there is no part 1; DelIdx deletes it\n",
                part->index, part->concatSeq, part->concatTotal);
}

/* ---- the modem's list ---- */

void CountStatus(int status) {
  if (status == SHORTMSG_SENT) ++shortMsgState.sent;
  if (status == SHORTMSG_UNSENT) ++shortMsgState.unsent;
  if (status == SHORTMSG_UNREAD || status == SHORTMSG_READ) ++shortMsgState.received;
}

/* A message of the provider's that asks for another cell. It is carried out and never shown. */
bool IsCellLock(const ShortMsgEntry &entry) {
  if (!IsReceived(entry)) return false;
  bool provider = strcmp(entry.number, "907") == 0 || strcmp(entry.number, "909") == 0;
  return provider && strstr(shortMsgDecoded.text, "1036") != nullptr && LeafInt(kCellLock) == 1;
}

void LockCell(int index) {
  cfgSystemCmd("at-mngr AT+QCELLLOCK=0 > /dev/null");
  usleep(500);
  cfgSystemCmd("at-mngr AT+QCELLLOCK=1 > /dev/null");
  if (ModemDeleteMessage(index) == 0) ShortMsgForget(index); /* else it comes again */
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

/* What the script leaves, which may come line by line or piece by piece. */
struct Listing {
  FILE *file = nullptr;
  int tests = 200; /* for what is not there yet; 10 ms apart */
};

bool WaitForMore(Listing *listing) {
  if (--listing->tests <= 0) return false;
  tds_delay(10);
  return true;
}

/* The next line, or as much of it as fits or comes in time. False when nothing does. */
bool NextLine(Listing *listing, char (&line)[1024]) {
  size_t length = 0;
  while (length + 1 < sizeof line && (length == 0 || line[length - 1] != '\n')) {
    int byte = getc(listing->file);
    if (byte != EOF)
      line[length++] = static_cast<char>(byte);
    else if (!WaitForMore(listing))
      break;
    else
      clearerr(listing->file); /* else the end that was seen stays the end */
  }
  line[length] = '\0';
  return length > 0;
}

/* 0 after "OK"; -1 after "ERROR", or when the list breaks off. A head without its PDU is passed
   over; blank lines may stand anywhere. */
int ReadEntries(Listing *listing) {
  char line[1024];
  std::string head;
  while (NextLine(listing, line)) {
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

/* Has the script list the messages and opens what it leaves. */
void AskForList(int filter, Listing *listing) {
  char command[64];
  (void)unlink(kListed); /* of a list that was given up: the script's own comes later */
  snprintf(command, sizeof command, "%s %d &", "/usr/syscfg/sms_getmsg.sh", filter);
  printf("Fun:%s cmd: %s\n", "SHORTMSG_SMS_Get", command);
  cfgSystemCmd("%s", command);
  do listing->file = fopen(kListed, "re");
  while (listing->file == nullptr && WaitForMore(listing));
}

}  // namespace

std::string ShortMsgPrintable(std::string_view text) {
  std::string printable;
  for (char character : text) {
    auto byte = static_cast<unsigned char>(character);
    if (byte < 0x20 || byte == 0x7F)
      printable += "\uFFFD";
    else
      printable += character;
  }
  return printable;
}

void ShortMsgFormatList(const ShortMsgEntry *entries, size_t count, int filter,
                        ShortMsgMarks *marks, char *text, size_t size) {
  Entries order, parts;
  for (size_t i = 0; i < count; ++i) order.push_back(&entries[i]);
  std::stable_sort(order.begin(), order.end(), [](const ShortMsgEntry *a, const ShortMsgEntry *b) {
    return strcmp(a->time, b->time) > 0;
  });
  for (const ShortMsgEntry *entry : order)
    if (!IsFirst(*entry)) parts.push_back(entry);
  size_t length = 0;
  bool full = false;
  *text = '\0';
  for (const ShortMsgEntry *entry : order) {
    if (!IsFirst(*entry)) continue;
    std::string index = std::to_string(entry->index), content = entry->content;
    AppendParts(*entry, &parts, &index, &content); /* listed or not, they are its own */
    if (!Passes(*entry, filter)) continue;
    std::string record = Record(*entry, index, content, marks); /* marks it in a full list, too */
    if (full) continue;
    full = length + record.size() >= size;
    if (full) {
      AMS_PRINT(3, "the list ends before message %d: %zu bytes are full\n", entry->index, size);
      continue;
    }
    memcpy(text + length, record.c_str(), record.size() + 1);
    length += record.size();
  }
  LogUnlisted(parts, filter, marks);
}

void ShortMsgForget(int index) {
  ShortMsgMarks &marks = Marks();
  if (index >= 0 && index < SHORTMSG_MARKS) marks.unread[index] = false;
  marks.unlisted.erase(index);
}

int SHORTMSG_SMS_Get(int filter, char *text, size_t size) {
  shortMsgState.received = shortMsgState.sent = shortMsgState.unsent = 0;
  shortMsgDecoded = {};
  SelectStorage();
  ShortMsgReadServiceCentre();
  Listing listing;
  AskForList(filter, &listing);
  if (listing.file == nullptr) return -1;
  box.count = 0;
  int result = ReadEntries(&listing);
  fclose(listing.file);
  (void)unlink(kListed); /* it was just there */
  if (result == 0) ShortMsgFormatList(box.entries, box.count, filter, &Marks(), text, size);
  return result;
}
