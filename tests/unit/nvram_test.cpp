// The settings store: what is seen at once, what survives a power cut, and what a crash leaves. The
// program is also its own second process; a "power cut" removes the working copy between processes.
#include "nvram.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using Settings = std::map<std::string, std::string>;

std::string Get(const char *key, int type) {
  std::unique_ptr<char, void (*)(void *)> value(nvram_get(key, type), free);
  return value == nullptr ? "(none)" : value.get();
}

Settings Walk(int type, const char *prefix) {
  Settings found;
  auto visit = [](const char *key, const char *value, void *context) {
    (*static_cast<Settings *>(context))[key] = value;
    return 0;
  };
  EXPECT_EQ(nvram_walk(type, prefix, visit, &found), 0);
  return found;
}

/* ---- the second process: "set KEY VALUE", "get KEY", ... done in order, area 1 ---- */

int Do(int argc, char **argv) {
  for (int at = 1; at < argc; ++at) {
    std::string word = argv[at];
    if (word == "set") {
      if (nvram_set(argv[at + 1], argv[at + 2], NVTYPE_STAGING) != 0) return 1;
      at += 2;
    } else if (word == "unset") {
      if (nvram_unset(argv[++at], NVTYPE_STAGING) != 0) return 1;
    } else if (word == "is") { /* exit 9 when it is something else */
      if (Get(argv[at + 1], NVTYPE_STAGING) != argv[at + 2]) return 9;
      at += 2;
    } else if (word == "same") { /* two keys */
      if (Get(argv[at + 1], NVTYPE_STAGING) != Get(argv[at + 2], NVTYPE_STAGING)) return 8;
      at += 2;
    } else if (word == "commit") {
      if (nvram_commit(NVTYPE_STAGING) != 0) return 1;
    } else if (word == "clean") {
      if (nvram_clean(NVTYPE_STAGING) != 0) return 1;
    } else if (word == "hammer") { /* pairs, committed, until it is killed */
      for (int round = 0; write(1, "+", 1) == 1; ++round) {
        std::string value = std::to_string(round);
        nvram_set("first", value.c_str(), NVTYPE_STAGING);
        nvram_set("second", value.c_str(), NVTYPE_STAGING);
        nvram_commit(NVTYPE_STAGING);
      }
    }
  }
  return 0;
}

pid_t Start(std::vector<const char *> words, int out = 1) {
  words.insert(words.begin(), "nvram_test");
  words.push_back(nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    dup2(out, 1);
    execv("/proc/self/exe", const_cast<char **>(words.data()));
    _exit(127);
  }
  return pid;
}
int RunWords(const std::vector<const char *> &words) {
  int status = -1;
  waitpid(Start(words), &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
void PowerCut() { EXPECT_EQ(system("rm -rf /dev/shm/nvram"), 0); }
void NewBoard() { EXPECT_EQ(system("rm -rf /dev/shm/nvram; rm -f /var/nvram/*"), 0); }

TEST(NvramPower, OnlyWhatWasCommittedSurvives) {
  NewBoard();
  EXPECT_EQ(RunWords({"is", "a", "(none)", "set", "a", "1", "set", "b", "2", "commit"}), 0);
  EXPECT_EQ(RunWords({"set", "a", "new", "unset", "b", "set", "c", "3"}), 0);
  EXPECT_EQ(RunWords({"is", "a", "new", "is", "b", "(none)", "is", "c", "3"}), 0) << "seen at once";
  PowerCut();
  EXPECT_EQ(RunWords({"is", "a", "1", "is", "b", "2", "is", "c", "(none)"}), 0);
  EXPECT_EQ(RunWords({"clean", "set", "d", "4", "is", "a", "(none)"}), 0);
  PowerCut();
  EXPECT_EQ(RunWords({"is", "a", "1", "is", "d", "(none)"}), 0) << "a clean needs a commit as well";
  EXPECT_EQ(RunWords({"set", "x", "0", "clean", "set", "d", "4"}), 0);
  EXPECT_EQ(RunWords({"commit", "commit"}), 0) << "by another process, and with nothing left to do";
  PowerCut();
  EXPECT_EQ(RunWords({"is", "a", "(none)", "is", "x", "(none)", "is", "d", "4"}), 0);
}

TEST(NvramPower, AKilledCommitIsWholeOrNotThere) {
  NewBoard();
  for (int round = 0; round < 8; ++round) {
    int out[2];
    char sign;
    ASSERT_EQ(pipe(out), 0);
    pid_t pid = Start({"hammer"}, out[1]);
    close(out[1]);
    for (int seen = 0; seen <= round; ++seen) ASSERT_EQ(read(out[0], &sign, 1), 1);
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    close(out[0]);
    PowerCut();
    EXPECT_EQ(RunWords({"same", "first", "second", "set", "third", "3", "commit"}), 0);
  }
}

TEST(NvramPower, DamageIsNotFatal) {
  struct Damage {
    const char *what, *command, *after;
  };
  const Damage kDamages[] = {
      {"working copy", "rm -f /dev/shm/nvram/lock.mdb; echo junk > /dev/shm/nvram/data.mdb", "1"},
      {"flash", "rm -rf /dev/shm/nvram; echo junk > /var/nvram/data.mdb", "(none)"},
  };
  for (const Damage &damage : kDamages) {
    NewBoard();
    ASSERT_EQ(RunWords({"set", "a", "1", "commit"}), 0);
    ASSERT_EQ(system(damage.command), 0);
    EXPECT_EQ(RunWords({"is", "a", damage.after, "set", "b", "2", "commit"}), 0) << damage.what;
    PowerCut();
    EXPECT_EQ(RunWords({"is", "b", "2"}), 0) << damage.what;
  }
  EXPECT_EQ(access("/var/nvram/data.mdb.bad", F_OK), 0) << "the damaged flash is kept to look at";
}

TEST(NvramPower, ManyStartAtOnce) {
  NewBoard();
  ASSERT_EQ(RunWords({"set", "a", "flash", "commit"}), 0);
  PowerCut();
  std::vector<pid_t> pids;
  std::vector<std::string> keys;
  for (int each = 0; each < 8; ++each) keys.push_back("k" + std::to_string(each));
  for (const std::string &key : keys)
    pids.push_back(Start({"is", "a", "flash", "set", key.c_str(), "v", "commit"}));
  for (pid_t pid : pids) {
    int status = -1;
    waitpid(pid, &status, 0);
    EXPECT_EQ(status, 0);
  }
  PowerCut();
  for (const std::string &key : keys) EXPECT_EQ(RunWords({"is", key.c_str(), "v"}), 0) << key;
}

/* From here on this process is attached itself. */
class Nvram : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(nvram_init_semaphore(), 0);
    ASSERT_EQ(nvram_clean(NVTYPE_STAGING) | nvram_clean(NVTYPE_BASIC), 0);
  }
};

TEST_F(Nvram, Refusals) {
  std::string key(400, 'k'), value(32 * 1024, 'v');
  struct Case {
    const char *what;
    std::string key, value;
    int type, result;
  };
  const Case kCases[] = {
      {"longest key", key, "v", 1, 0},
      {"key too long", key + "k", "v", 1, -1},
      {"no key", "", "v", 1, -1},
      {"longest value", "k", value, 2, 0},
      {"value too long", "k", value + "v", 2, -1},
      {"area 0", "k", "v", 0, -1},
      {"area 3", "k", "v", 3, -1},
      {"empty value", "e", "", 2, 0},
  };
  for (const Case &c : kCases) {
    EXPECT_EQ(nvram_set(c.key.c_str(), c.value.c_str(), c.type), c.result) << c.what;
    if (c.result == 0) {
      EXPECT_EQ(Get(c.key.c_str(), c.type), c.value) << c.what;
    }
  }
  EXPECT_EQ(Get("k", NVTYPE_BASIC), value) << "what is refused leaves the old value";
  EXPECT_EQ(nvram_set("k", nullptr, 1), -1);
  EXPECT_EQ(nvram_unset("never set", 1), 0);
  EXPECT_EQ(nvram_unset("k", 5), -1);
  EXPECT_EQ(nvram_commit(0), -1);
  EXPECT_EQ(nvram_clean(3), -1);
  EXPECT_EQ(nvram_get(nullptr, 1), nullptr);
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
  EXPECT_EQ(Walk(NVTYPE_STAGING, ""),
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
  EXPECT_EQ(Walk(NVTYPE_BASIC, "").size(), 200u);
}

TEST_F(Nvram, AreasBehaveAsPlainMaps) {
  bool holds = rc::check("random calls on both areas", [] {
    Settings model[3];
    RC_ASSERT((nvram_clean(NVTYPE_STAGING) | nvram_clean(NVTYPE_BASIC)) == 0);
    int steps = *rc::gen::inRange(1, 30);
    for (int step = 0; step < steps; ++step) {
      int type = *rc::gen::inRange(1, 3), what = *rc::gen::inRange(0, 12);
      std::string key = "k" + std::to_string(*rc::gen::inRange(0, 6));
      std::string value = *rc::gen::container<std::string>(rc::gen::inRange('a', 'e'));
      if (what < 6) {
        RC_ASSERT(nvram_set(key.c_str(), value.c_str(), type) == 0);
        model[type][key] = value;
      } else if (what < 10) {
        RC_ASSERT(nvram_unset(key.c_str(), type) == 0);
        model[type].erase(key);
      } else if (what == 10) {
        RC_ASSERT(nvram_commit(type) == 0);
      } else {
        RC_ASSERT(nvram_clean(type) == 0);
        model[type].clear();
      }
      RC_ASSERT(Walk(1, "") == model[1]);
      RC_ASSERT(Walk(2, "") == model[2]);
    }
  });
  EXPECT_TRUE(holds);
}

}  // namespace

int main(int argc, char **argv) {
  if (argc > 1 && strncmp(argv[1], "--", 2) != 0) return Do(argc, argv);
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
