// Data-model paths and small texts, without the store; what does not fit is logged at level 4.
// Calls may come from any thread.
#pragma once

#include <cstddef>
#include <cstdint>

/* The text, "" for NULL. */
inline const char *cfgText(const char *text) { return text == nullptr ? "" : text; }

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
