// Names and threads: SysInit, who the calling thread is, who sent the message in work; sleep and
// time; see endpoint.h.
#include "endpoint.h"

#include <malloc.h>
#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "ams_print.h"
#include "module.h"
#include "tds_desk.h"

namespace {

std::string process_name;

void CopyName(std::string_view from, char *name, size_t size) {
  if (size > 0) name[from.copy(name, size - 1)] = '\0';
}

/* Hands the module to a thread of its own, for as long as the process lives. The thread's name in
   /proc is the last 15 bytes of the endpoint's. 0 or -1 (logged). */
int StartThread(std::unique_ptr<Module> *module) {
  const std::string name = (*module)->name;
  pthread_t thread;
  int failed = pthread_create(&thread, nullptr, ModuleThread, module->get());
  if (failed != 0) {
    AMS_PRINT(4, "SysInit: no thread for %s: %s", name.c_str(), strerror(failed));
    return -1;
  }
  (void)module->release(); /* the thread's now */
  pthread_setname_np(thread, name.c_str() + (name.size() > 15 ? name.size() - 15 : 0));
  pthread_detach(thread);
  return 0;
}

/* One heap for all modules, which rarely allocate at the same time: with its own each of them would
   hold pages that the others cannot use. A C library without a name for this has no more than one.
 */
void HeapShare() {
#ifdef M_ARENA_MAX
  (void)mallopt(M_ARENA_MAX, 1); /* without it there are more heaps, that is all */
#endif
}

const std::string &ProcessName() {
  static const std::string unnamed = program_invocation_short_name;
  return process_name.empty() ? unnamed : process_name;
}

}  // namespace

const std::string &ThreadName(const Thread *thread) {
  return thread->name.empty() ? ProcessName() : thread->name;
}

Thread::~Thread() {
  for (const Peer &peer : peers)
    if (peer.fd >= 0) close(peer.fd);
}

Thread *ThisThread() {
  thread_local Thread thread = {};
  return &thread;
}

void tds_give_back() {
#if defined(M_ARENA_MAX) && !defined(SANITIZED) /* the same C library, and its heap is in use */
  (void)malloc_trim(0);                         /* there may be nothing to give */
#endif
}

uint64_t MonotonicMs() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

int SysInit(const ModuleEntry *modules) {
  if (modules == nullptr || modules->name == nullptr) {
    AMS_PRINT(4, "SysInit: the module table is empty");
    return -1;
  }
  std::string first = modules->name;
  process_name = first.substr(0, first.find(':'));
  HeapShare();
  /* Every endpoint is there before the first handler runs. */
  std::vector<std::unique_ptr<Module>> opened;
  opened.push_back(std::make_unique<Module>());
  if (ModuleOpen(opened[0].get(), ProcessName().c_str(), prosCtlMsgTab) != 0) return -1;
  for (const ModuleEntry *row = modules; row->name != nullptr; ++row) {
    opened.push_back(std::make_unique<Module>());
    if (ModuleOpen(opened.back().get(), row->name, row->table) != 0) return -1;
  }
  for (std::unique_ptr<Module> &module : opened)
    if (StartThread(&module) != 0) return -1;
  return 0;
}

void tds_self(char *name, size_t size) { CopyName(ThreadName(ThisThread()), name, size); }

void tds_self_thread_name(char *name, size_t size) { tds_self(name, size); }

void tds_sender(char *name, size_t size) {
  const Module *module = ThisThread()->module;
  CopyName(module == nullptr ? "" : module->work.sender, name, size);
}

void tds_delay(uint32_t ms) {
  struct timespec rest = {static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000};
  while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
  }
}

void tds_gettime(int32_t *seconds, int32_t *milliseconds) {
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  *seconds = static_cast<int32_t>(now.tv_sec);
  *milliseconds = static_cast<int32_t>(now.tv_nsec / 1000000);
}
