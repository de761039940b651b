// What the case files run by name, for neither an op function nor a message reaches it alone.
#pragma once

#include <string>

/* What it finds stands on standard output; the arguments are words with blanks between. */
struct OpsRun {
  const char *name;
  int (*run)(const std::string &arguments);
};

/* Ends with a row without a name. */
extern const OpsRun kOpsRuns[];
