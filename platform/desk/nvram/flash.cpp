// The files of the settings on flash. In /var/nvram: "area1", to which commits are added;
// "area1.1", a copy of its first part; "area1.new" while one of them is written anew; "area1.bad.1"
// and so on, damaged files kept to look at. Likewise for area 2. What is in a file: flash_form.h.
#include "flash.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "ams_print.h"

namespace {

constexpr char kFolder[] = "/var/nvram";
constexpr int kBadMax = 4; /* damaged files that are kept, of an area */

/* A file is written anew when it is twice as long as it need be, and this. */
constexpr size_t kOutgrown = 16 << 10;

struct AreaBytes {
  int error;  // 0; ENOENT: it is not there; else an errno
  std::string bytes;
  FlashContent file;  // points into `bytes`; its `wrong` says more
};

/* Closed at the end, whatever ends it. */
struct Descriptor {
  int fd;
  ~Descriptor() {
    if (fd >= 0) close(fd);
  }
};

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

/* The descriptor of a regular file and its size; or -1 with an errno, and `wrong` saying more. */
int OpenToRead(int folder, const std::string &name, size_t *size, std::string *wrong) {
  struct stat info = {};
  Descriptor opened = {
      openat(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)};
  int error = opened.fd < 0 || fstat(opened.fd, &info) != 0 ? errno : 0;
  if (error != 0)
    *wrong = strerror(error);
  else if (!S_ISREG(info.st_mode))
    error = EBADMSG, *wrong = "it is no regular file";
  else if (info.st_size > static_cast<off_t>(kFlashFileMax))
    error = EBADMSG, *wrong = "it is longer than may be";
  *size = static_cast<size_t>(info.st_size);
  if (error == 0) return std::exchange(opened.fd, -1);
  errno = error;
  return -1;
}

void ReadArea(int folder, int area, const std::string &name, AreaBytes *read) {
  size_t size = 0;
  *read = {0, "", {FLASH_DAMAGED, "", 0, {}, {}}};
  const Descriptor opened = {OpenToRead(folder, name, &size, &read->file.wrong)};
  read->error = opened.fd < 0 ? errno : ReadBytes(opened.fd, size, &read->bytes);
  if (read->error == 0)
    read->file = FlashParse(area, read->bytes);
  else if (read->file.wrong.empty())
    read->file.wrong = strerror(read->error);
}

/* Says nothing about the file itself. */
bool IsShortage(int error) { return error == EMFILE || error == ENFILE || error == ENOMEM; }

/* A descriptor of the folder, made when it is not there; or -1 with errno. */
int OpenFolder() {
  constexpr int kHow = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  struct stat info = {};
  int folder = open(kFolder, kHow);
  if (folder < 0 && errno == ENOENT && (mkdir(kFolder, 0700) == 0 || errno == EEXIST))
    folder = open(kFolder, kHow);
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

/* Without its folder: a commit has nothing else to do there, and each one pays for this. */
int OpenArea(int area, int how) {
  const std::string path = kFolder + ("/" + AreaName(area));
  return open(path.c_str(), how | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
}

std::string CopyName(const std::string &area) { return area + ".1"; }

std::string BadName(const std::string &area, int number) {
  return area + ".bad." + std::to_string(number);
}

/* Gives a damaged file a second name, before another takes its own; a folder, which has but one,
   is moved. Returns what became of it, for people. */
std::string KeepAside(int folder, const std::string &area, const std::string &name) {
  struct stat info;
  for (int number = 1; number <= kBadMax; ++number) {
    const std::string aside = BadName(area, number);
    if (fstatat(folder, aside.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0) continue;
    if (linkat(folder, name.c_str(), folder, aside.c_str(), 0) == 0 ||
        renameat(folder, name.c_str(), folder, aside.c_str()) == 0)
      return "kept as " + aside;
    return std::string("left where it is: ") + strerror(errno);
  }
  return "not kept, as others are already";
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

/* Makes way for a file: unlike what a commit that was cut off leaves, a folder would stop every
   commit. */
void Clear(int folder, const std::string &area, const std::string &name) {
  if (unlinkat(folder, name.c_str(), 0) == 0 || errno != EISDIR) return;
  const std::string moved = KeepAside(folder, area, name);
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

/* What a file takes on the disk, and gives back; 0 without one, or when it has another name. */
size_t RoomOf(int folder, const std::string &name) {
  struct stat info;
  if (fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) return 0;
  return info.st_nlink == 1 ? static_cast<size_t>(info.st_blocks) * 512 : 0;
}

/* Without room for two files more nothing could be deleted any more. What is worth least goes
   first; the copy goes only when the file itself is sound; and nothing goes where it would not do.
   `room` is there already. 0: there may be room now. */
int GiveUp(int folder, const std::string &area, bool sound, size_t room, size_t wanted) {
  std::vector<std::string> worth_less;
  for (int number = 1; number <= kBadMax; ++number)
    for (int each : {1, 2}) worth_less.push_back(BadName(AreaName(each), number));
  for (const std::string &name : worth_less) room += RoomOf(folder, name);
  if (room < wanted && sound) {
    worth_less.push_back(CopyName(area));
    room += RoomOf(folder, worth_less.back());
  }
  if (room < wanted) return -1;
  std::string removed;
  for (const std::string &name : worth_less) Remove(folder, name, &removed);
  if (!removed.empty())
    AMS_PRINT(4, "nvram: %s is full: removed%s to write %s\n", kFolder, removed.c_str(),
              area.c_str());
  return 0;
}

int WriteNew(int folder, const std::string &area, bool sound, std::string_view bytes) {
  const std::string fresh = area + ".new";
  int rc = WriteFile(folder, area, fresh, bytes);
  if (IsFull(rc) && GiveUp(folder, area, sound, RoomOf(folder, fresh), bytes.size()) == 0)
    rc = WriteFile(folder, area, fresh, bytes);
  if (rc != 0) (void)unlinkat(folder, fresh.c_str(), 0); /* gives back its room, if it has any */
  return rc;
}

/* Puts "area1.new" in the place of `name`. 0 or an errno. */
int Replace(int folder, const std::string &area, const std::string &name) {
  const std::string fresh = area + ".new";
  int rc = renameat(folder, fresh.c_str(), folder, name.c_str()) == 0 ? 0 : errno;
  if (rc == EISDIR) {
    Clear(folder, area, name);
    rc = renameat(folder, fresh.c_str(), folder, name.c_str()) == 0 ? 0 : errno;
  }
  if (rc == 0 && fsync(folder) != 0) rc = errno;
  return rc;
}

/* Without its copy a file is none the worse. */
void StoreCopy(int folder, const std::string &area, std::string_view bytes) {
  int rc = WriteNew(folder, area, true, bytes);
  if (rc == 0) rc = Replace(folder, area, CopyName(area));
  if (rc != 0)
    AMS_PRINT(4, "nvram: %s/%s has no copy of its own: %s; make room there\n", kFolder,
              area.c_str(), strerror(rc));
}

/* The file, then its copy, each in one step for a power cut. 0, or an errno: its settings are what
   they were. */
int StoreBytes(int folder, const std::string &area, bool sound, std::string_view bytes) {
  int rc = WriteNew(folder, area, sound, bytes);
  if (rc == 0) rc = Replace(folder, area, area);
  if (rc == 0) StoreCopy(folder, area, bytes);
  return rc;
}

/* A copy may be that of an older file: the power went between the two, or flash had no room. */
void RenewCopy(int folder, int area, const AreaBytes &last) {
  const std::string name = AreaName(area);
  const std::string_view first = std::string_view(last.bytes).substr(0, last.file.first);
  AreaBytes copy;
  ReadArea(folder, area, CopyName(name), &copy);
  if (!IsShortage(copy.error) && copy.bytes != first) StoreCopy(folder, name, first);
}

int Failed(const std::string &area, int rc, size_t wanted) {
  const std::string room = "make room for " + std::to_string(wanted) + " bytes";
  AMS_PRINT(4, "nvram: writing %s/%s failed: %s; the last commit stands: %s\n", kFolder,
            area.c_str(), strerror(rc),
            IsFull(rc)    ? room.c_str()
            : rc == EFBIG ? "unset what is not needed"
                          : "look at the file and its folder");
  return -1;
}

/* What is wrong with a file that is of no use, and what became of it. */
std::string Tell(int folder, const std::string &area, const std::string &name,
                 const AreaBytes &read) {
  if (read.error == ENOENT) return name + " is missing; ";
  return name + " is damaged (" + read.file.wrong + "), " + KeepAside(folder, area, name) + "; ";
}

/* The copy, and behind it what stands in the file behind its first part: that fits, unless the
   power went between the writing of the two. 0 or an errno, as ReadBest. */
int UseCopy(int folder, int area, AreaBytes *last, std::string *lost) {
  const std::string name = AreaName(area), copy_name = CopyName(name);
  AreaBytes copy;
  ReadArea(folder, area, copy_name, &copy);
  if (IsShortage(copy.error)) return copy.error;
  if (last->error == ENOENT && copy.error == ENOENT) return 0; /* a new board */
  *lost = Tell(folder, name, name, *last);
  if (copy.file.state == FLASH_DAMAGED) {
    *lost += Tell(folder, name, copy_name, copy) + "the area's settings are lost";
    return 0;
  }
  const size_t first = copy.file.end.size;
  last->bytes.replace(0, std::min(first, last->bytes.size()), copy.bytes, 0, first);
  last->file = FlashParse(area, last->bytes);
  const size_t used = std::max(last->file.end.size, first) - first;
  *lost += copy_name + " is used, with " + std::to_string(used) + " of " +
           std::to_string(last->bytes.size() - first) + " bytes of changes made since";
  return 0;
}

/* Reads an area's file as far as it can be used. 0, or an errno that says nothing about the file.
   `lost` is what there is to tell; `sound`: the file is not needed any more if its copy is. */
int ReadBest(int folder, int area, AreaBytes *last, bool *sound, std::string *lost) {
  const std::string name = AreaName(area);
  ReadArea(folder, area, name, last);
  *sound = last->file.state != FLASH_DAMAGED;
  if (IsShortage(last->error)) return last->error;
  if (!*sound) return UseCopy(folder, area, last, lost);
  const std::string behind = std::to_string(last->bytes.size() - last->file.end.size);
  if (last->file.state == FLASH_CUT)
    *lost = name + " ends in " + behind + " bytes of a change that was cut off, which are dropped";
  if (last->file.state == FLASH_GARBLED)
    *lost = Tell(folder, name, name, *last) + "its last " + behind + " bytes of changes are lost";
  return 0;
}

/* Whether the file is as this gateway left it. */
bool EndsAt(int fd, const FlashEnd &end) {
  struct stat info;
  char tail[kFlashTailSize];
  if (end.size == 0 || fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) return false;
  return info.st_uid == geteuid() && info.st_size == static_cast<off_t>(end.size) &&
         pread(fd, tail, sizeof tail, info.st_size - static_cast<off_t>(sizeof tail)) ==
             static_cast<ssize_t>(sizeof tail) &&
         std::string_view(tail, sizeof tail) == FlashTail(end.sum);
}

int CutAt(int fd, const FlashEnd &end) {
  return ftruncate(fd, static_cast<off_t>(end.size)) == 0 && fsync(fd) == 0 ? 0 : errno;
}

/* Adds to the end of a file; 0 or an errno: it ends where it did, or else the next commit sees
   that it does not. */
int AddBytes(const std::string &area, int fd, std::string_view bytes, const FlashEnd &end) {
  int rc = WriteBytes(fd, bytes);
  if (rc != 0 && CutAt(fd, end) != 0) return rc; /* nothing may be added behind that */
  if (!IsFull(rc)) return rc;
  const Descriptor folder = {OpenFolder()};
  if (folder.fd < 0 || GiveUp(folder.fd, area, true, 0, bytes.size()) != 0) return rc;
  rc = WriteBytes(fd, bytes);
  if (rc != 0) (void)CutAt(fd, end);
  return rc;
}

int Add(const std::string &area, int fd, std::string_view changes, size_t settings, FlashEnd *end) {
  FlashEnd after = *end;
  const std::string part = FlashPart(changes, &after);
  int rc =
      settings > kFlashMax && settings > end->settings ? EFBIG : AddBytes(area, fd, part, *end);
  if (rc != 0) return Failed(area, rc, part.size());
  after.settings = settings;
  *end = after;
  return 0;
}

/* Whether the file is to be written anew. Without room for that beside it changes still are added
   to it, as far as a file may grow. */
bool IsOutgrown(int fd, const FlashEnd &end) {
  struct statvfs disk;
  if (end.size <= 2 * end.settings + kOutgrown) return false;
  if (end.size > kFlashFileMax / 2 || fstatvfs(fd, &disk) != 0) return true;
  return disk.f_bavail * disk.f_frsize >= 2 * end.settings;
}

}  // namespace

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

int FlashLoad(int area, std::string *settings, FlashEnd *end) {
  AreaBytes last;
  std::string lost;
  bool sound;
  const Descriptor opened = {OpenFolder()};
  const int folder = opened.fd;
  settings->clear();
  *end = {};
  if (folder < 0) return NoFolder(errno);
  (void)unlinkat(folder, (AreaName(area) + ".new").c_str(), 0); /* of a writing that was cut off */
  int rc = ReadBest(folder, area, &last, &sound, &lost);
  for (const auto &[key, value] : last.file.settings)
    settings->append(key).append(1, '\0').append(value).append(1, '\0');
  *end = last.file.end;
  if (rc == 0 && !lost.empty()) { /* written anew, else the next start says the same again */
    AMS_PRINT(4, "nvram: in %s %s\n", kFolder, lost.c_str());
    const std::string bytes = FlashWhole(area, *settings, end);
    const int stored = StoreBytes(folder, AreaName(area), sound, bytes);
    if (stored != 0) {
      *end = {};
      (void)Failed(AreaName(area), stored, bytes.size()); /* the gateway starts all the same */
    }
  } else if (rc == 0 && last.file.state == FLASH_SOUND) {
    RenewCopy(folder, area, last);
  }
  return rc;
}

int FlashStore(int area, const std::string &settings, FlashEnd *end) {
  const std::string name = AreaName(area), bytes = FlashWhole(area, settings, end);
  const Descriptor opened = {OpenFolder()};
  const int folder = opened.fd;
  if (folder < 0) return Failed(name, errno, bytes.size());
  int rc = settings.size() > kFlashMax ? EFBIG : StoreBytes(folder, name, false, bytes);
  if (IsFull(rc)) { /* then the copy goes, too, if the file is sound */
    AreaBytes last;
    ReadArea(folder, area, name, &last);
    if (last.file.state != FLASH_DAMAGED) rc = StoreBytes(folder, name, true, bytes);
  }
  return rc == 0 ? 0 : Failed(name, rc, bytes.size());
}

int FlashAdd(int area, const std::string &changes, size_t settings, FlashEnd *end) {
  const Descriptor file = {OpenArea(area, changes.empty() ? O_RDONLY : O_RDWR | O_APPEND)};
  if (file.fd < 0 || !EndsAt(file.fd, *end)) return FLASH_ANEW;
  if (changes.empty()) return 0;
  if (IsOutgrown(file.fd, *end)) return FLASH_ANEW;
  return Add(AreaName(area), file.fd, changes, settings, end);
}

void FlashUndo(int area, const FlashEnd &before) {
  const Descriptor file = {OpenArea(area, O_WRONLY)};
  int rc = file.fd < 0 ? errno : CutAt(file.fd, before);
  if (rc != 0)
    AMS_PRINT(4, "nvram: taking back a change of %s/%s failed: %s\n", kFolder,
              AreaName(area).c_str(), strerror(rc));
}
