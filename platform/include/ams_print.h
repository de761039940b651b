// The board's print service: one record of text a thread, written in one piece.
//
// All calls may come from any thread. A record is built by one head, any number of texts and one
// end, all with the same level, on the same thread; callers use AMS_PRINT, which makes
// the whole record.
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* One row of the print-level map. Levels: 1 progress .. 4 failure, 5 allocation failure. */
struct PrtMapEntry {
  const char *name; /* module ("sysmgr:devInfo") or "default"; NULL ends the map */
  int32_t level;    /* records below it are not printed; read and written atomically */
};

/* Exported by the program: the first row is "default", used by threads that no row names. */
extern struct PrtMapEntry DF_PRT_MAP[];

/* Prepares the service for this process (stdout becomes line buffered, so that plain printf texts
   reach the log in order). Call once. Records of before it are printed, too. */
void AMS_PrintMgt_Init(void);

/* Installs handlers that write a back trace to standard error when the process dies of SIGSEGV,
   SIGBUS, SIGILL, SIGFPE or SIGABRT, and then lets it die of that: a line "back trace:", then a
   line a frame with the program's name and the address. Call once at start. */
void AMS_UsrDumpInit(void);

/* Whether a record of this level is printed: when it is at or above the level that DF_PRT_MAP has
   for the module of the calling thread. Spares a caller the making of one that is not. */
int AMS_PrintWanted(int level);

/* Opens a record; what follows is dropped where AMS_PrintWanted says no. */
void __AMS_PrintHead(int level);

/* Adds text to the open record. A record holds 4095 bytes; what is beyond is cut. */
void __AMS_Print(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));

/* Writes the record to standard error: local time, module ("default" of a thread without one),
   level and text, as in "2026-11-24 21:35:21.123 sysmgr:devInfo 4 text", and a line feed where it
   lacks one. */
void __AMS_PrintEnd(int level);

/* Names the module of the calling thread for the print service; the message runtime calls it when
   it starts a module thread. `name` must live as long as the thread. */
void AMS_PrintThreadModule(const char *name);

/* From the same library: the path of the node that `path` lies in, without a trailing ".", into
   `parent` (`size` bytes). 0; -1 and "" when there is none or it does not fit. */
int COMMON_GetParentNode(const char *path, char *parent, size_t size);

#ifdef __cplusplus
}

/* How much of a source's name the records show: "source/devinfo_func" of source/devinfo_func.cpp.
 */
constexpr int AmsSourceLength(const char *source) {
  int length = 0, dot = -1;
  for (; source[length] != '\0'; ++length)
    if (source[length] == '.' && source[length + 1] == 'c') dot = length;
  return dot < 0 ? length : dot;
}

/* What all records have in common, once: a program has hundreds. Whether one is printed, then it is
   open; and its location and end. */
[[gnu::noinline]] inline bool AmsRecordOpen(int level) {
  if (AMS_PrintWanted(level) == 0) return false;
  __AMS_PrintHead(level);
  return true;
}
[[gnu::noinline]] inline void AmsRecordClose(int level, const char *source, int line) {
  __AMS_Print(level, "  @P:%.*s,L:%d.\n", AmsSourceLength(source), source, line);
  __AMS_PrintEnd(level);
}

/* Makes one whole record; the format and its arguments are printf's. They must have no side
   effects: they are not evaluated when the record is not printed. `source` and `line` say who
   writes it. */
#define AMS_PRINT_AT(level, source, line, ...) \
  do {                                         \
    if (AmsRecordOpen(level)) {                \
      __AMS_Print(level, __VA_ARGS__);         \
      AmsRecordClose(level, source, line);     \
    }                                          \
  } while (0)

/* The same from where it stands. */
#define AMS_PRINT(level, ...) AMS_PRINT_AT(level, __FILE__, __LINE__, __VA_ARGS__)

template <size_t N>
int COMMON_GetParentNode(const char *path, char (&parent)[N]) {
  return COMMON_GetParentNode(path, parent, N);
}
#endif
