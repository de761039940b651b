// The version manager of the desk, endpoint "tdsmgr:vermgt": checks an image that was fetched to
// /tmp and flashes it, one order at a time, and tells how far it is to whoever polls. What an image
// is and where it is kept is in vermgt.h; vermgtctl makes it misbehave.
//
//   order       "downloading", and it is at work; "occupied" while another order is
//   poll        "downloading" until the new image is on the disk beside the old one: "downloaded";
//               "fwchk_failed" of a damaged image, "upg_failed" when it cannot be written
//   "success"   the new image takes the old one's place: "success", the order's end
//   "timeout"   gives the order up
// An order whose orderer has said nothing for a while (--patience) is given up when another one
// comes, and not before: a daemon that stands at a breakpoint goes on where it was. What makes no
// sense is answered with "other_failed", and so is a poll when no order is there.
#include "vermgt.h"

#include <pthread.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <functional>

#include "ams_common_api.h"

extern "C" {
PrtMapEntry DF_PRT_MAP[] = {{"default", 3}, {nullptr, 0}};
const MsgEntry prosCtlMsgTab[] = {{0, nullptr}};
}

namespace {

constexpr size_t kRequestSize = 320, kRequestName = 192;
/* s without a word after which an order may lose its place: an orderer that runs asks each 100 ms.
 */
int patience = 60;

/* Of the module's thread. */
struct Order {
  bool runs;
  std::string name, orderer;
  int polls;
  std::string word;                            /* last answer; of an order that has ended, how */
  std::chrono::steady_clock::time_point heard; /* when the orderer last said something */
};
Order order;

enum Kind { kNormal, kOccupied, kSlow, kReject, kFail, kHang, kDie };
const char *const kKinds[] = {"normal", "occupied", "slow", "reject", "fail", "hang", "die"};
struct {
  Kind kind;
  int amount; /* polls that are answered before it matters */
} behaviour;

/* The flashing thread: alone with `work_name` until it has set `outcome`, the word for its end. */
pthread_t worker;
bool worker_started;
std::string work_name;
std::atomic<const char *> outcome;

const char *Flash(const std::string &path) {
  std::string image, why;
  if (ImageRead(path.c_str(), &image, &why) != 0 || ImageCheck(image, &why) != 0) {
    AMS_PRINT(4, "%s is not flashed: %s\n", path.c_str(), why.c_str());
    return "fwchk_failed";
  }
  if (ImagePrepare(image, &why) != 0) {
    AMS_PRINT(4, "%s is not flashed: %s\n", path.c_str(), why.c_str());
    return "upg_failed";
  }
  return "downloaded";
}

void *Work(void *) {
  AMS_PrintThreadModule(kVersionManager);
  outcome = Flash("/tmp/" + work_name);
  return nullptr;
}

/* An order may end before its thread does: nothing else is flashed until then. */
void TidyUp() {
  if (order.runs || !worker_started || outcome == nullptr) return;
  pthread_join(worker, nullptr);
  worker_started = false;
  ImageDrop(); /* of an order that nobody confirmed */
}

bool Occupied() {
  TidyUp();
  return behaviour.kind == kOccupied || order.runs || worker_started;
}

void End() {
  AMS_PRINT(3, "%s: %s after %d polls\n", order.name.c_str(), order.word.c_str(), order.polls);
  order.runs = false;
  TidyUp();
}

/* Its orderer is gone, or as good as gone. */
void Abandon() {
  order.word = "abandoned";
  End();
}

/* Another order has come. */
void MakeWay() {
  if (!order.runs) return;
  auto silence = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() -
                                                                  order.heard);
  int seconds = static_cast<int>(silence.count());
  bool lost = seconds >= patience;
  AMS_PRINT(
      4, "%s of %s %s: not a word for %d s of %d\n", order.name.c_str(), order.orderer.c_str(),
      lost ? "is given up for another order" : "keeps another order waiting", seconds, patience);
  if (lost) Abandon();
}

/* A word with its NUL to the sender of the message in work. 0, or -1 (logged): it does not wait. */
int Answer(uint32_t id, const std::string &word) {
  char sender[TDS_NAME_SIZE];
  Sender(sender);
  return SynAckData_lib(word.c_str(), static_cast<uint32_t>(word.size()) + 1, id, sender);
}

/* ---- orders ---- */

bool IsFileName(const std::string &name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == name.npos &&
         std::none_of(name.begin(), name.end(), [](unsigned char c) { return iscntrl(c) != 0; });
}

/* The name in a request that is zero but for it; "" when it is none. */
std::string NameIn(const char *request) {
  const char *start = request + kRequestName, *end = request + kRequestSize;
  std::string name(start, strnlen(start, kRequestSize - kRequestName));
  const char *behind = start + name.size();
  bool zeros = std::all_of(request, start, std::logical_not<>()) && behind != end &&
               std::all_of(behind, end, std::logical_not<>());
  return zeros && IsFileName(name) ? name : "";
}

const char *Start(const std::string &name) {
  char sender[TDS_NAME_SIZE];
  Sender(sender);
  work_name = name;
  outcome = nullptr;
  if (pthread_create(&worker, nullptr, Work, nullptr) != 0) {
    AMS_PRINT(4, "%s is not flashed: no thread for it\n", name.c_str());
    return "upg_failed";
  }
  worker_started = true;
  order = {true, name, sender, 0, "downloading", std::chrono::steady_clock::now()};
  AMS_PRINT(3, "%s: ordered by %s\n", name.c_str(), sender);
  return "downloading";
}

void TakeOrder(int32_t, const void *data, uint32_t length) {
  std::string name;
  if (length == kRequestSize) name = NameIn(static_cast<const char *>(data));
  if (!name.empty()) MakeWay();
  if (name.empty()) {
    AMS_PRINT(4, "order refused: %u bytes; send %zu that are zero but for a file's name at %zu\n",
              length, kRequestSize, kRequestName);
    (void)Answer(kVersionOrder, "other_failed"); /* nothing was started for who does not wait */
  } else if (Occupied()) {
    (void)Answer(kVersionOrder, "occupied");
  } else {
    const char *word = Start(name);
    if (Answer(kVersionOrder, word) != 0 && order.runs) Abandon();
  }
}

/* ---- state words ---- */

const char *Poll() {
  bool early = ++order.polls <= behaviour.amount; /* which is 0 where it means nothing */
  const char *word = outcome;
  if (behaviour.kind == kDie && !early) {
    AMS_PRINT(4, "%s: dies, as it was told\n", order.name.c_str());
    _exit(1);
  }
  if (word == nullptr || behaviour.kind == kHang || early) return "downloading";
  if (behaviour.kind == kReject) return "fwchk_failed";
  if (behaviour.kind == kFail) return "upg_failed";
  return word;
}

/* Only of an order that was told "downloaded". */
const char *Confirm() {
  std::string why = "confirmed before it was on the disk";
  if (order.word == "downloaded" && ImageSwitch(&why) == 0) return "success";
  AMS_PRINT(4, "%s does not run: %s\n", order.name.c_str(), why.c_str());
  return "upg_failed";
}

const char *GiveUp() { return "timeout"; }

const struct {
  const char *word;
  const char *(*answer)();
} kWords[] = {{"downloading", Poll}, {"success", Confirm}, {"timeout", GiveUp}};

/* What a word of the orderer is answered, with all that follows from it. */
std::string Follow(const std::string &said) {
  order.heard = std::chrono::steady_clock::now();
  for (const auto &row : kWords) {
    if (said != row.word) continue;
    order.word = row.answer();
    if (order.word != "downloading" && order.word != "downloaded") End();
    return order.word;
  }
  AMS_PRINT(4, "\"%.20s\" is no state word: downloading, success, timeout\n", said.c_str());
  return "other_failed";
}

void TakeWord(int32_t, const void *data, uint32_t length) {
  char sender[TDS_NAME_SIZE];
  Sender(sender);
  const char *text = static_cast<const char *>(data);
  std::string word = "other_failed", said;
  if (length > 0 && text[length - 1] == '\0') said = text;
  bool occupied = Occupied();
  if (order.runs && order.orderer == sender)
    word = Follow(said);
  else if (occupied)
    word = "occupied";
  else
    AMS_PRINT(3, "\"%.20s\" of %s is about no order\n", said.c_str(), sender);
  (void)Answer(kVersionState, word); /* an orderer that is gone is missed by the next order */
}

/* ---- vermgtctl ---- */

VersionJson Reply(int status, const std::string &text) {
  return {{"status", status}, {"text", text}};
}

VersionJson State(const VersionJson &) {
  VersionJson reply = Reply(kVersionDone, "");
  reply["state"] = {{"behaviour", kKinds[behaviour.kind]},
                    {"amount", behaviour.amount},
                    {"occupied", Occupied()},
                    {"name", order.name},
                    {"orderer", order.orderer},
                    {"polls", order.polls},
                    {"word", order.word},
                    {"flashed", ImageFlashed()}};
  return reply;
}

VersionJson Behave(const VersionJson &request) {
  std::string how = request.value("how", "");
  int64_t amount = request.value("amount", int64_t{0});
  bool counts = how == "slow" || how == "die";
  auto kind = std::find(std::begin(kKinds), std::end(kKinds), how);
  if (kind == std::end(kKinds))
    return Reply(kVersionUsage, "no such behaviour as \"" + how +
                                    "\": normal, occupied, slow N, reject, fail, hang, die N");
  if (amount < 0 || amount > (counts ? 1000000 : 0))
    return Reply(kVersionUsage, "slow and die take a number from 0 to 1000000, the others none");
  behaviour = {static_cast<Kind>(kind - std::begin(kKinds)), static_cast<int>(amount)};
  return Reply(kVersionDone, "");
}

VersionJson RunVerb(const VersionJson &request) {
  try {
    std::string verb = request.is_object() ? request.value("verb", "") : "";
    if (verb == "state") return State(request);
    if (verb == "behave") return Behave(request);
    return Reply(kVersionUsage, "no verb \"" + verb + "\": see vermgtctl --help");
  } catch (const VersionJson::exception &error) {
    return Reply(kVersionUsage,
                 std::string("a request that is none of vermgtctl's: ") + error.what());
  }
}

void TakeControl(int32_t, const void *data, uint32_t length) {
  const char *text = static_cast<const char *>(data);
  VersionJson request = VersionJson::parse(text, text + length, nullptr, false);
  (void)Answer(kVersionControl, /* it does not want to know */
               RunVerb(request).dump(-1, ' ', false, VersionJson::error_handler_t::replace));
}

/* ---- all of it ---- */

const MsgEntry kMessages[] = {
    {kVersionOrder, TakeOrder},
    {kVersionState, TakeWord},
    {kVersionControl, TakeControl},
    {0, nullptr},
};

const ModuleEntry kModules[] = {
    {kVersionManager, {0, 0}, kMessages},
    {nullptr, {0, 0}, nullptr},
};

}  // namespace

int main(int argc, char **argv) {
  CLI::App app("Version manager of the gateway on a desk; vermgtctl --help tells what an image is.",
               "vermgt");
  app.add_option("--patience", patience,
                 "Seconds without a word of its orderer after which an order makes way for another")
      ->check(CLI::Range(0, 86400))
      ->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  signal(SIGPIPE, SIG_IGN);
  AMS_UsrDumpInit();
  AMS_PrintMgt_Init();
  ImageDrop(); /* of one that died half-way */
  if (SysInit(kModules) != 0) {
    fprintf(stderr, "vermgt: cannot serve %s: does another one run?\n", kVersionManager);
    return 1;
  }
  for (;;) pause();
}
