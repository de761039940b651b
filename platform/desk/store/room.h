// Room in the tree.
#pragma once

#include <lmdb.h>

#include <cstddef>

/* Takes room before a put or a delete; TreePut and its like do it by themselves. 0 or -1 (logged).
 */
int TreeRoom(MDB_txn *txn, size_t bytes);

/* Whether the tree may become larger, by a value of `bytes`. `again`: by what was in it before,
   which has a full store's reserve, too, but for what a commit needs. 0 or an error (not logged).
 */
int TreeMayGrow(MDB_txn *txn, size_t bytes, bool again);
