// The runtime's calls with their reasons and limits, answers that are put off, senders that nobody
// listens to, and the counted heap.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include "../other_process.h"
#include "desk_support.h"
#include "refusals.h"
#include "tds_heap.h"
#include "tds_support.h"

namespace {
std::atomic<time_t> jumped; /* seconds that somebody has set the time of day on */
}

extern "C" int __real_clock_gettime(clockid_t clock, struct timespec *now);
extern "C" int __wrap_clock_gettime(clockid_t clock, struct timespec *now);
int __wrap_clock_gettime(clockid_t clock, struct timespec *now) {
  const int result = __real_clock_gettime(clock, now);
  if (clock == CLOCK_REALTIME) now->tv_sec += jumped;
  return result;
}

namespace {

using Lines = std::vector<std::string>;

/* Call of a handler that does `work` on unit:b. */
std::string CallRun(const Work &work, uint32_t limit = Patience() * 1000) {
  const Work *pointer = &work;
  return Call(kRun, {reinterpret_cast<const char *>(&pointer), sizeof pointer}, "unit:b", limit);
}

/* The other reasons, and that a module is told when a peer goes, are shown end to end. */
TEST_F(Tds, ACallTellsWhyItFailed) {
  const std::string large(TDS_PAYLOAD_MAX + 1, 'x');
  EXPECT_EQ(Failed(EMSGSIZE), Call(kEcho, large, "unit:a"));
  EXPECT_EQ(Failed(EMSGSIZE), CallRun([&] { EXPECT_EQ(-1, Answer(large)); }));
  EXPECT_EQ(Failed(EMSGSIZE), CallRun([&] {
              EXPECT_EQ(-1, tds_reply_held(tds_hold_reply(), large.data(), TDS_PAYLOAD_MAX + 1));
            }));
  OnModule("unit:a", [] { EXPECT_EQ(Failed(EDEADLK), Call(kEcho, "", "unit:a")); });
}

/* Who was killed while it started a program: that has its sockets for a moment. */
TEST_F(Tds, ANameIsServedOnceNobodyElseHasIt) {
  struct sockaddr_un address = {AF_UNIX, ""};
  const int left = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  snprintf(address.sun_path, sizeof address.sun_path, "%s/unit:left", kTdsFolder);
  ASSERT_EQ(0, bind(left, reinterpret_cast<struct sockaddr *>(&address), sizeof address));
  ASSERT_EQ(0, listen(left, 1));
  std::thread goes([left] {
    tds_delay(200);
    close(left);
  });
  OnModule("unit:b", [] { EXPECT_EQ(0, tds_serve_also("unit:left")); });
  goes.join();
  EXPECT_EQ("hello", Call(kEcho, "hello", "unit:left"));
}

TEST_F(Tds, AHeldAnswerComesLaterAndOnlyToItsCaller) {
  uint64_t held = 0;
  const Work hold = [&held] { held = tds_hold_reply(); };
  auto release = [&held] { EXPECT_EQ(0, tds_reply_held(held, "late", 4)); };
  EXPECT_EQ(Failed(ETIMEDOUT), CallRun(hold, 20));
  OnModule("unit:b", release); /* to a caller that has given up */
  EXPECT_EQ("next", Call(kEcho, "next", "unit:b")) << "a late answer is not the next one's";
  std::promise<void> is_held;
  std::thread releaser([&] {
    is_held.get_future().wait();
    OnModule("unit:b", release);
  });
  EXPECT_EQ("late", CallRun([&] {
              hold();
              is_held.set_value();
            }));
  releaser.join();
  OnModule("unit:b", [] { EXPECT_EQ(-1, tds_reply_held(4711, "", 0)) << "of nobody"; });
}

TEST_F(Tds, HeldAnswersComeInAnyOrder) {
  uint64_t held[3];
  std::string answers[3];
  std::vector<std::thread> callers;
  for (size_t caller : {0U, 1U, 2U}) {
    std::promise<void> is_held;
    callers.emplace_back([&, caller, is_held = &is_held] {
      answers[caller] = CallRun([&, caller, is_held] {
        held[caller] = tds_hold_reply();
        is_held->set_value();
      });
    });
    is_held.get_future().wait();
  }
  for (size_t caller : {1U, 2U, 0U})
    OnModule("unit:b", [&] {
      const std::string text = std::to_string(caller);
      EXPECT_EQ(0, tds_reply_held(held[caller], text.data(), 1));
      EXPECT_EQ(-1, tds_reply_held(held[caller], text.data(), 1)) << "once";
    });
  for (std::thread &caller : callers) caller.join();
  EXPECT_EQ("0 1 2", answers[0] + " " + answers[1] + " " + answers[2]);
}

TEST_F(Tds, AClockThatJumpsMovesNoTimer) {
  const Work hold = [] { (void)tds_hold_reply(); };
  for (time_t jump : {100000, -200000, 100000}) {
    Clock::time_point set;
    int32_t before, after, milliseconds;
    tds_gettime(&before, &milliseconds);
    OnModule("unit:b", [&] {
      set = Clock::now();
      EXPECT_EQ(0, SetTimer(3, 50));
      jumped += jump;
    });
    EXPECT_EQ(Failed(ETIMEDOUT), CallRun(hold, 20));
    EXPECT_EQ(1U, Await(TDS_MSG_TIMER + 3, 1).size());
    EXPECT_GE(Clock::now() - set, std::chrono::milliseconds(50));
    tds_gettime(&after, &milliseconds);
    EXPECT_GE((after - before) / (jump / 1000), 99) << "it did jump";
  }
}

/* Whether a client that is new reaches all of them, soon enough. */
void ExpectReached(const Lines &names) {
  std::thread([&] {
    const Clock::time_point end = Clock::now() + std::chrono::seconds(Patience());
    for (const std::string &name : names)
      while (Call(kEcho, "x", name.c_str()) != "x")
        if (Clock::now() > end) FAIL() << name;
  }).join();
}

TEST_F(Tds, AFolderThatGoesIsMadeAnew) {
  const Lines names = {"unit:a", "unit:b", "peer:a"};
  PeerProcess peer;
  OnModule("unit:a", [] { EXPECT_EQ(0, TDS_RegisterNotifyList(kPublished, "unit:b")); });
  for (const char *goes : {"mv /var/run/tds /tmp/moved && rm -r /tmp/moved",
                           "rm -rf /var/run/tds; true", "rm /var/run/tds/*:*"}) {
    SCOPED_TRACE(goes);
    ASSERT_EQ(system(goes), 0);
    ExpectReached(names);
    const Work publish = [] { EXPECT_EQ(0, TDS_NotifyRegistrant(kPublished, "news", 5)); };
    ASSERT_EQ(0, Post(&publish, "unit:b"));
    EXPECT_EQ(2U, Await(kPublished, 2).size()) << "who had asked, and unit:b itself";
  }
}

size_t OpenDescriptors() {
  const auto all = std::filesystem::directory_iterator("/proc/self/fd");
  return static_cast<size_t>(std::distance(begin(all), end(all)));
}

TEST_F(Tds, WithoutMemoryACallFailsAndTheNextWorks) {
  PeerProcess peer;
  const std::pair<const char *, std::function<int()>> calls[] = {
      {"to another", [] { return SendMsg(kNote, "x", 1, "peer:a"); }},
      {"asking another", [] { return Call(kEcho, "x", "peer:a") == "x" ? 0 : -1; }},
      {"to itself", [] { return SendMsg(kNote, "x", 1, "unit:a"); }},
      {"asking for news", [] { return TDS_RegisterNotifyList(kPublished, "unit:b"); }},
      {"news", [] { return TDS_NotifyRegistrant(kPublished, "x", 1); }},
  };
  for (const auto &[what, call] : calls)
    for (size_t turn = 1, had = turn; had >= turn; ++turn) {
      SCOPED_TRACE(std::string(what) + " " + std::to_string(turn));
      const size_t open = OpenDescriptors();
      auto lacking = [&, &run = call] {
        char name[TDS_NAME_SIZE];
        Self(name); /* without memory for a thread's end the C library ends the process */
        had = WithoutMemory(turn, turn, [&] { (void)run(); }); /* may succeed all the same */
        EXPECT_EQ(0, run());
      };
      OnModule("unit:a", lacking);
      if (strstr(what, "another") != nullptr) std::thread(lacking).join();
      EXPECT_LE(OpenDescriptors(), open + 1) << "the connection to the other";
    }
}

/* The module that is sent to lacks an allocation, of those for the connection or for the message.
 */
TEST_F(Tds, WithoutMemoryAModuleStillTakesTheNextClient) {
  auto client = [] {
    std::string answer;
    std::thread([&] { answer = Call(kEcho, "x", "unit:b"); }).join();
    return answer;
  };
  for (size_t turn = 1, had = turn; had >= turn; ++turn) {
    SCOPED_TRACE(turn);
    OnModule("unit:b", [=] { refusals = {true, 0, turn, turn}; });
    const std::string answer = client();
    EXPECT_TRUE(answer == "x" || answer == Failed(ENOMEM)) << answer;
    OnModule("unit:b", [&] {
      refusals.counting = false;
      had = refusals.count;
    });
    EXPECT_EQ(client(), "x");
  }
}

TEST_F(Tds, APeerThatTakesNothingCostsItsSendersOneWait) {
  Raw listener("deaf:a", 0);
  testing::internal::CaptureStderr();
  int taken = 0;
  while (taken < 100000 && SendMsg(kNote, "x", 1, "deaf:a") == 0) ++taken;
  EXPECT_GT(taken, 200) << "a burst fits";
  auto refused = [] {
    constexpr int kPosts = 100;
    Clock::time_point start = Clock::now();
    for (int i = 0; i < kPosts; ++i) EXPECT_EQ(-1, SendMsg(kNote, "x", 1, "deaf:a"));
    EXPECT_LT(Clock::now() - start, kPosts * std::chrono::seconds(2)) << "each has waited";
  };
  refused();
  std::thread(refused).join(); /* the queue of connections is full, too: a sender of its own */
  std::string log = testing::internal::GetCapturedStderr();
  EXPECT_NE(std::string::npos, log.find(" default 4 message 0x110001 to deaf:a: its queue"));

  Raw wakes_up = listener.Accept();
  wakes_up.Next(); /* room for one record, of the two that a large payload needs */
  EXPECT_EQ(-1, SendMsg(kNote, std::string(100000, 'x').data(), 100000, "deaf:a"));
  for (int i = 0; i < taken; ++i) ASSERT_EQ("x", wakes_up.Next().substr(16));
  EXPECT_EQ(0, SendMsg(kNote, "again", 5, "deaf:a"));
  EXPECT_EQ("again", wakes_up.Next().substr(16));
}

TEST_F(Tds, ACallHasOneLimitFromItsStart) {
  Raw listener("fake:a", 5);
  std::chrono::steady_clock::time_point first; /* when it had an answer, and went on waiting */
  std::thread server([&] {
    Raw client = listener.Accept();
    client.Next(); /* its name */
    uint32_t sequence;
    memcpy(&sequence, client.Next().data() + 8, sizeof(sequence));
    tds_delay(1600);
    client.Send(Frame(kAnswerFrame, kEcho, sequence - 1, "of an earlier call"));
    first = std::chrono::steady_clock::now();
    tds_delay(1400); /* the limit of 2 s is over */
    client.Send(Frame(kAnswerFrame, kEcho, sequence, "too late"));
    client.Next();
  });
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(2);
  EXPECT_EQ(Failed(ETIMEDOUT), Call(kEcho, "x", "fake:a", 2000));
  EXPECT_EQ(0, SendMsg(kNote, "x", 1, "fake:a")) << "lets the server end";
  server.join();
  if (first > limit) GTEST_SKIP() << "this machine is too slow to answer within a limit of 2 s";
}

TEST_F(Tds, AnEventOfAClosedDescriptorIsNobodys) {
  NEEDS_ANEW();
  PeerProcess peer;
  int number = 0, pair[2];
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair));
  ASSERT_EQ(1, send(pair[1], "x", 1, 0));
  OnModule("unit:a", [&] {
    number = dup(0);
    close(number); /* the lowest free one is what the connection gets */
    EXPECT_EQ(0, SendMsg(kNote, "x", 1, "peer:a"));
  });
  std::promise<void> go;
  const Work wait = [&] { go.get_future().wait(); }, take_over = [&] {
    EXPECT_EQ(-1, SendMsg(kNote, "x", 1, "peer:a"));
    EXPECT_EQ(-1, fcntl(number, F_GETFD)) << "the connection is closed";
    EXPECT_EQ(number, dup2(pair[0], number)) << "another thread gets the number";
  };
  /* The module then finds this thread's second message and the peer's end, in that order. */
  for (const Work *work : {&wait, &take_over}) EXPECT_EQ(0, Post(work, "unit:a"));
  peer.Kill();
  go.set_value();
  EXPECT_EQ("done", Call(kEcho, "done", "unit:a"));
  char byte;
  EXPECT_EQ(1, recv(number, &byte, 1, MSG_DONTWAIT)) << "its message was taken away";
  for (int fd : {number, pair[0], pair[1]}) close(fd);
}

/* How often the thread of that name in /proc has begun to wait, once it waits. */
long Waits(const PeerProcess &peer, const std::string &name) {
  const std::string kCount = "voluntary_ctxt_switches:";
  const Clock::time_point end = Clock::now() + std::chrono::seconds(Patience());
  while (Clock::now() < end)
    for (const auto &task : std::filesystem::directory_iterator(peer.File("task"))) {
      std::string line, comm;
      std::getline(std::ifstream(task.path() / "comm"), comm);
      std::ifstream status(task.path() / "status");
      bool waits = false;
      while (comm == name && std::getline(status, line)) {
        waits |= line.compare(0, 8, "State:\tS") == 0;
        if (waits && line.compare(0, kCount.size(), kCount) == 0)
          return std::stol(line.substr(kCount.size()));
      }
    }
  return -1;
}

TEST_F(Tds, AnIdleModuleDoesNotWake) {
  NEEDS_ANEW();
  constexpr uint32_t kOver = 1300; /* ms; what the runtime looks after is due within a second */
  PeerProcess peer;
  EXPECT_EQ("x", Call(kEcho, "x", "peer:a"));
  const std::string socket = std::string(kTdsFolder) + "/peer:a";
  ASSERT_EQ(0, unlink(socket.c_str()));
  const Clock::time_point end = Clock::now() + std::chrono::seconds(Patience());
  while (!std::filesystem::exists(socket)) ASSERT_LT(Clock::now(), end) << "it is made anew";
  const long before = Waits(peer, "peer:a");
  EXPECT_GT(before, 0);
  tds_delay(kOver);
  EXPECT_EQ(Waits(peer, "peer:a"), before);
}

TEST_F(Tds, AnIdleThreadKeepsNoLargePayload) {
  NEEDS_ANEW();
  PeerProcess peer;
  auto resident = [&] {
    std::ifstream file(peer.File("statm"));
    long size, pages;
    file >> size >> pages;
    return pages * sysconf(_SC_PAGESIZE) / (1024 * 1024);
  };
  EXPECT_EQ("small", Call(kEcho, "small", "peer:a"));
  long before = resident();
  for (size_t mebibytes : {20u, 64u, 20u}) {
    std::string payload(mebibytes * 1024 * 1024, 'x');
    EXPECT_EQ(payload, Call(kEcho, payload, "peer:a"));
  }
  EXPECT_EQ("small", Call(kEcho, "small", "peer:a")); /* the large one is over for certain */
  EXPECT_LT(resident() - before, 10);
}

TEST_F(Tds, TheHeapCountsByTag) {
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
  EXPECT_EQ(before.blocks, tds_malloc_count("heap-test").blocks);
  char foreign[64] = {};
  EXPECT_DEATH(__tds_free(foreign + 32), "not a block of the counted heap");
}

}  // namespace
