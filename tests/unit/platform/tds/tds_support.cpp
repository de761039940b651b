// See tds_support.h.
#include "tds_support.h"

#include <fcntl.h>
#include <signal.h>

#include <condition_variable>
#include <cstdlib>
#include <mutex>

#include "../other_process.h"
#include "ams_print.h"

PrtMapEntry DF_PRT_MAP[] = {{"default", 3}, {"unit:b", 3}, {nullptr, 0}};
const MsgEntry prosCtlMsgTab[] = {{0, nullptr}};

namespace {

std::mutex mutex;
std::condition_variable arrived;
std::vector<Received> received; /* by the modules of this process, in order */

void Record(int32_t id, const void *data, uint32_t len) {
  char sender[TDS_NAME_SIZE], self[TDS_NAME_SIZE];
  Sender(sender);
  Self(self);
  std::lock_guard<std::mutex> lock(mutex);
  received.push_back(
      {static_cast<uint32_t>(id), std::string(static_cast<const char *>(data), len), sender, self});
  arrived.notify_all();
}

void Echo(int32_t, const void *data, uint32_t len) {
  (void)Answer({static_cast<const char *>(data), len}); /* the caller sees it */
}
void Die(int32_t, const void *, uint32_t) { raise(SIGKILL); }
void Run(int32_t, const void *data, uint32_t) { (**static_cast<const Work *const *>(data))(); }

const MsgEntry kTable[] = {
    {TDS_MSG_INIT, Record},
    {kNote, Record},
    {kEcho, Echo},
    {kDie, Die},
    {kRun, Run},
    {kPublished, Record},
    {TDS_MSG_TIMER + 0, Record},
    {TDS_MSG_TIMER + 3, Record},
    {0, nullptr},
};
const ModuleEntry kModules[] = {{"unit:a", {0, 0}, kTable}, {"unit:b", {0, 0}, kTable}, {}};
const ModuleEntry kPeerModules[] = {{"peer:a", {0, 0}, kTable}, {}};

}  // namespace

uint32_t Patience() {
  const char *seconds = getenv("GATEWAY_TIMEOUT");
  return seconds == nullptr ? 60 : static_cast<uint32_t>(atoi(seconds));
}

std::vector<Received> Await(uint32_t id, size_t count) {
  std::unique_lock<std::mutex> lock(mutex);
  std::vector<Received> found;
  arrived.wait_for(lock, std::chrono::seconds(Patience()), [&] {
    found.clear();
    for (const Received &one : received)
      if (id == kAny || one.id == id) found.push_back(one);
    return found.size() >= count;
  });
  received.clear();
  return found;
}

int Post(const Work *work, const char *module) { return SendMsg(kRun, &work, sizeof work, module); }

void OnModule(const char *module, const Work &work) {
  const Work whole = [&] {
    work();
    Record(kRun, "", 0);
  };
  ASSERT_EQ(0, Post(&whole, module));
  ASSERT_EQ(1U, Await(kRun, 1).size());
}

std::string Ask(uint32_t id, const std::string &payload, const char *dest) {
  void *reply;
  uint32_t length;
  int result = SendMsg_syn_lib(id, payload.data(), static_cast<uint32_t>(payload.size()), dest,
                               &reply, &length);
  return result == 0                       ? Taken(reply, length)
         : reply == nullptr && length == 0 ? "refused"
                                           : "refused, with an answer";
}

std::string Taken(void *reply, uint32_t length) {
  std::string text(static_cast<char *>(reply), length);
  __tds_free(reply);
  return text;
}

int Answer(std::string_view text) {
  char sender[TDS_NAME_SIZE];
  Sender(sender);
  return SynAckData_lib(text.data(), static_cast<uint32_t>(text.size()), kEcho, sender);
}

PeerProcess::PeerProcess(rlim_t descriptors) {
  int ready[2];
  EXPECT_EQ(0, pipe2(ready, O_CLOEXEC));
  pid = Start([&] {
    if (descriptors != 0) LimitDescriptors(0, descriptors);
    return dup2(ready[1], 3) == 3 && Anew("--peer")();
  });
  close(ready[1]);
  char byte;
  EXPECT_EQ(1, read(ready[0], &byte, 1)) << "the peer did not come up";
  close(ready[0]);
}

void PeerProcess::Kill() {
  if (pid <= 0) return;
  kill(pid, SIGKILL);
  const int status = End(std::exchange(pid, 0));
  EXPECT_TRUE(WIFSIGNALED(status));
}

void LimitDescriptors(pid_t whose, rlim_t descriptors) {
  const std::string command = "prlimit --pid " + std::to_string(whose != 0 ? whose : getpid()) +
                              " --nofile=" + std::to_string(descriptors) + ":";
  EXPECT_EQ(system(command.c_str()), 0) << command;
}

void Tds::SetUpTestSuite() {
  static bool started;
  if (std::exchange(started, true)) return;
  signal(SIGPIPE, SIG_IGN);
  ASSERT_EQ(0, SysInit(kModules));
  ASSERT_EQ(2U, Await(TDS_MSG_INIT, 2).size());
}

void Tds::SetUp() { (void)Await(0, 0); /* what an earlier test left is none of this one's */ }

int main(int argc, char **argv) {
  if (argc > 1 && std::string(argv[1]) == "--peer") {
    if (SysInit(kPeerModules) != 0 || write(3, "r", 1) != 1) return 1;
    for (;;) tds_delay(60000);
  }
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
