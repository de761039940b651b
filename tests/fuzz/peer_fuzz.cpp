// What another process says to a module once it is connected: any frames in any order, after which
// the module still answers. Each frame is a byte for its kind, one for its id, and its payload up
// to the next byte 0xFE.
#include <sys/socket.h>

#include "ams_print.h"
#include "check.h"
#include "wire.h"

namespace {

constexpr char kName[] = "fuzz:peer", kAlive[] = "alive";
constexpr uint32_t kIds[] = {0x300,
                             0x301,
                             0,
                             TDS_MSG_INIT,
                             TDS_MSG_PEER_GONE,
                             TDS_MSG_TIMER,
                             TDS_MSG_TIMER + TDS_TIMERS,
                             TDS_MSG_ANY};
volatile uint8_t last; /* byte that was read */

/* Reads all that it is given, and answers it. */
void Answer(int32_t id, const void *data, uint32_t length) {
  char sender[TDS_NAME_SIZE];
  tds_sender(sender, sizeof sender);
  for (uint32_t at = 0; at < length; ++at) last = static_cast<const uint8_t *>(data)[at];
  (void)SynAckData_lib(data, length, static_cast<uint32_t>(id), sender); /* not all want one */
}

const MsgEntry kTable[] = {{0x300, Answer}, {TDS_MSG_PEER_GONE, Answer}, {0, nullptr}};
const ModuleEntry kModules[] = {{kName, {0, 0}, kTable}, {nullptr, {0, 0}, nullptr}};

void CheckAlive() {
  std::string reply;
  Check(tds_call(0x300, kAlive, sizeof kAlive, kName, 10000, &reply) == 0,
        "the module does not answer any more");
  Check(reply == std::string(kAlive, sizeof kAlive), "it answers another thing");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  DF_PRT_MAP[0].level = 6; /* records are made, not written */
  Check(SysInit(kModules) == 0, "no module: run it through script/fuzz");
  return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  int fd = WireConnect(kName, true);
  Check(fd >= 0, "it takes no connections");
  uint32_t sequence = 0;
  for (std::string_view rest = TextOf(data, size); rest.size() >= 2;) {
    auto kind = static_cast<WireKind>(rest[0] & 7);
    uint32_t id = kIds[static_cast<uint8_t>(rest[1]) % 8];
    rest.remove_prefix(2);
    std::string_view payload = TakePiece(&rest, '\xFE');
    if (WireSend(fd, kind, id, ++sequence, payload.data(), static_cast<uint32_t>(payload.size()),
                 MSG_DONTWAIT) != 0)
      break; /* it has ended the connection, or its queue is full */
  }
  CheckAlive();
  close(fd);
  return 0;
}
