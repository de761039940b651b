// Status values over a load, or another laying of the kept parameters.
#pragma once

#include <lmdb.h>

/* Takes the status values out of the tree that a load is about to replace, or that kept parameters
   are about to be laid over; then those that a load has taken stay so. Lays them over the new one
   where their leaves exist, once. 0 or -1 (logged). */
int StatusTake(MDB_txn *txn);
int StatusTakeUnlessLoaded(MDB_txn *txn);
int StatusLay(MDB_txn *txn);
