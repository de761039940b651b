// Programs that serve modules; see service.h.
#include "service.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "ams_print.h"
#include "exit_status.h"

void ServiceBegin() {
  signal(SIGPIPE, SIG_IGN);
  AMS_UsrDumpInit();
  AMS_PrintMgt_Init();
}

int ServiceRun(const char *program, const ModuleEntry *modules) {
  if (SysInit(modules) != 0) {
    fprintf(stderr, "%s: cannot serve %s: does another one run?\n", program, modules->name);
    return EXIT_REFUSED;
  }
  for (;;) pause();
}
