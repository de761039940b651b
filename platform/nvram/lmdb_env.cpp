// LMDB environments of the desk's stores: opening, removing, and telling a damaged one.
#include "lmdb_env.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace {

constexpr unsigned kMaxReaders = 1000; /* threads that read, in all processes together */
constexpr unsigned kSoundSeconds = 10; /* a damaged tree may lead the reader in circles */

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

int ReadAll(const LmdbEnv &opened, const char *key, const char *value) {
  MDB_txn *txn = nullptr;
  MDB_cursor *cursor = nullptr;
  MDB_val found_key, found = LmdbVal(nullptr, 0), wanted = LmdbVal(key, strlen(key));
  if (LmdbBegin(opened, MDB_RDONLY, &txn) != 0) return -1;
  int rc = mdb_get(txn, opened.dbi, &wanted, &found);
  if (rc == 0 && (found.mv_size != strlen(value) || memcmp(found.mv_data, value, found.mv_size)))
    rc = -1;
  unsigned sum = 0;
  if (rc == 0 && (rc = mdb_cursor_open(txn, opened.dbi, &cursor)) == 0)
    while ((rc = mdb_cursor_get(cursor, &found_key, &found, MDB_NEXT)) == 0)
      for (size_t at = 0; at < found.mv_size; ++at)
        sum += static_cast<const volatile unsigned char *>(found.mv_data)[at];
  (void)sum; /* the bytes were touched, that is all */
  return rc == MDB_NOTFOUND && cursor != nullptr ? 0 : -1;
}

[[noreturn]] void SoundChild(const LmdbPlace &place, const char *key, const char *value) {
  for (int signum : {SIGSEGV, SIGBUS, SIGFPE, SIGABRT, SIGILL, SIGALRM}) signal(signum, SIG_DFL);
  alarm(kSoundSeconds);
  LmdbEnv opened;
  if (LmdbOpen(place, false, &opened) != 0) _exit(1);
  _exit(ReadAll(opened, key, value) == 0 ? 0 : 1);
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
  return 0;
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
  if (rc != MDB_READERS_FULL) return rc;
  rc = mdb_reader_check(opened.env, nullptr);
  return rc != 0 ? rc : mdb_txn_begin(opened.env, nullptr, flags, txn);
}

bool LmdbSound(const LmdbPlace &place, const char *key, const char *value) {
  pid_t child = fork();
  if (child == 0) SoundChild(place, key, value);
  int status = 0;
  while (child > 0 && waitpid(child, &status, 0) < 0)
    if (errno != EINTR) return false;
  return child > 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}
