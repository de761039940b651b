// What is said to the version manager of the desk, and by vermgtctl.
#pragma once

#include <cstdint>

#include "control.h"

constexpr char kVersionManager[] = "tdsmgr:vermgt";
enum : uint32_t {
  VERSION_ORDER = 0xfff04,    /* 320 bytes, the image's name at 192; answered with a state word */
  VERSION_STATE = 0xfff05,    /* a state word with its NUL; answered with one */
  VERSION_CONTROL = 0x110200, /* of vermgtctl; see control.h */
};
