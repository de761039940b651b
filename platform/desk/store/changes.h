// The change list: leaves with a notify attribute that changed since the list was read. Marks and
// list are kept in nvram area 1, beside the parameters, as "notify:PATH" and "changed:PATH", and
// laid over the tree after each load. Only the first change of a leaf is noted, so one that changes
// all the time does not wear the flash.
#pragma once

#include <lmdb.h>

#include <string_view>

#include "key.h"
#include "record.h"

/* The leaf changed; `before` is what it was, of which 255 bytes are noted. 0 or -1 (logged). */
int ChangeNote(MDB_txn *txn, const Key &leaf, std::string_view before);

/* Takes the leaf off the list. 0 or -1 (logged). */
int ChangeForget(MDB_txn *txn, const Key &leaf);

/* Gives the node that has the record the notify attribute; "0" takes it off the list, too. 0 or -1
   (logged). */
int NotifyPut(MDB_txn *txn, const Key &key, const Record &record, std::string_view value);

/* Lays kept marks and the kept list over a tree that was loaded. What is gone is passed over. 0 or
   -1 (logged). */
int ChangesLay(MDB_txn *txn);
