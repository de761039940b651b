// The recorded shell and runtime; see recorder.h.
#include "recorder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <deque>
#include <mutex>
#include <optional>
#include <set>
#include <utility>

#include "refusals.h"
#include "tds.h"

/* A call that the linker leads here, and where it led. */
#define WRAPPED(result, name, ...)   \
  result __real_##name(__VA_ARGS__); \
  result __wrap_##name(__VA_ARGS__)

extern "C" {
WRAPPED(int, system, const char *line);
WRAPPED(FILE *, popen, const char *line, const char *mode);
WRAPPED(int, pclose, FILE *stream);
WRAPPED(int, open, const char *path, int flags, ...);
WRAPPED(unsigned, sleep, unsigned seconds);
WRAPPED(void, tds_delay, uint32_t ms);
WRAPPED(int, SetTimer, int timer, uint32_t ms);
WRAPPED(int, KillTimer, int timer);
WRAPPED(int, SendMsg, uint32_t id, const void *data, uint32_t len, const char *dest);
WRAPPED(int, SendMsg_syn_lib, uint32_t id, const void *data, uint32_t len, const char *dest,
        void **reply, uint32_t *reply_len);
WRAPPED(int, TDS_RegisterNotifyList, uint32_t id, const char *publisher);
WRAPPED(int, pthread_create, pthread_t *thread, const pthread_attr_t *attributes,
        void *(*run)(void *), void *argument);
WRAPPED(int, TDS_NotifyRegistrant, uint32_t id, const void *data, uint32_t len);
}

namespace {

constexpr auto kLimit = std::chrono::minutes(1);

/* What the stand-ins were asked; module threads fill it. */
std::mutex mutex;
std::condition_variable changed;
std::vector<std::string> commands;
std::deque<std::optional<std::string>> answers; /* nullopt: popen fails */
std::set<FILE *> answering;                     /* streams of answers that are open */
std::deque<std::pair<int, int>> statuses;       /* of system(), with errno */
std::deque<std::string> replies;                /* of the process that a synchronous call asks */
bool run_really = false;
std::function<void(const std::string &)> on_system;
thread_local std::function<void()> on_delay;
thread_local bool runtime_recorded = false, no_thread = false;

bool RecordCommand(const char *line) {
  std::lock_guard<std::mutex> lock(mutex);
  commands.emplace_back(line);
  changed.notify_all();
  return run_really;
}

bool Ran(const std::string &line) {
  for (const std::string &command : commands)
    if (command == line) return true;
  return false;
}

/* A stream to read `output` from. */
FILE *StreamOf(const std::string &output) {
  int ends[2];
  if (pipe(ends) != 0) return nullptr;
  if (write(ends[1], output.data(), output.size()) != static_cast<ssize_t>(output.size()))
    ADD_FAILURE() << "an answer for popen() must fit into a pipe";
  close(ends[1]);
  FILE *answer = fdopen(ends[0], "r");
  if (answer == nullptr) close(ends[0]);
  return answer;
}

/* A call of the runtime as a line of text, printf's. */
int RecordCall(const char *format, ...) __attribute__((format(printf, 1, 2)));
int RecordCall(const char *format, ...) {
  MemoryOfTheTest own;
  char line[4096];
  va_list args;
  va_start(args, format);
  vsnprintf(line, sizeof line, format, args);
  va_end(args);
  (void)RecordCommand(line);
  return 0;
}

/* The payload as text: zeros as <0> or <0*COUNT>, other bytes that do not print as <HEX>. */
std::string Shown(const void *data, uint32_t len) {
  std::string text;
  const auto *bytes = static_cast<const unsigned char *>(data);
  for (uint32_t at = 0, from = 0; at < len; at = from = at + 1) {
    char shown[16] = {static_cast<char>(bytes[at])};
    while (bytes[from] == 0 && at + 1 < len && bytes[at + 1] == 0) ++at;
    if (bytes[from] < ' ') snprintf(shown, sizeof shown, "<%x>", bytes[from]);
    if (at > from) snprintf(shown, sizeof shown, "<0*%u>", at + 1 - from);
    text += shown;
  }
  return text;
}

}  // namespace

int __wrap_system(const char *line) {
  MemoryOfTheTest own;
  if (RecordCommand(line)) return __real_system(line);
  std::function<void(const std::string &)> answer;
  std::pair<int, int> result = {0, errno};
  {
    std::lock_guard<std::mutex> lock(mutex);
    answer = on_system;
    if (!statuses.empty()) {
      result = statuses.front();
      statuses.pop_front();
    }
  }
  if (answer) answer(line);
  errno = result.second;
  return result.first;
}

FILE *__wrap_popen(const char *line, const char *mode) {
  MemoryOfTheTest own;
  if (RecordCommand(line)) return __real_popen(line, mode);
  std::optional<std::string> answer = "";
  {
    std::lock_guard<std::mutex> lock(mutex);
    if (!answers.empty()) {
      answer = answers.front();
      answers.pop_front();
    }
  }
  FILE *stream = answer.has_value() ? StreamOf(*answer) : nullptr;
  std::lock_guard<std::mutex> lock(mutex);
  if (stream != nullptr) answering.insert(stream);
  return stream;
}

/* Not every C library closes a stream that its popen() did not open. */
int __wrap_pclose(FILE *stream) {
  bool own;
  {
    std::lock_guard<std::mutex> lock(mutex);
    own = answering.erase(stream) == 1;
  }
  return own ? fclose(stream) : __real_pclose(stream);
}

void __wrap_tds_delay(uint32_t ms) {
  if (on_delay)
    on_delay();
  else if (runtime_recorded)
    RecordCall("tds_delay(%u)", ms);
  else
    __real_tds_delay(ms);
}

unsigned __wrap_sleep(unsigned seconds) {
  if (!runtime_recorded) return __real_sleep(seconds);
  RecordCall("sleep(%u)", seconds);
  return 0;
}

/* Nothing can be added to /proc: the key driver's control file stands elsewhere here. */
int __wrap_open(const char *path, int flags, ...) {
  va_list args;
  va_start(args, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(args, mode_t) : 0;
  va_end(args);
  const bool driver = strcmp(path, "/proc/gpio_config/key") == 0;
  return __real_open(driver ? "/var/devkit/keys" : path, flags, mode);
}

int __wrap_SetTimer(int timer, uint32_t ms) {
  return runtime_recorded ? RecordCall("SetTimer(%d, %u)", timer, ms) : __real_SetTimer(timer, ms);
}

int __wrap_KillTimer(int timer) {
  return runtime_recorded ? RecordCall("KillTimer(%d)", timer) : __real_KillTimer(timer);
}

int __wrap_SendMsg(uint32_t id, const void *data, uint32_t len, const char *dest) {
  if (!runtime_recorded) return __real_SendMsg(id, data, len, dest);
  MemoryOfTheTest own;
  return RecordCall("SendMsg(%#x, %s, %s)", id, Shown(data, len).c_str(), dest);
}

int __wrap_SendMsg_syn_lib(uint32_t id, const void *data, uint32_t len, const char *dest,
                           void **reply, uint32_t *reply_len) {
  if (!runtime_recorded) return __real_SendMsg_syn_lib(id, data, len, dest, reply, reply_len);
  MemoryOfTheTest own;
  RecordCall("SendMsg_syn_lib(%#x, %s, %s)", id, Shown(data, len).c_str(), dest);
  std::lock_guard<std::mutex> lock(mutex);
  if (replies.empty()) return -1;
  const std::string text = replies.front();
  replies.pop_front();
  *reply_len = static_cast<uint32_t>(text.size());
  if (!text.empty())
    *reply = memcpy(__tds_malloc(text.size(), "SendMsg_syn_lib"), text.data(), text.size());
  return 0;
}

int __wrap_TDS_RegisterNotifyList(uint32_t id, const char *publisher) {
  if (!runtime_recorded) return __real_TDS_RegisterNotifyList(id, publisher);
  return RecordCall("TDS_RegisterNotifyList(%#x, %s)", id, publisher);
}

int __wrap_TDS_NotifyRegistrant(uint32_t id, const void *data, uint32_t len) {
  if (!runtime_recorded) return __real_TDS_NotifyRegistrant(id, data, len);
  MemoryOfTheTest own;
  return RecordCall("TDS_NotifyRegistrant(%#x, %s)", id, Shown(data, len).c_str());
}

int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*run)(void *),
                          void *argument) {
  if (std::exchange(no_thread, false)) return EAGAIN;
  return __real_pthread_create(thread, attributes, run, argument);
}

void ForgetRecord() {
  std::lock_guard<std::mutex> lock(mutex);
  commands.clear();
  answers.clear();
  statuses.clear();
  replies.clear();
  run_really = false;
  on_system = nullptr;
  on_delay = nullptr;
  runtime_recorded = no_thread = false;
}

std::vector<std::string> TakeCommands() {
  std::lock_guard<std::mutex> lock(mutex);
  return std::exchange(commands, {});
}

std::vector<std::string> AwaitCommand(const std::string &last) {
  std::unique_lock<std::mutex> lock(mutex);
  EXPECT_TRUE(changed.wait_for(lock, kLimit, [&] { return Ran(last); })) << "not run: " << last;
  return std::exchange(commands, {});
}

void AnswerPopen(std::string output) {
  std::lock_guard<std::mutex> lock(mutex);
  answers.emplace_back(std::move(output));
}

void FailPopen() {
  std::lock_guard<std::mutex> lock(mutex);
  answers.emplace_back(std::nullopt);
}

void AnswerSystem(int status, int error) {
  std::lock_guard<std::mutex> lock(mutex);
  statuses.emplace_back(status, error);
}

void ForgetAnswers() {
  std::lock_guard<std::mutex> lock(mutex);
  answers.clear();
  statuses.clear();
  replies.clear();
  no_thread = false;
}

void OnSystem(std::function<void(const std::string &)> answer) {
  std::lock_guard<std::mutex> lock(mutex);
  on_system = std::move(answer);
}

void RecordRuntime() { runtime_recorded = true; }

void FailThread() { no_thread = true; }

void OnDelay(std::function<void()> instead) { on_delay = std::move(instead); }

void RunCommands(bool really) {
  std::lock_guard<std::mutex> lock(mutex);
  run_really = really;
}

void AnswerCall(const std::string &reply) {
  std::lock_guard<std::mutex> lock(mutex);
  replies.push_back(reply);
}
