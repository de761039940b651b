// Command lines; see ams_config_shell.h.
//
// The process ignores SIGCHLD, so that nobody has to wait for what a line leaves in the background.
// A command that ran therefore has no status: it comes back as -1 with ECHILD.
#include "ams_config_shell.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "ams_print.h"

namespace {

thread_local bool command_failed = false;

/* -1, noted for the framework. The rest of the line may hold a password. */
int NotRun(const char *line, const char *why) {
  AMS_PRINT(4, "\"%.*s ...\" not run%s", static_cast<int>(strcspn(line, " ")), line, why);
  command_failed = true;
  return -1;
}

int NotRunNow(const char *line, int error) {
  char why[128];
  snprintf(why, sizeof why, ": %s; try again when less is running", strerror(error));
  return NotRun(line, why);
}

}  // namespace

int cfgSystemCmd(const char *format, ...) {
  char line[512] = "";
  va_list args;
  va_start(args, format);
  int length = vsnprintf(line, sizeof line, format, args);
  va_end(args);
  if (length < 0 || static_cast<size_t>(length) >= sizeof line) {
    char why[128];
    snprintf(why, sizeof why, ", it has %d bytes and %zu fit: set shorter values", length,
             sizeof line - 1);
    return NotRun(line, why);
  }
  AMS_PRINT(1, "system(%s)\n", line);
  return cfgShell(line);
}

/* Without a process for it errno has another reason than ECHILD, and the status is -1 or, as if
   there were no shell, 127. What the shell itself gives, where SIGCHLD is not ignored, leaves errno
   alone. */
int cfgShell(const char *line) {
  errno = 0;
  if (system(line) == 0 || errno == 0 || errno == ECHILD) return 0;
  return NotRunNow(line, errno);
}

int cfgShellRead(const char *line, char *text, size_t size) {
  text[0] = '\0';
  FILE *pipe = popen(line, "re");
  if (pipe == nullptr) return NotRunNow(line, errno);
  size_t length = fread(text, 1, size - 1, pipe);
  text[length] = '\0';
  (void)pclose(pipe); /* there is no status */
  return static_cast<int>(length);
}

bool cfgCommandFailed() { return std::exchange(command_failed, false); }
