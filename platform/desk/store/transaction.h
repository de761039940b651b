// The transactions in which the store's calls read and write the tree.
#pragma once

#include <lmdb.h>

#include <cerrno>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "lmdb_env.h"
#include "nvram_desk.h"

struct AmsTree {
  LmdbEnv lmdb;
};
extern AmsTree shared_tree; /* open from ShmPoolSrvInit or ShmPoolCliInit on, for ever */

/* Logs an LMDB error of a write (and gives up the span, if there is one). Returns -1. */
int TreeFailed(const char *what, int rc);

/* The same for an error that was logged: a span cannot go on after it. Returns -1. */
int TreeGivenUp();

/* A row with pages of its own. Written again in one write, it stays where it is, and takes no more
   of them unless it needs more. */
struct WideRow {
  std::string key;
  size_t pages;
};

/* What one thread keeps: its read transaction between calls, and its span of writes. */
struct ThreadTxns {
  MDB_txn *read;      /* reset between calls; NULL before the first */
  MDB_cursor *cursor; /* of `read`, kept for the next scan */
  bool cursor_lent;
  MDB_txn *span;                  /* the open write transaction, else NULL */
  bool in_span;                   /* between ams_write_begin and ams_write_end */
  bool failed;                    /* a write of the span did not work: all of it is given up */
  std::vector<NvramChange> *kept; /* what the open write changes in nvram; NULL before the first */
  std::vector<WideRow> *wide;     /* those that the open write has written; NULL before the first */
};
ThreadTxns *TreeThread();

/* The transaction to read in. 0 or -1 (logged). TreeReadEnd closes what TreeReadBegin opened. */
int TreeReadBegin(MDB_txn **txn);
void TreeReadEnd(MDB_txn *txn);

/* The number of the commit that a transaction reads; 0: it writes, and what it reads may change. */
size_t TreeReadId(MDB_txn *txn);

/* Opens a cursor on a transaction of TreeReadBegin or TreeWrite; reading ones are kept. 0 or -1
   (logged). */
struct TreeCursorEnd {
  void operator()(MDB_cursor *cursor) const;
};
using TreeCursor = std::unique_ptr<MDB_cursor, TreeCursorEnd>;
int TreeOpenCursor(MDB_txn *txn, TreeCursor *cursor);

/* The write transaction: the span's, else a new one. TreeWriteEnd commits (result 0) or drops it,
   and first nvram's part of it; in a span it leaves it open. 0 or -1 (logged). */
int TreeWriteBegin(MDB_txn **txn);
int TreeWriteEnd(MDB_txn *txn, int result);

/* Without memory for the work it has failed; a span around it is given up then. */
template <class Work>
int TreeWork(const char *what, MDB_txn *txn, Work work) {
  try {
    return work(txn);
  } catch (const std::bad_alloc &) {
    return TreeFailed(what, ENOMEM);
  }
}
template <class Work>
int TreeRead(Work work) {
  MDB_txn *txn;
  if (TreeReadBegin(&txn) != 0) return -1;
  int result = TreeWork("reading", txn, work);
  TreeReadEnd(txn);
  return result;
}
template <class Work>
int TreeWrite(Work work) {
  MDB_txn *txn;
  if (TreeWriteBegin(&txn) != 0) return -1;
  return TreeWriteEnd(txn, TreeWork("writing", txn, work));
}
