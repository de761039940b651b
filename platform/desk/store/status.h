// Status values over a load.
#pragma once

#include <lmdb.h>

/* Takes the status values out of the tree that a load is about to replace; lays them over the new
   one where their leaves exist, once. 0 or -1 (logged). */
int StatusTake(MDB_txn *txn);
int StatusLay(MDB_txn *txn);
