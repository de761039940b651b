// What each function of this board does until it has a body: it says so and returns its error.
#pragma once

#include "ams_print.h"

/* Returns `...` (nothing from a function that has no result). */
#define REFUSE(...)                                                  \
  do {                                                               \
    AMS_PRINT(4, "%s: this board does not have it yet\n", __func__); \
    return __VA_ARGS__;                                              \
  } while (0)
