// The stand-ins behind support.h: the recording shell and the recording peers.
#include "support.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fstream>
#include <mutex>
#include <optional>
#include <set>
#include <sstream>
#include <utility>

#include "refusals.h"
#include "sup_main.h"

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
std::deque<PeerMessage> messages;
std::deque<std::string> replies; /* of the process that a synchronous call asks */
bool run_really = false;
/* Before any thread, so that a change later moves nothing that they read. */
const int first_zone = setenv("TZ", "UTC0", 1);
std::function<void(const std::string &)> on_system;
thread_local std::function<void()> on_delay;
thread_local bool runtime_recorded = false, no_thread = false;

void Forget() {
  std::lock_guard<std::mutex> lock(mutex);
  commands.clear();
  answers.clear();
  statuses.clear();
  messages.clear();
  replies.clear();
  run_really = false;
  on_system = nullptr;
  on_delay = nullptr;
  runtime_recorded = no_thread = false;
}

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

void RecordMessage(int32_t id, const void *data, uint32_t len) {
  PeerMessage message;
  char name[TDS_NAME_SIZE];
  Self(name);
  message.peer = name;
  Sender(name);
  message.sender = name;
  if (len != 0) message.payload.assign(static_cast<const char *>(data), len);
  message.id = static_cast<uint32_t>(id);
  std::lock_guard<std::mutex> lock(mutex);
  messages.push_back(message);
  changed.notify_all();
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

const MsgEntry kAckTable[] = {
    {EV_APPT_MSG_ACKTO_AGT, RecordMessage}, {EV_APPT_MSG_NO_OBJECT, RecordMessage}, {0, nullptr}};

/* The daemon's modules and the peers; the runtime keeps the table for ever. */
const ModuleEntry *ModulesWithPeers() {
  static std::vector<ModuleEntry> modules;
  for (const ModuleEntry *module = kSysmgrModules; module->name != nullptr; ++module)
    modules.push_back(*module);
  modules.push_back({kApptAckPeer, {0, 0}, kAckTable});
  modules.push_back({nullptr, {0, 0}, nullptr});
  return modules.data();
}

/* A module acknowledges what was sent to it behind its first message, so its start is over then;
   the last thing that the start causes is that Samba, which is off, is stopped. */
void AwaitStart() {
  for (const char *module : {"sysmgr:devInfo", "sysmgr:capabinfo", "sysmgr:mgtsrvr"})
    EXPECT_EQ(Request(module, APPT_CMD_GET, "InternetGatewayDevice.NoSuchNode").result, -1);
  AwaitCommand("killall -q smbd");
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

void LoadModel(const std::string &text) {
  if (gptXmlTrees == nullptr) gptXmlTrees = ShmPoolSrvInit();
  ASSERT_NE(gptXmlTrees, nullptr);
  FILE *file = fmemopen(const_cast<char *>(text.data()), text.size(), "r");
  ASSERT_NE(file, nullptr);
  AmsTree *root = ams_mxmlLoadFile(nullptr, file, nullptr);
  fclose(file);
  ASSERT_NE(root, nullptr) << text;
  /* Modules that run already read the word: it changes only with the first tree. */
  if (gptXmlTrees->root != root) gptXmlTrees->root = root;
}

std::string Leaf(const std::string &path) {
  std::string value(AMS_VALUE_MAX + 1, '\0');
  if (ams_mxml_get_leaf(path.c_str(), value.data(), value.size()) != 0) return "(none)";
  return value.c_str();
}

void SetLeaf(const std::string &path, const std::string &value) {
  EXPECT_EQ(ams_mxml_fset_leaf(path.c_str(), value.c_str()), 0) << path;
}

std::string FileText(const std::string &path) {
  std::ifstream file(path);
  std::ostringstream text;
  text << file.rdbuf();
  return file ? text.str() : "(none)";
}

std::string StoreTest::DataModel() const { return FileText(TEST_DATA "/small_model.xml"); }

void StoreTest::SetUp() {
  LoadModel(DataModel());
  Forget();
}

void StoreTest::StartModules() {
  static bool started = false;
  if (started) return;
  started = true;
  LoadModel(FileText(TEST_DATA "/small_model.xml"));
  ASSERT_EQ(SysInit(ModulesWithPeers()), 0);
  AwaitStart();
  LoadModel(DataModel());
  Forget();
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

void LimitFiles(rlim_t bytes) {
  signal(SIGXFSZ, SIG_IGN); /* the writer sees EFBIG instead */
  rlimit limit;
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
  limit.rlim_cur = std::min(bytes, limit.rlim_max);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
}

int RunOp(const OpFuncEntry *table, const std::string &name, int op, const std::string &path,
          const char *value) {
  OpFuncArg arg = {name.c_str(), op, "", nullptr};
  std::string text = value == nullptr ? "" : value;
  if (value != nullptr) arg.value = text.data();
  snprintf(arg.path, sizeof arg.path, "%s", path.c_str());
  for (; table->name != nullptr; ++table)
    if (table->name == name && table->handler != nullptr) return table->handler(&arg);
  ADD_FAILURE() << "no handler " << name;
  return -1;
}

std::string LogOf(int32_t level, const std::function<void()> &work) {
  const int32_t before = std::exchange(DF_PRT_MAP[0].level, level);
  testing::internal::CaptureStderr();
  work();
  DF_PRT_MAP[0].level = before;
  return testing::internal::GetCapturedStderr();
}

void ExpectRecords(const std::string &source, const Lines &records,
                   const std::function<void()> &work) {
  const std::string log = LogOf(1, work);
  size_t at = 0;
  for (const std::string &record : records) {
    const std::string whole = " " + record + "  @P:" + source + ",L:";
    const size_t found = log.find(whole, at);
    ASSERT_NE(found, log.npos) << "no" << whole << "\n" << log.substr(at);
    at = found + whole.size();
  }
}

void SetZone(const char *zone) { EXPECT_EQ(setenv("TZ", zone, 1) + first_zone, 0); }

void RunMessage(const MsgEntry *table, uint32_t id, const std::string &payload) {
  const void *data = payload.empty() ? nullptr : payload.data();
  for (; table->handler != nullptr; ++table)
    if (table->id == id)
      return table->handler(static_cast<int32_t>(id), data, static_cast<uint32_t>(payload.size()));
  ADD_FAILURE() << "no row for message " << id;
}

PeerMessage AwaitMessage(uint32_t id) {
  std::unique_lock<std::mutex> lock(mutex);
  auto found = messages.end();
  bool came = changed.wait_for(lock, kLimit, [&] {
    found = messages.begin();
    while (found != messages.end() && found->id != id) ++found;
    return found != messages.end();
  });
  EXPECT_TRUE(came) << "no message " << id;
  if (!came) return {};
  PeerMessage message = *found;
  messages.erase(found);
  return message;
}

void AnswerCall(const std::string &reply) {
  std::lock_guard<std::mutex> lock(mutex);
  replies.push_back(reply);
}

std::string RequestFrame(uint32_t chain, uint32_t command, const std::string &url,
                         const std::string &value) {
  uint8_t head[APPT_HEAD_SIZE];
  appt_PutWord(head, chain);
  appt_PutWord(head + 4, command);
  appt_PutWord(head + 8, APPT_CODE_REQUEST);
  std::string frame(reinterpret_cast<char *>(head), sizeof head);
  frame += static_cast<char>(url.size());
  frame.append(url.c_str(), url.size() + 1);
  frame += static_cast<char>(value.size());
  if (!value.empty()) frame.append(value.c_str(), value.size() + 1);
  return frame;
}

void Send(const std::string &module, uint32_t id, const std::string &payload) {
  const void *data = payload.empty() ? nullptr : payload.data();
  EXPECT_EQ(SendMsg(id, data, static_cast<uint32_t>(payload.size()), module.c_str()), 0) << module;
}

Ack ParseAck(const std::string &payload) {
  if (payload.size() < APPT_ACK_HEAD_SIZE) {
    ADD_FAILURE() << "acknowledgement of " << payload.size() << " bytes";
    return {};
  }
  const char *at = payload.data();
  Ack ack = {appt_GetWord(at), appt_GetWord(at + 4), appt_GetWord(at + 8),
             static_cast<int32_t>(appt_GetWord(at + APPT_HEAD_SIZE)),
             payload.substr(APPT_ACK_HEAD_SIZE)};
  if (!ack.value.empty() && ack.value.back() == '\0') ack.value.pop_back();
  return ack;
}

Ack Request(const std::string &module, uint32_t command, const std::string &url,
            const std::string &value) {
  static uint32_t chain = 0x1000;
  Send(module, EV_APPT_MSG_REQUEST, RequestFrame(++chain, command, url, value));
  Ack ack = ParseAck(AwaitMessage(EV_APPT_MSG_ACKTO_AGT).payload);
  EXPECT_EQ(ack.chain, chain);
  return ack;
}
