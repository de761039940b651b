// The stand-ins behind support.h: the recording shell and the recording peers.
#include "support.h"

#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <iterator>
#include <mutex>
#include <optional>
#include <sstream>
#include <utility>

#include "sup_main.h"

extern "C" {
int __real_system(const char *line);
FILE *__real_popen(const char *line, const char *mode);
int __wrap_system(const char *line);
FILE *__wrap_popen(const char *line, const char *mode);
void __real_tds_delay(uint32_t ms);
void __wrap_tds_delay(uint32_t ms);
}

namespace {

constexpr auto kLimit = std::chrono::seconds(10);

/* Small, but with every node that a module writes on its own while it runs. */
constexpr char kModel[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<InternetGatewayDevice type="object">
  <DeviceInfo type="object" op="FuncDeviceInfo" mod="sysmgr:devInfo">
    <ModelName type="string" writable="0">DG-2000</ModelName>
    <ProvisioningCode type="string"/>
    <UpTime type="unsignedInt" writable="0">0</UpTime>
    <MacAddress type="string" writable="0"/>
    <X_KVO_FWVersion type="string" writable="0">V2.3.1</X_KVO_FWVersion>
    <X_KVO_FWTime type="string" writable="0"/>
    <X_KVO-UserChange type="string"/>
    <X_KVO-RestartWeb type="boolean">0</X_KVO-RestartWeb>
    <X_CT-COM_Restore type="object" op="FuncRestore">
      <Enable type="boolean">0</Enable>
    </X_CT-COM_Restore>
    <X_CT-COM_ServiceManage type="object" op="FuncServiceManage">
      <X_KVO_DebugToolEnable type="boolean">0</X_KVO_DebugToolEnable>
      <X_KVO_DebugToolPort type="unsignedInt">9000</X_KVO_DebugToolPort>
      <X_KVO_OneBitEnable type="boolean">0</X_KVO_OneBitEnable>
    </X_CT-COM_ServiceManage>
  </DeviceInfo>
  <ManagementServer type="object" op="FuncManagementServer" mod="sysmgr:mgtsrvr">
    <URL type="string"/>
    <X_KVO_TR069WANIFNAME type="string"/>
    <X_KVO_TR069UpWAN type="string" writable="0"/>
    <X_KVO_TR069WANSAVE type="string" writable="0"/>
    <X_KVO-SucessFlag type="int" writable="0">0</X_KVO-SucessFlag>
  </ManagementServer>
  <Services type="object" mod="sysmgr:capabinfo">
    <ServiceTelnet type="object" op="FuncServTelnet">
      <Enable type="boolean">0</Enable>
      <Port type="string">23</Port>
    </ServiceTelnet>
    <ServiceSamba type="object" op="FuncServSamba"><Enable type="boolean">0</Enable></ServiceSamba>
    <ServiceDLNA type="object" op="FuncDlnaServer"><Enable type="boolean">0</Enable></ServiceDLNA>
    <ServiceWOL type="object" op="FuncWOL"><MACAddr type="string"/></ServiceWOL>
    <ServiceVRRP type="object" op="FuncVrrp"><Enable type="boolean">0</Enable></ServiceVRRP>
    <ServiceIPSLA type="object" op="FuncIpSla"><Enable type="boolean">0</Enable></ServiceIPSLA>
    <X_KVO_IPSec type="object" op="FuncServIPSec">
      <TunnelListNumberOfEntries type="unsignedInt" writable="0"/>
      <TunnelList type="array" op="FuncServIPSecTunnelList">
        <Template>
          <ConnectionStatus type="string" writable="0">Disconnected</ConnectionStatus>
          <RemoteGatewayAddress type="string"/>
        </Template>
      </TunnelList>
    </X_KVO_IPSec>
  </Services>
  <X_CT-COM_UserInfo type="object" op="FuncUserInfo" mod="sysmgr:capabinfo">
    <Result type="int">0</Result>
    <UserNumberOfEntries type="unsignedInt" writable="0"/>
    <UserList type="array" op="FuncUserInfoUserListI">
      <Template><Name type="string"/></Template>
    </UserList>
  </X_CT-COM_UserInfo>
  <X_CT-COM_USBDevice type="object">
    <StorageNumberOfEntries type="unsignedInt" writable="0"/>
    <Storage type="array">
      <Template>
        <Partitions type="array"><Template><MountPoint type="string"/></Template></Partitions>
      </Template>
    </Storage>
  </X_CT-COM_USBDevice>
</InternetGatewayDevice>
)";

/* What the stand-ins were asked; module threads fill it. */
std::mutex gMutex;
std::condition_variable gChanged;
std::vector<std::string> gCommands;
std::deque<std::optional<std::string>> gAnswers; /* nullopt: popen fails */
std::deque<std::pair<int, int>> gStatuses;       /* of system(), with errno */
std::deque<PeerMessage> gMessages;
std::deque<std::string> gReplies; /* of the version manager */
bool gReally = false;
/* Before any thread, so that a change later moves nothing that they read. */
const int gZone = setenv("TZ", "UTC0", 1);
std::function<void(const std::string &)> gOnSystem;
thread_local std::function<void()> gOnDelay;
std::function<void()> gWork; /* for "sysmgr:test"; empty once it is done */

void Forget() {
  std::lock_guard<std::mutex> lock(gMutex);
  gCommands.clear();
  gAnswers.clear();
  gStatuses.clear();
  gMessages.clear();
  gReplies.clear();
  gReally = false;
  gOnSystem = nullptr;
  gOnDelay = nullptr;
}

bool RecordCommand(const char *line) {
  std::lock_guard<std::mutex> lock(gMutex);
  gCommands.emplace_back(line);
  gChanged.notify_all();
  return gReally;
}

bool Ran(const std::string &line) {
  for (const std::string &command : gCommands)
    if (command == line) return true;
  return false;
}

/* A stream to read `output` from; the C library's pclose() closes any stream. */
FILE *StreamOf(const std::string &output) {
  int ends[2];
  if (pipe(ends) != 0) return nullptr;
  if (write(ends[1], output.data(), output.size()) != static_cast<ssize_t>(output.size()))
    ADD_FAILURE() << "an answer for popen() must fit into a pipe";
  close(ends[1]);
  return fdopen(ends[0], "r");
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
  std::lock_guard<std::mutex> lock(gMutex);
  gMessages.push_back(message);
  gChanged.notify_all();
}

void AnswerRequest(int32_t id, const void *data, uint32_t len) {
  std::string reply;
  RecordMessage(id, data, len);
  {
    std::lock_guard<std::mutex> lock(gMutex);
    if (gReplies.empty()) return;
    reply = gReplies.front();
    gReplies.pop_front();
  }
  char sender[TDS_NAME_SIZE];
  Sender(sender);
  (void)SynAckData_lib(reply.data(), static_cast<uint32_t>(reply.size()), static_cast<uint32_t>(id),
                       sender); /* the test sees what is missing */
}

void DoWork(int32_t, const void *, uint32_t) {
  std::function<void()> work;
  {
    std::lock_guard<std::mutex> lock(gMutex);
    work = gWork;
  }
  work();
  std::lock_guard<std::mutex> lock(gMutex);
  gWork = nullptr;
  gChanged.notify_all();
}

constexpr uint32_t kWork = 0x110001;
const MsgEntry kTestTable[] = {{kWork, DoWork},
                               {0x100054, RecordMessage},
                               {TDS_MSG_TIMER, RecordMessage},
                               {TDS_MSG_TIMER + 1, RecordMessage},
                               {0, nullptr}};
const MsgEntry kAckTable[] = {
    {EV_APPT_MSG_ACKTO_AGT, RecordMessage}, {EV_APPT_MSG_NO_OBJECT, RecordMessage}, {0, nullptr}};
const MsgEntry kLogTable[] = {{0x100021, RecordMessage}, {0, nullptr}};
const MsgEntry kWanTable[] = {{0, nullptr}};
const MsgEntry kVersionTable[] = {{0xfff04, AnswerRequest}, {0xfff05, AnswerRequest}, {0, nullptr}};
const MsgEntry kLanTable[] = {{0x100053, RecordMessage}, {0, nullptr}};

/* The daemon's modules and the peers; the runtime keeps the table for ever. */
const ModuleEntry *ModulesWithPeers() {
  static std::vector<ModuleEntry> modules;
  for (const ModuleEntry *module = SYSMGR_MODULES; module->name != nullptr; ++module)
    modules.push_back(*module);
  modules.push_back({"sysmgr:test", {0, 0}, kTestTable});
  modules.push_back({APPT_ACK_PEER, {0, 0}, kAckTable});
  modules.push_back({"utils:logmgt", {0, 0}, kLogTable});
  modules.push_back({"portmgr:wan", {0, 0}, kWanTable});
  modules.push_back({"portmgr:lan", {0, 0}, kLanTable});
  modules.push_back({"tdsmgr:vermgt", {0, 0}, kVersionTable});
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
  if (RecordCommand(line)) return __real_system(line);
  std::function<void(const std::string &)> answer;
  std::pair<int, int> result = {0, errno};
  {
    std::lock_guard<std::mutex> lock(gMutex);
    answer = gOnSystem;
    if (!gStatuses.empty()) {
      result = gStatuses.front();
      gStatuses.pop_front();
    }
  }
  if (answer) answer(line);
  errno = result.second;
  return result.first;
}

FILE *__wrap_popen(const char *line, const char *mode) {
  if (RecordCommand(line)) return __real_popen(line, mode);
  std::optional<std::string> answer = "";
  {
    std::lock_guard<std::mutex> lock(gMutex);
    if (!gAnswers.empty()) {
      answer = gAnswers.front();
      gAnswers.pop_front();
    }
  }
  return answer.has_value() ? StreamOf(*answer) : nullptr;
}

void __wrap_tds_delay(uint32_t ms) {
  if (gOnDelay)
    gOnDelay();
  else
    __real_tds_delay(ms);
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

std::string StoreTest::DataModel() const { return kModel; }

void StoreTest::SetUp() {
  LoadModel(DataModel());
  Forget();
}

void StoreTest::StartModules() {
  static bool started = false;
  if (started) return;
  started = true;
  LoadModel(kModel);
  ASSERT_EQ(SysInit(ModulesWithPeers()), 0);
  AwaitStart();
  LoadModel(DataModel());
  Forget();
}

std::vector<std::string> TakeCommands() {
  std::lock_guard<std::mutex> lock(gMutex);
  return std::exchange(gCommands, {});
}

std::vector<std::string> AwaitCommand(const std::string &last) {
  std::unique_lock<std::mutex> lock(gMutex);
  EXPECT_TRUE(gChanged.wait_for(lock, kLimit, [&] { return Ran(last); })) << "not run: " << last;
  return std::exchange(gCommands, {});
}

void AnswerPopen(std::string output) {
  std::lock_guard<std::mutex> lock(gMutex);
  gAnswers.emplace_back(std::move(output));
}

void FailPopen() {
  std::lock_guard<std::mutex> lock(gMutex);
  gAnswers.emplace_back(std::nullopt);
}

void AnswerSystem(int status, int error) {
  std::lock_guard<std::mutex> lock(gMutex);
  gStatuses.emplace_back(status, error);
}

void OnSystem(std::function<void(const std::string &)> answer) {
  std::lock_guard<std::mutex> lock(gMutex);
  gOnSystem = std::move(answer);
}

void OnDelay(std::function<void()> instead) { gOnDelay = std::move(instead); }

void RunCommands(bool really) {
  std::lock_guard<std::mutex> lock(gMutex);
  gReally = really;
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

void ExpectNames(const OpFuncEntry *table, const std::string &words) {
  std::istringstream stream(words);
  const std::vector<std::string> names{std::istream_iterator<std::string>(stream), {}};
  std::vector<std::string> rows;
  for (; table->name != nullptr; ++table) rows.push_back(table->name);
  EXPECT_EQ(rows, names);
}

std::string LogOf(int32_t level, const std::function<void()> &work) {
  const int32_t before = std::exchange(DF_PRT_MAP[0].level, level);
  testing::internal::CaptureStderr();
  work();
  DF_PRT_MAP[0].level = before;
  return testing::internal::GetCapturedStderr();
}

void SetZone(const char *zone) { EXPECT_EQ(setenv("TZ", zone, 1) + gZone, 0); }

void RunMessage(const MsgEntry *table, uint32_t id, const std::string &payload) {
  const void *data = payload.empty() ? nullptr : payload.data();
  for (; table->handler != nullptr; ++table)
    if (table->id == id)
      return table->handler(static_cast<int32_t>(id), data, static_cast<uint32_t>(payload.size()));
  ADD_FAILURE() << "no row for message " << id;
}

void RunOnModule(std::function<void()> work) {
  std::unique_lock<std::mutex> lock(gMutex);
  gWork = std::move(work);
  lock.unlock();
  Send("sysmgr:test", kWork, "");
  lock.lock();
  ASSERT_TRUE(gChanged.wait_for(lock, kLimit, [] { return gWork == nullptr; }));
}

PeerMessage AwaitMessage(uint32_t id) {
  std::unique_lock<std::mutex> lock(gMutex);
  auto found = gMessages.end();
  bool came = gChanged.wait_for(lock, kLimit, [&] {
    found = gMessages.begin();
    while (found != gMessages.end() && found->id != id) ++found;
    return found != gMessages.end();
  });
  EXPECT_TRUE(came) << "no message " << id;
  if (!came) return {};
  PeerMessage message = *found;
  gMessages.erase(found);
  return message;
}

std::vector<PeerMessage> TakeMessages(const std::string &peer) {
  std::vector<PeerMessage> taken;
  std::deque<PeerMessage> others;
  std::lock_guard<std::mutex> lock(gMutex);
  for (PeerMessage &message : gMessages)
    if (message.peer == peer)
      taken.push_back(std::move(message));
    else
      others.push_back(std::move(message));
  gMessages.swap(others);
  return taken;
}

void AnswerVersionManager(const std::vector<std::string> &replies) {
  std::lock_guard<std::mutex> lock(gMutex);
  gReplies.insert(gReplies.end(), replies.begin(), replies.end());
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
