// What platform/include/nvram.h promises, on any board.
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "nvram_calls.h"

namespace {

TEST_F(Nvram, Refusals) {
  const std::string key(400, 'k'), value(32 * 1024, 'v');
  const struct {
    const char *what;
    std::string key, value;
    int type, result;
  } kCases[] = {
      {"longest key", key, "v", 1, 0},
      {"key too long", key + "k", "v", 1, -1},
      {"no key", "", "v", 1, -1},
      {"longest value", "k", value, 2, 0},
      {"value too long", "k", value + "v", 2, -1},
      {"area 0", "k", "v", 0, -1},
      {"area 3", "k", "v", 3, -1},
      {"empty value", "e", "", 2, 0},
  };
  for (const auto &c : kCases) {
    EXPECT_EQ(nvram_set(c.key.c_str(), c.value.c_str(), c.type), c.result) << c.what;
    if (c.result == 0) {
      EXPECT_EQ(Get(c.key.c_str(), c.type), c.value) << c.what;
    }
  }
  EXPECT_EQ(Get("k", NVTYPE_BASIC), value) << "what is refused leaves the old value";
  EXPECT_EQ(nvram_set("k", nullptr, 1), -1);
  EXPECT_EQ(nvram_unset("never set", 1), 0);
  EXPECT_EQ(nvram_get(nullptr, 1), nullptr);
  EXPECT_EQ(nvram_unset("k", 5), -1);
  EXPECT_EQ(nvram_commit(0), -1);
  EXPECT_EQ(nvram_clean(3), -1);
}

TEST_F(Nvram, AWalkSeesASnapshot) {
  for (const char *key : {"a.2", "a.1", "a", "b", "a.3"}) nvram_set(key, key, NVTYPE_STAGING);
  nvram_set("a.9", "other area", NVTYPE_BASIC);
  auto unset = [](const char *key, const char *, void *context) {
    static_cast<std::string *>(context)->append(key).append(" ");
    EXPECT_EQ(nvram_set("a.4", "new", NVTYPE_STAGING), 0);
    EXPECT_EQ(nvram_unset(key, NVTYPE_STAGING), 0);
    return strcmp(key, "a.2") == 0 ? 5 : 0;
  };
  std::string seen;
  EXPECT_EQ(nvram_walk(NVTYPE_STAGING, "a.", unset, &seen), 5);
  EXPECT_EQ(seen, "a.1 a.2 ");
  EXPECT_EQ(Walk(NVTYPE_STAGING),
            (Settings{{"a", "a"}, {"a.3", "a.3"}, {"a.4", "new"}, {"b", "b"}}));
  EXPECT_EQ(Walk(NVTYPE_STAGING, "c"), Settings{});
  EXPECT_EQ(nvram_walk(9, "", unset, &seen), -1);
}

TEST_F(Nvram, ThreadsDoNotLoseEachOthersSettings) {
  std::vector<std::thread> threads;
  for (int each = 0; each < 4; ++each)
    threads.emplace_back([each] {
      for (int round = 0; round < 50; ++round) {
        std::string key = std::to_string(each) + "." + std::to_string(round);
        EXPECT_EQ(nvram_set(key.c_str(), "v", NVTYPE_BASIC), 0);
        EXPECT_EQ(Get(key.c_str(), NVTYPE_BASIC), "v");
        if (round % 25 == 0) {
          EXPECT_EQ(nvram_commit(NVTYPE_BASIC), 0);
        }
      }
    });
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(Walk(NVTYPE_BASIC).size(), 200u);
}

/* Always the same calls: a failure can be repeated. */
TEST_F(Nvram, AreasBehaveAsPlainMaps) {
  std::mt19937 random(4711);
  Settings model[3];
  for (int step = 0; step < 2000; ++step) {
    const int type = random() % 2 == 0 ? NVTYPE_STAGING : NVTYPE_BASIC;
    const auto what = random() % 100;
    const std::string key = "k" + std::to_string(random() % 6), value(random() % 9, 'v');
    if (what < 55) {
      ASSERT_EQ(nvram_set(key.c_str(), value.c_str(), type), 0);
      model[type][key] = value;
    } else if (what < 92) {
      ASSERT_EQ(nvram_unset(key.c_str(), type), 0);
      model[type].erase(key);
    } else if (what < 97) {
      ASSERT_EQ(nvram_commit(type), 0);
    } else {
      ASSERT_EQ(nvram_clean(type), 0);
      model[type].clear();
    }
    ASSERT_EQ(Walk(1), model[1]) << step;
    ASSERT_EQ(Walk(2), model[2]) << step;
  }
}

}  // namespace
