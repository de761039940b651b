// Command lines: what is run, and when they are errors.
#include "ams_config_shell.h"

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "support.h"

namespace {

TEST_F(StoreTest, RunsWhatFits) {
  std::string most(511, 'x'), longer(512, 'x');
  EXPECT_EQ(cfgSystemCmd("%s %d &", "/usr/syscfg/led.sh", 3), 0);
  EXPECT_EQ(cfgSystemCmd("%s", most.c_str()), 0);
  EXPECT_EQ(TakeCommands(), (Lines{"/usr/syscfg/led.sh 3 &", most}));
  testing::internal::CaptureStderr();
  EXPECT_EQ(cfgSystemCmd("%s", longer.c_str()), -1);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("511 fit"), std::string::npos);
  EXPECT_EQ(TakeCommands(), Lines{});
}

struct StatusCase {
  const char *what;
  int status, error;
  bool ran;
};

/* What the C libraries give back. */
const StatusCase kStatuses[] = {
    {"the child was waited for by nobody", -1, ECHILD, true},
    {"no such command", 127 << 8, 0, true},
    {"no process", -1, EAGAIN, false},
    {"no process, as if the shell were missing", 127 << 8, EAGAIN, false},
    {"no memory", -1, ENOMEM, false},
};

TEST_F(StoreTest, ACommandThatCouldNotBeRunIsAnError) {
  for (const StatusCase &c : kStatuses) {
    std::string log = LogOf(2, [&] {
      errno = EINVAL; /* of an earlier call */
      AnswerSystem(c.status, c.error);
      EXPECT_EQ(cfgSystemCmd("telnetd &"), c.ran ? 0 : -1) << c.what;
      AnswerSystem(c.status, c.error);
      EXPECT_EQ(cfgShell("quiet"), c.ran ? 0 : -1) << c.what;
    });
    EXPECT_EQ(log.find(" 4 ") != log.npos, !c.ran) << c.what << log;
    EXPECT_EQ(log.find("telnetd") != log.npos, !c.ran) << c.what << log;
  }
  const std::string log = LogOf(1, [] { EXPECT_EQ(cfgShell(std::string(600, 'x').c_str()), 0); });
  EXPECT_EQ(log, "") << "lines of any length, without a record";
}

TEST_F(StoreTest, WaitsForTheShellAndHidesItsStatus) {
  RunCommands(true);
  EXPECT_EQ(cfgSystemCmd("echo done > /tmp/shell_test; false"), 0);
  EXPECT_EQ(FileText("/tmp/shell_test"), "done\n");
}

/* What the C library really gives back. The process can start no shell any more. */
TEST(ConfigShellDeathTest, NoCommandRunsWithoutMemory) {
  static constexpr struct rlimit none = {1, 1};
  pid_t probe = fork();
  if (probe == 0) {
    setrlimit(RLIMIT_AS, &none);
    _exit(mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0) == MAP_FAILED ? 0 : 1);
  }
  int limited;
  ASSERT_EQ(waitpid(probe, &limited, 0), probe);
  if (limited != 0) GTEST_SKIP() << "an emulator, which limits no memory";
  auto run = [] {
    RunCommands(true);
    signal(SIGCHLD, SIG_IGN);
    int before = cfgShell("exit 3");
    setrlimit(RLIMIT_AS, &none);
    _exit(before == 0 && cfgShell("true") == -1 ? 42 : 1);
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(42), "Cannot allocate memory");
}

}  // namespace
