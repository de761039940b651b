// Another process of the gateway: a fork of this one, which must not be attached to anything yet.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

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
