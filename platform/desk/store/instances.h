// The instances of arrays.
#pragma once

#include <lmdb.h>

#include <cstdint>
#include <vector>

#include "key.h"
#include "record.h"

/* The instance numbers of an array, ascending. 0 or -1 (logged). */
int TreeInstances(MDB_txn *txn, const Key &array, std::vector<uint32_t> *numbers);

/* Makes instance `number` of an array from its template. 0 or -1 (logged). */
int TreeAddInstance(MDB_txn *txn, const Key &array, uint32_t number);
int TreeDeleteInstance(MDB_txn *txn, const Key &array, uint32_t number);

/* Deletes the run of rows whose keys are `top` or lie below it. 0 or -1 (logged). */
int TreeDeleteRun(MDB_txn *txn, const Key &top);

/* Stores an array's counts and lets its "NumberOfEntries" sibling follow. 0 or -1 (logged). */
int TreePutCounts(MDB_txn *txn, const Key &array, const ArrayCounts &counts);
