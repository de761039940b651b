// What the tests of the settings share: the calls of platform/include/nvram.h with plain values.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <string>

#include "nvram.h"

using Settings = std::map<std::string, std::string>;

inline std::string Get(const char *key, int type = NVTYPE_STAGING) {
  std::unique_ptr<char, void (*)(void *)> value(nvram_get(key, type), free);
  return value == nullptr ? "(none)" : value.get();
}

inline Settings Walk(int type, const char *prefix = "") {
  Settings found;
  auto visit = [](const char *key, const char *value, void *context) {
    (*static_cast<Settings *>(context))[key] = value;
    return 0;
  };
  EXPECT_EQ(nvram_walk(type, prefix, visit, &found), 0);
  return found;
}

/* This process is attached from its first test on; each begins with empty areas. */
class Nvram : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(nvram_init_semaphore(), 0);
    ASSERT_EQ(nvram_clean(NVTYPE_STAGING) | nvram_clean(NVTYPE_BASIC), 0);
  }
};
