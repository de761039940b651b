// The front-panel keys: what the key driver is told, and what key events do.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <fstream>
#include <functional>

#include "button_func.h"
#include "button_thread.h"
#include "support.h"

namespace {

constexpr char kDriver[] = "/tmp/button_test_key", kGpio[] = "/tmp/button_test_gpio",
               kEvents[] = "/tmp/button_test_event";

using Commands = std::vector<std::string>;

/* What is compared, so that a failure shows it. */
std::string Text(const std::vector<KeyTiming> &timings) {
  std::string text;
  for (const KeyTiming &t : timings)
    text += "{" + std::to_string(t.gpio) + " " + std::to_string(t.event) + " " +
            std::to_string(t.on_press) + " " + std::to_string(t.trigger_time) + " " +
            std::to_string(t.abandon_time) + "}";
  return text;
}

/* ---- timings ---- */

struct TimingCase {
  const char *what;
  KeyTexts texts;
  std::vector<KeyTiming> timings;
};

const TimingCase kTimings[] = {
    {"on press", {"7", "3", "PRESS", "5", "9"}, {{7, 3, 1, 5, 9}}},
    {"on release", {"7", "3", "RELEASE", "5", "9"}, {{7, 3, 0, 5, 9}}},
    {"the type is exact", {"7", "3", "press", "5", "9"}, {{7, 3, 0, 5, 9}}},
    {"no type, no abandon time", {"7", "3", nullptr, "5", nullptr}, {{7, 3, 0, 5, 0}}},
    {"two times", {"7", "3", "PRESS", "3,10", "20"}, {{7, 3, 1, 3, 20}, {7, 3, 1, 10, 20}}},
    {"only the second time", {"7", "3", "PRESS", ",10", "20"}, {{7, 3, 1, 10, 20}}},
    {"only the first of two", {"7", "3", "PRESS", "3,0", "20"}, {{7, 3, 1, 3, 20}}},
    {"a third time is not read",
     {"7", "3", "PRESS", "3,10,30", "20"},
     {{7, 3, 1, 3, 20}, {7, 3, 1, 10, 20}}},
    {"blanks behind the comma",
     {"7", "3", "PRESS", "3, 10", "20"},
     {{7, 3, 1, 3, 20}, {7, 3, 1, 10, 20}}},
    {"negative line and event", {"-1", "-2", "PRESS", "3", "0"}, {{-1, -2, 1, 3, 0}}},
    {"the longest time", {"7", "3", "PRESS", "4294967295", "0"}, {{7, 3, 1, 4294967295U, 0}}},
    {"no time", {"7", "3", "PRESS", nullptr, "20"}, {}},
    {"times 0", {"7", "3", "PRESS", "0,0", "20"}, {}},
    {"time is no number", {"7", "3", "PRESS", "soon", "20"}, {}},
    {"line 0", {"0", "3", "PRESS", "5", "20"}, {}},
    {"event is empty", {"7", "", "PRESS", "5", "20"}, {}},
};

TEST(KeyTimingsTest, FollowTheTexts) {
  for (const TimingCase &c : kTimings) {
    KeyTiming timings[2] = {};
    testing::internal::CaptureStderr();
    int count = KeyTimings(c.texts, timings);
    std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(Text({timings, timings + count}), Text(c.timings)) << c.what;
    EXPECT_EQ(log.find("triggerTime1=") != std::string::npos, c.timings.empty()) << c.what;
  }
}

/* ---- programming the driver ---- */

/* The line number of the reset key serves four functions; the third function has no event. */
constexpr char kGpioText[] =
    "KVO_GPIO_WPS_KEY=4\nKVO_TRIGGER_TYPE_WPS=PRESS\nKVO_TRIGGER_TIME_WPS=1\n"
    "KVO_GPIO_RESET_KEY= 9\n"
    "KVO_TRIGGER_TYPE_REBOOT=RELEASE\nKVO_TRIGGER_TIME_REBOOT=3,10\nKVO_ABANDON_TIME_REBOOT=20\n"
    "KVO_TRIGGER_TIME_RESTORE=30\n"
    "KVO_TRIGGER_TIME_RESTORE_CLEAN=60\n"
    "KVO_TRIGGER_TIME_BLINK=0\n";
constexpr char kEventText[] =
    "MSG_MONITOR_EVT_WPS_INIT=1\nMSG_MONITOR_EVT_RESET_REBOOT=2\n#MSG_MONITOR_EVT_RESET_FACTORY=3\n"
    "MSG_MONITOR_EVT_RESET_FACTORY_CLEAN=4\nMSG_MONITOR_EVT_BLINK=11\n";

class ButtonTest : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    std::ofstream(kGpio) << kGpioText;
    std::ofstream(kEvents) << kEventText;
    std::ofstream(kDriver).flush();
  }
  void TearDown() override {
    for (const char *file : {kDriver, kGpio, kEvents})
      (void)unlink(file); /* a test may have removed it */
    RunMessage(kButtonMsgTable, EV_KEY_SWITCH, std::string("\1\0", 2));
  }
};

std::vector<KeyTiming> DriverGot() {
  std::ifstream stream(kDriver, std::ios::binary);
  std::string bytes(std::istreambuf_iterator<char>(stream), {});
  EXPECT_EQ(bytes.size() % 20, 0U);
  std::vector<KeyTiming> timings(bytes.size() / 20);
  if (!timings.empty()) memcpy(timings.data(), bytes.data(), timings.size() * 20);
  return timings;
}

TEST_F(ButtonTest, DriverGetsOneRecordATiming) {
  ProgramKeyDriver(kDriver, kGpio, kEvents);
  const std::vector<KeyTiming> expected = {
      {4, 1, 1, 1, 0}, {9, 2, 0, 3, 20}, {9, 2, 0, 10, 20}, {9, 4, 0, 60, 0}};
  EXPECT_EQ(Text(DriverGot()), Text(expected));
}

struct FaultCase {
  const char *what, *driver, *gpio, *events;
  std::vector<std::string> texts; /* that the log has */
};

const FaultCase kFaults[] = {
    {"no driver", "/tmp/no_such_driver", kGpio, kEvents, {"open /tmp/no_such_driver failed!"}},
    {"no GPIO file",
     kDriver,
     "/tmp/no_such_file",
     kEvents,
     {"Failed /tmp/no_such_file open failed"}},
    {"no event file",
     kDriver,
     kGpio,
     "/tmp/no_such_file",
     {"Failed /tmp/no_such_file open failed"}},
    {"a write that fails does not stop the others",
     "/dev/full",
     kGpio,
     kEvents,
     {"Write gpio 4 event 1 failed!", "Write gpio 9 event 2 failed!",
      "Write gpio 9 event 4 failed!"}},
};

TEST_F(ButtonTest, FaultsAreLoggedAndWriteNothing) {
  for (const FaultCase &c : kFaults) {
    testing::internal::CaptureStderr();
    ProgramKeyDriver(c.driver, c.gpio, c.events);
    std::string log = testing::internal::GetCapturedStderr();
    for (const std::string &text : c.texts)
      EXPECT_NE(log.find(text), std::string::npos) << c.what << ": " << log;
    EXPECT_TRUE(DriverGot().empty()) << c.what;
  }
}

/* What `work` writes on standard error, through a pipe: a file would be limited, too. */
std::string PipedLog(const std::function<void()> &work) {
  int ends[2], standard_error = dup(STDERR_FILENO);
  if (pipe(ends) != 0) return "no pipe";
  dup2(ends[1], STDERR_FILENO);
  work();
  dup2(standard_error, STDERR_FILENO);
  char text[4096];
  ssize_t length = read(ends[0], text, sizeof text);
  for (int file : {ends[0], ends[1], standard_error}) close(file);
  return std::string(text, length < 0 ? 0 : static_cast<size_t>(length));
}

TEST_F(ButtonTest, ShortWritesAreNamedAndTheRestIsTried) {
  signal(SIGXFSZ, SIG_IGN); /* the write only fails */
  rlimit before, limit;
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  limit = before;
  limit.rlim_cur = 2 * sizeof(KeyTiming) + 10; /* the third record fits in part */
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  std::string log = PipedLog([] { ProgramKeyDriver(kDriver, kGpio, kEvents); });
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
  signal(SIGXFSZ, SIG_DFL);
  EXPECT_EQ(log.find("Write gpio 4 event 1 failed!"), std::string::npos) << log;
  EXPECT_NE(log.find("Write gpio 9 event 2 failed!"), std::string::npos) << log;
  EXPECT_NE(log.find("Write gpio 9 event 4 failed!"), std::string::npos) << log;
}

/* ---- events ---- */

std::string KeyPayload(int32_t event) {
  const int32_t words[] = {99, event};
  return std::string(reinterpret_cast<const char *>(words), sizeof words);
}

struct EventCase {
  const char *what;
  std::string switches; /* payloads of two bytes each, sent before the event */
  std::string event;
  Commands lines;
  bool timer;
};

const EventCase kEventCases[] = {
    {"on from the start", "", KeyPayload(10), {"/usr/syscfg/key_press.sh 10&"}, false},
    {"11 starts the timer", "", KeyPayload(11), {"/usr/syscfg/key_press.sh 11&"}, true},
    {"negative", "", KeyPayload(-11), {"/usr/syscfg/key_press.sh -11&"}, false},
    {"switched off", {"\0\0", 2}, KeyPayload(11), {}, false},
    {"any other value is off", {"\2\0", 2}, KeyPayload(11), {}, false},
    {"off and on", {"\0\0\1\0", 4}, KeyPayload(1), {"/usr/syscfg/key_press.sh 1&"}, false},
    {"not for the keys", {"\0\1", 2}, KeyPayload(1), {"/usr/syscfg/key_press.sh 1&"}, false},
    {"off; on is not for the keys", {"\0\0\1\1", 4}, KeyPayload(1), {}, false},
    {"bytes behind the number", "", KeyPayload(5) + "x", {"/usr/syscfg/key_press.sh 5&"}, false},
    {"too short", "", KeyPayload(11).substr(0, 7), {}, false},
    {"empty", "", "", {}, false},
};

/* Off a module thread the runtime refuses the timer with a record, which shows that one was asked
   for. */
TEST_F(ButtonTest, EventsRunTheScriptWhileKeysAreOn) {
  int32_t level = DF_PRT_MAP[0].level;
  DF_PRT_MAP[0].level = 1;
  for (const EventCase &c : kEventCases) {
    RunMessage(kButtonMsgTable, EV_KEY_SWITCH, std::string("\1\0", 2));
    for (size_t at = 0; at < c.switches.size(); at += 2)
      RunMessage(kButtonMsgTable, EV_KEY_SWITCH, c.switches.substr(at, 2));
    testing::internal::CaptureStderr();
    RunMessage(kButtonMsgTable, EV_KEY, c.event);
    std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(TakeCommands(), c.lines) << c.what;
    EXPECT_EQ(log.find("SetTimer") != std::string::npos, c.timer) << c.what << ": " << log;
  }
  DF_PRT_MAP[0].level = level;
}

}  // namespace
