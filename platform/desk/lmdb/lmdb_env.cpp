// Opening and removing environments, and telling a damaged one; see lmdb_env.h.
#include "lmdb_env.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace {

constexpr unsigned kMaxReaders = 1000; /* threads that read, in all processes together */
constexpr time_t kCheckSeconds = 10;   /* of the processor: damage may lead the reader in circles */

std::string FileOf(const LmdbPlace &place, const char *name) {
  return std::string(place.folder) + "/" + name;
}

/* The library closes its other descriptors on exec by itself. */
void CloseOnExec(MDB_env *env) {
  int fd = -1;
  if (mdb_env_get_fd(env, &fd) == 0) (void)fcntl(fd, F_SETFD, FD_CLOEXEC); /* cannot fail on ours */
}

int OpenDatabase(LmdbEnv *opened) {
  MDB_txn *txn = nullptr;
  int rc = LmdbBegin(*opened, MDB_RDONLY, &txn);
  if (rc != 0) return rc;
  rc = mdb_dbi_open(txn, nullptr, 0, &opened->dbi);
  mdb_txn_abort(txn);
  return rc;
}

int ReadDatabase(MDB_txn *txn, MDB_dbi dbi) {
  MDB_cursor *cursor = nullptr;
  MDB_val key, found;
  unsigned sum = 0;
  int rc = mdb_cursor_open(txn, dbi, &cursor);
  while (rc == 0 && (rc = mdb_cursor_get(cursor, &key, &found, MDB_NEXT)) == 0)
    for (size_t at = 0; at < found.mv_size; ++at)
      sum += static_cast<const volatile unsigned char *>(found.mv_data)[at];
  (void)sum; /* the bytes were touched, that is all */
  return rc == MDB_NOTFOUND ? 0 : rc;
}

/* The library's list of free pages, too: the next write takes its pages from there. */
int ReadAll(const LmdbEnv &opened, const char *key, const char *value) {
  MDB_txn *txn = nullptr;
  MDB_val found = LmdbVal(nullptr, 0), wanted = LmdbVal(key, strlen(key));
  int rc = LmdbBegin(opened, MDB_RDONLY, &txn);
  if (rc == 0) rc = mdb_get(txn, opened.dbi, &wanted, &found);
  if (rc == 0 && (found.mv_size != strlen(value) || memcmp(found.mv_data, value, found.mv_size)))
    rc = MDB_CORRUPTED;
  if (rc == 0) rc = ReadDatabase(txn, opened.dbi);
  return rc == 0 ? ReadDatabase(txn, 0) : rc;
}

int verdict_pipe; /* of a process that checks: where it tells what it found */

[[noreturn]] void Tell(LmdbState state) {
  char verdict = static_cast<char>(state);
  _exit(write(verdict_pipe, &verdict, 1) == 1 ? 0 : 1);
}

/* Damage shows in a signal as well. Whoever else ends the process, as the kernel does for want of
   memory, leaves no verdict. What only this process lacks is no damage. */
[[noreturn]] void CheckChild(const LmdbPlace &place, const char *key, const char *value, int out) {
  const struct itimerval limit = {{0, 0}, {kCheckSeconds, 0}};
  verdict_pipe = out;
  sigset_t all;
  sigfillset(&all);
  for (int signum : {SIGSEGV, SIGBUS, SIGFPE, SIGABRT, SIGILL, SIGPROF})
    signal(signum, [](int) { Tell(LMDB_DAMAGED); });
  (void)sigprocmask(SIG_UNBLOCK, &all, nullptr); /* whatever the parent blocks; cannot fail */
  (void)setitimer(ITIMER_PROF, &limit, nullptr); /* cannot fail with these */
  LmdbEnv opened;
  int rc = LmdbOpen(place, false, &opened);
  if (rc == 0) rc = ReadAll(opened, key, value);
  bool lacking = (rc > 0 && rc != ENOENT) || rc == MDB_READERS_FULL;
  Tell(rc == 0 ? LMDB_SOUND : lacking ? LMDB_UNKNOWN : LMDB_DAMAGED);
}

/* The table of readers, whole: it is a map, like the pages of lmdb_room.cpp. Before this process
   opens the place: closing the file would give its locks away. A file that is whole is left alone:
   allocated once more, its pages would count as written, and be resident in whoever maps it. */
int MakeLockFile(const LmdbPlace &place) {
  constexpr off_t kBytesOfReader = 64, kSize = (kMaxReaders + kBytesOfReader) * kBytesOfReader;
  struct stat info;
  int fd = open(FileOf(place, "lock.mdb").c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd < 0) return errno;
  bool whole = fstat(fd, &info) == 0 && info.st_size >= kSize && info.st_blocks * 512 >= kSize;
  int rc = 0;
  while (!whole && (rc = posix_fallocate(fd, 0, kSize)) == EINTR) continue;
  close(fd);
  return rc;
}

}  // namespace

int LmdbMakeFolder(const LmdbPlace &place) {
  struct stat info;
  if (mkdir(place.folder, 0700) != 0 && errno != EEXIST) return errno;
  if (lstat(place.folder, &info) != 0) return errno;
  if (!S_ISDIR(info.st_mode)) return ENOTDIR;
  return info.st_uid == geteuid() ? 0 : EACCES;
}

int LmdbOpen(const LmdbPlace &place, bool create, LmdbEnv *opened) {
  struct stat info;
  *opened = LmdbEnv{};
  if (create) {
    int rc = LmdbMakeFolder(place);
    if (rc == 0) rc = MakeLockFile(place);
    if (rc != 0) return rc;
  } else if (stat(FileOf(place, "data.mdb").c_str(), &info) != 0) {
    return errno;
  }
  int rc = mdb_env_create(&opened->env);
  if (rc != 0) return rc;
  rc = mdb_env_set_mapsize(opened->env, place.map_size);
  if (rc == 0) rc = mdb_env_set_maxreaders(opened->env, kMaxReaders);
  if (rc == 0) rc = mdb_env_open(opened->env, place.folder, place.flags | MDB_NOTLS, 0600);
  if (rc == 0) rc = OpenDatabase(opened);
  if (rc != 0) {
    LmdbClose(opened);
    return rc;
  }
  CloseOnExec(opened->env);
  LmdbRoomOpen(opened, place);
  return 0;
}

int LmdbCopy(const LmdbEnv &opened, const char *folder) {
  const int rc = mdb_env_copy(opened.env, folder);
  return rc >= 0 ? rc : EIO; /* the library's own errors are below */
}

void LmdbClose(LmdbEnv *opened) {
  if (opened->env != nullptr) mdb_env_close(opened->env);
  *opened = LmdbEnv{};
}

void LmdbRemove(const LmdbPlace &place) {
  for (const char *name : {"data.mdb", "lock.mdb"})
    (void)unlink(FileOf(place, name).c_str()); /* what stays shows when the place is opened */
}

int LmdbBegin(const LmdbEnv &opened, unsigned flags, MDB_txn **txn) {
  int rc = mdb_txn_begin(opened.env, nullptr, flags, txn);
  if (rc == MDB_READERS_FULL && (rc = mdb_reader_check(opened.env, nullptr)) == 0)
    rc = mdb_txn_begin(opened.env, nullptr, flags, txn);
  if (rc != 0 || (flags & MDB_RDONLY) != 0 || (rc = LmdbRoomBegin(opened)) == 0) return rc;
  mdb_txn_abort(*txn);
  *txn = nullptr;
  return rc;
}

/* The verdict comes through a pipe: an exit status does not reach a parent that ignores SIGCHLD. */
LmdbState LmdbCheck(const LmdbPlace &place, const char *key, const char *value) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return LMDB_UNKNOWN;
  pid_t child = fork();
  if (child == 0) CheckChild(place, key, value, ends[1]);
  close(ends[1]);
  char verdict = static_cast<char>(LMDB_UNKNOWN);
  while (child > 0 && read(ends[0], &verdict, 1) < 0 && errno == EINTR) continue;
  close(ends[0]);
  while (child > 0 && waitpid(child, nullptr, 0) < 0 && errno == EINTR) continue;
  return static_cast<LmdbState>(verdict);
}

std::string LmdbUser(const LmdbPlace &place) {
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_len = 1; /* the library's lock of every process that is attached */
  int fd = open(FileOf(place, "lock.mdb").c_str(), O_RDWR | O_CLOEXEC);
  if (fd < 0 && errno == ENOENT) return "";
  int rc = fd < 0 || fcntl(fd, F_GETLK, &lock) != 0 ? errno : 0;
  if (fd >= 0) close(fd);
  if (rc != 0)
    return std::string("whether it is in use cannot be told (") + strerror(rc) + "): start again";
  if (lock.l_type == F_UNLCK) return "";
  return "process " + std::to_string(lock.l_pid) + " has it open: stop that, then start again";
}
