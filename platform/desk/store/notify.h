// Notify attributes, which are beside the nodes.
#pragma once

#include <lmdb.h>

#include <string_view>

#include "record.h"

/* Gives the node that has the record the attribute; "0" takes it off the change list, too. 0 or -1
   (logged). */
int NotifyPut(MDB_txn *txn, const Key &key, const Record &record, std::string_view value);
