// What op functions share: their log line, integers of the data model, and script calls that differ
// only in text, kept as rows of a table.
#pragma once

#include <cstddef>

#include "ams_common_api.h"

/* The line that an op function logs first; a module whose handlers leave their name out of it takes
   OP_LOG_UNNAMED. Macros, so that the location is the handler's. */
#define OP_LOG(arg)                                                                      \
  AMS_PRINT(2, "%s: op: %d, path: %s, value: %s\n", (arg)->name, (arg)->op, (arg)->path, \
            (arg)->value == nullptr ? "(null)" : (arg)->value)
#define OP_LOG_UNNAMED(arg)                                             \
  AMS_PRINT(2, "op: %d, path: %s, value: %s\n", (arg)->op, (arg)->path, \
            (arg)->value == nullptr ? "(null)" : (arg)->value)

/* One command line of an op function. "%s" in it becomes the node's path, "%d" its instance number.
 */
struct ScriptRow {
  const char *name;
  int op;
  const char *line;
};

/* Runs the lines that the rows have for the op function and op of `arg`, in order. Returns 0. */
int ScriptRowsRun(const ScriptRow *rows, size_t count, const OpFuncArg *arg);

template <size_t N>
int ScriptRowsRun(const ScriptRow (&rows)[N], const OpFuncArg *arg) {
  return ScriptRowsRun(rows, N, arg);
}

/* The leaf's value as atoi reads it; `without` when there is no such leaf. */
int LeafInt(const char *path, int without = 0);

/* Whether `op` is one with which a service is brought up: at start, or when its parameters change.
 */
inline bool IsInitOrSet(int op) { return op == TMF_INIT || op == TMF_SET; }
