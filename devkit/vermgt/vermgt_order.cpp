// Orders; see vermgt_order.h.
#include "vermgt_order.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <functional>
#include <new>

#include "ams_common_api.h"
#include "vermgt_image.h"

namespace {

constexpr size_t kRequestSize = 320, kRequestName = 192;

/* Of the module's thread. */
struct Order {
  bool runs;
  std::string name, orderer;
  int polls;
  std::string word;                            /* last answer; of an order that has ended, how */
  std::chrono::steady_clock::time_point heard; /* when the orderer last said something */
};
Order order;
int orders = 0; /* that were taken */

enum Kind { NORMAL, OCCUPIED, SLOW, REJECT, FAIL, HANG, DIE, HALT };
const char *const kKinds[] = {"normal", "occupied", "slow", "reject",
                              "fail",   "hang",     "die",  "halt"};
struct {
  Kind kind;
  int amount; /* polls that are answered before it matters; of HALT the process */
} behaviour;

/* The flashing thread: alone with `work_name` until it has set `outcome`, the word for its end. */
pthread_t worker;
bool worker_started;
std::string work_name;
std::atomic<const char *> outcome;

const char *Flash(const std::string &path) try {
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
} catch (const std::bad_alloc &) {
  AMS_PRINT(5, "%s is not flashed: no memory for it\n", path.c_str());
  return "upg_failed";
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
  return behaviour.kind == OCCUPIED || order.runs || worker_started;
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
  bool lost = seconds >= order_patience;
  AMS_PRINT(4, "%s of %s %s: not a word for %d s of %d\n", order.name.c_str(),
            order.orderer.c_str(),
            lost ? "is given up for another order" : "keeps another order waiting", seconds,
            order_patience);
  if (lost) Abandon();
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
  ++orders;
  order = {true, name, sender, 0, "downloading", std::chrono::steady_clock::now()};
  AMS_PRINT(3, "%s: ordered by %s\n", name.c_str(), sender);
  return "downloading";
}

/* ---- state words ---- */

const char *Poll() {
  bool early = ++order.polls <= behaviour.amount; /* which is 0 where it means nothing */
  const char *word = outcome;
  if (behaviour.kind == DIE && !early) {
    AMS_PRINT(4, "%s: dies, as it was told\n", order.name.c_str());
    _exit(EXIT_REFUSED);
  }
  bool hangs = behaviour.kind == HANG || behaviour.kind == HALT;
  if (word == nullptr || hangs || early) return "downloading";
  if (behaviour.kind == REJECT) return "fwchk_failed";
  if (behaviour.kind == FAIL) return "upg_failed";
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

}  // namespace

int order_patience = 60;

int AnswerSender(uint32_t id, const std::string &text) {
  char sender[TDS_NAME_SIZE];
  Sender(sender);
  return SynAckData_lib(text.c_str(), static_cast<uint32_t>(text.size()) + 1, id, sender);
}

void TakeOrder(int32_t, const void *data, uint32_t length) {
  std::string name;
  if (length == kRequestSize) name = NameIn(static_cast<const char *>(data));
  if (!name.empty()) MakeWay();
  if (name.empty()) {
    AMS_PRINT(4, "order refused: %u bytes; send %zu that are zero but for a file's name at %zu\n",
              length, kRequestSize, kRequestName);
    (void)AnswerSender(VERSION_ORDER,
                       "other_failed"); /* nothing was started for who does not wait */
  } else if (Occupied()) {
    (void)AnswerSender(VERSION_ORDER, "occupied");
  } else {
    const char *word = Start(name);
    if (AnswerSender(VERSION_ORDER, word) != 0 && order.runs) Abandon();
  }
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
  (void)AnswerSender(VERSION_STATE, word); /* an orderer that is gone is missed by the next order */
  if (behaviour.kind == HALT && order.runs && kill(behaviour.amount, SIGSTOP) != 0)
    AMS_PRINT(4, "process %d is not halted: %s\n", behaviour.amount, strerror(errno));
}

std::string OrderBehave(const std::string &how, int amount) {
  bool counts = how == "slow" || how == "die" || how == "halt";
  auto kind = std::find(std::begin(kKinds), std::end(kKinds), how);
  if (kind == std::end(kKinds))
    return "no such behaviour as \"" + how +
           "\": normal, occupied, slow N, reject, fail, hang, die N, halt PID";
  if (amount < (how == "halt" ? 1 : 0) || amount > (counts ? 1000000 : 0))
    return "slow and die take a number from 0 to 1000000, halt a process's, the others none";
  behaviour = {static_cast<Kind>(kind - std::begin(kKinds)), amount};
  return "";
}

Json OrderState() {
  return {{"behaviour", kKinds[behaviour.kind]},
          {"amount", behaviour.amount},
          {"occupied", Occupied()},
          {"orders", orders},
          {"runs", order.runs},
          {"name", order.name},
          {"orderer", order.orderer},
          {"polls", order.polls},
          {"word", order.word},
          {"flashed", ImageFlashed()}};
}
