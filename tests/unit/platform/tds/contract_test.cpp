// What platform/include/tds.h and ams_print.h promise, on any board.
#include <algorithm>
#include <cctype>
#include <cstring>
#include <iterator>
#include <new>
#include <sstream>
#include <thread>
#include <vector>

#include "../other_process.h"
#include "ams_print.h"
#include "tds_support.h"

namespace {

TEST_F(Tds, PayloadsArriveWholeAndInOrder) {
  const size_t kSizes[] = {
      0, 1, 255, 4096, 32 * 1024, 32 * 1024 + 1, 1024 * 1024 + 1, TDS_PAYLOAD_MAX};
  for (size_t size : kSizes) {
    std::string payload(size, 'x');
    for (size_t i = 0; i < size; i += 97) payload[i] = static_cast<char>(i);
    EXPECT_EQ(payload, Ask(kEcho, payload, "unit:a")) << size << " bytes";
  }
  EXPECT_EQ("refused", Ask(kEcho, std::string(TDS_PAYLOAD_MAX + 1, 'x'), "unit:a"));
  for (int i = 0; i < 500; ++i) ASSERT_EQ(0, SendMsg(kNote, &i, sizeof i, "unit:a"));
  std::vector<Received> notes = Await(kNote, 500);
  ASSERT_EQ(500U, notes.size());
  for (int i = 0; i < 500; ++i)
    ASSERT_EQ(0, memcmp(notes[static_cast<size_t>(i)].payload.data(), &i, sizeof i)) << i;
  EXPECT_EQ("unit:a", notes[0].self);
  EXPECT_EQ("unit", notes[0].sender) << "this thread is no module: the process's name";
}

struct Asked {
  const char *what;
  uint32_t id;
  const char *dest, *expected;
};

void ExpectAtOnce(std::initializer_list<Asked> cases) {
  for (const Asked &one : cases) {
    Clock::time_point start = Clock::now();
    EXPECT_EQ(one.expected, Ask(one.id, "hello", one.dest)) << one.what;
    EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(TDS_SYN_LIMIT)) << one.what;
  }
}

TEST_F(Tds, WhoGetsNoAnswerLearnsItAtOnce) {
  ExpectAtOnce({
      {"no such endpoint", kEcho, "nobody:here", "refused"},
      {"no name at all", kEcho, "", "refused"},
      {"a name that is a path", kEcho, "../tds/unit:a", "refused"},
      {"no row", 0x19999, "unit:a", "refused"},
      {"a handler that does not answer", kNote, "unit:a", "refused"},
      {"the process endpoint without a row", kEcho, "unit", "refused"},
  });
  const ModuleEntry kTaken[] = {{"unit:a", {0, 0}, prosCtlMsgTab}, {}};
  EXPECT_EQ(-1, SysInit(kTaken)) << "the name is taken";
}

TEST_F(Tds, APeerAnswersDiesAndIsThereAgain) {
  NEEDS_ANEW();
  PeerProcess peer;
#ifdef BOARD_IN_ONE_PROCESS
  ASSERT_EQ("refused", Ask(kEcho, "hello", "peer:a")) << "this board does reach other processes";
  GTEST_SKIP() << "the board says that it is BOARD_IN_ONE_PROCESS";
#endif
  ExpectAtOnce({
      {"the process endpoint without a row", kEcho, "peer", "refused"},
      {"a peer that answers", kEcho, "peer:a", "hello"},
      {"a peer that dies meanwhile", kDie, "peer:a", "refused"},
  });
  peer.Kill(); /* gone for certain, and what it served with it */
  EXPECT_EQ("refused", Ask(kEcho, "hello", "peer:a")) << "a peer that has died";
  PeerProcess second;
  EXPECT_EQ("2", Ask(kEcho, "2", "peer:a")) << "and is there again";
}

TEST_F(Tds, TheRuntimesOwnIdsComeFromItAlone) {
  for (uint32_t id : {0x101U, 0x200U, 0x203U, 0x20fU}) {
    EXPECT_EQ("refused", Ask(id, "x", "unit:a")) << std::hex << id;
    EXPECT_EQ(-1, SendMsg(id, "x", 1, "unit:a")) << std::hex << id;
  }
  EXPECT_EQ("goes on", Ask(kEcho, "goes on", "unit:a"));
  EXPECT_TRUE(Await(kAny, 0).empty());
}

TEST_F(Tds, AHandlerWithoutMemoryEndsAlone) {
  const Work lacks = [] { throw std::bad_alloc(); };
  const Work *work = &lacks;
  EXPECT_EQ("refused", Ask(kRun, {reinterpret_cast<const char *>(&work), sizeof work}, "unit:b"));
  EXPECT_EQ(0, Post(work, "unit:b"));
  EXPECT_EQ("goes on", Ask(kEcho, "goes on", "unit:b"));
}

TEST_F(Tds, ABurstToABusyModuleIsKept) {
  const Work slow = [] {
    tds_delay(300);
    (void)Answer("done"); /* the caller sees it */
  };
  std::thread busy([&slow] {
    const Work *work = &slow;
    EXPECT_EQ("done", Ask(kRun, {reinterpret_cast<const char *>(&work), sizeof work}, "unit:b"));
  });
  for (int i = 0; i < 200; ++i) EXPECT_EQ(0, SendMsg(kNote, "x", 1, "unit:b"));
  EXPECT_EQ("other", Ask(kEcho, "other", "unit:a")) << "another module is not held up";
  busy.join();
  EXPECT_EQ(200U, Await(kNote, 200).size());
}

TEST_F(Tds, CallsFromAModuleWorkWhileOthersSendToIt) {
  OnModule("unit:a", [] {
    EXPECT_EQ(0, SendMsg(kNote, "self", 4, "unit:a"));
    EXPECT_EQ("x", Ask(kEcho, "x", "unit:b"));
    EXPECT_EQ("refused", Ask(kEcho, "x", "unit:a")) << "it would wait for itself";
    EXPECT_EQ(-1, Answer("x")) << "no call is in work";
  });
  EXPECT_EQ("y", Ask(kEcho, "y", "unit:a"));
}

TEST_F(Tds, TimersExpireOnceAndRestart) {
  OnModule("unit:a", [] {
    EXPECT_EQ(0, SetTimer(3, 60000));
    EXPECT_EQ(0, SetTimer(3, 10)) << "restarted, not doubled";
    EXPECT_EQ(0, SetTimer(0, 1));
    EXPECT_EQ(0, KillTimer(0));
    EXPECT_EQ(-1, SetTimer(TDS_TIMERS, 1));
    EXPECT_EQ(-1, SetTimer(-1, 1));
  });
  EXPECT_EQ(1U, Await(TDS_MSG_TIMER + 3, 1).size());
  const Work set = [] {
    SetTimer(3, 10);
    SetTimer(0, 1);
    SetTimer(0, 40); /* moved on */
  };
  ASSERT_EQ(0, Post(&set, "unit:a"));
  std::vector<Received> fired = Await(kAny, 2);
  ASSERT_EQ(2U, fired.size()) << "once, until it is set again";
  EXPECT_EQ(TDS_MSG_TIMER + 3U, fired[0].id);
  EXPECT_EQ(TDS_MSG_TIMER + 0U, fired[1].id);
  EXPECT_EQ("unit:a", fired[1].self);
  EXPECT_EQ(-1, SetTimer(0, 1)) << "only a module thread has timers";
}

TEST_F(Tds, NotificationsReachWhoeverAsked) {
  OnModule("unit:a", [] {
    EXPECT_EQ(0, TDS_RegisterNotifyList(kPublished, "unit:b"));
    EXPECT_EQ(-1, TDS_RegisterNotifyList(kPublished, "../evil"));
  });
  const Work publish = [] { TDS_NotifyRegistrant(kPublished, "news", 5); };
  ASSERT_EQ(0, Post(&publish, "unit:b"));
  std::vector<Received> got = Await(kPublished, 2); /* the registrant, and unit:b's own row */
  ASSERT_EQ(2U, got.size());
  for (const Received &one : got) EXPECT_EQ("unit:b", one.sender);
  EXPECT_NE(got[0].self, got[1].self);
}

/* The numbers of the line that begins with `name`. */
std::vector<size_t> NumbersOf(const std::string &name, const std::string &lines) {
  std::istringstream text(lines);
  std::string line;
  while (std::getline(text, line) && line.compare(0, name.size(), name) != 0) continue;
  std::replace_if(
      line.begin(), line.end(), [](char each) { return isdigit(each) == 0; }, ' ');
  std::istringstream numbers(line);
  return {std::istream_iterator<size_t>(numbers), {}};
}

TEST_F(Tds, BlocksOfTheHeapKeepTheirBytesAndTheirTag) {
  char *text = __tds_strndup("texts", 4, "first tag");
  text = static_cast<char *>(__tds_realloc(text, 1024 * 1024, "second tag"));
  EXPECT_STREQ("text", text);
  static const char elsewhere[] = "first tag"; /* the same tag at another place of the program */
  char *more = __tds_strndup("twenty-four bytes of text", 24, elsewhere);
  testing::internal::CaptureStdout();
  tds_show_malloc();
  fflush(stdout);
  const std::string shown = testing::internal::GetCapturedStdout();
  EXPECT_EQ(shown.find("first tag"), shown.rfind("first tag")) << shown;
  EXPECT_EQ((std::vector<size_t>{2, 1048601}), NumbersOf("first tag", shown)) << shown;
  EXPECT_EQ((std::vector<size_t>{2, 1048601}), NumbersOf("total", shown)) << shown;
  EXPECT_EQ(std::string::npos, shown.find("second tag"));
  EXPECT_EQ(nullptr, __tds_malloc(SIZE_MAX, "first tag"));
  __tds_free(more);
  __tds_free(text);
  __tds_free(nullptr);
}

TEST_F(Tds, RecordsAreFilteredByTheModulesLevelAndCut) {
  testing::internal::CaptureStderr();
  AMS_PRINT(2, "below the level");
  __AMS_PrintHead(4);
  __AMS_Print(4, "%s", std::string(10000, 'y').c_str());
  __AMS_Print(4, "never seen");
  __AMS_PrintEnd(4);
  std::string text = testing::internal::GetCapturedStderr();
  EXPECT_EQ(std::string::npos, text.find("below"));
  EXPECT_EQ(std::string::npos, text.find("never seen"));
  std::string head = text.substr(0, text.find("yyyy"));
  std::replace_if(head.begin(), head.end(), isdigit, '0');
  EXPECT_EQ("0000-00-00 00:00:00.000 default 0 ", head);
  EXPECT_EQ('\n', text.back());
}

}  // namespace
