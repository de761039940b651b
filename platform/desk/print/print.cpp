// The desk's print service: builds a record a thread and writes it to standard error in one piece.
// Where standard error goes is the launcher's business.
#include <dlfcn.h>
#include <signal.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>
#include <unwind.h>

#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ams_print.h"
#include "print_desk.h"

namespace {

constexpr int kFailureLevel = 4;

constexpr size_t kRecord = 4096;

/* The open one. Each thread has this from its start on, so the room for a whole record is not in
 * it. */
struct Record {
  char *text; /* NULL: what comes is not printed */
  size_t room, length;
  char without_memory[512]; /* a shorter record is better than none */
};

/* Whole records; the oldest make room for new ones. */
struct Failures {
  size_t length;
  char text[kAmsDeskFailures];
};

thread_local Record record;
thread_local Failures failures;
thread_local const char *module_name = "default";
thread_local PrtMapEntry *map_row; /* the row of module_name, once it was looked up */

PrtMapEntry *MapRow() {
  if (map_row == nullptr) {
    map_row = &DF_PRT_MAP[0];
    for (PrtMapEntry *row = DF_PRT_MAP; row->name != nullptr; ++row)
      if (strcmp(row->name, module_name) == 0) map_row = row;
  }
  return map_row;
}

/* "2026-11-24 21:35:21.123 sysmgr:devInfo 4 " */
size_t RecordHead(int level, char *head, size_t size) {
  struct timespec now;
  struct tm local;
  clock_gettime(CLOCK_REALTIME, &now);
  tzset(); /* localtime_r keeps the zone that it found first */
  localtime_r(&now.tv_sec, &local);
  size_t length = strftime(head, size, "%Y-%m-%d %H:%M:%S", &local);
  int more = snprintf(head + length, size - length, ".%03ld %s %d ", now.tv_nsec / 1000000,
                      module_name, level);
  return std::min(length + static_cast<size_t>(std::max(more, 0)), size - 1);
}

void NoteFailure(std::string_view text) {
  constexpr size_t kFirst = 300, kLast = 80; /* where it stands is at the end */
  if (!text.empty() && text.back() == '\n') text.remove_suffix(1);
  const bool whole = text.size() <= kFirst + kLast;
  const size_t size = whole ? text.size() + 1 : kFirst + kLast + 1;
  std::string_view kept(failures.text, failures.length);
  while (kept.size() + size > sizeof failures.text) kept.remove_prefix(kept.find('\0') + 1);
  memmove(failures.text, kept.data(), kept.size());
  failures.length = kept.size() + size;
  char *end = failures.text + kept.size();
  end = std::copy_n(text.data(), whole ? text.size() : kFirst, end);
  if (!whole) end = std::copy_n(text.data() + text.size() - kLast, kLast, end);
  *end = '\0';
}

/* One frame: the file that holds the code, and where in it, as addr2line takes it. */
_Unwind_Reason_Code DumpFrame(struct _Unwind_Context *context, void *) {
  const auto at = static_cast<uintptr_t>(_Unwind_GetIP(context));
  Dl_info object;
  char line[512];
  if (dladdr(reinterpret_cast<void *>(at), &object) == 0) object = {"?", nullptr, nullptr, nullptr};
  int length = snprintf(line, sizeof line, "%s(+0x%" PRIxPTR ")\n", object.dli_fname,
                        at - reinterpret_cast<uintptr_t>(object.dli_fbase));
  (void)!write(STDERR_FILENO, line, std::min(static_cast<size_t>(length), sizeof line - 1));
  return _URC_NO_REASON;
}

/* Nothing here takes memory; the default action, restored by SA_RESETHAND, ends the process. */
void DumpAndDie(int signal_number) {
  static const char kTitle[] = "back trace:\n";
  (void)!write(STDERR_FILENO, kTitle, sizeof(kTitle) - 1); /* nothing left to do when it fails */
  _Unwind_Backtrace(DumpFrame, nullptr);
  raise(signal_number);
}

}  // namespace

void AMS_PrintMgt_Init(void) { setvbuf(stdout, nullptr, _IOLBF, 0); }

void AMS_UsrDumpInit(void) {
  for (int number : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT}) {
    struct sigaction present, dump = {};
    sigaction(number, nullptr, &present);
    if (present.sa_handler != SIG_DFL) continue; /* a debugging tool's handler knows more */
    dump.sa_handler = DumpAndDie;
    dump.sa_flags = static_cast<decltype(dump.sa_flags)>(SA_RESETHAND | SA_NODEFER);
    sigaction(number, &dump, nullptr);
  }
}

void AMS_PrintThreadModule(const char *name) {
  module_name = name;
  map_row = nullptr;
}

int AMS_PrintWanted(int level) {
  return level >= __atomic_load_n(&MapRow()->level, __ATOMIC_RELAXED) ? 1 : 0;
}

void __AMS_PrintHead(int level) {
  if (record.text != nullptr) return; /* its end will print this, too */
  if (AMS_PrintWanted(level) == 0) return;
  record.text = static_cast<char *>(malloc(kRecord));
  record.room = kRecord;
  record.length = 0;
  if (record.text != nullptr) return;
  record.text = record.without_memory;
  record.room = sizeof record.without_memory;
}

void __AMS_Print(int, const char *format, ...) {
  if (record.text == nullptr) return;
  va_list args;
  va_start(args, format);
  size_t room = record.room - record.length;
  int length = vsnprintf(record.text + record.length, room, format, args);
  va_end(args);
  if (length > 0) record.length += std::min(static_cast<size_t>(length), room - 1);
}

void __AMS_PrintEnd(int level) {
  if (record.text == nullptr) return;
  char head[128];
  bool ended = record.length > 0 && record.text[record.length - 1] == '\n';
  struct iovec pieces[] = {{head, RecordHead(level, head, sizeof(head))},
                           {record.text, record.length},
                           {const_cast<char *>("\n"), ended ? 0U : 1U}};
  (void)!writev(STDERR_FILENO, pieces, 3); /* a full disk costs the record, nothing else */
  if (level >= kFailureLevel) NoteFailure({record.text, record.length});
  if (record.text != record.without_memory) free(record.text);
  record.text = nullptr;
}

std::string_view ams_desk_failures() { return {failures.text, failures.length}; }

void ams_desk_forget_failures() { failures.length = 0; }

int COMMON_GetParentNode(const char *path, char *parent, size_t size) {
  size_t length = path == nullptr ? 0 : strlen(path);
  if (parent == nullptr || size == 0) return -1;
  parent[0] = '\0';
  if (length > 0 && path[length - 1] == '.') --length;
  while (length > 0 && path[length - 1] != '.') --length;
  if (length < 2 || length > size) return -1;
  memcpy(parent, path, length - 1); /* without the "." */
  parent[length - 1] = '\0';
  return 0;
}
