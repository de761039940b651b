// Commits of LMDB that fail when a test says so (linked with --wrap=mdb_txn_commit).
#pragma once

#include <lmdb.h>

#include <cerrno>
#include <string>
#include <utility>

/* What happens to the next ones: '+', or '-' for one that fails, once `at_failure` is done. */
inline std::string commits;
inline void (*at_failure)();

extern "C" int __real_mdb_txn_commit(MDB_txn *txn);
extern "C" int __wrap_mdb_txn_commit(MDB_txn *txn);
int __wrap_mdb_txn_commit(MDB_txn *txn) {
  const bool fails = commits[0] == '-';
  if (!commits.empty()) commits.erase(0, 1);
  if (!fails) return __real_mdb_txn_commit(txn);
  mdb_txn_abort(txn);
  if (at_failure != nullptr) std::exchange(at_failure, nullptr)();
  return ENOMEM;
}
