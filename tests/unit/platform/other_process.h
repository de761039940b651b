// Another process of the gateway: a fork of this one, which must not be attached to anything yet
// unless it becomes this program anew; and what is logged meanwhile.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <string>

using Steps = std::function<bool()>;

/* Its exit status is 0 when `steps` are as they should be. */
inline pid_t Start(const Steps &steps) {
  pid_t pid = fork();
  if (pid == 0) _exit(steps() ? 0 : 1);
  return pid;
}

/* The same, once it stands still at a raise(SIGSTOP) of its steps. */
inline pid_t StartStopped(const Steps &steps) {
  int status = 0;
  pid_t pid = Start(steps);
  EXPECT_EQ(waitpid(pid, &status, WUNTRACED), pid);
  EXPECT_TRUE(WIFSTOPPED(status)) << status;
  return pid;
}

/* Lets it go on and waits for its end. Its wait status. */
inline int End(pid_t pid) {
  int status = -1;
  kill(pid, SIGCONT);
  waitpid(pid, &status, 0);
  return status;
}

inline bool Elsewhere(const Steps &steps) { return End(Start(steps)) == 0; }

/* Becomes this program with one argument, which its main knows. */
inline Steps Anew(const char *argument) {
  return [=] { return execl("/proc/self/exe", "test", argument, nullptr) == 0; };
}

/* Skips a test that becomes this program anew where the kernel does not start it: under an emulator
   that the kernel knows nothing of. What else goes wrong with it is left to the test. */
#define NEEDS_ANEW() \
  if (!StartsAnew()) GTEST_SKIP() << "the kernel itself cannot start this program"
inline bool StartsAnew() {
  constexpr int kNoSuchMachine = 77;
  const int status = End(Start([] {
    execl("/proc/self/exe", "test", "--gtest_list_tests", "--gtest_filter=-*", nullptr);
    _exit(errno == ENOEXEC ? kNoSuchMachine : 1);
    return false;
  }));
  return !WIFEXITED(status) || WEXITSTATUS(status) != kNoSuchMachine;
}

/* What goes to standard error meanwhile. */
inline std::string LogOf(const std::function<void()> &work) {
  testing::internal::CaptureStderr();
  work();
  return testing::internal::GetCapturedStderr();
}

/* One line says that `user`, which is ended then, keeps `steps` from a damaged file. */
inline void ExpectInUse(pid_t user, const Steps &steps) {
  std::string log = LogOf([&] { EXPECT_FALSE(Elsewhere(steps)) << "the user would not see it"; });
  EXPECT_NE(log.find("process " + std::to_string(user) + " has it open"), log.npos) << log;
  EXPECT_EQ(log.find(" 4 "), log.rfind(" 4 ")) << "one line: " << log;
  kill(user, SIGKILL);
  EXPECT_EQ(End(user), SIGKILL);
}
