// Access to parameters and the board's files for the op functions: status writes, data-model paths,
// the shell-command runner, key search in shell-style files, digests, the WAN rule scripts. The
// typed views of the data model are in ams_config_tree.h.
//
// Calls may come from any module thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

struct OpFuncArg;

/* ---- parameters ---- */

/* Writes status value `val` to `path` (read-only parameters too). The store's result; -1 (logged at
   level 4) when either is NULL. */
int cfgStatusSetStr(const char *path, const char *val);

/* 0 when the node exists, else -1. */
int cfgNodeExists(const char *path);

/* The highest instance number of an array into `max`, -1 when it is no array. Returns 0. */
int cfgGetArrayMaxIndex(const char *path, int32_t *max);

/* How many rows the array (its path ends in ".") has. -1 (logged at level 4) when it is no array.
 */
int cfgGetTotalInstance(const char *path);

/* When the request's value has the leaf `source`: copies the value of `source` below `object` to
   `target` below it, where that exists (a status write if a plain one is refused). Unless `type` is
   "string" it is written as a decimal integer. 0, or the store's result. */
int cfgCopyNodeValue(const OpFuncArg *arg, const char *object, const char *source,
                     const char *target, const char *type);

/* ---- texts and paths: without the store; what does not fit is logged at level 4 ---- */

/* The last component of a path that is all digits (one trailing "." is passed over); -1 when there
   is none or the path has less than 2 characters. Numbers that do not fit read as INT32_MAX. */
int cfgPathLastIndex(const char *path);

/* Stores the first `room` components that are all digits, in order. How many were stored; -1 when
   both are NULL. */
int cfgPathIndexes(const char *path, int32_t *indexes, size_t room);

/* The name of a WAN connection: "PPP_1_2_3" when its path has "PPP", else "IP_1_2_3", from the
   first three numbers in the path (those that are missing are 0), cut to `size`. 0; -1 when the
   path has no number. */
int cfgWanConnName(const char *path, char *name, size_t size);

/* Cuts a path (in a buffer of `size` bytes) behind the first occurrence of `name`: to "...name."
   with flag 0, else to the end of the component that has it, with its ".". -1, the path untouched,
   when the name is not in it or the "." does not fit. */
int cfgPathCut(char *path, size_t size, const char *name, int flag);

/* 1 when the text begins with four numbers of 0 to 255 with dots between them; 0 also for NULL. */
int cfgIsIpv4Addr(const char *text);

/* Two lower-case hex digits for each byte of `text`, terminated; an empty text leaves `hex` alone.
   0; -1, `hex` untouched, when it does not fit into `size` bytes. */
int cfgHexEncode(const char *text, char *hex, size_t size);

template <size_t N>
int cfgPathIndexes(const char *path, int32_t (&indexes)[N]) {
  return cfgPathIndexes(path, indexes, N);
}
template <size_t N>
int cfgWanConnName(const char *path, char (&name)[N]) {
  return cfgWanConnName(path, name, N);
}
template <size_t N>
int cfgPathCut(char (&path)[N], const char *name, int flag) {
  return cfgPathCut(path, N, name, flag);
}
template <size_t N>
int cfgHexEncode(const char *text, char (&hex)[N]) {
  return cfgHexEncode(text, hex, N);
}

/* ---- commands and files ---- */

/* Formats a command line, logs it, runs it through the shell and waits for the shell: a line that
   ends in "&" leaves its command in the background. Returns 0 whatever the command does; -1 (logged
   at level 4) when it was not run: the line is longer than 511 bytes, or there was no process or no
   memory for it. An op function need not look at the result: the framework refuses the request of
   one whose command was not run, whatever it returns (see appt_Do_OpFunc). */
int cfgSystemCmd(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* The same for a line of any length, without the record that it is run. */
int cfgShell(const char *line);

/* Whether a command of the calling thread was not run since this was last asked: the framework asks
   around each op function. */
bool cfgCommandFailed();

/* Copies the value of a KEY=value line into `value` (`size` bytes, cut and terminated). `key` ends
   in "=". The first 8191 bytes are searched for its first occurrence as a substring. 0 found; -1
   (logged): no file, no such key, or its first occurrence is commented out. */
int cfgFileKeyGet(const char *file, const char *key, char *value, size_t size);

/* SHA-256 of `input` (at most 32 bytes) as 64 lower-case hex digits. 0, or -1 (logged at level 4,
   `digest` untouched). */
int cfgSha256Hex(const char *input, char (&digest)[65]);

/* 0 when the board's flash is NAND, else -1. */
int cfgFlashIsNand();

/* Rewrites a small file (10 lines of 127 bytes) without the lines whose text after the second ":"
   begins with the 3-byte `tag`. 0, or -1 (logged) when it cannot be opened. */
int cfgFileDropLines(const char *file, const char *tag);

/* The WAN rule scripts. `reset` and `whole`: 0 or not; the result is cfgSystemCmd's. */
int cfgWanRulesParse(int reset, const char *name, int whole, const char *extra);
int cfgWanRulesParseWhole(int reset, const char *name, const char *extra);
int cfgWanRulesClean(int reset, const char *name);
int cfgWanRulesApply(int reset, const char *name, const char *extra /* may be NULL */);

/* Closes both files; NULL is passed over. */
void cfgDoubleClose(FILE *first, FILE *second);

template <size_t N>
int cfgFileKeyGet(const char *file, const char *key, char (&value)[N]) {
  return cfgFileKeyGet(file, key, value, N);
}
