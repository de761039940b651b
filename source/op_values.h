// What op functions read and write: values of the data model, and files of their own.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

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

/* `text` with U+FFFD for each control character: a value of the store that has byte 0x03 would be
   refused, and none of them has a meaning to who reads it. */
std::string PrintableText(std::string_view text);

/* Makes `path` a new file with this text, which only the daemon's user may open. What had the name
   is removed: a link that somebody left there is not followed. 0, or -1 with errno, and no file.
   Any thread may call it, as LeafString and LeafText. */
int WriteOwnFile(const char *path, const std::string &text);
