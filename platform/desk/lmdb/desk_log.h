// One failure record of the desk's platform layer: text, then the place that wrote it.
#pragma once

#include "ams_print.h"

/* `place` is the folder, as in "platform/store". The arguments must have no side effects. */
#define DESK_LOG(place, ...)                            \
  do {                                                  \
    __AMS_PrintHead(4);                                 \
    __AMS_Print(4, __VA_ARGS__);                        \
    __AMS_Print(4, "  @P:%s,L:%d.\n", place, __LINE__); \
    __AMS_PrintEnd(4);                                  \
  } while (0)
