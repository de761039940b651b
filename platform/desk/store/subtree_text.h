// The text of all leaves below a node.
#pragma once

#include <lmdb.h>

#include <cstdlib>
#include <memory>
#include <vector>

#include "key.h"

/* "name=value" and AMS_SEPARATOR of each leaf, as the rows stand. */
struct SubtreeText {
  struct Run {
    size_t at, length;
  };
  std::unique_ptr<char, decltype(&free)> text = {nullptr, free};
  size_t size = 0;
  std::vector<Run> runs; /* of `text`, in the file's order */
};

/* Reads the leaves below `top`; their names are the paths behind it. 0, or -1: there is no such
   node (not logged), or it cannot be read. */
int SubtreeRead(MDB_txn *txn, const Key &top, SubtreeText *text);

/* Writes the text in the file's order, with a NUL instead of the last separator: `text.size` bytes,
   one of an empty text. */
void SubtreePut(const SubtreeText &text, char *out);
