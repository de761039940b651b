// The files of the settings on flash. In /var/nvram: "area1", the last commit; "area1.1", the
// commit before it; "area1.new" and "area1.old" while a commit is under way; "area1.bad.1" and so
// on, damaged files kept to look at. Likewise for area 2.
//
// A file is a line that names the area and the file's length, the records, and a line with the
// CRC-32 (that of gzip) of all before it in hexadecimal digits.
#include "flash.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "ams_print.h"

namespace {

constexpr char kFolder[] = "/var/nvram";
constexpr int kBadMax = 4; /* damaged files that are kept, of an area */
constexpr size_t kHeadSize = sizeof "nvram 1, area 1, 0123456789 bytes\n" - 1;
constexpr size_t kTailSize = sizeof "01234567\n" - 1;

struct AreaFile {
  int error;          // 0: sound; ENOENT: not there; else an errno, and `wrong` says more
  std::string wrong;  // for people
  std::string bytes;  // head and tail included
};

/* Closed at the end, whatever ends it. */
struct Descriptor {
  int fd;
  ~Descriptor() {
    if (fd >= 0) close(fd);
  }
};

std::string Head(int area, size_t size) {
  char text[64];
  snprintf(text, sizeof text, "nvram 1, area %d, %010zu bytes\n", area, size);
  return text;
}

constexpr std::array<uint32_t, 256> CrcTable() {
  std::array<uint32_t, 256> table = {};
  for (uint32_t byte = 0; byte < 256; ++byte) {
    table[byte] = byte;
    for (int bit = 0; bit < 8; ++bit)
      table[byte] = table[byte] >> 1 ^ (table[byte] & 1 ? 0xedb88320u : 0);
  }
  return table;
}

std::string Tail(std::string_view all_before) {
  static constexpr std::array<uint32_t, 256> kTable = CrcTable();
  uint32_t crc = ~0u;
  for (char byte : all_before) crc = kTable[(crc ^ static_cast<uint8_t>(byte)) & 0xff] ^ crc >> 8;
  char text[16];
  snprintf(text, sizeof text, "%08x\n", ~crc);
  return text;
}

std::string_view Records(const std::string &bytes) {
  return std::string_view(bytes).substr(kHeadSize, bytes.size() - kHeadSize - kTailSize);
}

/* What is wrong with the bytes of a file; empty: nothing. */
std::string WrongBytes(int area, const std::string &bytes) {
  if (bytes.size() < kHeadSize + kTailSize) return "it is cut";
  if (bytes.compare(0, kHeadSize, Head(area, bytes.size())) != 0)
    return "its head is not that of " + std::to_string(bytes.size()) + " bytes of this area";
  size_t tail = bytes.size() - kTailSize;
  if (bytes.compare(tail, kTailSize, Tail(std::string_view(bytes).substr(0, tail))) != 0)
    return "its checksum is wrong";
  std::string_view rest = Records(bytes), key, value;
  while (!rest.empty())
    if (!FlashNext(&rest, &key, &value)) return "one of its records is longer than may be";
  return "";
}

/* Reads `size` bytes, or what there is. 0 or an errno. */
int ReadBytes(int fd, size_t size, std::string *bytes) {
  bytes->resize(size);
  size_t at = 0;
  while (at < size) {
    ssize_t got = read(fd, &(*bytes)[at], size - at);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return errno;
    if (got == 0) break;
    at += static_cast<size_t>(got);
  }
  bytes->resize(at);
  return 0;
}

/* The descriptor of a regular file and its size, or -1 with `file` saying why. */
int OpenToRead(int folder, const std::string &name, AreaFile *file, size_t *size) {
  struct stat info = {};
  int fd = openat(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0 || fstat(fd, &info) != 0) {
    *file = {errno, strerror(errno), ""};
  } else if (!S_ISREG(info.st_mode)) {
    *file = {EBADMSG, "it is no regular file", ""};
  } else if (info.st_size > static_cast<off_t>(kFlashMax)) {
    *file = {EBADMSG, "it is longer than may be", ""};
  } else {
    *size = static_cast<size_t>(info.st_size);
    return fd;
  }
  if (fd >= 0) close(fd);
  return -1;
}

AreaFile ReadFile(int folder, const std::string &name) {
  AreaFile file = {};
  size_t size = 0;
  const Descriptor opened = {OpenToRead(folder, name, &file, &size)};
  if (opened.fd < 0) return file;
  file.error = ReadBytes(opened.fd, size, &file.bytes);
  if (file.error != 0) file.wrong = strerror(file.error);
  return file;
}

AreaFile ReadArea(int folder, int area, const std::string &name) {
  AreaFile file = ReadFile(folder, name);
  if (file.error == 0) file.wrong = WrongBytes(area, file.bytes);
  if (file.error == 0 && !file.wrong.empty()) file.error = EBADMSG;
  return file;
}

/* Says nothing about the file itself. */
bool IsShortage(int error) { return error == EMFILE || error == ENFILE || error == ENOMEM; }

/* A descriptor of the folder, made when it is not there; or -1 with errno. */
int OpenFolder() {
  struct stat info = {};
  if (mkdir(kFolder, 0700) != 0 && errno != EEXIST) return -1;
  int folder = open(kFolder, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (folder < 0) return -1;
  if (fstat(folder, &info) == 0 && info.st_uid == geteuid()) return folder;
  close(folder);
  errno = EACCES; /* somebody else could put in it what he likes */
  return -1;
}

/* The gateway starts all the same, with defaults. */
int NoFolder(int error) {
  if (IsShortage(error)) return error;
  AMS_PRINT(4, "nvram: %s cannot be read: %s; starting without settings\n", kFolder,
            strerror(error));
  return 0;
}

std::string AreaName(int area) { return "area" + std::to_string(area); }

std::string BadName(const std::string &area, int number) {
  return area + ".bad." + std::to_string(number);
}

/* Moves a damaged file out of the way. Returns what became of it, for people. */
std::string MoveAside(int folder, const std::string &area, const std::string &name) {
  struct stat info;
  for (int number = 1; number <= kBadMax; ++number) {
    const std::string aside = BadName(area, number);
    if (fstatat(folder, aside.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0) continue;
    if (renameat(folder, name.c_str(), folder, aside.c_str()) == 0) return "kept as " + aside;
    return std::string("left where it is: ") + strerror(errno);
  }
  if (unlinkat(folder, name.c_str(), 0) == 0) return "removed, as others are kept already";
  return std::string("left where it is: ") + strerror(errno);
}

int WriteBytes(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t put = write(fd, bytes.data(), bytes.size());
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) return errno;
    bytes.remove_prefix(static_cast<size_t>(put));
  }
  return fsync(fd) == 0 ? 0 : errno;
}

/* Makes way for a file of a commit: unlike what a commit that was cut off leaves, a folder would
   stop every commit. */
void Clear(int folder, const std::string &area, const std::string &name) {
  if (unlinkat(folder, name.c_str(), 0) == 0 || errno != EISDIR) return;
  const std::string moved = MoveAside(folder, area, name);
  AMS_PRINT(4, "nvram: %s/%s is a folder, %s\n", kFolder, name.c_str(), moved.c_str());
}

/* A new file, on the disk when this returns 0; else an errno. */
int WriteFile(int folder, const std::string &area, const std::string &name,
              std::string_view bytes) {
  Clear(folder, area, name);
  int fd = openat(folder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0) return errno;
  int rc = WriteBytes(fd, bytes);
  if (close(fd) != 0 && rc == 0) rc = errno;
  return rc;
}

bool IsFull(int error) { return error == ENOSPC || error == EDQUOT; }

/* Adds its name to `removed`. */
void Remove(int folder, const std::string &name, std::string *removed) {
  if (unlinkat(folder, name.c_str(), 0) == 0) removed->append(" ").append(name);
}

/* What a file takes on the disk; 0 without one. */
size_t RoomOf(int folder, const std::string &name) {
  struct stat info;
  if (fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) return 0;
  return static_cast<size_t>(info.st_blocks) * 512;
}

/* Without room for three files nothing could be deleted any more. What is worth least goes first;
   the commit before goes only when the last one is sound; and nothing goes where it would not do.
 */
int WriteNew(int folder, const std::string &area, bool last_is_sound, std::string_view bytes) {
  const std::string fresh = area + ".new";
  int rc = WriteFile(folder, area, fresh, bytes);
  if (!IsFull(rc)) return rc;
  size_t room = RoomOf(folder, fresh); /* all that was left */
  std::vector<std::string> worth_less;
  for (int number = 1; number <= kBadMax; ++number)
    for (int each : {1, 2}) worth_less.push_back(BadName(AreaName(each), number));
  for (const std::string &name : worth_less) room += RoomOf(folder, name);
  if (room < bytes.size() && last_is_sound) {
    worth_less.push_back(area + ".1");
    room += RoomOf(folder, worth_less.back());
  }
  if (room < bytes.size()) return rc;
  std::string removed;
  for (const std::string &name : worth_less) Remove(folder, name, &removed);
  rc = WriteFile(folder, area, fresh, bytes);
  if (!removed.empty())
    AMS_PRINT(4, "nvram: %s is full: removed%s to write %s\n", kFolder, removed.c_str(),
              area.c_str());
  return rc;
}

int Rename(int folder, const std::string &from, const std::string &to) {
  return renameat(folder, from.c_str(), folder, to.c_str()) == 0 ? 0 : errno;
}

/* At each instant there is a last commit, and one before it if there was one: the last becomes the
   one before under a second name. */
int Replace(int folder, const std::string &name, bool keep_last) {
  const std::string old = name + ".old", before = name + ".1";
  int rc = 0;
  if (keep_last) {
    Clear(folder, name, old);
    rc = linkat(folder, name.c_str(), folder, old.c_str(), 0) == 0 ? 0 : errno;
    if (rc == 0 && (rc = Rename(folder, old, before)) == EISDIR) {
      Clear(folder, name, before);
      rc = Rename(folder, old, before);
    }
  }
  return rc != 0 ? rc : Rename(folder, name + ".new", name);
}

int PutBack(int folder, const std::string &name) {
  int rc = Rename(folder, name + ".1", name);
  if (rc == ENOENT) rc = unlinkat(folder, name.c_str(), 0) == 0 ? 0 : errno;
  if (rc == 0 && fsync(folder) != 0) rc = errno;
  return rc;
}

/* 0 or an errno; the last commit then stands. */
int Store(int folder, const std::string &name, bool keep_last, const std::string &bytes) {
  int rc = WriteNew(folder, name, keep_last, bytes);
  if (rc == 0) rc = Replace(folder, name, keep_last);
  if (rc != 0) {
    (void)unlinkat(folder, (name + ".new").c_str(), 0); /* gives back its room, if it has any */
  } else if (fsync(folder) != 0) {
    rc = errno;
    (void)PutBack(folder, name); /* the error is told in any case */
  }
  return rc;
}

}  // namespace

bool FlashNext(std::string_view *rest, std::string_view *key, std::string_view *value) {
  size_t key_end = rest->find('\0');
  size_t value_end = key_end < rest->size() ? rest->find('\0', key_end + 1) : rest->npos;
  if (value_end == rest->npos) return false;
  *key = rest->substr(0, key_end);
  *value = rest->substr(key_end + 1, value_end - key_end - 1);
  rest->remove_prefix(value_end + 1);
  return !key->empty() && key->size() <= kNvramKeyMax && value->size() <= kNvramValueMax;
}

int FlashLock() {
  int folder = OpenFolder();
  if (folder < 0) return -1;
  while (flock(folder, LOCK_EX) != 0) {
    if (errno == EINTR) continue;
    int error = errno;
    close(folder);
    errno = error;
    return -1;
  }
  return folder;
}

/* Closing it would not do: a child that has not called exec yet has it, too. */
void FlashUnlock(int lock) {
  (void)flock(lock, LOCK_UN); /* cannot fail on a lock that is held */
  close(lock);
}

int FlashLoad(int area, std::string *records) {
  const std::string name = AreaName(area), before = name + ".1";
  AreaFile file = {};
  std::string lost;
  const Descriptor opened = {OpenFolder()};
  int missing = 0, folder = opened.fd;
  records->clear();
  if (folder < 0) return NoFolder(errno);
  for (const std::string &each : {name, before}) {
    file = ReadArea(folder, area, each);
    if (file.error == 0 || IsShortage(file.error)) break;
    if (file.error == ENOENT) ++missing;
    lost += each + (file.error == ENOENT ? " is missing; "
                                         : " is damaged (" + file.wrong + "), " +
                                               MoveAside(folder, name, each) + "; ");
  }
  if (file.error == 0) *records = Records(file.bytes);
  if (file.error == 0 && !lost.empty())
    (void)Rename(folder, before, name); /* else the next start says the same again */
  if (IsShortage(file.error)) return file.error;
  if (!lost.empty() && missing < 2) /* a new board has neither */
    AMS_PRINT(4, "nvram: in %s %s%s\n", kFolder, lost.c_str(),
              file.error == 0 ? "the commit before is used" : "the area's settings are lost");
  return 0;
}

int FlashStore(int area, const std::string &records) {
  const std::string name = AreaName(area);
  std::string bytes = Head(area, kHeadSize + records.size() + kTailSize) + records;
  bytes += Tail(bytes);
  const Descriptor opened = {OpenFolder()};
  int folder = opened.fd, rc = folder < 0 ? errno : 0;
  AreaFile last = {};
  if (rc == 0) last = ReadFile(folder, name);
  if (IsShortage(last.error)) rc = last.error;
  if (bytes.size() > kFlashMax) rc = EFBIG;
  bool same = last.error == 0 && last.bytes == bytes;
  if (rc == 0 && !same) {
    bool sound = last.error == 0 && WrongBytes(area, last.bytes).empty();
    rc = Store(folder, name, sound, bytes);
  }
  if (rc == 0) return same ? 0 : 1;
  AMS_PRINT(4, "nvram: writing %s/%s failed: %s; the last commit stands: make room for %zu bytes\n",
            kFolder, name.c_str(), strerror(rc), bytes.size());
  return -1;
}

void FlashUndo(int area) {
  const Descriptor opened = {OpenFolder()};
  int rc = opened.fd < 0 ? errno : PutBack(opened.fd, AreaName(area));
  if (rc != 0)
    AMS_PRINT(4, "nvram: taking back a change of %s/%s failed: %s\n", kFolder,
              AreaName(area).c_str(), strerror(rc));
}
