// The desk's settings between processes: what survives a power cut or a crash, and what full or
// damaged memory does. Until the last two tests this process itself is not attached, so that others
// can be forked from it.
#include "nvram_desk.h"

#include <pthread.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/ptrace.h>
#include <sys/resource.h>

#include <cstring>
#include <vector>

#include "../failing_commit.h"
#include "../other_process.h"
#include "lmdb_env.h"
#include "nvram_support.h"

namespace {

const LmdbPlace kWorkPlace = {"/dev/shm/nvram", 256 << 20, MDB_NOSYNC};

bool Apply(const std::vector<NvramChange> &changes) {
  return nvram_desk_apply(NVTYPE_STAGING, changes) == 0;
}

bool MountShm(const std::string &size) {
  return mount("none", "/dev/shm", "tmpfs", 0, ("size=" + size).c_str()) == 0;
}

TEST(NvramPower, OnlyWhatWasCommittedSurvives) {
  NewBoard();
  EXPECT_TRUE(Elsewhere([] { return Set("a", "1") && Set("b", "2") && Commit(); }));
  EXPECT_TRUE(Elsewhere([] { return Set("a", "new") && nvram_unset("b", 1) == 0; }));
  EXPECT_TRUE(Elsewhere([] { return Is("a", "new") && Is("b", "(none)"); })) << "seen at once";
  PowerCut();
  EXPECT_TRUE(Elsewhere([] { return Is("a", "1") && Is("b", "2") && nvram_clean(1) == 0; }));
  PowerCut();
  EXPECT_TRUE(Elsewhere([] { return Is("a", "1"); })) << "a clean needs a commit as well";
  EXPECT_TRUE(Elsewhere([] { return nvram_clean(1) == 0 && Set("d", "4"); }));
  EXPECT_TRUE(Elsewhere([] { return Commit() && Commit(); })) << "by another process, and again";
  PowerCut();
  EXPECT_TRUE(Elsewhere([] { return Is("a", "(none)") && Is("d", "4"); }));
}

/* What a commit writes does not depend on what is kept already; and the file does not grow for
 * ever. */
TEST(NvramPower, ACommitIsAddedToItsFile) {
  NewBoard();
  ASSERT_TRUE(Elsewhere([] {
    for (int each = 0; each < 1000; ++each)
      if (!Set("key" + std::to_string(each), std::string(100, 'v'))) return false;
    return Commit() && Apply({{"key5", "new"}});
  }));
  const std::string before = FileBytes("area1");
  ASSERT_TRUE(Elsewhere([] { return Apply({{"key7", "other"}, {"key5", "new"}, {"key9", {}}}); }));
  EXPECT_EQ(FileBytes("area1"), WithChanges(before, {{"key7", "=other"}, {"key9", ""}}));
  EXPECT_TRUE(Elsewhere([] { return Set("key3", "1") && nvram_unset("key4", 1) == 0; }));
  EXPECT_TRUE(Elsewhere([] { return Set("key3", std::string(100, 'v')) && Commit(); }));
  EXPECT_EQ(FileBytes("area1"),
            WithChanges(WithChanges(before, {{"key7", "=other"}, {"key9", ""}}), {{"key4", ""}}))
      << "what is as it was at the commit before is not written";
  EXPECT_TRUE(Elsewhere([] {
    for (int round = 0; round < 4000; ++round)
      if (!Apply({{"key5", std::to_string(round) + std::string(100, 'r')}})) return false;
    return true;
  }));
  EXPECT_LT(FileBytes("area1").size(), 3 * before.size());
  const Settings last = OnFlash(1);
  EXPECT_EQ(last.at("key5"), "3999" + std::string(100, 'r'));
  EXPECT_EQ(last.size(), 998U);
  EXPECT_TRUE(Elsewhere([] {
    return Set("key0", "x") && Set("a", "x") && Set("z", "x") && nvram_unset("key9999", 1) == 0 &&
           nvram_unset("key2", 1) == 0 && unlink("/var/nvram/area1") == 0 && Commit();
  }));
  EXPECT_EQ(FileBytes("area1.1"), FlashFile(1, last)) << "anew, as it was at the last commit";
  PowerCut();
  EXPECT_TRUE(Elsewhere([] { return Walk(NVTYPE_STAGING) == OnFlash(1); }));
}

/* Kills a process at the nth stop at a system call behind its raise(SIGSTOP), or lets it end. True:
   it was killed. */
bool KillAtCall(const Steps &steps, int nth) {
  int status = 0;
  pid_t pid = StartStopped([&] {
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    raise(SIGSTOP);
    return steps();
  });
  for (int calls = 0; calls < nth && (calls == 0 || WIFSTOPPED(status)); ++calls) {
    ptrace(PTRACE_SYSCALL, pid, nullptr, nullptr);
    waitpid(pid, &status, 0);
  }
  if (WIFSTOPPED(status)) {
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
  }
  EXPECT_TRUE(WIFSIGNALED(status) || status == 0) << status;
  return WIFSIGNALED(status);
}

TEST(NvramPower, AStepThatIsKilledIsWholeOrNotThere) {
  if (!Elsewhere([] { return ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0; }))
    GTEST_SKIP() << "an emulator, where no process can be traced";
  NewBoard();
  ASSERT_TRUE(Elsewhere([] { return Apply({{"first", "0"}, {"second", "0"}}); }));
  bool killed = true;
  for (int nth = 1; killed; nth += 2) { /* each call stops twice; after one is before the next */
    const std::string value = std::to_string(nth);
    killed = KillAtCall([&] { return Apply({{"first", value}, {"second", value}}); }, nth);
    ASSERT_EQ(access("/var/nvram/area1", F_OK), 0) << "at each instant, call " << nth;
    const Steps look = [&] { return Is("first", killed ? Get("second") : value); };
    ASSERT_TRUE(Elsewhere(look)) << "seen by others, call " << nth;
    PowerCut();
    ASSERT_TRUE(Elsewhere(look)) << "on flash, call " << nth;
    ASSERT_NE(access("/var/nvram/area1.bad.1", F_OK), 0) << "no damage either, call " << nth;
    ASSERT_LT(nth, 1000);
  }
}

/* Steps of 4 KB each until there is no room: the last one is nowhere then, the others everywhere.
 */
bool Fill() {
  Settings model = {{"k", "v"}};
  for (int each = 100; each < 200; ++each) {
    const std::string key = "k" + std::to_string(each), value(2048, 'v');
    if (!Apply({{key, value}, {key + ".", value}}))
      return Walk(NVTYPE_STAGING) == model && OnFlash(1) == model;
    model[key] = model[key + "."] = value;
  }
  return false; /* there was room for all */
}

TEST(NvramPower, FullMemoryIsAnErrorAndNoSignal) {
  int too_small = 0, enough = 0;
  for (int kilobytes = 16; kilobytes <= 160; kilobytes += 12) {
    NewBoard();
    ASSERT_TRUE(Elsewhere([] { return Set("k", "v") && Commit(); }));
    ASSERT_TRUE(MountShm(std::to_string(kilobytes) + "k"));
    bool starts = Elsewhere([] { return nvram_init_semaphore() == 0; });
    ++(starts ? enough : too_small);
    EXPECT_EQ(Elsewhere([] { return nvram_init_semaphore() == 0 && Fill(); }), starts) << kilobytes;
    EXPECT_EQ(system("mount --options-mode ignore -o remount,size=8m /dev/shm"), 0);
    EXPECT_TRUE(Elsewhere([] { return Set("after", "1") && Is("after", "1"); })) << kilobytes;
    EXPECT_EQ(umount("/dev/shm"), 0);
  }
  EXPECT_GT(too_small, 0);
  EXPECT_GT(enough, 0);
}

/* Values of 32 KB: all under one key, or each under its own until one is refused. */
bool Churn(int rounds) {
  for (int round = 0; round < rounds; ++round)
    if (!Set("churn", std::string(32 * 1024, static_cast<char>('a' + round % 26)))) return false;
  return true;
}
bool More(const std::string &prefix) {
  for (int each = 0; each < 500; ++each)
    if (!Set(prefix + std::to_string(each), std::string(32 * 1024, 'm'))) return true;
  return false;
}

/* As a process that is stopped in the midst of nvram_get; and as one that writes the settings to a
   pipe which is full. */
bool StopInRead() {
  MDB_txn *txn;
  LmdbEnv work;
  if (LmdbOpen(kWorkPlace, false, &work) != 0 || LmdbBegin(work, MDB_RDONLY, &txn) != 0)
    return false;
  raise(SIGSTOP);
  mdb_txn_abort(txn);
  LmdbClose(&work);
  return true;
}
bool StopInWalk() {
  auto visit = [](const char *, const char *, void *) { return raise(SIGSTOP); };
  return nvram_walk(NVTYPE_STAGING, "", visit, nullptr) == 0;
}

TEST(NvramPower, AReaderThatStandsStillDoesNotFillTheWorkingCopy) {
  const Steps churn = [] { return Churn(100); }, fill_map = [] { return Churn(7000); };
  const struct {
    const char *what, *shm;
    Steps before, reader;
    bool killed; /* before the writes, else it is only stopped */
    Steps writes;
    int end; /* of the reader, by this signal; 0: it goes on and ends by itself */
  } kCases[] = {
      {"killed, a full map", "512m", nullptr, StopInRead, true, fill_map, SIGKILL},
      {"stopped, little memory", "1m", nullptr, StopInRead, false, churn, SIGKILL},
      {"in a walk, a full map", "512m", nullptr, StopInWalk, false, fill_map, 0},
      {"full of settings", "8m", [] { return More("b") && nvram_unset("b0", 1) == 0; }, StopInRead,
       false, [] { return More("c"); }, 0},
  };
  for (const auto &c : kCases) {
    SCOPED_TRACE(c.what);
    siginfo_t dead;
    NewBoard();
    ASSERT_TRUE(MountShm(c.shm));
    EXPECT_TRUE(Elsewhere([&] { return Set("a", "1") && (c.before == nullptr || c.before()); }));
    pid_t writer = StartStopped([&] { /* attached before the reader is */
                                      return Is("a", "1") && raise(SIGSTOP) == 0 && Set("a", "2") &&
                                             c.writes();
    });
    pid_t reader = StartStopped(c.reader);
    if (c.killed)
      kill(reader, SIGKILL), waitid(P_PID, static_cast<id_t>(reader), &dead, WEXITED | WNOWAIT);
    EXPECT_EQ(End(writer), 0);
    EXPECT_EQ(End(reader), c.end);
    umount("/dev/shm");
  }
}

TEST(NvramPower, ADamagedWorkingCopyIsReplacedUnlessItIsInUse) {
  NewBoard();
  ASSERT_TRUE(Elsewhere([] { return Set("a", "1") && Commit(); }));
  ASSERT_EQ(system("rm /dev/shm/nvram/lock.mdb; echo junk > /dev/shm/nvram/data.mdb"), 0);
  EXPECT_TRUE(Elsewhere([] { return Is("a", "1") && Set("a", "2"); }));
  pid_t user = StartStopped([] { return Is("a", "2") && raise(SIGSTOP) == 0; });
  ASSERT_EQ(system("head -c 8192 /dev/urandom 1<>/dev/shm/nvram/data.mdb"), 0);
  ExpectInUse(user, [] { return Set("a", "3"); });
  EXPECT_TRUE(Elsewhere([] { return Set("a", "3"); }));
}

/* Who ends the process that looks at a place, as the kernel does when memory is short. */
bool check_is_killed;
void KillCheck() {
  if (check_is_killed) raise(SIGKILL);
}

TEST(NvramPower, WhatCannotBeToldOfAPlaceIsNoVerdict) {
  struct rlimit files;
  NewBoard();
  ASSERT_TRUE(Elsewhere([] { return Set("a", "1"); }));
  ASSERT_EQ(pthread_atfork(nullptr, nullptr, KillCheck), 0);
  EXPECT_EQ(LmdbCheck(kWorkPlace, "loaded", "1"), LMDB_SOUND);
  check_is_killed = true;
  EXPECT_EQ(LmdbCheck(kWorkPlace, "loaded", "1"), LMDB_UNKNOWN);
  check_is_killed = false;
  EXPECT_EQ(LmdbUser(kWorkPlace), "");
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &files), 0);
  struct rlimit none = {0, files.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  std::string user = LmdbUser(kWorkPlace);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &files), 0);
  EXPECT_NE(user.find("Too many open files"), user.npos) << user;
}

TEST(NvramPower, ManyStartAtOnce) {
  NewBoard();
  ASSERT_TRUE(Elsewhere([] { return Set("a", "flash") && Commit(); }));
  PowerCut();
  std::vector<pid_t> pids;
  Settings all = {{"a", "flash"}};
  for (char key : std::string("bcdefghi")) {
    pids.push_back(Start([=] { return Is("a", "flash") && Set({key}, "v") && Commit(); }));
    all[{key}] = "v";
  }
  for (pid_t pid : pids) EXPECT_EQ(End(pid), 0);
  PowerCut();
  EXPECT_TRUE(Elsewhere([&] { return Is("b", "v") && Walk(NVTYPE_STAGING) == all; }));
}

/* ---- from here on this process is attached itself ---- */

TEST_F(Nvram, AStepThatIsRefusedOrThatFlashCannotTakeChangesNothing) {
  const std::string large(32000, 'l'), nul("a\0b", 3);
  const std::vector<NvramChange> kSmall = {{"a", "1"}, {"b", "2"}},
                                 kLarge = {{"a", "3"}, {"b", {}}, {"c", large}, {"d", large}};
  const struct {
    const char *mount, *reason;
    std::vector<NvramChange> changes;
  } kCases[] = {
      {"true", "nvram: a key has 1 to", {{"a", "new"}, {"", "v"}}},
      {"true", "nvram: a key has 1 to", {{"a", {}}, {nul, "v"}}},
      {"true", "nvram: the value of", {{"a", "new"}, {"l", large + large}}},
      {"true", "nvram: the value of", {{"a", "new"}, {"l", nul}}},
      {"mount --options-mode ignore -o remount,size=48k /var/nvram",
       "nvram: writing /var/nvram/area2 failed: No space left on device", kLarge},
      {"mount --options-mode ignore -o remount,ro /var/nvram",
       "nvram: writing /var/nvram/area2 failed: Read-only file system", kLarge},
  };
  for (const auto &c : kCases) {
    SCOPED_TRACE(c.reason);
    ASSERT_EQ(mount("none", "/var/nvram", "tmpfs", 0, nullptr), 0);
    EXPECT_EQ(nvram_desk_apply(NVTYPE_BASIC, kSmall), 0);
    ASSERT_EQ(system(c.mount), 0);
    EXPECT_EQ(nvram_desk_apply(NVTYPE_BASIC, kSmall), 0) << "nothing to write";
    std::string log = LogOf([&] { EXPECT_EQ(nvram_desk_apply(NVTYPE_BASIC, c.changes), -1); });
    EXPECT_NE(log.find(std::string(" 4 ") + c.reason), log.npos) << log;
    EXPECT_EQ(Walk(NVTYPE_BASIC), (Settings{{"a", "1"}, {"b", "2"}}));
    if (strcmp(c.mount, "true") != 0) {
      for (const char *key : {"c", "d"}) EXPECT_EQ(nvram_set(key, large.c_str(), NVTYPE_BASIC), 0);
      EXPECT_EQ(nvram_commit(NVTYPE_BASIC), -1);
      EXPECT_EQ(Get("d", NVTYPE_BASIC), large) << "stays in use";
    }
    EXPECT_EQ(OnFlash(2), (Settings{{"a", "1"}, {"b", "2"}}));
    EXPECT_NE(access("/var/nvram/area2.new", F_OK), 0) << "gives its room back";
    EXPECT_EQ(umount("/var/nvram") | nvram_clean(NVTYPE_BASIC), 0);
  }
  EXPECT_EQ(nvram_desk_apply(3, {}), -1);
}

pid_t committer;
/* Another process commits; returns when that is done, or waits for this one's lock of flash. */
void CommitElsewhere() {
  committer = Start(Anew("commit"));
  const std::string waiter = " " + std::to_string(committer) + " ";
  for (int tries = 0; tries < 10000; ++tries, usleep(1000)) {
    siginfo_t info = {};
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);)
      if (line.find("->") != line.npos && line.find(waiter) != line.npos) return;
    if (waitid(P_PID, static_cast<id_t>(committer), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
        info.si_pid != 0)
      return;
  }
  ADD_FAILURE() << "the other process neither commits nor waits";
}

TEST_F(Nvram, TakingBackACommitLeavesThoseOfOthers) {
  NEEDS_ANEW();
  ASSERT_TRUE(Apply({{"a", "1"}}));
  commits = "-";
  at_failure = CommitElsewhere;
  EXPECT_FALSE(Apply({{"a", "2"}}));
  EXPECT_EQ(End(committer), 0);
  EXPECT_EQ(Walk(NVTYPE_STAGING), (Settings{{"a", "1"}, {"other", "1"}}));
  EXPECT_EQ(OnFlash(1), Walk(NVTYPE_STAGING));
}

}  // namespace

int main(int argc, char **argv) {
  if (argc == 2 && strcmp(argv[1], "commit") == 0) return Set("other", "1") && Commit() ? 0 : 1;
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
