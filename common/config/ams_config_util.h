// The board's small files and scripts: keys of shell-style files, hex digests, the flash type, the
// WAN rule scripts; for the board's other modules as well, some for them alone. Calls may come from
// any thread.
#pragma once

#include <cstddef>
#include <cstdio>

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
