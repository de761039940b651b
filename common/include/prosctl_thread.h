// Control messages to the process as a whole: print levels, the message trace, heap statistics.
#pragma once

#include "tds.h"

enum : unsigned {
  PROSCTL_PRINT_LEVEL =
      0xfff01,              /* module name (char[32], NUL-terminated), then the level (int32) */
  PROSCTL_TRACE = 0xfff02,  /* "on" or "off", NUL-terminated */
  PROSCTL_MALLOC = 0xfff03, /* no payload; answered with 4 zero bytes */
};
