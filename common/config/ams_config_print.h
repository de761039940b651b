// The records of the views and of the paths.
#pragma once

#include "ams_print.h"

/* They name the library's main file: whoever reads the logs looks for it. */
#define CONFIG_PRINT(level, ...) \
  AMS_PRINT_AT(level, "./../common/include/ams_config_api", __LINE__, __VA_ARGS__)
