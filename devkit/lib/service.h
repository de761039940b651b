// The main function of the desk's programs that serve modules.
#pragma once

#include "tds.h"

/* First: signals and the log. */
void ServiceBegin();

/* Last: serves the modules for ever. The exit status when a name is taken already, which is told as
   `program`'s. */
int ServiceRun(const char *program, const ModuleEntry *modules);
