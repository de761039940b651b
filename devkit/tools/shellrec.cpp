// /bin/sh of the desk: records the command lines that the daemon runs, then is the real shell.
// Lines go to /var/log/devkit/commands in the order in which they were started, and with the time
// of each to command_times; shells that others start leave no trace. In a copy of the gateway
// (gateway-copy) they are recorded and not run, but for those that only write files there. Commands
// see the sandbox's own /proc again, which the daemon does not (see board-proc). Linked static and
// without sanitizers: it is in the way of every command.
#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

namespace {

constexpr char kCommands[] = "/var/log/devkit/commands";
constexpr char kTimes[] = "/var/log/devkit/command_times";      /* "NANOSECONDS LINE" */
constexpr char kAnswersRead[] = "/var/log/devkit/answers_read"; /* of a copy */
/* The board's shell is busybox's ash, whose echo takes -e; Debian's sh does not. Debian's ash would
   run its own killall, reboot and so on in place of those on the PATH. bash, which is in sh mode by
   the name it is called with, does both as the board does. */
constexpr char kShell[] = "/usr/bin/bash";
constexpr char kDaemon[] = "sysmgr\n";

/* Goes back to the mount namespace of the sandbox's first process. Should that fail, the command
   runs where the daemon is, and says what it misses there. */
void LeaveBoardProc() {
  if (access("/proc/gpio_config", F_OK) != 0) return;
  int file = open("/opt/proc/1/ns/mnt", O_RDONLY | O_CLOEXEC);
  if (file < 0) return;
  if (setns(file, CLONE_NEWNS) != 0) perror("sh: cannot leave the daemon's /proc");
  close(file);
}

/* The process's own name, not that of the thread that started us. */
bool StartedByDaemon() {
  char path[64], name[32];
  snprintf(path, sizeof path, "/proc/%d/comm", static_cast<int>(getppid()));
  int file = open(path, O_RDONLY | O_CLOEXEC);
  if (file < 0) return false;
  ssize_t length = read(file, name, sizeof name);
  close(file);
  return length == sizeof kDaemon - 1 && memcmp(name, kDaemon, sizeof kDaemon - 1) == 0;
}

/* The line of `sh -c LINE` or `sh -c -- LINE`, NULL for any other use. */
const char *CommandLine(int argc, char **argv) {
  if (argc < 3 || strcmp(argv[1], "-c") != 0) return nullptr;
  if (strcmp(argv[2], "--") == 0) return argc > 3 ? argv[3] : nullptr;
  return argv[2];
}

void Append(const char *path, const std::string &line) {
  int file = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (file < 0) return; /* no log folder: nobody wants to see it */
  ssize_t written = write(file, line.data(), line.size());
  (void)written; /* a full disk must not stop the command */
  close(file);
}

std::string Line(const char *command) {
  std::string line;
  for (; *command != '\0'; ++command) {
    if (*command == '\n')
      line += "\\n";
    else
      line += *command;
  }
  return line + '\n';
}

void Record(const char *command) {
  const std::string line = Line(command);
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  char time[32];
  snprintf(time, sizeof time, "%lld%09ld ", static_cast<long long>(now.tv_sec), now.tv_nsec);
  Append(kTimes, time + line);
  Append(kCommands, line);
}

/* One command that writes, makes or removes files and does no more: the daemon looks at them, and
   in a copy they are the copy's. What the shell would put in the place of a $ or ` may be a
   command. */
bool OnlyChangesFiles(const char *command) {
  bool known = false;
  for (const char *name : {"echo ", "mkdir ", "rm ", "touch "})
    known |= strncmp(command, name, strlen(name)) == 0;
  char quote = '\0';
  for (const char *at = command; known && *at != '\0'; ++at) {
    if (quote == '\'' && *at != quote) continue;
    if (*at == '\\' && at[1] != '\0')
      ++at;
    else if (*at == quote)
      quote = '\0';
    else if (quote == '\0' && (*at == '\'' || *at == '"'))
      quote = *at;
    else if (strchr("$`", *at) != nullptr)
      known = false;
    else if (quote == '\0' && strchr(";|&()<\n", *at) != nullptr && !(*at == '&' && at[-1] == '>'))
      known = false;
  }
  return known;
}

/* In a copy of the gateway nothing else is run. Whoever reads the answer, through a pipe or a file
   that it goes to, is told that there is none. */
[[noreturn]] void RunNothing(const char *command) {
  struct stat output;
  bool to_file = false;
  for (const char *at = command; (at = strchr(at, '>')) != nullptr; ++at)
    to_file |= strncmp(at + strspn(at, "> "), "/dev/null", 9) != 0 && at[strspn(at, "> ")] == '/';
  if (to_file || (fstat(STDOUT_FILENO, &output) == 0 && S_ISFIFO(output.st_mode)))
    Append(kAnswersRead, Line(command));
  _exit(0);
}

}  // namespace

int main(int argc, char **argv) {
  const char *command = CommandLine(argc, argv);
  LeaveBoardProc();
  if (command != nullptr && StartedByDaemon()) {
    Record(command);
    if (getenv("GATEWAY_COPY") != nullptr && !OnlyChangesFiles(command)) RunNothing(command);
  }
  execv(kShell, argv);
  perror(kShell);
  return 127;
}
