// The runtime's calls with their reasons and limits, answers that are put off, senders that nobody
// listens to, and the counted heap.
#include <fcntl.h>

#include <fstream>
#include <future>
#include <thread>

#include "../other_process.h"
#include "desk_support.h"
#include "tds_heap.h"
#include "tds_support.h"

namespace {

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
  for (int i = 0; i <= taken; ++i) ASSERT_NE("silence", wakes_up.Next());
  EXPECT_EQ(0, SendMsg(kNote, "again", 5, "deaf:a"));
  EXPECT_EQ("again", wakes_up.Next().substr(16));
}

TEST_F(Tds, ACallHasOneLimitFromItsStart) {
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
  EXPECT_EQ(Failed(ETIMEDOUT), Call(kEcho, "x", "fake:a", 2000));
  EXPECT_EQ(0, SendMsg(kNote, "x", 1, "fake:a")) << "lets the server end";
  server.join();
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
