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
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <future>
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
  kTooLarge = 0x11000a, /* answered with more than an answer may carry; by a payload later */
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

void TooLarge(int32_t id, const void *, uint32_t len) {
  std::vector<char> answer(64 * 1024 * 1024 + 1);
  uint32_t size = static_cast<uint32_t>(answer.size());
  char sender[TDS_NAME_SIZE];
  Sender(sender);
  int given = len > 0 ? tds_reply_held(tds_hold_reply(), answer.data(), size)
                      : SynAckData_lib(answer.data(), size, static_cast<uint32_t>(id), sender);
  EXPECT_EQ(-1, given);
}

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
    {kTooLarge, TooLarge},
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
  explicit PeerProcess(rlim_t descriptors = 0) {
    int ready[2];
    EXPECT_EQ(0, pipe2(ready, O_CLOEXEC));
    pid = fork();
    if (pid == 0) {
      if (descriptors != 0) Limit(0, descriptors);
      dup2(ready[1], 3);
      execl("/proc/self/exe", "tds_test", "--peer", nullptr);
      _exit(127);
    }
    close(ready[1]);
    char byte;
    EXPECT_EQ(1, read(ready[0], &byte, 1)) << "the peer did not come up";
    close(ready[0]);
  }
  static void Limit(pid_t whose, rlim_t descriptors) {
    struct rlimit limit;
    prlimit(whose, RLIMIT_NOFILE, nullptr, &limit);
    limit.rlim_cur = descriptors;
    prlimit(whose, RLIMIT_NOFILE, &limit, nullptr);
  }
  std::string File(const char *name) const { return "/proc/" + std::to_string(pid) + "/" + name; }
  /* How many descriptors it has. */
  long Descriptors() const {
    std::filesystem::directory_iterator folder(File("fd")), end;
    return std::distance(folder, end);
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
  const size_t kSizes[] = {
      0, 1, 255, 4096, 32 * 1024, 32 * 1024 + 1, 1024 * 1024 + 1, 64 * 1024 * 1024};
  for (size_t size : kSizes) {
    std::string payload(size, 'x');
    for (size_t i = 0; i < size; i += 97) payload[i] = static_cast<char>(i);
    EXPECT_EQ(payload, Call(kEcho, payload, "unit:a")) << size << " bytes";
  }
  const ModuleEntry kTaken[] = {{"unit:a", {0, 0}, kTable}, {}};
  EXPECT_EQ(-1, SysInit(kTaken)) << "the name is taken";
  EXPECT_EQ("errno EMSGSIZE", Call(kEcho, std::string(64 * 1024 * 1024 + 1, 'x'), "unit:a"));
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
      {"an answer that is too large", kTooLarge, "unit:a", "errno EMSGSIZE"},
      {"the init message of a module", 0x101, "unit:a", "errno EPERM"},
      {"the last timer of a module", 0x20f, "unit:a", "errno EPERM"},
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

/* A bare socket, without the runtime: what a stranger or an attacker sends. */
struct Raw {
  int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  explicit Raw(int accepted) : fd(accepted) {}
  explicit Raw(const std::string &name, int backlog = -1) {
    struct sockaddr_un address = {AF_UNIX, ""};
    snprintf(address.sun_path, sizeof(address.sun_path), "/var/run/tds/%s", name.c_str());
    const struct sockaddr *at = reinterpret_cast<struct sockaddr *>(&address);
    if (backlog < 0) {
      EXPECT_EQ(0, connect(fd, at, sizeof(address))) << name << ": " << strerror(errno);
    } else {
      unlink(address.sun_path);
      EXPECT_EQ(0, bind(fd, at, sizeof(address)));
      EXPECT_EQ(0, listen(fd, backlog));
    }
  }
  Raw(Raw &&other) : fd(std::exchange(other.fd, -1)) {}
  ~Raw() {
    if (fd >= 0) close(fd);
  }
  Raw Accept() { return Raw(accept4(fd, nullptr, nullptr, SOCK_CLOEXEC)); }
  void Send(const std::string &frame, const std::vector<int> &passed = {}) {
    struct iovec piece = {const_cast<char *>(frame.data()), frame.size()};
    struct msghdr message = {};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    std::vector<char> control(CMSG_SPACE(passed.size() * sizeof(int)));
    if (!passed.empty()) {
      message.msg_control = control.data();
      message.msg_controllen = control.size();
      struct cmsghdr *part = CMSG_FIRSTHDR(&message);
      *part = {CMSG_LEN(passed.size() * sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
      memcpy(CMSG_DATA(part), passed.data(), passed.size() * sizeof(int));
    }
    (void)sendmsg(fd, &message, MSG_NOSIGNAL); /* may be closed already */
  }
  /* The next record; "" at the end of the connection, "silence" when nothing comes. */
  std::string Next(int limit_ms = 20000) {
    char record[65536];
    struct pollfd end = {fd, POLLIN, 0};
    if (poll(&end, 1, limit_ms) != 1) return "silence";
    ssize_t size = recv(fd, record, sizeof(record), MSG_DONTWAIT);
    if (size < 0) size = recv(fd, record, sizeof(record), MSG_DONTWAIT); /* a reset comes first */
    return std::string(record, static_cast<size_t>(std::max<ssize_t>(size, 0)));
  }
};

enum : uint16_t { kHelloFrame, kPostFrame, kCallFrame, kAnswerFrame, kRefusedFrame };

std::string Frame(uint16_t kind, uint32_t id, uint32_t sequence, const std::string &payload,
                  size_t length = std::string::npos) {
  const uint16_t start[] = {0x7d51, kind};
  const uint32_t rest[] = {
      id, sequence, static_cast<uint32_t>(length == std::string::npos ? payload.size() : length)};
  return std::string(reinterpret_cast<const char *>(start), sizeof(start)) +
         std::string(reinterpret_cast<const char *>(rest), sizeof(rest)) + payload;
}
const std::string kHello = Frame(kHelloFrame, 0, 0, std::string("raw\0", 4));

/* Whether unit:a closes a connection that sends `frame`. */
bool ClosedAfter(const std::string &frame) {
  Raw raw("unit:a");
  raw.Send(frame);
  return raw.Next().empty();
}

TEST_F(TdsTest, BadFramesCostTheirConnectionOnly) {
  const std::string kFrames[] = {std::string("x"),
                                 std::string(16, '\0'),
                                 std::string(64, '\xff'),
                                 std::string(40000, 'A'),
                                 Frame(kPostFrame, kNote, 1, "before its name"),
                                 Frame(kHelloFrame, 0, 0, "raw", 0xffff),
                                 Frame(kHelloFrame, 0, 0, "", 64 * 1024 * 1024),
                                 Frame(kHelloFrame, 0, 0, "", 64 * 1024 * 1024 + 1)};
  for (const std::string &frame : kFrames) {
    EXPECT_TRUE(ClosedAfter(frame)) << frame.size() << " bytes";
    EXPECT_EQ("alive", Call(kEcho, "alive", "unit:a"));
  }
}

TEST_F(TdsTest, ForeignDescriptorsAreClosed) {
  PeerProcess peer;
  EXPECT_EQ("before", Call(kEcho, "before", "peer:a"));
  long before = peer.Descriptors();
  Raw file("deaf:a", 1);
  int unsealed = memfd_create("unsealed", MFD_CLOEXEC);
  ASSERT_EQ(0, ftruncate(unsealed, 100000));
  const std::string kSmall = Frame(kPostFrame, kNote, 0, "x"),
                    kLarge = Frame(kPostFrame, kNote, 0, "", 100000);
  for (int round = 0; round < 20; ++round)
    for (const std::string &frame : {kSmall, kLarge})
      for (const std::vector<int> &passed : {std::vector<int>{file.fd},
                                             {file.fd, unsealed},
                                             std::vector<int>(100, unsealed),
                                             {unsealed}}) {
        Raw raw("peer:a");
        raw.Send(kHello);
        raw.Send(frame, passed);
        ASSERT_EQ("", raw.Next()) << frame.size() << " bytes, " << passed.size() << " descriptors";
      }
  EXPECT_EQ("alive", Call(kEcho, "alive", "peer:a"));
  EXPECT_EQ(before, peer.Descriptors());
  close(unsealed);
}

TEST_F(TdsTest, TheRuntimesOwnIdsComeFromItAlone) {
  Raw raw("unit:a");
  raw.Send(kHello);
  for (uint32_t id : {0x101U, 0x102U, 0x200U, 0x203U, 0x20fU}) {
    raw.Send(Frame(kPostFrame, id, 0, std::string("peer:a\0", 7)));
    raw.Send(Frame(kCallFrame, id, id, ""));
    EXPECT_EQ(Frame(kRefusedFrame, EPERM, id, ""), raw.Next()) << std::hex << id;
    EXPECT_EQ(-1, SendMsg(id, "x", 1, "unit:a")) << std::hex << id;
  }
  raw.Send(Frame(kCallFrame, kEcho, 7, "goes on"));
  EXPECT_EQ(Frame(kAnswerFrame, kEcho, 7, "goes on"), raw.Next());
  std::lock_guard<std::mutex> lock(mutex);
  EXPECT_EQ(0U, received.size()) << "first: " << std::hex << received[0].id;
}

TEST_F(TdsTest, APeerThatTakesNothingCostsItsSendersOneWait) {
  Raw listener("deaf:a", 0);
  testing::internal::CaptureStderr();
  int taken = 0;
  while (taken < 100000 && SendMsg(kNote, "x", 1, "deaf:a") == 0) ++taken;
  EXPECT_GT(taken, 200) << "a burst fits";
  Clock::time_point start = Clock::now();
  for (int i = 0; i < 20; ++i) EXPECT_EQ(-1, SendMsg(kNote, "x", 1, "deaf:a"));
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(20)) << "not 2 s each";
  start = Clock::now();
  std::thread([] { /* the queue of connections is full, too: a sender of its own */
                   for (int i = 0; i < 20; ++i) EXPECT_EQ(-1, SendMsg(kNote, "x", 1, "deaf:a"));
  })
      .join();
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(20)) << "not 2 s each";
  std::string log = testing::internal::GetCapturedStderr();
  EXPECT_NE(std::string::npos, log.find(" default 4 message 0x110001 to deaf:a: its queue"));

  Raw wakes_up = listener.Accept();
  for (int i = 0; i <= taken; ++i) ASSERT_NE("silence", wakes_up.Next());
  EXPECT_EQ(0, SendMsg(kNote, "again", 5, "deaf:a"));
  EXPECT_EQ("again", wakes_up.Next().substr(16));
}

TEST_F(TdsTest, ACallHasOneLimitFromItsStart) {
  Raw listener("fake:a", 5);
  std::thread server([&] {
    Raw client = listener.Accept();
    client.Next(); /* its name */
    uint32_t sequence;
    memcpy(&sequence, client.Next().data() + 8, sizeof(sequence));
    tds_delay(1600);
    client.Send(Frame(kAnswerFrame, kEcho, sequence - 1, "of an earlier call"));
    tds_delay(1400); /* the limit of 2 s is over */
    client.Send(Frame(kAnswerFrame, kEcho, sequence, "too late"));
    client.Next();
  });
  EXPECT_EQ("errno ETIMEDOUT", Call(kEcho, "x", "fake:a", 2000));
  EXPECT_EQ(0, SendMsg(kNote, "x", 1, "fake:a")) << "lets the server end";
  server.join();
}

TEST_F(TdsTest, AnEventOfAClosedDescriptorIsNobodys) {
  PeerProcess peer;
  int number = 0, pair[2];
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair));
  ASSERT_EQ(1, send(pair[1], "x", 1, 0));
  OnModule([&] {
    number = dup(0);
    close(number); /* the lowest free one is what the connection gets */
    EXPECT_EQ(0, SendMsg(kNote, "x", 1, "peer:a"));
  });
  std::promise<void> go;
  std::function<void()> wait = [&] { go.get_future().wait(); }, take_over = [&] {
    EXPECT_EQ(-1, SendMsg(kNote, "x", 1, "peer:a"));
    EXPECT_EQ(-1, fcntl(number, F_GETFD)) << "the connection is closed";
    EXPECT_EQ(number, dup2(pair[0], number)) << "another thread gets the number";
  };
  /* The module then finds this thread's second message and the peer's end, in that order. */
  for (std::function<void()> *pointer : {&wait, &take_over})
    EXPECT_EQ(0, SendMsg(kRun, &pointer, sizeof(pointer), "unit:a"));
  peer.Kill();
  go.set_value();
  EXPECT_EQ("done", Call(kEcho, "done", "unit:a"));
  char byte;
  EXPECT_EQ(1, recv(number, &byte, 1, MSG_DONTWAIT)) << "its message was taken away";
  for (int fd : {number, pair[0], pair[1]}) close(fd);
}

/* Processor time of the process, in ticks. */
long Ticks(const PeerProcess &peer) {
  std::ifstream file(peer.File("stat"));
  std::string word;
  for (int i = 0; i < 13; ++i) file >> word;
  long user, system;
  file >> user >> system;
  return user + system;
}

TEST_F(TdsTest, ACrowdCostsNobodyElse) {
  testing::internal::CaptureStderr();
  PeerProcess peer(80);
  /* No descriptor at all: it waits, and says so once. */
  PeerProcess::Limit(peer.pid, 3);
  std::string answer;
  std::thread client([&] { answer = Call(kEcho, "at last", "peer:a", 60000); });
  tds_delay(500);
  long before = Ticks(peer);
  tds_delay(1500);
  EXPECT_LT(Ticks(peer) - before, sysconf(_SC_CLK_TCK) / 4);
  PeerProcess::Limit(peer.pid, 80);
  client.join();
  EXPECT_EQ("at last", answer);

  std::vector<Raw> silent, named;
  for (int i = 0; i < 150; ++i) silent.emplace_back("peer:a");
  EXPECT_EQ("served", Call(kEcho, "served", "peer:a")) << "beside 150 that say nothing";
  Raw patient("peer:a");
  patient.Send(kHello);
  EXPECT_EQ("", silent.back().Next()) << "closed after a time";
  EXPECT_EQ("silence", patient.Next(0)) << "who has a name may be silent";

  /* Those with a name stay, and one too many is told why. */
  auto refused = [&] {
    named.emplace_back("peer:a");
    named.back().Send(kHello);
    named.back().Send(Frame(kCallFrame, kEcho, 1, "x"));
    return named.back().Next() != Frame(kAnswerFrame, kEcho, 1, "x");
  };
  while (named.size() < 200 && !refused()) {
  }
  EXPECT_GT(named.size(), 30U);
  EXPECT_LT(named.size(), 80U);
  std::thread([] { EXPECT_EQ("errno EUSERS", Call(kEcho, "x", "peer:a")); }).join();
  std::thread([] { EXPECT_EQ("errno EUSERS", Call(kEcho, "x", "peer")); }).join();
  named.clear();
  std::thread([] { EXPECT_EQ("again", Call(kEcho, "again", "peer:a")); }).join();
  peer.Kill();
  std::string log = testing::internal::GetCapturedStderr();
  const std::string kLine = "peer:a: no room for more connections: Too many open files";
  EXPECT_NE(std::string::npos, log.find(kLine)) << log;
  EXPECT_EQ(log.find(kLine), log.rfind(kLine)) << log;
}

TEST_F(TdsTest, AnIdleThreadKeepsNoLargePayload) {
  PeerProcess peer;
  auto resident = [&] {
    std::ifstream file(peer.File("statm"));
    long size, pages;
    file >> size >> pages;
    return pages * sysconf(_SC_PAGESIZE) / (1024 * 1024);
  };
  EXPECT_EQ("small", Call(kEcho, "small", "peer:a"));
  long before = resident();
  for (size_t mebibytes : {20, 64, 20}) {
    std::string payload(mebibytes * 1024 * 1024, 'x');
    EXPECT_EQ(payload, Call(kEcho, payload, "peer:a"));
  }
  EXPECT_EQ("small", Call(kEcho, "small", "peer:a")); /* the large one is over for certain */
  EXPECT_LT(resident() - before, 10);
}

TEST_F(TdsTest, AnotherUserIsTurnedAway) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
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
