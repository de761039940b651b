// Faults in turn: what each request gets, and leaves, when something is refused to it; and that the
// next one is served.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <thread>

#include "nvram.h"
#include "refusals.h"
#include "support.h"
#include "tds_heap.h"

extern "C" int __real_clock_gettime(clockid_t clock, struct timespec *now);
extern "C" int __wrap_clock_gettime(clockid_t clock, struct timespec *now);
extern "C" time_t __wrap_time(time_t *seconds);

namespace {

#define ROOT "InternetGatewayDevice."

const ApptModule kModule = {"FaultsMsgRevHandle", "tests/unit/faults_test", false};

using Work = std::function<void()>;

/* ---- faults ---- */

/* Who has to feel a fault, in one turn at least. */
enum Felt { BY_NOBODY, BY_SOME, BY_WRITES, BY_ALL };

struct Fault {
  const char *what;
  Felt felt;
  /* Does the work with what is refused at this turn, from 1, and gives it back. Whether there may
     be another turn. */
  bool (*meet)(size_t turn, const Work &work);
  void (*prepare)(); /* before the turn; NULL: nothing */
};

bool OneAllocation(size_t turn, const Work &work) {
  return WithoutMemory(turn, turn, work) >= turn;
}

bool AllAllocationsFrom(size_t turn, const Work &work) {
  return WithoutMemory(turn, SIZE_MAX, work) >= turn;
}

/* The first descriptor that is wanted is not there, then the second. */
bool Descriptors(size_t turn, const Work &work) {
  rlimit before;
  const int next = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(next);
  EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit limit = {static_cast<rlim_t>(next) + turn - 1, before.rlim_max};
  EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  work();
  EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  return turn < 6;
}

/* No process for the command line, or for the script that is read, of this turn. */
bool Processes(size_t turn, const Work &work) {
  for (size_t i = 1; i < turn; ++i) {
    AnswerSystem(0, 0);
    AnswerPopen("");
  }
  AnswerSystem(-1, EAGAIN);
  FailPopen();
  work();
  return turn < 3;
}

constexpr size_t kPage = 4096;

/* Takes all that is left below the folder. */
void Fill(const std::string &folder) {
  int fd = open((folder + "/filler").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  const std::string page(kPage, 'x');
  while (write(fd, page.data(), page.size()) > 0) continue;
  EXPECT_EQ(errno, ENOSPC);
  close(fd);
}

bool Full(const std::string &folder, const Work &work) {
  work();
  EXPECT_EQ(unlink((folder + "/filler").c_str()), 0);
  return false;
}

size_t SizeOfArea() {
  struct stat info;
  EXPECT_EQ(stat("/var/nvram/area1", &info), 0);
  return static_cast<size_t>(info.st_size);
}

size_t Grown(const char *key, size_t length) {
  const size_t before = SizeOfArea();
  EXPECT_EQ(nvram_set(key, std::string(length, 'x').c_str(), NVTYPE_STAGING), 0);
  EXPECT_EQ(nvram_commit(NVTYPE_STAGING), 0);
  return SizeOfArea() - before;
}

/* The settings' file ends where a page does: what comes to it needs another one. Its copy, which
   would make way, is gone. */
void FillFlash() {
  const size_t around = Grown("Pad1", 1) - 1;
  (void)Grown("Pad2", 2 * kPage - SizeOfArea() % kPage - around);
  EXPECT_EQ(SizeOfArea() % kPage, 0U);
  (void)unlink("/var/nvram/area1.1");
  Fill("/var/nvram");
}

constexpr int kLarge = 256; /* leaves, more than /dev/shm has room for */

/* Nor are pages left that the store has taken before. */
void FillSharedMemory() {
  const std::string value(AMS_VALUE_MAX, 'x');
  int leaf = 0;
  Fill("/dev/shm");
  const std::string told = LogOf(4, [&] {
    while (leaf < kLarge &&
           ams_sset_node_value(gptXmlTrees->root, (ROOT "Large.L" + std::to_string(leaf)).c_str(),
                               value.c_str()) == 0)
      ++leaf;
  });
  EXPECT_LT(leaf, kLarge) << told;
}

thread_local time_t jumps = 0; /* seconds, of the time of day between two looks at it */

/* Forth at one look and back at the next; then the other way round. */
bool Clock(size_t turn, const Work &work) {
  timespec one, other;
  jumps = turn == 1 ? 100000 : -200000;
  EXPECT_EQ(clock_gettime(CLOCK_REALTIME, &one) | clock_gettime(CLOCK_REALTIME, &other), 0);
  EXPECT_GT(std::abs(one.tv_sec - other.tv_sec), 90000);
  work();
  jumps = 0;
  return turn < 2;
}

const Fault kFaults[] = {
    {"one allocation", BY_ALL, OneAllocation, nullptr},
    {"all allocations from one on", BY_ALL, AllAllocationsFrom, nullptr},
    {"a descriptor", BY_SOME, Descriptors, nullptr},
    {"a process", BY_SOME, Processes, nullptr},
    {"flash", BY_WRITES, [](size_t, const Work &work) { return Full("/var/nvram", work); },
     FillFlash},
    {"shared memory", BY_WRITES, [](size_t, const Work &work) { return Full("/dev/shm", work); },
     FillSharedMemory},
    {"a time of day that stays", BY_NOBODY, Clock, nullptr},
};

/* ---- requests ---- */

struct Case {
  uint32_t command;
  const char *url, *value;
  bool writes; /* to the store and to nvram */
};

const Case kCases[] = {
    {APPT_CMD_GET, ROOT "Top", "A\3B", false},
    {APPT_CMD_GET, ROOT "Top", "", false},
    {APPT_CMD_GET, ROOT "Top.Rows", "", false},
    {APPT_CMD_SET, ROOT "Black.3", "Name=x", true},
    {APPT_CMD_SET, ROOT "Services.ServiceTelnet", "Enable=1\3Port=23,2323", true},
    {APPT_CMD_ADD, ROOT "Black", "", true},
    {APPT_CMD_DEL, ROOT "Black.1", "", true},
    {APPT_CMD_DEL, ROOT "Black.1", "Name", false},
    {APPT_CMD_LIST, ROOT "Black", "", false},
    {APPT_CMD_ATTR, ROOT "Top", "B", false},
    {APPT_CMD_ATTR, ROOT "Top.Rows", "", false},
    {APPT_CMD_ATTR, ROOT "ALL_CHANGED_DATA", "", true},
    {APPT_CMD_REFRESH, ROOT "Top", "", false},
};

/* What a request was answered, asked of the runtime and the shell, and left. */
struct Outcome {
  Lines acks, calls;
  std::string state, log;
};

std::string State() {
  std::string state;
  char *text = nullptr;
  EXPECT_EQ(ams_get_node_value(gptXmlTrees->root, "InternetGatewayDevice", &text), 0);
  state = text;
  __tds_free(text);
  state.resize(std::min(state.size(), state.find("Large.")));
  auto keep = [](const char *key, const char *value, void *context) {
    *static_cast<std::string *>(context) += std::string("\n") + key + "=" + value;
    return 0;
  };
  EXPECT_EQ(nvram_walk(NVTYPE_STAGING, ROOT, keep, &state), 0);
  return state;
}

bool IsRefused(const std::string &ack) {
  return ack.find("\xff\xff\xff\xff", strlen("SendMsg(0x100003, ")) != ack.npos;
}

/* Whether it is told that tree or nvram have what a refusal could not undo. */
bool IsTold(const Outcome &outcome) {
  return outcome.log.find("was not undone") != outcome.log.npos ||
         outcome.log.find("is kept, though it was not changed") != outcome.log.npos ||
         (!outcome.acks.empty() && outcome.acks[0].find(ROOT "Black.4") != std::string::npos);
}

/* A leaf that cannot be read is told and left out: the other leaves of the list are answered. */
bool LacksLeaf(const Outcome &outcome) {
  return outcome.log.find("do leaf: url ") != outcome.log.npos;
}

class Faults : public StoreTest {
 protected:
  static void SetUpTestSuite() {
    ASSERT_EQ(mount("none", "/dev/shm", "tmpfs", 0, "size=8m"), 0);
    ASSERT_TRUE(mkdir("/var/nvram", 0700) == 0 || errno == EEXIST);
    ASSERT_EQ(mount("none", "/var/nvram", "tmpfs", 0, "size=64k"), 0);
  }
};

std::string ModelWithLarge() {
  std::string model = FileText(TEST_DATA "/request_model.xml"), large = "<Large type=\"object\">";
  for (int leaf = 0; leaf < kLarge; ++leaf)
    large += "<L" + std::to_string(leaf) + " type=\"string\"/>";
  return model.insert(model.rfind("</"), large + "</Large>");
}

void Begin() {
  static const std::string model = ModelWithLarge();
  LoadModel(model);
  EXPECT_EQ(nvram_clean(NVTYPE_STAGING), 0);
  EXPECT_EQ(nvram_commit(NVTYPE_STAGING), 0);
  EXPECT_EQ(ams_set_attr(gptXmlTrees->root, ROOT "Top.A", "2"), 0);
  EXPECT_EQ(ams_sset_node_value(gptXmlTrees->root, ROOT "Top.A", "changed"), 0);
}

/* Runs the request as `meet` does it, on a thread of its own, which has nothing from earlier ones
   but what the C library ends a thread with: without memory for that it ends the process. */
Outcome Run(const Case &one, const std::function<void(const Work &)> &meet) {
  Outcome outcome;
  const std::string frame = RequestFrame(7, one.command, one.url, one.value);
  outcome.log = LogOf(4, [&] {
    std::thread([&] {
      char child[AMS_PATH_SIZE], name[TDS_NAME_SIZE];
      Self(name);
      EXPECT_EQ(ams_get_first_child(gptXmlTrees->root, ROOT "Bare", child), 0);
      RecordRuntime();
      meet([&] {
        appt_MsgRevHandle(&kModule, EV_APPT_MSG_REQUEST, frame.data(),
                          static_cast<uint32_t>(frame.size()));
      });
    }).join();
  });
  for (const std::string &line : TakeCommands())
    (line.find("SendMsg(0x100003,") == 0 ? outcome.acks : outcome.calls).push_back(line);
  ForgetAnswers();
  outcome.state = State();
  return outcome;
}

Outcome RunWell(const Case &one) {
  return Run(one, [](const Work &work) { work(); });
}

void Compare(const Case &one, const Outcome &seen, const Outcome &good, const std::string &before) {
  const bool same = seen.acks == good.acks && seen.calls == good.calls;
  EXPECT_TRUE(same || !seen.log.empty()) << "no record";
  if (seen.acks.empty()) {
    EXPECT_NE(seen.log.find("tds_malloc msg mem failed."), seen.log.npos) << seen.log;
    EXPECT_TRUE(seen.state == before || seen.state == good.state || IsTold(seen)) << seen.log;
    return;
  }
  ASSERT_EQ(seen.acks.size(), 1U);
  if (!IsRefused(seen.acks[0])) {
    if (!LacksLeaf(seen)) {
      EXPECT_EQ(seen.acks, good.acks) << seen.log;
    }
    if (one.command == APPT_CMD_SET || one.command == APPT_CMD_ADD) {
      EXPECT_EQ(seen.calls, good.calls) << seen.log;
    }
    EXPECT_EQ(seen.state, good.state) << seen.log;
  } else if (seen.state != before) {
    EXPECT_TRUE(IsTold(seen)) << seen.log << seen.acks[0] << seen.state << "\nbefore " << before;
  }
}

bool IsSame(const Outcome &one, const Outcome &other) {
  return one.acks == other.acks && one.calls == other.calls && one.state == other.state;
}

/* Whether the fault was felt: the request was not served as it is without. */
bool Meet(const Case &one, const Fault &fault, size_t turn, bool *more) {
  Begin();
  const std::string before = State();
  const Outcome good = RunWell(one);
  Begin();
  if (fault.prepare != nullptr) fault.prepare();
  const ptrdiff_t blocks = tds_malloc_count(nullptr).blocks;
  const Outcome seen = Run(one, [&](const Work &work) { *more = fault.meet(turn, work); });
  EXPECT_EQ(tds_malloc_count(nullptr).blocks, blocks);
  Compare(one, seen, good, before);
  const Outcome other = RunWell({APPT_CMD_GET, ROOT "Top", "B", false});
  EXPECT_EQ(other.acks.size(), 1U);
  EXPECT_FALSE(IsRefused(other.acks[0]));
  Begin();
  const Outcome again = RunWell(one);
  EXPECT_TRUE(IsSame(again, good)) << again.log << again.state;
  return !IsSame(seen, good);
}

TEST_F(Faults, EachRequestMeetsEachFault) {
  for (const Fault &fault : kFaults) {
    size_t turns = 0, felt = 0;
    for (const Case &one : kCases) {
      SCOPED_TRACE(std::string(fault.what) + ", command " + std::to_string(one.command) + " " +
                   one.url + " " + one.value);
      const size_t before = felt;
      bool more = true;
      for (size_t turn = 1; more && !HasFailure(); ++turn, ++turns) {
        SCOPED_TRACE("turn " + std::to_string(turn));
        felt += Meet(one, fault, turn, &more);
      }
      if (fault.felt != BY_SOME) {
        EXPECT_EQ(felt > before, fault.felt == BY_ALL || (fault.felt == BY_WRITES && one.writes));
      }
    }
    printf("%s: %zu turns, felt in %zu\n", fault.what, turns, felt);
    EXPECT_EQ(felt > 0, fault.felt != BY_NOBODY) << fault.what;
  }
}

}  // namespace

int __wrap_clock_gettime(clockid_t clock, struct timespec *now) {
  const int result = __real_clock_gettime(clock, now);
  if (clock == CLOCK_REALTIME) now->tv_sec += std::max(jumps = -jumps, time_t{0});
  return result;
}

time_t __wrap_time(time_t *seconds) {
  struct timespec now;
  (void)__wrap_clock_gettime(CLOCK_REALTIME, &now); /* it has no failure */
  if (seconds != nullptr) *seconds = now.tv_sec;
  return now.tv_sec;
}
