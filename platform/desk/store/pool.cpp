// The store in shared memory: making it or taking it over as the server, attaching as a client, and
// the spans of writes that become visible together.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "ams_print.h"
#include "ams_store.h"
#include "tree.h"

struct XmlTreeSet *gptXmlTrees;

namespace {

/* Room for a tree of a million leaves; what is not used takes no memory. */
const LmdbPlace kPlace = {"/dev/shm/ams_store", 256 << 20,
                          MDB_WRITEMAP | MDB_NOSYNC | MDB_NOMEMINIT};
const char kFormatKey[] = {static_cast<char>(KEY_FORMAT), '\0'};

std::mutex attaching;
XmlTreeSet shared_set;

int WriteFormat() {
  MDB_txn *txn = nullptr;
  MDB_val key = LmdbVal(kFormatKey, 1), value = LmdbVal(kFormat, sizeof kFormat - 1);
  int rc = LmdbBegin(shared_tree.lmdb, 0, &txn);
  if (rc != 0) return rc;
  rc = mdb_put(txn, shared_tree.lmdb.dbi, &key, &value, 0);
  if (rc == 0) return mdb_txn_commit(txn);
  mdb_txn_abort(txn);
  return rc;
}

bool FormatFits() {
  MDB_txn *txn = nullptr;
  MDB_val key = LmdbVal(kFormatKey, 1), value;
  if (LmdbBegin(shared_tree.lmdb, MDB_RDONLY, &txn) != 0) return false;
  int rc = mdb_get(txn, shared_tree.lmdb.dbi, &key, &value);
  bool fits =
      rc == 0 && std::string_view(static_cast<char *>(value.mv_data), value.mv_size) == kFormat;
  mdb_txn_abort(txn);
  return fits;
}

/* A lock of this process, for its life, says that it is the server. 0 or -1 (logged). */
int BecomeServer() {
  const std::string file = std::string(kPlace.folder) + "/server.lock";
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  int rc = LmdbMakeFolder(kPlace);
  int fd = rc == 0 ? open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600) : -1;
  if (fd < 0) {
    AMS_PRINT(4, "store: making %s failed: %s\n", file.c_str(), strerror(rc != 0 ? rc : errno));
    return -1;
  }
  if (fcntl(fd, F_SETLK, &lock) == 0) return 0;
  if (fcntl(fd, F_GETLK, &lock) != 0) lock.l_pid = 0; /* for the text */
  AMS_PRINT(4, "store: process %d serves %s already: stop it first\n", lock.l_pid, kPlace.folder);
  close(fd);
  return -1;
}

/* A store that another server left is kept when it is sound, or cannot be looked at: its readers
   stay attached. Nobody's store is taken away. 0 or -1 (logged). */
int OpenAsServer() {
  bool damaged = LmdbCheck(kPlace, kFormatKey, kFormat) == LMDB_DAMAGED;
  const std::string user = damaged ? LmdbUser(kPlace) : "";
  if (!user.empty()) {
    AMS_PRINT(4, "store: %s is damaged, and %s\n", kPlace.folder, user.c_str());
    return -1;
  }
  if (damaged) LmdbRemove(kPlace);
  int rc = LmdbOpen(kPlace, true, &shared_tree.lmdb);
  if (rc == 0) rc = mdb_reader_check(shared_tree.lmdb.env, nullptr);
  /* Also when it is there: what the last commit gave back is for the write after the next. */
  int wrote = rc == 0 ? WriteFormat() : 0;
  if (damaged && rc == 0) rc = wrote;
  if (rc == 0) return 0;
  LmdbClose(&shared_tree.lmdb);
  AMS_PRINT(4, "store: making %s failed: %s\n", kPlace.folder, mdb_strerror(rc));
  return -1;
}

}  // namespace

struct XmlTreeSet *ShmPoolSrvInit(void) {
  std::lock_guard<std::mutex> guard(attaching);
  if (shared_tree.lmdb.env != nullptr) return &shared_set;
  if (BecomeServer() != 0) return nullptr;
  return OpenAsServer() == 0 ? &shared_set : nullptr;
}

/* The root stands also when nothing is loaded yet: what a server loads later is then there. */
struct XmlTreeSet *ShmPoolCliInit(void) {
  std::lock_guard<std::mutex> guard(attaching);
  if (shared_tree.lmdb.env == nullptr) {
    int rc = LmdbOpen(kPlace, false, &shared_tree.lmdb);
    if (rc == 0 && !FormatFits()) rc = MDB_VERSION_MISMATCH;
    if (rc != 0) {
      LmdbClose(&shared_tree.lmdb);
      AMS_PRINT(4, "store: no store at %s (%s): start the store's server first\n", kPlace.folder,
                mdb_strerror(rc));
      return nullptr;
    }
  }
  shared_set.root = &shared_tree;
  return &shared_set;
}

int ams_write_begin(void) {
  ThreadTxns &mine = *TreeThread();
  MDB_txn *txn;
  if (mine.in_span) {
    AMS_PRINT(4, "store: this thread has a span of writes open; end it first\n");
    return -1;
  }
  if (TreeWriteBegin(&txn) != 0) return -1;
  mine.in_span = true;
  return 0;
}

namespace {

int LeaveSpan(ThreadTxns *mine) {
  if (!mine->in_span) AMS_PRINT(4, "store: no span of writes is open on this thread\n");
  return std::exchange(mine->in_span, false) ? 0 : -1;
}

}  // namespace

int ams_write_end(void) {
  ThreadTxns *mine = TreeThread();
  if (LeaveSpan(mine) != 0) return -1;
  if (mine->failed) AMS_PRINT(4, "store: the span's writes are given up: one of them failed\n");
  return TreeWriteEnd(mine->span, 0);
}

int ams_write_cancel(void) {
  ThreadTxns *mine = TreeThread();
  if (LeaveSpan(mine) != 0) return -1;
  (void)TreeWriteEnd(mine->span, -1); /* says that all is given up */
  return 0;
}
