// The version manager: orders, state words and what vermgtctl asks, message by message. An input is
// steps; each is a byte for its kind, one for who says it, and bytes up to the next byte 0xFE.
#include <algorithm>
#include <filesystem>

#include "ams_print.h"
#include "check.h"
#include "vermgt_image.h"
#include "vermgt_order.h"

/* Its messages go to the handlers themselves. */
int vermgt_main(int argc, char **argv);
#define main vermgt_main
#include "vermgt.cpp"
#undef main

namespace {

constexpr size_t kOrder = 320, kOrderName = 192;
constexpr char kImage[] = "/tmp/image";
constexpr const char *kAnswers[] = {"downloading",  "downloaded", "occupied", "success",
                                    "fwchk_failed", "upg_failed", "timeout",  "other_failed"};

const char *sender;
struct {
  uint32_t id;
  std::string text;
  int count;
} answered; /* to the last message */

/* What it answers. */
std::string Tell(uint32_t id, const std::string &bytes) {
  const auto block = Block(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size(), 0);
  const MsgEntry *row = kMessages;
  while (row->id != id) ++row;
  answered = {};
  row->handler(static_cast<int32_t>(id), block.get(), static_cast<uint32_t>(bytes.size()));
  Check(answered.count == 1 && answered.id == id, "a message is not answered, or not once");
  return answered.text;
}

/* ---- steps ---- */

void Ask(const std::string &bytes) {
  const Json reply = ControlReplyIn(Tell(VERSION_CONTROL, bytes));
  Check(!reply.is_null(), "vermgtctl cannot read the reply");
  Check(reply["status"] == EXIT_DONE || reply["status"] == EXIT_USAGE, "there is no such status");
  Check((reply["status"] == EXIT_DONE) == (reply["text"] == ""), "refused without a reason");
  if (OrderState()["behaviour"] == "die") (void)OrderBehave("normal", 0); /* of this process */
}

void CheckWord(const std::string &answer) {
  const bool known = std::count(std::begin(kAnswers), std::end(kAnswers), answer) != 0;
  Check(known, "an answer that is no state word");
  Check(answer != "success" || !ImageFlashed().is_null(), "what was flashed is no image");
}

void OrderBytes(const std::string &bytes) { CheckWord(Tell(VERSION_ORDER, bytes)); }

void Order(const std::string &name) {
  std::string bytes(kOrder, '\0');
  bytes.replace(kOrderName, std::min(name.size(), kOrder - kOrderName), name, 0,
                kOrder - kOrderName);
  OrderBytes(bytes);
}

void Word(const std::string &word) { CheckWord(Tell(VERSION_STATE, word)); }

void WordWithNul(const std::string &word) { Word(word + '\0'); }

void File(const std::string &bytes) { PutFile(kImage, bytes); }

void Image(const std::string &content) { PutFile(kImage, ImageOf(content)); }

/* To who asks: the manager, or a simulator. */
void Reply(const std::string &bytes) {
  const Json reply = ControlReplyIn(bytes);
  Check(reply.is_null() || reply["status"].is_number_integer(), "a reply without a status");
}

constexpr void (*kSteps[])(const std::string &) = {Ask,        Order, WordWithNul, Image,
                                                   OrderBytes, Word,  File,        Reply};
constexpr const char *kSenders[] = {"sysmgr:devinfo", "cfgcmd:1"};

/* Nothing runs, and nothing is flashed. */
void Begin() {
  Check(OrderBehave("normal", 0).empty(), "it does not behave");
  for (const char *each : kSenders) {
    sender = each;
    WordWithNul("timeout");
  }
  Check(OrderState()["occupied"] == false, "it is occupied by nothing");
  std::filesystem::remove_all("/var/persist/firmware");
  (void)unlink(kImage); /* it may not be there */
}

}  // namespace

WRAPPED(void, tds_sender, char *name, size_t size) { snprintf(name, size, "%s", sender); }
WRAPPED(int, SynAckData_lib, const void *data, uint32_t length, uint32_t id, const char *to) {
  const char *text = static_cast<const char *>(data);
  Check(strcmp(to, sender) == 0, "another one is answered");
  Check(length > 0 && text[length - 1] == '\0', "an answer is not terminated");
  answered = {id, text, answered.count + 1};
  return 0;
}
WRAPPED(int, kill, pid_t, int) { return 0; }
WRAPPED(int, pthread_join, pthread_t, void **) { return 0; }
/* What a thread does is done before its creator goes on. */
WRAPPED(int, pthread_create, pthread_t *, const pthread_attr_t *, void *(*run)(void *),
        void *argument) {
  (void)run(argument);
  return 0;
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  DF_PRT_MAP[0].level = 6; /* records are made, not written */
  return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Begin();
  for (std::string_view rest = TextOf(data, size); rest.size() >= 2;) {
    const auto step = kSteps[static_cast<uint8_t>(rest[0]) % std::size(kSteps)];
    const auto who = static_cast<uint8_t>(rest[1]);
    sender = kSenders[who % std::size(kSenders)];
    order_patience = who < 128 ? 60 : 0;
    rest.remove_prefix(2);
    step(std::string(TakePiece(&rest, '\xFE')));
  }
  Begin();
  return 0;
}
