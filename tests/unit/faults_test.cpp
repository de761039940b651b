// Faults in turn: what each request gets, and leaves, when something is refused to it; and that the
// next one is served.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <thread>

#include "nvram.h"
#include "refusals.h"
#include "support.h"
#include "tds_heap.h"

namespace {

#define ROOT "InternetGatewayDevice."

const ApptModule kModule = {"FaultsMsgRevHandle", "tests/unit/faults_test", false};

using Work = std::function<void()>;

/* ---- faults ---- */

struct Fault {
  const char *what;
  /* Does the work with what is refused at this turn, from 1, and gives it back. Whether there may
     be another turn. */
  bool (*meet)(size_t turn, const Work &work);
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

/* Nothing is left below the folder. */
bool Full(const char *folder, const Work &work) {
  const std::string name = std::string(folder) + "/filler";
  int fd = open(name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  const std::string page(4096, 'x');
  while (write(fd, page.data(), page.size()) > 0) continue;
  EXPECT_EQ(errno, ENOSPC);
  close(fd);
  work();
  EXPECT_EQ(unlink(name.c_str()), 0);
  return false;
}

const Fault kFaults[] = {
    {"one allocation", OneAllocation},
    {"all allocations from one on", AllAllocationsFrom},
    {"a descriptor", Descriptors},
    {"a process", Processes},
    {"flash", [](size_t, const Work &work) { return Full("/var/nvram", work); }},
    {"shared memory", [](size_t, const Work &work) { return Full("/dev/shm", work); }},
};

/* ---- requests ---- */

struct Case {
  uint32_t command;
  const char *url, *value;
};

const Case kCases[] = {
    {APPT_CMD_GET, ROOT "Top", "A\3B"},
    {APPT_CMD_GET, ROOT "Top", ""},
    {APPT_CMD_GET, ROOT "Top.Rows", ""},
    {APPT_CMD_SET, ROOT "Black.3", "Name=x"},
    {APPT_CMD_SET, ROOT "Services.ServiceTelnet", "Enable=1\3Port=23,2323"},
    {APPT_CMD_ADD, ROOT "Black", ""},
    {APPT_CMD_DEL, ROOT "Black.1", ""},
    {APPT_CMD_DEL, ROOT "Black.1", "Name"},
    {APPT_CMD_LIST, ROOT "Black", ""},
    {APPT_CMD_ATTR, ROOT "Top", "B"},
    {APPT_CMD_ATTR, ROOT "Top.Rows", ""},
    {APPT_CMD_ATTR, ROOT "ALL_CHANGED_DATA", ""},
    {APPT_CMD_REFRESH, ROOT "Top", ""},
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

/* Whether the tree, after a refusal that could not undo what was done, is told to be so. */
bool IsTold(const Outcome &outcome) {
  return outcome.log.find("was not undone") != outcome.log.npos ||
         outcome.acks[0].find(ROOT "Black.4") != std::string::npos;
}

class Faults : public StoreTest {
 protected:
  static void SetUpTestSuite() {
    ASSERT_EQ(mount("none", "/dev/shm", "tmpfs", 0, "size=16m"), 0);
    ASSERT_TRUE(mkdir("/var/nvram", 0700) == 0 || errno == EEXIST);
    ASSERT_EQ(mount("none", "/var/nvram", "tmpfs", 0, "size=64k"), 0);
  }
};

void Begin() {
  LoadModel(FileText(TEST_DATA "/request_model.xml"));
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
    return;
  }
  ASSERT_EQ(seen.acks.size(), 1U);
  if (!IsRefused(seen.acks[0])) {
    if (one.command == APPT_CMD_SET || one.command == APPT_CMD_ADD) {
      EXPECT_EQ(seen.calls, good.calls) << seen.log;
    }
    EXPECT_EQ(seen.state, good.state) << seen.log;
  } else if (seen.state != before && !IsRefused(good.acks[0])) {
    EXPECT_TRUE(IsTold(seen)) << seen.log << seen.acks[0] << seen.state << "\nbefore " << before;
  }
}

/* Whether the fault was met: the request was not served as it is without. */
bool Meet(const Case &one, const Fault &fault, size_t turn, bool *more) {
  Begin();
  const std::string before = State();
  const Outcome good = RunWell(one);
  Begin();
  const ptrdiff_t blocks = tds_malloc_count(nullptr).blocks;
  const Outcome seen = Run(one, [&](const Work &work) { *more = fault.meet(turn, work); });
  EXPECT_EQ(tds_malloc_count(nullptr).blocks, blocks);
  Compare(one, seen, good, before);
  const Outcome other = RunWell({APPT_CMD_GET, ROOT "Top", "B"});
  EXPECT_EQ(other.acks.size(), 1U);
  EXPECT_FALSE(IsRefused(other.acks[0]));
  Begin();
  const Outcome again = RunWell(one);
  EXPECT_EQ(again.acks, good.acks);
  EXPECT_EQ(again.calls, good.calls);
  EXPECT_EQ(again.state, good.state);
  return seen.acks != good.acks || seen.calls != good.calls || !seen.log.empty();
}

TEST_F(Faults, EachRequestMeetsEachFault) {
  for (const Fault &fault : kFaults) {
    size_t turns = 0, met = 0;
    for (const Case &one : kCases) {
      bool more = true;
      for (size_t turn = 1; more && !HasFailure(); ++turn, ++turns) {
        SCOPED_TRACE(std::string(fault.what) + " " + std::to_string(turn) + ", command " +
                     std::to_string(one.command) + " " + one.url + " " + one.value);
        met += Meet(one, fault, turn, &more);
      }
    }
    printf("%s: %zu turns, met in %zu\n", fault.what, turns, met);
    EXPECT_GT(met, 0U) << fault.what;
  }
}

}  // namespace
