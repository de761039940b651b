// What is said to the version manager of the desk, and by vermgtctl.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>

#include "exit_status.h"

constexpr char kVersionManager[] = "tdsmgr:vermgt";
enum : uint32_t {
  kVersionOrder = 0xfff04, /* 320 bytes, the image's name at 192; answered with a state word */
  kVersionState = 0xfff05, /* a state word with its NUL; answered with one */
  /* of vermgtctl: a JSON object each way, in the answer the "status" that it ends with */
  kVersionControl = 0x110200,
};

using VersionJson = nlohmann::ordered_json;
