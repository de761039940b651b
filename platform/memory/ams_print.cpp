// The print service: records go to standard error; see platform/include/ams_print.h.
#include "ams_print.h"

#include <execinfo.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

thread_local const char *module_name; /* NULL: that of the first row of the map */
thread_local char record[4096];       /* the open one, 4095 bytes and a NUL */
thread_local size_t used;

const PrtMapEntry &Row() {
  for (const PrtMapEntry *row = DF_PRT_MAP; module_name != nullptr && row->name != nullptr; ++row)
    if (strcmp(row->name, module_name) == 0) return *row;
  return DF_PRT_MAP[0];
}

/* May allocate when it is called first, which AMS_UsrDumpInit sees to. */
void Trace(int signal) {
  static const char kTitle[] = "back trace:\n";
  void *frames[64];
  (void)!write(STDERR_FILENO, kTitle, sizeof kTitle - 1); /* nobody is left to be told */
  backtrace_symbols_fd(frames, backtrace(frames, 64), STDERR_FILENO);
  raise(signal); /* SA_RESETHAND: it dies of it */
}

}  // namespace

void AMS_PrintMgt_Init(void) { setvbuf(stdout, nullptr, _IOLBF, 0); }

void AMS_UsrDumpInit(void) {
  void *frame;
  (void)backtrace(&frame, 1);
  struct sigaction action = {};
  action.sa_handler = Trace;
  action.sa_flags = static_cast<decltype(action.sa_flags)>(SA_RESETHAND);
  for (int signal : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT}) sigaction(signal, &action, nullptr);
}

int AMS_PrintWanted(int level) { return level >= __atomic_load_n(&Row().level, __ATOMIC_RELAXED); }

void __AMS_PrintHead(int level) {
  timespec now;
  tm local;
  clock_gettime(CLOCK_REALTIME, &now);
  localtime_r(&now.tv_sec, &local);
  used = strftime(record, sizeof record, "%Y-%m-%d %H:%M:%S", &local);
  const char *name = module_name != nullptr ? module_name : DF_PRT_MAP[0].name;
  __AMS_Print(level, ".%03ld %s %d ", now.tv_nsec / 1000000, name, level);
}

void __AMS_Print(int, const char *format, ...) {
  va_list args;
  va_start(args, format);
  const int wanted = vsnprintf(record + used, sizeof record - used, format, args);
  va_end(args);
  if (wanted > 0) used = std::min(used + static_cast<size_t>(wanted), sizeof record - 1);
}

void __AMS_PrintEnd(int level) {
  if (AMS_PrintWanted(level) && used > 0) {
    if (used == sizeof record - 1) --used; /* of a record that is cut, for the line feed */
    if (record[used - 1] != '\n') record[used++] = '\n';
    (void)!write(STDERR_FILENO, record, used); /* there is no other place to say it */
  }
  used = 0;
}

void AMS_PrintThreadModule(const char *name) { module_name = name; }

int COMMON_GetParentNode(const char *path, char *parent, size_t size) {
  std::string text = path == nullptr ? "" : path;
  if (!text.empty() && text.back() == '.') text.pop_back();
  const size_t dot = text.rfind('.');
  const size_t length = dot == text.npos ? 0 : dot;
  if (size > 0) parent[0] = '\0';
  if (length == 0 || length >= size) return -1;
  memcpy(parent, text.data(), length);
  parent[length] = '\0';
  return 0;
}
