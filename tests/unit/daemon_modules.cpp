// The modules of the daemon with recording peers; see daemon_modules.h.
#include "daemon_modules.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <vector>

#include "recorder.h"
#include "sup_main.h"

namespace {

constexpr auto kLimit = std::chrono::minutes(1);

std::mutex mutex;
std::condition_variable changed;
std::deque<PeerMessage> messages; /* module threads fill it */

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

void StartWithPeers() {
  ASSERT_EQ(SysInit(ModulesWithPeers()), 0);
  AwaitStart();
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

void ForgetMessages() {
  std::lock_guard<std::mutex> lock(mutex);
  messages.clear();
}
