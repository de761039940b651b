// What op functions share: their log line, values of the data model, files of their own, and script
// calls that differ only in text, kept as rows of a table.
#pragma once

#include <cstddef>
#include <string>

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

/* Copies the leaf's whole value into `value`. 0, or -1 when there is no such leaf; `value` is
   untouched then. Logs nothing. */
int LeafString(const char *path, std::string *value);

/* As LeafString, for texts whose halves would mean something else, such as ports and paths. 0, also
   without the leaf; -1 (logged at level 4), `value` untouched, when it does not fit. */
int LeafText(const char *path, char *value, size_t size);
template <size_t N>
int LeafText(const char *path, char (&value)[N]) {
  return LeafText(path, value, N);
}

/* Makes `path` a new file with this text, which only the daemon's user may open. What had the name
   is removed: a link that somebody left there is not followed. 0, or -1 with errno, and no file.
   Any thread may call it, as LeafString and LeafText. */
int WriteOwnFile(const char *path, const std::string &text);

/* Whether `op` is one with which a service is brought up: at start, or when its parameters change.
 */
inline bool IsInitOrSet(int op) { return op == TMF_INIT || op == TMF_SET; }
