// The message runtime between real processes: this program is also its own peer ("--peer"), started
// and killed as the cases need it.
#include "tds.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ams_print.h"
#include "tds_desk.h"

PrtMapEntry DF_PRT_MAP[] = {{"default", 3}, {"unit:b", 3}, {nullptr, 0}};

namespace {

using Clock = std::chrono::steady_clock;

enum : uint32_t {
  kNote = 0x110001,   /* recorded */
  kEcho = 0x110002,   /* answered with its payload */
  kDie = 0x110003,    /* the process dies in the handler */
  kSilent = 0x110004, /* its handler gives no answer */
  kHold = 0x110005,   /* answered when kRelease comes */
  kRelease = 0x110006,
  kRun = 0x110007,  /* payload: pointer to a std::function, run on the module's thread */
  kSlow = 0x110008, /* answered after the 300 ms in which kNote messages queue up */
  kPublished = 0x110009,
};

struct Received {
  uint32_t id;
  std::string payload, sender, self;
};

/* What the modules of this process were sent, in order. */
std::mutex mutex;
std::condition_variable arrived;
std::vector<Received> received;

void Record(int32_t id, const void *data, uint32_t len) {
  char sender[TDS_NAME_SIZE], self[TDS_NAME_SIZE];
  Sender(sender);
  Self(self);
  std::lock_guard<std::mutex> lock(mutex);
  received.push_back(
      {static_cast<uint32_t>(id), std::string(static_cast<const char *>(data), len), sender, self});
  arrived.notify_all();
}

/* Waits for `count` records of `id`, 10 s at most, and takes them out. */
std::vector<Received> Await(uint32_t id, size_t count) {
  std::unique_lock<std::mutex> lock(mutex);
  auto matching = [&] {
    std::vector<Received> found;
    for (const Received &one : received)
      if (one.id == id) found.push_back(one);
    return found;
  };
  arrived.wait_for(lock, std::chrono::seconds(10), [&] { return matching().size() >= count; });
  std::vector<Received> found = matching();
  received.clear();
  return found;
}

void Echo(int32_t id, const void *data, uint32_t len) {
  char sender[TDS_NAME_SIZE];
  Sender(sender);
  SynAckData_lib(data, len, static_cast<uint32_t>(id), sender);
}

void Die(int32_t, const void *, uint32_t) { raise(SIGKILL); }
void Silent(int32_t, const void *, uint32_t) {}

uint64_t held;
void Hold(int32_t id, const void *data, uint32_t len) {
  held = tds_hold_reply();
  Record(id, data, len);
}
void Release(int32_t, const void *, uint32_t) { tds_reply_held(held, "late", 5); }

void Slow(int32_t id, const void *data, uint32_t len) {
  tds_delay(300);
  Echo(id, data, len);
}

void Run(int32_t, const void *data, uint32_t) {
  (**static_cast<std::function<void()> *const *>(data))();
}

const MsgEntry kTable[] = {
    {TDS_MSG_INIT, Record},
    {TDS_MSG_PEER_GONE, Record},
    {kNote, Record},
    {kEcho, Echo},
    {kDie, Die},
    {kSilent, Silent},
    {kHold, Hold},
    {kRelease, Release},
    {kRun, Run},
    {kSlow, Slow},
    {kPublished, Record},
    {TDS_MSG_TIMER + 0, Record},
    {TDS_MSG_TIMER + 3, Record},
    {0, nullptr},
};
const ModuleEntry kModules[] = {{"unit:a", {0, 0}, kTable}, {"unit:b", {0, 0}, kTable}, {}};
const ModuleEntry kPeerModules[] = {{"peer:a", {0, 0}, kTable}, {}};

/* Runs `work` on module unit:a's thread and waits for it. */
void OnModule(std::function<void()> work) {
  std::function<void()> whole = [&] {
    work();
    Record(kRun, "", 0);
  };
  std::function<void()> *pointer = &whole;
  ASSERT_EQ(0, SendMsg(kRun, &pointer, sizeof(pointer), "unit:a"));
  ASSERT_EQ(1U, Await(kRun, 1).size());
}

std::string Call(uint32_t id, const std::string &payload, const char *dest,
                 uint32_t limit = 10000) {
  void *reply;
  uint32_t length;
  if (tds_call(id, payload.data(), static_cast<uint32_t>(payload.size()), dest, limit, &reply,
               &length) != 0)
    return std::string("errno ") + strerrorname_np(errno);
  std::string text(static_cast<char *>(reply), length);
  __tds_free(reply);
  return text;
}

/* A second process that serves "peer:a" and the process endpoint "peer". */
struct PeerProcess {
  pid_t pid;
  PeerProcess() {
    int ready[2];
    EXPECT_EQ(0, pipe2(ready, O_CLOEXEC));
    pid = fork();
    if (pid == 0) {
      dup2(ready[1], 3);
      execl("/proc/self/exe", "tds_test", "--peer", nullptr);
      _exit(127);
    }
    close(ready[1]);
    char byte;
    EXPECT_EQ(1, read(ready[0], &byte, 1)) << "the peer did not come up";
    close(ready[0]);
  }
  void Kill() {
    if (pid <= 0) return;
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    pid = 0;
  }
  ~PeerProcess() { Kill(); }
};

int PeerMain() {
  if (SysInit(kPeerModules) != 0) return 1;
  (void)!write(3, "r", 1);
  for (;;) tds_delay(60000);
}

class TdsTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    signal(SIGPIPE, SIG_IGN);
    ASSERT_EQ(0, SysInit(kModules));
    std::vector<Received> inits = Await(TDS_MSG_INIT, 2);
    ASSERT_EQ(2U, inits.size());
  }
  void SetUp() override {
    std::lock_guard<std::mutex> lock(mutex);
    received.clear();
  }
};

TEST_F(TdsTest, PayloadsArriveWholeAndInOrder) {
  const size_t kSizes[] = {0, 1, 255, 4096, 32 * 1024, 32 * 1024 + 1, 100000, TDS_PAYLOAD_MAX};
  for (size_t size : kSizes) {
    std::string payload(size, 'x');
    for (size_t i = 0; i < size; i += 97) payload[i] = static_cast<char>(i);
    EXPECT_EQ(payload, Call(kEcho, payload, "unit:a")) << size << " bytes";
  }
  const ModuleEntry kTaken[] = {{"unit:a", {0, 0}, kTable}, {}};
  EXPECT_EQ(-1, SysInit(kTaken)) << "the name is taken";
  EXPECT_EQ("errno EMSGSIZE", Call(kEcho, std::string(TDS_PAYLOAD_MAX + 1, 'x'), "unit:a"));
  for (int i = 0; i < 500; ++i) ASSERT_EQ(0, SendMsg(kNote, &i, sizeof(i), "unit:a"));
  std::vector<Received> notes = Await(kNote, 500);
  ASSERT_EQ(500U, notes.size());
  for (int i = 0; i < 500; ++i) {
    int got;
    memcpy(&got, notes[static_cast<size_t>(i)].payload.data(), sizeof(got));
    ASSERT_EQ(i, got);
  }
  EXPECT_EQ("unit:a", notes[0].self);
  EXPECT_EQ("unit", notes[0].sender); /* this thread is no module: the process's name */
}

TEST_F(TdsTest, WhoWaitsLearnsWhyAtOnce) {
  PeerProcess peer;
  struct {
    const char *what;
    uint32_t id;
    const char *dest, *expected;
  } cases[] = {
      {"no such endpoint", kEcho, "nobody:here", "errno ENOENT"},
      {"no name at all", kEcho, "", "errno ENOENT"},
      {"a name that leaves the folder", kEcho, "../tds/unit:a", "errno ENOENT"},
      {"no row", 0x19999, "unit:a", "errno ENOMSG"},
      {"a handler that does not answer", kSilent, "unit:a", "errno ENOMSG"},
      {"the process endpoint without a row", kEcho, "peer", "errno ENOMSG"},
      {"a peer that answers", kEcho, "peer:a", "hello"},
      {"a peer that dies meanwhile", kDie, "peer:a", "errno EPIPE"},
  };
  for (const auto &one : cases) {
    Clock::time_point start = Clock::now();
    EXPECT_EQ(one.expected, Call(one.id, "hello", one.dest)) << one.what;
    /* far below the 10 s of the limit: the reason came by itself */
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(5)) << one.what;
  }
  peer.Kill(); /* gone for certain, and its sockets with it */
  EXPECT_EQ("errno ENOENT", Call(kEcho, "hello", "peer:a")) << "a peer that has died";
  PeerProcess second;
  EXPECT_EQ("2", Call(kEcho, "2", "peer:a")) << "and is there again";
}

TEST_F(TdsTest, AModuleIsToldWhenAPeerGoes) {
  PeerProcess peer;
  OnModule([] { EXPECT_EQ(0, SendMsg(kNote, "x", 1, "peer:a")); });
  peer.Kill();
  std::vector<Received> gone = Await(TDS_MSG_PEER_GONE, 1);
  ASSERT_EQ(1U, gone.size());
  EXPECT_EQ(std::string("peer:a\0", 7), gone[0].payload);
}

TEST_F(TdsTest, LateAnswersAreNotTakenForTheNextOnes) {
  EXPECT_EQ("errno ETIMEDOUT", Call(kSlow, "first", "unit:b", 20));
  EXPECT_EQ("second", Call(kEcho, "second", "unit:b"));
  EXPECT_EQ("third", Call(kEcho, "third", "unit:b"));
}

TEST_F(TdsTest, AHeldAnswerComesLaterAndOnlyToItsCaller) {
  std::thread([] { /* a caller that gives up: its late answer must reach nobody */
                   EXPECT_EQ("errno ETIMEDOUT", Call(kHold, "", "unit:b", 20));
  })
      .join();
  EXPECT_EQ(1U, Await(kHold, 1).size());
  EXPECT_EQ(0, SendMsg(kRelease, "", 0, "unit:b"));
  EXPECT_EQ("next", Call(kEcho, "next", "unit:b"));
  std::thread releaser([] {
    EXPECT_EQ(1U, Await(kHold, 1).size());
    SendMsg(kRelease, "", 0, "unit:b");
  });
  EXPECT_EQ(std::string("late\0", 5), Call(kHold, "", "unit:b"));
  releaser.join();
}

TEST_F(TdsTest, ABurstToABusyModuleIsKept) {
  std::thread busy([] { EXPECT_EQ("done", Call(kSlow, "done", "unit:b")); });
  int sent = 0;
  for (int i = 0; i < 200; ++i) sent += SendMsg(kNote, "x", 1, "unit:b") == 0;
  EXPECT_EQ("other", Call(kEcho, "other", "unit:a")); /* another module is not held up */
  busy.join();
  EXPECT_EQ(200, sent);
  EXPECT_EQ(200U, Await(kNote, 200).size());
}

TEST_F(TdsTest, CallsFromAModuleWorkWhileOthersSendToIt) {
  OnModule([] {
    EXPECT_EQ("x", Call(kSlow, "x", "unit:b"));
    EXPECT_EQ(0, SendMsg(kNote, "self", 4, "unit:a"));
    EXPECT_EQ("errno EDEADLK", Call(kEcho, "x", "unit:a"));
  });
  EXPECT_EQ("y", Call(kEcho, "y", "unit:a"));
}

TEST_F(TdsTest, TimersExpireOnceAndRestart) {
  OnModule([] {
    EXPECT_EQ(0, SetTimer(3, 60000));
    EXPECT_EQ(0, SetTimer(3, 10)); /* set again: restarted, not doubled */
    EXPECT_EQ(0, SetTimer(0, 1));
    EXPECT_EQ(0, KillTimer(0));
    EXPECT_EQ(-1, SetTimer(TDS_TIMERS, 1));
    EXPECT_EQ(-1, SetTimer(-1, 1));
  });
  EXPECT_EQ(1U, Await(TDS_MSG_TIMER + 3, 1).size());
  OnModule([] {
    SetTimer(3, 10);
    SetTimer(0, 40);
  });
  std::unique_lock<std::mutex> lock(mutex);
  auto fired = [](uint32_t timer) {
    return std::count_if(received.begin(), received.end(), [&](const Received &one) {
      return one.id == TDS_MSG_TIMER + timer && one.self == "unit:a";
    });
  };
  EXPECT_TRUE(arrived.wait_for(lock, std::chrono::seconds(10), [&] { return fired(0) == 1; }));
  EXPECT_EQ(1, fired(3)) << "once, until it is set again";
  EXPECT_EQ(-1, SetTimer(0, 1)) << "only a module thread has timers";
}

TEST_F(TdsTest, NotificationsReachWhoeverAskedInAnyOrder) {
  /* asked before the publisher's process exists, by a module of this process */
  OnModule([] {
    EXPECT_EQ(0, TDS_RegisterNotifyList(kPublished, "unit:b"));
    EXPECT_EQ(-1, TDS_RegisterNotifyList(kPublished, "../evil"));
  });
  std::function<void()> publish = [] { TDS_NotifyRegistrant(kPublished, "news", 5); };
  std::function<void()> *pointer = &publish;
  ASSERT_EQ(0, SendMsg(kRun, &pointer, sizeof(pointer), "unit:b"));
  std::vector<Received> got = Await(kPublished, 2); /* the registrant, and unit:b's own row */
  ASSERT_EQ(2U, got.size());
  for (const Received &one : got) EXPECT_EQ("unit:b", one.sender);
  EXPECT_NE(got[0].self, got[1].self);
}

/* A bare connection to unit:a that sends `frame`: whether the module closes it. */
bool ClosedAfter(const std::string &frame) {
  int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  struct sockaddr_un address = {AF_UNIX, "/var/run/tds/unit:a"};
  if (connect(fd, reinterpret_cast<struct sockaddr *>(&address), sizeof(address)) != 0)
    return false;
  (void)send(fd, frame.data(), frame.size(), MSG_NOSIGNAL); /* may be closed already */
  struct pollfd end = {fd, POLLIN, 0};
  bool closed = poll(&end, 1, 5000) == 1;
  close(fd);
  return closed;
}

TEST_F(TdsTest, BadFramesCostTheirConnectionOnly) {
  const std::string kFrames[] = {
      std::string("x"), std::string(16, '\0'), std::string(64, '\xff'), std::string(40000, 'A'),
      std::string("\x51\x7d\x01\x00\x01\x00\x11\x00\x01\x00\x00\x00\xff\xff\x00\x00", 16)};
  for (const std::string &frame : kFrames) {
    EXPECT_TRUE(ClosedAfter(frame)) << frame.size() << " bytes";
    EXPECT_EQ("alive", Call(kEcho, "alive", "unit:a"));
  }
}

TEST_F(TdsTest, AnotherUserIsTurnedAway) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
  const std::string kHello("\x51\x7d\0\0\0\0\0\0\0\0\0\0\5\0\0\0root\0", 21);
  chmod(TDS_RUNTIME_DIR, 0755);
  chmod("/var/run/tds/unit:a", 0777);
  pid_t pid = fork();
  if (pid == 0) {
    if (setuid(65534) != 0) _exit(77);
    _exit(ClosedAfter(kHello) ? 0 : 1);
  }
  int status;
  waitpid(pid, &status, 0);
  chmod(TDS_RUNTIME_DIR, 0700);
  if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "no second user in this name space";
  EXPECT_EQ(0, WEXITSTATUS(status));
}

TEST_F(TdsTest, TheHeapCountsByTag) {
  TdsMallocCount before = tds_malloc_count("heap-test");
  void *block = __tds_malloc(100, "heap-test");
  memset(block, 1, 100);
  block = __tds_realloc(block, 300, "another tag");
  char *text = __tds_strdup("text", "heap-test");
  TdsMallocCount now = tds_malloc_count("heap-test");
  EXPECT_EQ(2, now.blocks - before.blocks);
  EXPECT_EQ(305, now.bytes - before.bytes);
  __tds_free(block);
  __tds_free(text);
  __tds_free(nullptr);
  EXPECT_EQ(before.blocks, tds_malloc_count("heap-test").blocks);
  EXPECT_EQ(nullptr, __tds_malloc(SIZE_MAX, "heap-test"));
  char foreign[64] = {};
  EXPECT_DEATH(__tds_free(foreign + 32), "not a block of the counted heap");
}

TEST_F(TdsTest, RecordsAreFilteredByTheModulesLevelAndCut) {
  testing::internal::CaptureStderr();
  __AMS_PrintHead(2);
  __AMS_Print(2, "below the level");
  __AMS_PrintEnd(2);
  __AMS_PrintHead(4);
  __AMS_Print(4, "%s", std::string(10000, 'y').c_str());
  __AMS_Print(4, "never seen");
  __AMS_PrintEnd(4);
  std::string text = testing::internal::GetCapturedStderr();
  EXPECT_EQ(std::string::npos, text.find("below"));
  EXPECT_EQ(std::string::npos, text.find("never seen"));
  EXPECT_NE(std::string::npos, text.find(" default 4 yyy"));
  EXPECT_EQ('\n', text.back());
}

}  // namespace

const MsgEntry prosCtlMsgTab[] = {{0, nullptr}};

int main(int argc, char **argv) {
  if (argc > 1 && std::string(argv[1]) == "--peer") return PeerMain();
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
