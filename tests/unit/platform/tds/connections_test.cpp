// Who may connect to a module, what a connection may send, and what a crowd of them costs.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <filesystem>
#include <future>
#include <thread>

#include "../other_process.h"
#include "desk_support.h"
#include "tds_support.h"

namespace {

/* Whether unit:a closes a connection that sends `frame`. */
bool ClosedAfter(const std::string &frame) {
  Raw raw("unit:a");
  raw.Send(frame);
  return raw.Next().empty();
}

TEST_F(Tds, BadFramesCostTheirConnectionOnly) {
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
    EXPECT_EQ("alive", Ask(kEcho, "alive", "unit:a"));
  }
}

TEST_F(Tds, ALargePayloadIsReadWhenItsSenderHasGone) {
  const std::string payload(100000, 'x');
  const int file = SealedFile(payload);
  std::promise<void> held, gone;
  const Work hold = [&] {
    held.set_value();
    gone.get_future().wait();
  };
  {
    Raw raw("unit:a");
    raw.Send(kHello);
    raw.Send(Frame(kCallFrame, kEcho, 1, "whose answer is not read")); /* the end is a reset */
    raw.Send(Frame(kPostFrame, kNote, 0, "", payload.size()));
    raw.AwaitRead();
    ASSERT_EQ(0, Post(&hold, "unit:a"));
    held.get_future().wait();
    raw.Send("x", {file});
  }
  gone.set_value();
  close(file);
  const std::vector<Received> got = Await(kNote, 1);
  ASSERT_EQ(1U, got.size());
  EXPECT_EQ(payload, got[0].payload);
}

TEST_F(Tds, ASlowFloodHoldsNobodyUp) {
  constexpr size_t kFlood = 30, kTurn = 4; /* notes of a flood that may come before others */
  const Work slow = [] { tds_delay(2); };
  const Work *pointer = &slow;
  const std::string run =
      Frame(kPostFrame, kRun, 0, {reinterpret_cast<const char *>(&pointer), sizeof pointer});
  Raw flood("unit:a"), other("unit:a");
  for (Raw *raw : {&flood, &other}) raw->Send(kHello);
  for (const char *round : {"unknown", "known as a flood"}) {
    std::promise<void> held, go;
    const Work hold = [&] {
      SetTimer(3, 1);
      held.set_value();
      go.get_future().wait();
    };
    ASSERT_EQ(0, Post(&hold, "unit:a"));
    held.get_future().wait();
    for (size_t i = 0; i < kFlood; ++i)
      for (const std::string &frame : {run, Frame(kPostFrame, kNote, 0, std::to_string(i))})
        flood.Send(frame);
    other.Send(Frame(kPostFrame, kNote, 0, "other"));
    tds_delay(2); /* the timer is over */
    go.set_value();
    const std::vector<Received> got = Await(kAny, kFlood + 2);
    ASSERT_EQ(kFlood + 2, got.size());
    size_t flooded = 0;
    for (size_t at = 0; at < got.size(); ++at) {
      if (got[at].id == TDS_MSG_TIMER + 3U || got[at].payload == "other")
        EXPECT_LT(at, kTurn) << got[at].payload << ", " << round;
      else
        EXPECT_EQ(std::to_string(flooded++), got[at].payload) << round;
    }
  }
}

TEST_F(Tds, ANoteIsOfTheMessageBehindItAlone) {
  std::vector<std::string> notes;
  const Work look = [&notes] { notes.emplace_back(tds_note()); };
  const Work *pointer = &look;
  Raw raw("unit:b");
  raw.Send(kHello);
  auto call = [&](uint32_t sequence) {
    raw.Send(Frame(kCallFrame, kRun, sequence,
                   std::string(reinterpret_cast<const char *>(&pointer), sizeof pointer)));
    EXPECT_EQ(Frame(kRefusedFrame, ENOMSG, sequence, ""), raw.Next());
  };
  raw.Send(Frame(kNoteFrame, 0, 1, "of one that was lost"));
  call(3);
  raw.Send(Frame(kNoteFrame, 0, 4, std::string("why\0", 4)));
  call(5);
  call(6);
  EXPECT_EQ(notes, (std::vector<std::string>{"", std::string("why\0", 4), ""}));
  raw.Send(Frame(kNoteFrame, 0, 7, std::string(1025, 'x')));
  EXPECT_EQ("", raw.Next()) << "larger than any note";
}

TEST_F(Tds, ForeignDescriptorsAreClosed) {
#ifdef UNDER_EMULATOR
  GTEST_SKIP()
      << "an emulator, which keeps the descriptors that its program's buffer has no room for";
#endif
  NEEDS_ANEW();
  PeerProcess peer;
  EXPECT_EQ("before", Ask(kEcho, "before", "peer:a"));
  const std::filesystem::directory_iterator kEnd;
  auto descriptors = [&] {
    return std::distance(std::filesystem::directory_iterator(peer.File("fd")), kEnd);
  };
  const auto before = descriptors();
  Raw file("deaf:a", 1);
  FILE *plain = tmpfile();
  const int unsealed = fileno(plain);
  ASSERT_EQ(0, ftruncate(unsealed, 100000));
  for (int round = 0; round < 20; ++round)
    for (const std::vector<int> &passed : {std::vector<int>{file.fd},
                                           {file.fd, unsealed},
                                           std::vector<int>(100, unsealed),
                                           {unsealed},
                                           {}}) {
      Raw small("peer:a"), large("peer:a");
      small.Send(kHello);
      small.Send(Frame(kCallFrame, kEcho, 7, "x"), passed); /* nobody takes them */
      ASSERT_EQ(Frame(kAnswerFrame, kEcho, 7, "x"), small.Next());
      large.Send(kHello);
      large.Send(Frame(kPostFrame, kNote, 0, "", 100000));
      large.Send("x", passed);
      ASSERT_EQ("", large.Next()) << passed.size() << " descriptors";
    }
  EXPECT_EQ("alive", Ask(kEcho, "alive", "peer:a"));
  EXPECT_EQ(before, descriptors());
  fclose(plain);
}

TEST_F(Tds, OwnIdsInFramesOfOthersAreRefused) {
  Raw raw("unit:a");
  raw.Send(kHello);
  for (uint32_t id : {0x101U, 0x102U, 0x200U, 0x203U, 0x20fU}) {
    raw.Send(Frame(kPostFrame, id, 0, std::string("peer:a\0", 7)));
    raw.Send(Frame(kCallFrame, id, id, ""));
    EXPECT_EQ(Frame(kRefusedFrame, EPERM, id, ""), raw.Next()) << std::hex << id;
  }
  raw.Send(Frame(kCallFrame, kEcho, 7, "goes on"));
  EXPECT_EQ(Frame(kAnswerFrame, kEcho, 7, "goes on"), raw.Next());
  EXPECT_TRUE(Await(kAny, 0).empty());
}

/* Processor time of a process, in milliseconds. */
long TimeOf(pid_t pid) {
  clockid_t clock;
  struct timespec time;
  EXPECT_EQ(0, clock_getcpuclockid(pid, &clock) | clock_gettime(clock, &time));
  return time.tv_sec * 1000 + time.tv_nsec / 1000000;
}

TEST_F(Tds, ACrowdCostsNobodyElse) {
  NEEDS_ANEW();
  testing::internal::CaptureStderr();
  PeerProcess peer(80);
  /* No descriptor at all: it waits, and says so once. */
  LimitDescriptors(peer.pid, 3);
  std::string answer;
  std::thread client([&] { answer = Ask(kEcho, "at last", "peer:a"); });
  tds_delay(500);
  long before = TimeOf(peer.pid);
  tds_delay(1500);
  EXPECT_LT(TimeOf(peer.pid) - before, 250);
  LimitDescriptors(peer.pid, 80);
  client.join();
  EXPECT_EQ("at last", answer);

  std::vector<Raw> silent, named;
  for (int i = 0; i < 150; ++i) silent.emplace_back("peer:a");
  EXPECT_EQ("served", Ask(kEcho, "served", "peer:a")) << "beside 150 that say nothing";
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
  std::thread([] { EXPECT_EQ(Failed(EUSERS), Call(kEcho, "x", "peer:a")); }).join();
  std::thread([] { EXPECT_EQ(Failed(EUSERS), Call(kEcho, "x", "peer")); }).join();
  named.clear();
  std::thread([] { EXPECT_EQ("again", Ask(kEcho, "again", "peer:a")); }).join();
  peer.Kill();
  std::string log = testing::internal::GetCapturedStderr();
  const std::string kLine = "peer:a: no room for more connections: Too many open files";
  EXPECT_NE(std::string::npos, log.find(kLine)) << log;
  EXPECT_EQ(log.find(kLine), log.rfind(kLine)) << log;
}

TEST_F(Tds, AnotherUserIsTurnedAway) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
  chmod(kTdsFolder, 0755);
  chmod("/var/run/tds/unit:a", 0777);
  int status = End(Start([] {
    if (setuid(65534) != 0) _exit(77);
    return ClosedAfter(kHello);
  }));
  chmod(kTdsFolder, 0700);
  if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "no second user in this name space";
  EXPECT_EQ(0, WEXITSTATUS(status));
}

}  // namespace
