// The transactions of each thread, and what becomes of one that fails; see transaction.h.
#include "transaction.h"

#include "ams_print.h"
#include "keep.h"
#include "lmdb_readers.h"

AmsTree shared_tree;

namespace {

thread_local ThreadTxns thread_txns;

/* Gives a thread's transactions back when it ends. */
struct ThreadEnd {
  ~ThreadEnd() {
    if (thread_txns.span != nullptr) mdb_txn_abort(thread_txns.span);
    if (thread_txns.cursor != nullptr) mdb_cursor_close(thread_txns.cursor);
    if (thread_txns.read != nullptr) mdb_txn_abort(thread_txns.read);
    delete thread_txns.kept;
    delete thread_txns.wide;
    thread_txns = ThreadTxns{};
  }
};

void HookThreadEnd() {
  thread_local ThreadEnd end;
  (void)end; /* made here on first use; its end is what counts */
}

}  // namespace

ThreadTxns *TreeThread() { return &thread_txns; }

namespace {

/* The thread's first read, or one inside its writes. */
int OtherReadBegin(ThreadTxns *mine, MDB_txn **txn) {
  if (mine->span != nullptr) {
    *txn = mine->span;
    return mine->failed ? -1 : 0; /* logged when the span went wrong */
  }
  if (shared_tree.lmdb.env == nullptr) {
    AMS_PRINT(4, "store: not attached; start with ShmPoolCliInit or ShmPoolSrvInit\n");
    return -1;
  }
  HookThreadEnd();
  int rc = LmdbBegin(shared_tree.lmdb, MDB_RDONLY, txn);
  if (rc != 0) return TreeFailed("reading", rc);
  mine->read = *txn;
  return 0;
}

}  // namespace

int TreeReadBegin(MDB_txn **txn) {
  ThreadTxns *mine = &thread_txns;
  if (mine->span != nullptr || mine->read == nullptr) return OtherReadBegin(mine, txn);
  int rc = mdb_txn_renew(*txn = mine->read);
  return rc == 0 ? 0 : TreeFailed("reading", rc);
}

void TreeReadEnd(MDB_txn *txn) {
  if (txn == thread_txns.read) mdb_txn_reset(txn);
}

size_t TreeReadId(MDB_txn *txn) { return txn == thread_txns.read ? mdb_txn_id(txn) : 0; }

int TreeOpenCursor(MDB_txn *txn, TreeCursor *cursor) {
  ThreadTxns &mine = thread_txns;
  MDB_cursor *opened = mine.cursor;
  int rc = 0;
  bool keep = txn == mine.read && !mine.cursor_lent;
  if (keep && opened != nullptr)
    rc = mdb_cursor_renew(txn, opened);
  else
    rc = mdb_cursor_open(txn, shared_tree.lmdb.dbi, &opened);
  if (rc != 0) return TreeFailed("reading", rc);
  if (keep) {
    mine.cursor = opened;
    mine.cursor_lent = true;
  }
  cursor->reset(opened);
  return 0;
}

void TreeCursorEnd::operator()(MDB_cursor *cursor) const {
  if (cursor == thread_txns.cursor)
    thread_txns.cursor_lent = false;
  else
    mdb_cursor_close(cursor);
}

int TreeWriteBegin(MDB_txn **txn) {
  ThreadTxns &mine = thread_txns;
  if (mine.in_span) {
    *txn = mine.span;
    return mine.span != nullptr && !mine.failed ? 0 : -1; /* logged when the span went wrong */
  }
  if (shared_tree.lmdb.env == nullptr) {
    AMS_PRINT(4, "store: not attached; start with ShmPoolCliInit or ShmPoolSrvInit\n");
    return -1;
  }
  HookThreadEnd();
  int rc = LmdbBegin(shared_tree.lmdb, 0, txn);
  if (rc != 0) return TreeFailed("opening a write to", rc);
  mine.span = *txn;
  if (mine.wide != nullptr) mine.wide->clear();
  mine.failed = false;
  return 0;
}

int TreeWriteEnd(MDB_txn *txn, int result) {
  ThreadTxns &mine = thread_txns;
  if (mine.in_span) return result;
  std::vector<NvramChange> before;
  if (result != 0 || mine.failed || KeepApply(&before) != 0) {
    mine.span = nullptr;
    KeepNothing();
    mdb_txn_abort(txn);
    return -1;
  }
  mine.span = nullptr;
  int rc = mdb_txn_commit(txn);
  if (rc == 0) return 0;
  KeepTakeBack(before);
  return TreeFailed("committing to", rc);
}

namespace {

/* The next write then finds pages that are free. */
void EndPinningReaders() {
  (void)mdb_reader_check(shared_tree.lmdb.env, nullptr); /* the dead */
  for (pid_t ended; (ended = LmdbEndStopped(shared_tree.lmdb)) != 0;)
    AMS_PRINT(4, "store: process %d stood still inside a read and kept all old pages: ended\n",
              ended);
}

}  // namespace

int TreeGivenUp() {
  thread_txns.failed = true;
  return -1;
}

int TreeFailed(const char *what, int rc) {
  if (rc == MDB_MAP_FULL) EndPinningReaders();
  const char *reason = rc == ENOSPC          ? "no memory is left below /dev/shm: free some there"
                       : rc == MDB_MAP_FULL  ? "the store is full: delete something"
                       : rc == MDB_CORRUPTED ? "it is damaged: restart dbmgr, which makes it anew"
                                             : mdb_strerror(rc);
  AMS_PRINT(4, "store: %s the tree failed: %s\n", what, reason);
  return TreeGivenUp();
}
