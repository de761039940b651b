// Modules that only pass messages on; see runtime_bus.h.
#include "runtime_bus.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "appt_request.h"
#include "tds.h"
#include "tds_desk.h"

namespace {

std::string acknowledgement;
uint64_t held;

void Need(bool done, const char *what) {
  if (done) return;
  fprintf(stderr, "bus_bench: %s\n", what);
  exit(1);
}

void Acknowledge(int32_t, const void *data, uint32_t len) {
  char sender[TDS_NAME_SIZE];
  Sender(sender);
  Need(len >= APPT_HEAD_SIZE, "a request without a head");
  appt_PutWord(&acknowledgement[APPT_AT_CHAIN], appt_GetWord(data));
  Need(SendMsg(EV_APPT_MSG_ACKTO_AGT, acknowledgement.data(),
               static_cast<uint32_t>(acknowledgement.size()), sender) == 0,
       "nobody takes the acknowledgement");
}

void PassOn(int32_t, const void *data, uint32_t len) {
  held = tds_hold_reply();
  Need(SendMsg(EV_APPT_MSG_REQUEST, data, len, kEcho) == 0, "nobody takes the request");
}

void Answer(int32_t, const void *data, uint32_t len) {
  Need(tds_reply_held(held, data, len) == 0, "nobody takes the answer");
}

const MsgEntry kEchoTable[] = {{EV_APPT_MSG_REQUEST, Acknowledge}, {0, nullptr}};
const MsgEntry kRelayTable[] = {{kRelayed, PassOn}, {EV_APPT_MSG_ACKTO_AGT, Answer}, {0, nullptr}};
const ModuleEntry kEchoModules[] = {{kEcho, {0, 0}, kEchoTable}, {}};
const ModuleEntry kRelayModules[] = {{kRelay, {0, 0}, kRelayTable}, {}};

}  // namespace

void ServeRuntime(const char *name, size_t size) {
  acknowledgement.assign(size, '\0');
  Need(size >= APPT_ACK_HEAD_SIZE, "an acknowledgement without a head");
  Need(SysInit(strcmp(name, kEcho) == 0 ? kEchoModules : kRelayModules) == 0, "SysInit");
  for (;;) pause();
}
