// A list read from the modem by its script, long messages put together, records; see sms_box.h.
#include "sms_box.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <utility>

#include "ams_common_api.h"
#include "ams_config_shell.h"
#include "file_handle.h"
#include "modem_at.h"
#include "op_values.h"
#include "sms_list.h"

ShortMsgCounts short_msg_counts = {};

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

/* What is known of a message by the index at which a storage has it. */
struct Mark {
  bool unread;   /* was unread when it was listed; the modem turns it into read, for the user it
                    stays unread */
  bool unlisted; /* belongs into no list, which was logged */
};
constexpr int kMarks = 255;
using Marks = Mark[kMarks];
Marks sim_marks, memory_marks;

Marks &StorageMarks() { return ModemUsesMemory() ? memory_marks : sim_marks; }

/* The mark of an index; of one that no storage has, a blank one. */
Mark *MarkOf(int index, Marks &marks) {
  static Mark none;
  none = {};
  return index >= 0 && index < kMarks ? &marks[index] : &none;
}

/* ---- records ---- */

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
int Status(const ShortMsgEntry &entry, Mark *mark) {
  if (entry.stat == SHORTMSG_UNREAD) mark->unread = true;
  if (!IsReceived(entry)) mark->unread = false; /* another one */
  return mark->unread ? int{SHORTMSG_UNREAD} : entry.stat;
}

/* A box of its own each: what was received (read or not), what was sent, the drafts. */
bool InOneBox(const ShortMsgEntry &left, const ShortMsgEntry &right) {
  return left.stat == right.stat || (IsReceived(left) && IsReceived(right));
}

bool IsPart(const ShortMsgEntry &entry, const ShortMsgEntry &first, int number) {
  return !IsFirst(entry) && entry.concatSeq == number && entry.concatTotal == first.concatTotal &&
         InOneBox(entry, first) &&
         memcmp(entry.concatRef, first.concatRef, sizeof entry.concatRef) == 0 &&
         strcmp(entry.number, first.number) == 0;
}

/* Takes the newest of those that are not taken and match; of two with one time, the one that the
   modem lists first. NULL: there is none. */
template <typename Matches>
ShortMsgEntry *TakeNewest(Matches matches) {
  ShortMsgEntry *newest = nullptr;
  for (ShortMsgEntry *entry = box.entries; entry < box.entries + box.count; ++entry)
    if (entry->taken == 0 && matches(*entry) &&
        (newest == nullptr || strcmp(entry->time, newest->time) > 0))
      newest = entry;
  if (newest != nullptr) newest->taken = 1;
  return newest;
}

/* Puts the further parts of a long message behind its first one. A part is of one message only: two
   of one sender may have the same reference, as all that this gateway sends have. */
void TakeParts(const ShortMsgEntry &first, std::string *index, std::string *content) {
  for (int number = 2; first.hasUdh != 0 && number <= first.concatTotal; ++number) {
    const ShortMsgEntry *part =
        TakeNewest([&](const ShortMsgEntry &entry) { return IsPart(entry, first, number); });
    if (part == nullptr) continue;
    *index += "," + std::to_string(part->index);
    *content += part->content;
  }
}

/* Each field is followed by its mark, the last one too. */
std::string Record(const ShortMsgEntry &entry, const std::string &index, const std::string &content,
                   Mark *mark) {
  mark->unlisted = false;
  std::string record;
  for (const std::string &field : {index, std::to_string(Status(entry, mark)),
                                   std::string(entry.number), std::string(entry.time), content})
    record += field + "}-{";
  return PrintableText(record + "|,|");
}

/* Parts that no record took would stay in the storage unseen. */
void LogUnlisted(int filter, Marks &marks) {
  auto passes = [filter](const ShortMsgEntry &entry) { return Passes(entry, filter); };
  while (const ShortMsgEntry *part = TakeNewest(passes)) {
    if (!std::exchange(MarkOf(part->index, marks)->unlisted, true))
      AMS_PRINT(3,
                "message %d is not listed: its header or reply path makes it part %d of %d, and "
                "there is no part 1; DelIdx deletes it\n",
                part->index, part->concatSeq, part->concatTotal);
  }
}

/* Writes the records of those of the box's entries that pass, newest first. What belongs into the
   list and has no record is logged. */
void FormatList(int filter, char *text, size_t size) {
  Marks &marks = StorageMarks();
  size_t length = 0;
  bool full = false;
  *text = '\0';
  while (const ShortMsgEntry *entry = TakeNewest(IsFirst)) {
    std::string index = std::to_string(entry->index), content = entry->content;
    TakeParts(*entry, &index, &content); /* listed or not, they are its own */
    if (!Passes(*entry, filter)) continue;
    /* Marks it in a full list, too. */
    std::string record = Record(*entry, index, content, MarkOf(entry->index, marks));
    if (full) continue;
    full = length + record.size() >= size;
    if (full) {
      AMS_PRINT(3, "the list ends before message %d: %zu bytes are full\n", entry->index, size);
      continue;
    }
    memcpy(text + length, record.c_str(), record.size() + 1);
    length += record.size();
  }
  LogUnlisted(filter, marks);
}

/* ---- the modem's list ---- */

void Count(const ShortMsgEntry &entry) {
  if (entry.stat == SHORTMSG_SENT) ++short_msg_counts.sent;
  if (entry.stat == SHORTMSG_UNSENT) ++short_msg_counts.unsent;
  if (IsReceived(entry)) ++short_msg_counts.received;
}

/* A message of the provider's that asks for another cell. It is carried out and never shown. */
bool IsCellLock(const ShortMsgEntry &entry) {
  if (!IsReceived(entry)) return false;
  bool provider = strcmp(entry.number, "907") == 0 || strcmp(entry.number, "909") == 0;
  return provider && strstr(short_msg_decoded.text, "1036") != nullptr && LeafInt(kCellLock) == 1;
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
  Count(entry);
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
  FileHandle file;
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
    int byte = getc(listing->file.get());
    if (byte != EOF)
      line[length++] = static_cast<char>(byte);
    else if (!WaitForMore(listing))
      break;
    else
      clearerr(listing->file.get()); /* else the end that was seen stays the end */
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
      AMS_PRINT(4, "messages not listed, the modem answered \"%s\"\n", ModemSaid(line).c_str());
      return -1;
    } else if (strstr(line, "OK") != nullptr) {
      return 0;
    }
  }
  AMS_PRINT(4, "messages not listed: the modem's list breaks off\n");
  return -1;
}

void SelectStorage() {
  if (access(kStorageSelected, F_OK) == 0) return;
  if (ModemSelectStorage() == 0) cfgSystemCmd("echo 1 > %s", kStorageSelected);
}

/* Has the script list the messages and opens what it leaves. */
void AskForList(int filter, Listing *listing) {
  char command[64];
  (void)unlink(kListed); /* of a list that was given up: the script's own comes later */
  snprintf(command, sizeof command, "%s %d &", "/usr/syscfg/sms_getmsg.sh", filter);
  printf("Fun:%s cmd: %s\n", "SHORTMSG_SMS_Get", command);
  cfgSystemCmd("%s", command);
  do listing->file.reset(fopen(kListed, "re"));
  while (listing->file == nullptr && WaitForMore(listing));
}

}  // namespace

void ShortMsgForget(int index) { *MarkOf(index, StorageMarks()) = {}; }

int SHORTMSG_SMS_Get(int filter, char *text, size_t size) {
  short_msg_counts = {};
  short_msg_decoded = {};
  SelectStorage();
  ModemReadServiceCentre();
  Listing listing;
  AskForList(filter, &listing);
  if (listing.file == nullptr) {
    AMS_PRINT(4, "messages not listed: no answer of the modem in %s\n", kListed);
    return -1;
  }
  box.count = 0;
  int result = ReadEntries(&listing);
  (void)unlink(kListed); /* it was just there */
  if (result == 0) FormatList(filter, text, size);
  return result;
}
