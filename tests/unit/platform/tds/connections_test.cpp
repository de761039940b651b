// Who may connect to a module, what a connection may send, and what a crowd of them costs.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <filesystem>
#include <future>
#include <optional>
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

/* A frame that has its module do this. */
std::string RunFrame(const Work &work) {
  const Work *pointer = &work;
  return Frame(kPostFrame, kRun, 0, {reinterpret_cast<const char *>(&pointer), sizeof pointer});
}

/* "unit:a" does something, and then nothing until it may go on. */
struct Held {
  std::promise<void> held, go;
  const Work work;
  explicit Held(const Work &first = [] {})
      : work([this, first] {
          first();
          held.set_value();
          go.get_future().wait();
        }) {
    EXPECT_EQ(0, Post(&work, "unit:a"));
    held.get_future().wait();
  }
  void GoOn() { go.set_value(); }
};

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
  std::optional<Held> module;
  {
    Raw raw("unit:a");
    raw.Send(kHello);
    raw.Send(Frame(kCallFrame, kEcho, 1, "whose answer is not read")); /* the end is a reset */
    raw.Send(Frame(kPostFrame, kNote, 0, "", payload.size()));
    raw.AwaitRead();
    module.emplace();
    raw.Send("x", {file});
  }
  module->GoOn();
  close(file);
  const std::vector<Received> got = Await(kNote, 1);
  ASSERT_EQ(1U, got.size());
  EXPECT_EQ(payload, got[0].payload);
}

/* Clients that "unit:a" knows as such that send many messages at once. */
std::vector<Raw> Floods(size_t count) {
  constexpr size_t kKnown = 40; /* messages after which it does */
  std::vector<Raw> floods;
  for (size_t at = 0; at < count; ++at) floods.emplace_back("unit:a");
  Held module;
  for (Raw &flood : floods) {
    flood.Send(kHello);
    for (size_t sent = 0; sent < kKnown; ++sent) flood.Send(Frame(kPostFrame, kNote, 0, "known"));
  }
  module.GoOn();
  EXPECT_EQ(count * kKnown, Await(kNote, count * kKnown).size());
  return floods;
}

TEST_F(Tds, SlowFloodsHoldNobodyUp) {
  constexpr size_t kFloods = 40;
  const struct {
    bool slow_first;
    size_t before_timer, before_other; /* notes of the floods at most */
  } kCases[] = {{true, 0, 0}, {false, 16, kFloods}};
  const Work slow = [] { tds_delay(2); };
  const std::string note = Frame(kPostFrame, kNote, 0, "flood"), run = RunFrame(slow);
  std::vector<Raw> floods = Floods(kFloods);
  Raw other("unit:a");
  other.Send(kHello);
  for (const auto &[slow_first, before_timer, before_other] : kCases) {
    Held module([] { SetTimer(3, 1); });
    for (Raw &flood : floods)
      for (const std::string &frame : {slow_first ? run : note, slow_first ? note : run, note})
        flood.Send(frame);
    other.Send(Frame(kPostFrame, kNote, 0, "other"));
    tds_delay(5); /* the timer is due */
    module.GoOn();
    const std::vector<Received> got = Await(kAny, 2 * kFloods + 2);
    ASSERT_EQ(2 * kFloods + 2, got.size());
    auto notes_before = [&](auto is_it) {
      const auto it = std::find_if(got.begin(), got.end(), is_it);
      return std::count_if(got.begin(), it,
                           [](const Received &one) { return one.payload == "flood"; });
    };
    EXPECT_LE(notes_before([](const Received &one) { return one.id == TDS_MSG_TIMER + 3U; }),
              before_timer)
        << slow_first;
    EXPECT_LE(notes_before([](const Received &one) { return one.payload == "other"; }),
              before_other)
        << slow_first;
  }
}

TEST_F(Tds, FloodsLeaveRoomForWhatAModuleTellsItself) {
  constexpr size_t kFloods = 8, kFrames = 4, kPosts = 100; /* 1024 may wait */
  const Work tell = [] {
    for (size_t post = 0; post < kPosts; ++post) EXPECT_EQ(0, SendMsg(kNote, "self", 4, "unit:a"));
  };
  std::vector<Raw> floods = Floods(kFloods);
  Held module;
  for (Raw &flood : floods)
    for (size_t frame = 0; frame < kFrames; ++frame) flood.Send(RunFrame(tell));
  module.GoOn();
  EXPECT_EQ(kFloods * kFrames * kPosts, Await(kNote, kFloods * kFrames * kPosts).size());
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
