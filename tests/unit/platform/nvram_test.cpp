// The settings store: what is seen at once, what survives a power cut, and what a crash leaves. The
// program is also its own second process; a "power cut" removes the working copy between processes.
#include "nvram.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <rapidcheck.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "flash.h"
#include "lmdb_env.h"
#include "nvram_desk.h"

namespace {
void (*at_commit)(); /* called once, in place of a commit of the working copy, which then fails */
}

extern "C" int __real_mdb_txn_commit(MDB_txn *txn);
extern "C" int __wrap_mdb_txn_commit(MDB_txn *txn) {
  void (*instead)() = std::exchange(at_commit, nullptr);
  if (instead == nullptr) return __real_mdb_txn_commit(txn);
  mdb_txn_abort(txn);
  instead();
  return ENOMEM;
}

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

/* ---- what flash should hold, made by hand ---- */

std::string WithSum(std::string bytes) {
  uint32_t crc = ~0u;
  for (unsigned char byte : bytes) {
    crc ^= byte;
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (crc & 1 ? 0xEDB88320 : 0);
  }
  char sum[16];
  snprintf(sum, sizeof sum, "%08x\n", ~crc);
  return bytes + sum;
}

std::string WithHead(int area, const std::string &records) {
  char head[64];
  snprintf(head, sizeof head, "nvram 1, area %d, %010zu bytes\n", area, 34 + records.size() + 9);
  return WithSum(head + records);
}

std::string FlashFile(int area, const Settings &settings) {
  std::string records;
  for (const auto &one : settings) records += one.first + '\0' + one.second + '\0';
  return WithHead(area, records);
}

std::string FileBytes(const std::string &name) {
  std::ifstream file("/var/nvram/" + name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void WriteBytes(const std::string &name, const std::string &bytes) {
  std::ofstream("/var/nvram/" + name, std::ios::binary) << bytes;
}

/* ---- the second process: "set KEY VALUE", "get KEY", ... done in order, area 1 ---- */

constexpr int kNoRoom = 7;

/* Steps of 2 KB each until there is no room: the last one is nowhere then, the others everywhere.
 */
int Fill() {
  Settings model = {{"k", "v"}};
  if (nvram_init_semaphore() != 0) return kNoRoom;
  for (int each = 100; each < 200; ++each) {
    std::string key = "k" + std::to_string(each), value(2048, static_cast<char>('a' + each % 26));
    if (nvram_desk_apply(NVTYPE_STAGING, {{key, value}, {key + ".", value}}) != 0)
      return Walk(NVTYPE_STAGING, "") == model && FileBytes("area1") == FlashFile(1, model) ? 0 : 6;
    model[key] = model[key + "."] = value;
  }
  return 5; /* there was room for all */
}

/* Values of 32 KB under keys of their own until one is refused. */
int More(const std::string &prefix) {
  const std::string value(32 * 1024, 'm');
  for (int each = 0; each < 500; ++each)
    if (nvram_set((prefix + std::to_string(each)).c_str(), value.c_str(), NVTYPE_STAGING) != 0)
      return 0;
  return 5;
}

/* One value of 32 KB after the other. */
int Churn(int rounds) {
  for (int round = 0; round < rounds; ++round) {
    const std::string value(32 * 1024, static_cast<char>('a' + round % 26));
    if (nvram_set("churn", value.c_str(), NVTYPE_STAGING) != 0) return 1;
  }
  return 0;
}

/* Stands still inside a read, as a process that is stopped in the midst of nvram_get. */
int StopInRead() {
  MDB_txn *txn;
  LmdbEnv work;
  if (LmdbOpen({"/dev/shm/nvram", 256 << 20, MDB_NOSYNC}, false, &work) != 0) return 1;
  if (LmdbBegin(work, MDB_RDONLY, &txn) != 0) return 1;
  int rc = raise(SIGSTOP);
  mdb_txn_abort(txn);
  LmdbClose(&work);
  return rc;
}

/* Looks at settings while it stands still, as one that writes them to a pipe which is full. */
int StopInWalk() {
  auto visit = [](const char *, const char *, void *) { return raise(SIGSTOP); };
  return nvram_walk(NVTYPE_STAGING, "", visit, nullptr);
}

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
    } else if (word == "apply") { /* two settings in one step */
      std::vector<NvramChange> changes = {{argv[at + 1], argv[at + 2]},
                                          {argv[at + 3], argv[at + 4]}};
      if (nvram_desk_apply(NVTYPE_STAGING, changes) != 0) return 1;
      at += 4;
    } else if (word == "stop") {
      raise(SIGSTOP);
    } else if (word == "end") { /* no look for leaks, which a traced process cannot have */
      _exit(0);
    } else if (word == "fill") {
      return Fill();
    } else if (word == "more") {
      if (More(argv[++at]) != 0) return 5;
    } else if (word == "churn") {
      if (Churn(atoi(argv[++at])) != 0) return 1;
    } else if (word == "read") {
      return StopInRead();
    } else if (word == "walk") {
      return StopInWalk();
    }
  }
  return 0;
}

pid_t Start(
    std::vector<const char *> words, void (*first)() = [] {}) {
  words.insert(words.begin(), "nvram_test");
  words.push_back(nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    first();
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
void PowerCut() { std::filesystem::remove_all("/dev/shm/nvram"); }
void NewBoard() {
  PowerCut();
  for (const auto &entry : std::filesystem::directory_iterator("/var/nvram"))
    std::filesystem::remove_all(entry.path());
}

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

/* Kills a process at its nth system call after "stop", or lets it end. True: it was killed. */
bool KillAtCall(const std::vector<const char *> &words, int nth) {
  int status = 0;
  pid_t pid = Start(words, [] { ptrace(PTRACE_TRACEME, 0, nullptr, nullptr); });
  for (bool stopped = false; !stopped && waitpid(pid, &status, 0) == pid && WIFSTOPPED(status);) {
    stopped = WSTOPSIG(status) == SIGSTOP;
    if (!stopped) ptrace(PTRACE_CONT, pid, nullptr, nullptr);
  }
  for (int calls = 0; WIFSTOPPED(status) && calls < nth; ++calls) {
    ptrace(PTRACE_SYSCALL, pid, nullptr, nullptr);
    waitpid(pid, &status, 0);
  }
  if (WIFSTOPPED(status)) {
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
  }
  EXPECT_TRUE(WIFSIGNALED(status) || (WIFEXITED(status) && WEXITSTATUS(status) == 0)) << status;
  return WIFSIGNALED(status);
}

TEST(NvramPower, AStepThatIsKilledIsWholeOrNotThere) {
  NewBoard();
  ASSERT_EQ(RunWords({"apply", "first", "0", "second", "0"}), 0);
  bool killed = true;
  for (int nth = 1; killed; nth += 2) { /* each call stops twice; after one is before the next */
    std::string value = std::to_string(nth);
    killed =
        KillAtCall({"stop", "apply", "first", value.c_str(), "second", value.c_str(), "end"}, nth);
    ASSERT_EQ(access("/var/nvram/area1", F_OK), 0) << "at each instant, call " << nth;
    std::vector<const char *> look = {"same", "first", "second"};
    if (!killed) look.insert(look.end(), {"is", "first", value.c_str()});
    ASSERT_EQ(RunWords(look), 0) << "seen by others, call " << nth;
    PowerCut();
    ASSERT_EQ(RunWords(look), 0) << "on flash, call " << nth;
    ASSERT_NE(access("/var/nvram/area1.bad.1", F_OK), 0) << "no damage either, call " << nth;
    ASSERT_LT(nth, 1000);
  }
}

TEST(NvramPower, FullMemoryIsAnErrorAndNoSignal) {
  bool too_small = false, enough = false;
  for (int kilobytes = 16; kilobytes <= 160; kilobytes += 12) {
    NewBoard();
    ASSERT_EQ(RunWords({"set", "k", "v", "commit"}), 0);
    std::string mount = "mount -t tmpfs -o size=" + std::to_string(kilobytes) + "k none /dev/shm";
    ASSERT_EQ(system(mount.c_str()), 0);
    int result = RunWords({"fill"});
    EXPECT_TRUE(result == 0 || result == kNoRoom) << kilobytes << " KB: " << result;
    (result == 0 ? enough : too_small) = true;
    EXPECT_EQ(system("mount --options-mode ignore -o remount,size=8m /dev/shm"), 0);
    EXPECT_EQ(RunWords({"set", "after", "1", "is", "after", "1"}), 0) << kilobytes;
    EXPECT_EQ(system("umount /dev/shm"), 0);
  }
  EXPECT_TRUE(too_small && enough);
}

bool MountShm(const char *size) {
  return mount("none", "/dev/shm", "tmpfs", 0, (std::string("size=") + size).c_str()) == 0;
}

/* A second process, once it stands still at one of its words. */
pid_t StartStopped(const std::vector<const char *> &words) {
  int status = 0;
  pid_t pid = Start(words);
  EXPECT_EQ(waitpid(pid, &status, WUNTRACED), pid);
  EXPECT_TRUE(WIFSTOPPED(status)) << status;
  return pid;
}

TEST(NvramPower, AReaderThatStandsStillDoesNotFillTheWorkingCopy) {
  struct Case {
    const char *what, *shm;
    std::vector<const char *> before;
    const char *reader;
    bool killed; /* before the writes, else it is only stopped */
    std::vector<const char *> writes;
    int end; /* of the reader, by this signal; 0: it goes on and ends by itself */
  };
  const Case kCases[] = {
      {"killed, little memory", "1m", {}, "read", true, {"churn", "100"}, SIGKILL},
      {"killed, a full map", "512m", {}, "read", true, {"churn", "7000"}, SIGKILL},
      {"stopped, little memory", "1m", {}, "read", false, {"churn", "100"}, SIGKILL},
      {"stopped, a full map", "512m", {}, "read", false, {"churn", "7000"}, SIGKILL},
      {"in a walk, a full map", "512m", {}, "walk", false, {"churn", "7000"}, 0},
      {"full of settings", "8m", {"more", "b", "unset", "b0"}, "read", false, {"more", "c"}, 0},
  };
  for (const Case &c : kCases) {
    SCOPED_TRACE(c.what);
    int status = -1;
    siginfo_t dead;
    NewBoard();
    ASSERT_TRUE(MountShm(c.shm));
    std::vector<const char *> before = {"set", "a", "1"}, writes = {"is", "a", "1", "stop"};
    before.insert(before.end(), c.before.begin(), c.before.end());
    writes.insert(writes.end(), {"set", "a", "2"});
    writes.insert(writes.end(), c.writes.begin(), c.writes.end());
    EXPECT_EQ(RunWords(before), 0);
    pid_t writer = StartStopped(writes); /* attached before the reader is */
    pid_t reader = StartStopped({c.reader});
    if (c.killed) kill(reader, SIGKILL), waitid(P_PID, reader, &dead, WEXITED | WNOWAIT);
    kill(writer, SIGCONT);
    waitpid(writer, &status, 0);
    EXPECT_EQ(status, 0);
    kill(reader, SIGCONT);
    waitpid(reader, &status, 0);
    EXPECT_EQ(status, c.end);
    umount("/dev/shm");
  }
}

TEST(NvramPower, DamageIsNotFatal) {
  struct Damage {
    const char *what, *command, *after;
  };
  const Damage kDamages[] = {
      {"working copy", "rm -f /dev/shm/nvram/lock.mdb; echo junk > /dev/shm/nvram/data.mdb", "2"},
      {"flash", "rm -rf /dev/shm/nvram; echo junk > /var/nvram/area1", "1"},
      {"both files", "rm -rf /dev/shm/nvram; truncate -s 9 /var/nvram/area1*", "(none)"},
      {"no flash", "rm -rf /dev/shm/nvram; rm -f /var/nvram/*", "(none)"},
  };
  for (const Damage &damage : kDamages) {
    NewBoard();
    ASSERT_EQ(RunWords({"set", "a", "1", "commit", "set", "a", "2", "commit"}), 0);
    ASSERT_EQ(system(damage.command), 0);
    EXPECT_EQ(RunWords({"is", "a", damage.after, "set", "b", "2", "commit"}), 0) << damage.what;
    PowerCut();
    EXPECT_EQ(RunWords({"is", "a", damage.after, "is", "b", "2"}), 0) << damage.what;
  }
  pid_t user = StartStopped({"set", "a", "of a user", "stop"});
  ASSERT_EQ(system("dd if=/dev/urandom of=/dev/shm/nvram/data.mdb bs=8192 count=1 conv=notrunc "
                   "2>/dev/null"),
            0);
  testing::internal::CaptureStderr();
  EXPECT_EQ(RunWords({"set", "a", "2"}), 1) << "the user would not see it";
  std::string log = testing::internal::GetCapturedStderr();
  EXPECT_NE(log.find("process " + std::to_string(user) + " has it open"), log.npos) << log;
  EXPECT_EQ(log.find(" 4 "), log.rfind(" 4 ")) << "one line: " << log;
  kill(user, SIGKILL);
  waitpid(user, nullptr, 0);
  EXPECT_EQ(RunWords({"set", "a", "2"}), 0);
}

/* Who ends the process that looks at a place, as the kernel does when memory is short. */
bool check_is_killed;
void KillCheck() {
  if (check_is_killed) raise(SIGKILL);
}

TEST(NvramPower, WhatCannotBeToldOfAPlaceIsNoVerdict) {
  const LmdbPlace place = {"/dev/shm/nvram", 256 << 20, MDB_NOSYNC};
  struct rlimit files;
  NewBoard();
  ASSERT_EQ(RunWords({"set", "a", "1"}), 0);
  ASSERT_EQ(pthread_atfork(nullptr, nullptr, KillCheck), 0);
  EXPECT_EQ(LmdbCheck(place, "loaded", "1"), LMDB_SOUND);
  check_is_killed = true;
  EXPECT_EQ(LmdbCheck(place, "loaded", "1"), LMDB_UNKNOWN);
  check_is_killed = false;
  EXPECT_EQ(LmdbUser(place), "");
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &files), 0);
  struct rlimit none = {0, files.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  std::string user = LmdbUser(place);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &files), 0);
  EXPECT_NE(user.find("Too many open files"), user.npos) << user;
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

/* ---- flash alone ---- */

const Settings kBefore = {{"a", "before"}, {"empty", ""}, {"long", std::string(9000, 'x')}};
const Settings kLast = {{"a", "last"}, {"long", std::string(9000, 'y')}, {"new", "1"}};

/* What FlashLoad returns for area 1, as a file; and its log. */
std::string Loaded(std::string *log) {
  std::string records;
  testing::internal::CaptureStderr();
  EXPECT_EQ(FlashLoad(1, &records), 0);
  *log = testing::internal::GetCapturedStderr();
  return WithHead(1, records);
}

/* The last commit is `bytes`: it is found to be damaged, and the one before is used. */
void ExpectDamageFound(const std::string &what, const std::string &bytes) {
  SCOPED_TRACE(what);
  std::string log, before = FlashFile(1, kBefore);
  NewBoard();
  WriteBytes("area1", bytes);
  WriteBytes("area1.1", before);
  EXPECT_TRUE(Loaded(&log) == before);
  EXPECT_EQ(log.find(" 4 nvram: in /var/nvram area1 is damaged ("), log.find(" 4 ")) << log;
  EXPECT_EQ(log.find(" 4 "), log.rfind(" 4 ")) << "one line: " << log;
  EXPECT_NE(log.find(", kept as area1.bad.1; the commit before is used"), log.npos) << log;
  EXPECT_TRUE(FileBytes("area1.bad.1") == bytes);
  EXPECT_TRUE(Loaded(&log) == before) << "at the next start, too";
  EXPECT_EQ(log, "");
}

TEST(NvramFlash, DamageAnywhereIsFound) {
  const std::string whole = FlashFile(1, kLast);
  const size_t kHead = 34, kTail = 9, kPage = 4096;
  for (size_t at = 0; at < whole.size();
       at += at < kHead || at + kTail + 1 > whole.size() ? 1 : 97) {
    std::string bytes = whole;
    bytes[at] = static_cast<char>(bytes[at] ^ 1 << at % 8);
    ExpectDamageFound("a bit of byte " + std::to_string(at), bytes);
  }
  for (size_t at = 0; at < whole.size(); at += kPage) {
    std::string bytes = whole;
    for (size_t each = at; each < std::min(at + kPage, bytes.size()); ++each)
      bytes[each] ^= each * 7;
    ExpectDamageFound("the page at " + std::to_string(at), bytes);
    bytes.replace(at, kPage, std::min(kPage, whole.size() - at), '\0');
    ExpectDamageFound("zeroes at " + std::to_string(at), bytes);
    ExpectDamageFound("cut at " + std::to_string(at), whole.substr(0, at));
    ExpectDamageFound("cut after " + std::to_string(at), whole.substr(0, at + 1));
  }
  const std::string kNul(1, '\0'), key(401, 'k'), value(32 * 1024 + 1, 'v');
  ExpectDamageFound("a byte too many", whole + "\n");
  ExpectDamageFound("a page too many", whole + std::string(kPage, '\0'));
  ExpectDamageFound("the other area's", FlashFile(2, kLast));
  ExpectDamageFound("longer than may be", std::string((32 << 20) + 1, '\0'));
  ExpectDamageFound("a key that is too long", FlashFile(1, {{key, "v"}}));
  ExpectDamageFound("a value that is too long", FlashFile(1, {{"k", value}}));
  ExpectDamageFound("no key", FlashFile(1, {{"", "v"}}));
  ExpectDamageFound("a key alone", WithHead(1, "k" + kNul));
  ExpectDamageFound("no end", WithHead(1, "k" + kNul + "v"));
}

TEST(NvramFlash, WhatIsUsedInstead) {
  struct Case {
    const char *what, *command; /* in the folder with a whole area1 and area1.1 */
    Settings used;
    const char *told; /* "": no line at all */
  };
  const Case kCases[] = {
      {"sound", "true", kLast, ""},
      {"a new board", "rm *", {}, ""},
      {"the first commit", "rm area1.1", kLast, ""},
      {"no last one", "rm area1", kBefore, "area1 is missing; the commit before is used"},
      {"a folder", "rm area1; mkdir -p area1/x", kBefore,
       "(it is no regular file), kept as area1.bad.1"},
      {"a link", "mv area1 x; ln -s x area1", kBefore, "), kept as area1.bad.1"},
      {"a pipe", "rm area1; mkfifo area1", kBefore, "(it is no regular file), kept as area1.bad.1"},
      {"none before",
       "rm area1.1; echo >area1",
       {},
       "area1.1 is missing; the area's settings are lost"},
      {"both",
       "echo >area1; echo >area1.1",
       {},
       "area1.1 is damaged (it is cut), kept as area1.bad.2"},
      {"some kept", "touch area1.bad.1 area1.bad.3; echo >area1", kBefore, "kept as area1.bad.2"},
      {"enough kept", "touch area1.bad.{1,2,3,4}; echo >area1", kBefore, "removed, as others are"},
      {"a cut commit", "echo >area1.new; ln area1 area1.old", kLast, ""},
      {"folders in a commit's way", "mkdir -p area1.{new,old}/x", kLast, ""},
      {"a folder as the one before", "rm area1.1; mkdir -p area1.1/x", kLast, ""},
  };
  for (const Case &c : kCases) {
    std::string log;
    NewBoard();
    WriteBytes("area1", FlashFile(1, kLast));
    WriteBytes("area1.1", FlashFile(1, kBefore));
    ASSERT_EQ(system(("cd /var/nvram; bash -c '" + std::string(c.command) + "'").c_str()), 0);
    EXPECT_TRUE(Loaded(&log) == FlashFile(1, c.used)) << c.what;
    EXPECT_NE(log.find(c.told), log.npos) << c.what << ": " << log;
    EXPECT_EQ(log.empty(), *c.told == '\0') << c.what << ": " << log;
    EXPECT_EQ(FlashStore(1, "k" + std::string(2, '\0')), 1) << c.what;
    EXPECT_TRUE(FileBytes("area1") == FlashFile(1, {{"k", ""}})) << c.what;
  }
  EXPECT_EQ(FileBytes("area1.1"), FlashFile(1, kLast)) << "the commit before";
}

TEST(NvramFlash, AFullFlashGivesUpWhatIsWorthLess) {
  const std::string large(14000, 'x'), kNul(1, '\0');
  auto records = [&](const char *key) { return key + kNul + large + kNul; };
  auto file = [&](const char *key) { return FlashFile(1, {{key, large}}); };
  NewBoard();
  ASSERT_EQ(mount("none", "/var/nvram", "tmpfs", 0, "size=48k"), 0);
  EXPECT_EQ(FlashStore(1, records("a")) + FlashStore(1, records("b")), 2);
  WriteBytes("area1.bad.1", large);
  EXPECT_EQ(FlashStore(1, records("c")), 1) << "for a damaged file";
  EXPECT_TRUE(FileBytes("area1") + FileBytes("area1.1") == file("c") + file("b"));
  WriteBytes("other", large);
  EXPECT_EQ(FlashStore(1, records("d") + records("e")), -1) << "more than there can be room for";
  EXPECT_TRUE(FileBytes("area1") + FileBytes("area1.1") == file("c") + file("b")) << "none goes";
  EXPECT_EQ(FlashStore(1, records("d")), 1) << "for the commit before";
  EXPECT_EQ(FlashStore(1, ""), 1);
  EXPECT_TRUE(FileBytes("area1") + FileBytes("area1.1") == FlashFile(1, {}) + file("d"));
  WriteBytes("area1", "damaged");
  EXPECT_EQ(FlashStore(1, records("e") + records("f")), -1);
  EXPECT_TRUE(FileBytes("area1.1") == file("d")) << "the only one that is sound";
  EXPECT_EQ(umount("/var/nvram"), 0);
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
  const std::vector<std::vector<NvramChange>> kRefused = {
      {{"k", "new"}, {"", "v"}},
      {{"k", "new"}, {"l", value + "v"}},
      {{"k", "new"}, {"l", std::string("a\0b", 3)}},
      {{"k", std::nullopt}, {std::string("a\0b", 3), "v"}},
  };
  for (const auto &changes : kRefused) EXPECT_EQ(nvram_desk_apply(NVTYPE_BASIC, changes), -1);
  EXPECT_EQ(nvram_desk_apply(3, {}), -1);
  EXPECT_EQ(Get("k", NVTYPE_BASIC), value) << "nor is anything of a refused step done";
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

TEST_F(Nvram, WhatFlashCannotTakeChangesNothing) {
  struct Case {
    const char *what, *mount, *reason;
  };
  const Case kCases[] = {
      {"full", "mount --options-mode ignore -o remount,size=48k /var/nvram",
       "No space left on device"},
      {"read-only", "mount --options-mode ignore -o remount,ro /var/nvram",
       "Read-only file system"},
  };
  const std::vector<NvramChange> kSmall = {{"a", "1"}, {"b", "2"}};
  const std::vector<NvramChange> kLarge = {{"a", "3"},
                                           {"b", std::nullopt},
                                           {"c", std::string(32000, 'c')},
                                           {"d", std::string(32000, 'd')}};
  for (const Case &c : kCases) {
    SCOPED_TRACE(c.what);
    ASSERT_EQ(system("mount -t tmpfs none /var/nvram"), 0);
    EXPECT_EQ(nvram_desk_apply(NVTYPE_BASIC, kSmall), 0);
    ASSERT_EQ(system(c.mount), 0);
    EXPECT_EQ(nvram_desk_apply(NVTYPE_BASIC, kSmall), 0) << "nothing to write";
    testing::internal::CaptureStderr();
    EXPECT_EQ(nvram_desk_apply(NVTYPE_BASIC, kLarge), -1);
    std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find(" 4 nvram: writing /var/nvram/area2 failed: " + std::string(c.reason)),
              log.npos)
        << log;
    EXPECT_EQ(Walk(NVTYPE_BASIC, ""), (Settings{{"a", "1"}, {"b", "2"}}));
    EXPECT_EQ(nvram_set("a", "3", NVTYPE_BASIC), 0);
    EXPECT_EQ(nvram_set("c", kLarge[2].value->c_str(), NVTYPE_BASIC), 0);
    EXPECT_EQ(nvram_set("d", kLarge[3].value->c_str(), NVTYPE_BASIC), 0);
    EXPECT_EQ(nvram_commit(NVTYPE_BASIC), -1);
    EXPECT_EQ(Get("a", NVTYPE_BASIC), "3") << "stays in use";
    EXPECT_EQ(FileBytes("area2"), FlashFile(2, {{"a", "1"}, {"b", "2"}}));
    EXPECT_NE(access("/var/nvram/area2.new", F_OK), 0) << "gives its room back";
    EXPECT_EQ(system("umount /var/nvram"), 0);
    EXPECT_EQ(nvram_clean(NVTYPE_BASIC), 0);
  }
}

pid_t committer;
/* Another process commits; returns when that is done, or waits for this one's lock of flash. */
void CommitElsewhere() {
  committer = Start({"set", "other", "1", "commit"});
  const std::string waits = std::to_string(SYS_flock) + " ";
  for (int tries = 0; tries < 10000; ++tries, usleep(1000)) {
    siginfo_t info = {};
    std::string call;
    std::getline(std::ifstream("/proc/" + std::to_string(committer) + "/syscall"), call);
    if (call.compare(0, waits.size(), waits) == 0) return;
    if (waitid(P_PID, committer, &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid != 0)
      return;
  }
  ADD_FAILURE() << "the other process neither commits nor waits";
}

TEST_F(Nvram, TakingBackACommitLeavesThoseOfOthers) {
  int status = -1;
  ASSERT_EQ(nvram_desk_apply(NVTYPE_STAGING, {{"a", "1"}}), 0);
  at_commit = CommitElsewhere;
  EXPECT_EQ(nvram_desk_apply(NVTYPE_STAGING, {{"a", "2"}}), -1);
  EXPECT_EQ(waitpid(committer, &status, 0), committer);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(Walk(NVTYPE_STAGING, ""), (Settings{{"a", "1"}, {"other", "1"}}));
  EXPECT_EQ(FileBytes("area1"), FlashFile(1, Walk(NVTYPE_STAGING, "")));
  EXPECT_EQ(FileBytes("area1.1"), FlashFile(1, {{"a", "1"}}));
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
          EXPECT_EQ(nvram_desk_apply(NVTYPE_BASIC, {{key + ".", "v"}, {key + ".", {}}}), 0);
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
      int type = *rc::gen::inRange(1, 3), what = *rc::gen::inRange(0, 13);
      std::string key = "k" + std::to_string(*rc::gen::inRange(0, 6));
      std::string value = *rc::gen::container<std::string>(rc::gen::inRange('a', 'e'));
      const std::string file = "area" + std::to_string(type);
      if (what < 6) {
        RC_ASSERT(nvram_set(key.c_str(), value.c_str(), type) == 0);
        model[type][key] = value;
      } else if (what < 10) {
        RC_ASSERT(nvram_unset(key.c_str(), type) == 0);
        model[type].erase(key);
      } else if (what == 10) {
        RC_ASSERT(nvram_commit(type) == 0);
        RC_ASSERT(FileBytes(file) == FlashFile(type, model[type]));
      } else if (what == 11) {
        std::vector<NvramChange> changes = {{key, value}, {"k0", value}, {"k1", std::nullopt}};
        RC_ASSERT(nvram_desk_apply(type, changes) == 0);
        model[type][key] = model[type]["k0"] = value;
        model[type].erase("k1");
        RC_ASSERT(FileBytes(file) == FlashFile(type, model[type]));
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
