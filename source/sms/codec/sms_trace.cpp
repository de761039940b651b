// The trace of the short-message routines; see sms_trace.h. The log is opened for each line, so
// that it may be read, moved away or deleted at any time.
#include "sms_trace.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>

namespace {

constexpr char kSwitch[] = "/var/sms_debug", kLog[] = "/var/sms_log";

__attribute__((format(printf, 4, 0))) void Write(FILE *to, const char *function, int line,
                                                 const char *format, va_list args) {
  fprintf(to, "----%s, %d----   ", function, line);
  vfprintf(to, format, args);
}

}  // namespace

void SmsTrace(const char *function, int line, const char *format, ...) {
  if (access(kSwitch, F_OK) != 0) return;
  va_list args;
  va_start(args, format);
  Write(stdout, function, line, format, args);
  va_end(args);
  FILE *log = fopen(kLog, "ae");
  if (log == nullptr) return; /* standard output has the line */
  va_start(args, format);
  Write(log, function, line, format, args);
  va_end(args);
  (void)fclose(log); /* a full disk ends the trace, nothing else */
}
