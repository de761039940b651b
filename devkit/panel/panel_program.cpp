// Programs; see panel_program.h.
#include "panel_program.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

namespace {

constexpr size_t kOutputMax = 1024 * 1024;

void ReadAll(int from, std::string *output) {
  char bytes[16 * 1024];
  for (ssize_t length; (length = read(from, bytes, sizeof bytes)) > 0;)
    if (output->size() < kOutputMax) output->append(bytes, static_cast<size_t>(length));
}

}  // namespace

int RunProgram(const std::vector<std::string> &words, std::string *output) {
  std::vector<char *> arguments;
  for (const std::string &word : words) arguments.push_back(const_cast<char *>(word.c_str()));
  arguments.push_back(nullptr);
  int ends[2] = {-1, -1};
  if (output != nullptr && pipe2(ends, O_CLOEXEC) != 0) return -1;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (output != nullptr) posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1); /* pages' connections */
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t usual; /* what the panel ignores, what it starts does not */
  sigemptyset(&usual);
  sigaddset(&usual, SIGPIPE);
  posix_spawnattr_setsigdefault(&attributes, &usual);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  pid_t pid = -1;
  const int error =
      posix_spawnp(&pid, arguments[0], &actions, &attributes, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  if (output != nullptr) {
    close(ends[1]);
    if (error == 0) ReadAll(ends[0], output);
    close(ends[0]);
  }
  int status = 0;
  if (error != 0) return -1;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
