// The text of all leaves below a node.
#pragma once

#include <lmdb.h>

#include <cstdlib>
#include <memory>
#include <vector>

#include "key.h"

/* "name=value" with AMS_SEPARATOR behind each leaf, in runs that are to be put into the file's
 * order.
 */
struct SubtreeText {
  struct Run {
    size_t at, length;
  };
  std::unique_ptr<char, decltype(&free)> text = {nullptr, free};
  size_t size = 0;
  std::vector<Run> runs; /* of `text`, as the file has them */
};

/* Reads the leaves below `top`; their names are the paths behind it. 0, or -1: there is no such
   node, or it cannot be read (logged). */
int SubtreeRead(MDB_txn *txn, const Key &top, SubtreeText *text);

/* Writes the text, `text.size` bytes, of which the last is a NUL instead of a separator; an empty
   text has none. */
void SubtreePut(const SubtreeText &text, char *out);
