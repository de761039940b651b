// The board's print service; see platform/include/ams_print.h. Until the board's own is behind it,
// each piece of a record goes to standard error as it comes, so that the other files are heard.
#include "ams_print.h"

#include <cstdarg>
#include <cstdio>

#include "refuse.h"

void AMS_PrintMgt_Init(void) { REFUSE(); }

void AMS_UsrDumpInit(void) { REFUSE(); }

int AMS_PrintWanted(int) { return 1; }

void __AMS_PrintHead(int level) { fprintf(stderr, "%d ", level); }

void __AMS_Print(int, const char *format, ...) {
  va_list args;
  va_start(args, format);
  vfprintf(stderr, format, args);
  va_end(args);
}

void __AMS_PrintEnd(int) {}

void AMS_PrintThreadModule(const char *) { REFUSE(); }

int COMMON_GetParentNode(const char *, char *parent, size_t size) {
  if (size > 0) parent[0] = '\0';
  REFUSE(-1);
}
