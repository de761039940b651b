// Routing; see dbmgr_route.h.
#include "dbmgr_route.h"

#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include "ams_common_api.h"
#include "ams_store.h"
#include "appt_request.h"
#include "dbmgr_commands.h"
#include "dbmgr_queue.h"
#include "dbmgr_request.h"
#include "dbmgr_watch.h"
#include "leaf_list.h"
#include "nvram.h"
#include "store_desk.h"
#include "tds_desk.h"
#include "time_text.h"

namespace {

constexpr char kDamaged[] = "the request is damaged: is the client of this gateway?";

/* A request to each of the modules that the plan asks. */
void EnqueueParts(const Request &request) {
  auto whole =
      std::make_shared<Whole>(Whole{request.client, request.plan, request.plan.asks.size()});
  for (const Ask &ask : whole->plan.asks) {
    auto part = std::make_unique<Request>();
    part->plan.command = APPT_CMD_REFRESH;
    part->plan.module = ask.module;
    part->plan.url = ask.url;
    part->whole = whole;
    QueuePut(std::move(part));
  }
}

/* "name=value" and the separator, as a module answers for one leaf: the bare value. */
std::string_view BareValue(std::string_view text) {
  Leaf leaf = {};
  (void)NextLeaf(&text, &leaf); /* an empty text is an empty value */
  return leaf.has_value ? leaf.value : leaf.name;
}

/* The reply text of an acknowledgement, "" when it has none. Its NUL may be missing. */
std::string_view ReplyText(const void *data, uint32_t length) {
  std::string_view text(static_cast<const char *>(data) + APPT_ACK_HEAD_SIZE,
                        length - APPT_ACK_HEAD_SIZE);
  return text.substr(0, text.find('\0'));
}

/* The text of an answer, with room for the rest of the message. */
std::string AnswerText(std::string_view from) {
  std::string text;
  text.reserve(from.size() + kDbmgrAnswerTail);
  text.append(from);
  return text;
}

DbmgrAnswer AnswerOf(const Request &request, int32_t result, uint32_t code, std::string_view text) {
  const Plan &plan = request.plan;
  if (result < 0)
    return RefusedBy(plan.module, plan, Reason(tds_note(), kDaemonLog), std::string(text));
  if (code != APPT_CODE_RESULT_VALUE) {
    if ((FindCommand(plan.command)->traits & ANSWERS) == 0) return {result, DbmgrText::NONE, ""};
    return {-1, DbmgrText::TEXT,
            plan.module + " answered without the value of \"" +
                (plan.leaf.empty() ? plan.url : plan.leaf) +
                "\": " + Reason(tds_note(), kDaemonLog)};
  }
  if (plan.leaf.empty()) return {result, DbmgrText::TEXT, AnswerText(text)};
  return {result, DbmgrText::LEAF,
          AnswerText(plan.command == APPT_CMD_GET ? BareValue(text) : text)};
}

/* What the parameters' changes are noted under is who asked, not who did it. Without memory or room
   for that the module's name stands. */
void NoteWho(const Request &request) {
  for (const std::string &path : request.plan.paths)
    (void)ams_desk_changed_by(path.c_str(), request.who.c_str(), request.came);
}

/* Now, and who the sender of the message in work is. */
void TakeWho(Request *request) {
  char name[TDS_NAME_SIZE];
  Sender(name);
  request->who = std::string(name) + "[" + std::to_string(tds_sender_pid()) + "]";
  request->came = TimeMs();
}

/* A change goes to the flash, to the settings in use, to the tree. Whoever died between two of them
   left one that the next start would bring: the settings in use decide, before anybody is told what
   is. */
void FinishKeeping() {
  (void)nvram_commit(NVTYPE_STAGING); /* both log what they cannot do */
  (void)update_from_nvram(gptXmlTrees->root, NVTYPE_STAGING);
}

void Route(uint64_t client, const void *data, uint32_t length) {
  auto request = std::make_unique<Request>();
  Plan &plan = request->plan;
  DbmgrRequest asked;
  std::string why;
  request->client = client;
  if (DbmgrGetRequest(data, length, &asked) != 0) return Refuse(client, kDamaged);
  WatchBegun(client, asked);
  if (PlanRequest(std::move(asked), &plan, &why) != 0) return Refuse(client, why);
  WatchPlanned(client, plan);
  if (!plan.paths.empty()) TakeWho(request.get());
  if (!plan.module.empty()) return QueuePut(std::move(request));
  if (!plan.asks.empty()) return EnqueueParts(*request);
  plan.before = ValuesOf(plan.paths);
  DbmgrAnswer answer = ServeFromStore(plan);
  if (answer.result >= 0) NoteWho(*request);
  Answer(client, std::move(answer));
}

/* `work` with the token of the client's answer; without memory for it the client is refused. */
template <class Work>
void Held(Work work) {
  const uint64_t client = tds_hold_reply();
  if (client == 0) {
    AMS_PRINT(2, "a request that waits for no answer is dropped: use a synchronous message");
    return;
  }
  try {
    work(client);
  } catch (const std::bad_alloc &) {
    RefuseWithoutMemory(client);
  }
}

void Check(uint64_t client, const void *data, uint32_t length) {
  Plan plan;
  DbmgrRequest asked;
  std::string why = kDamaged;
  if (DbmgrGetRequest(data, length, &asked) != 0 || PlanRequest(std::move(asked), &plan, &why) != 0)
    return Refuse(client, why);
  Answer(client, {});
}

}  // namespace

void RouteRequest(int32_t, const void *data, uint32_t length) {
  Held([=](uint64_t client) { Route(client, data, length); });
}

void RouteCheck(int32_t, const void *data, uint32_t length) {
  Held([=](uint64_t client) { Check(client, data, length); });
}

void RouteWaits(int32_t, const void *data, uint32_t length) {
  Held([=](uint64_t client) {
    const std::string url(static_cast<const char *>(data), length);
    Answer(client, {0, DbmgrText::TEXT, QueueWaitsFor(url)});
  });
}

void RouteAcknowledgement(int32_t, const void *data, uint32_t length) {
  if (length < APPT_ACK_HEAD_SIZE) {
    AMS_PRINT(4, "an acknowledgement of %u bytes is dropped: its head has %d", length,
              APPT_ACK_HEAD_SIZE);
    return;
  }
  const char *bytes = static_cast<const char *>(data);
  uint32_t chain = appt_GetWord(bytes);
  const RequestPtr request = QueueTake(chain);
  if (request == nullptr) {
    AMS_PRINT(2, "an acknowledgement of 0X%x, which nobody waits for, is dropped", chain);
    return;
  }
  WatchAcknowledged(ClientOf(*request), request->plan.module);

  int32_t result = static_cast<int32_t>(appt_GetWord(bytes + APPT_AT_RESULT));
  if (result >= 0) NoteWho(*request);
  Finish(*request, [&] {
    return AnswerOf(*request, result, appt_GetWord(bytes + APPT_AT_CODE), ReplyText(data, length));
  });
  QueueAcknowledged(*request);
}

void RouteNoObject(int32_t, const void *data, uint32_t length) {
  /* The acknowledgement with -1 follows and answers the client. */
  if (length >= 4) AMS_PRINT(2, "the node of request 0X%x has no usable type", appt_GetWord(data));
}

void RoutePeerGone(int32_t, const void *data, uint32_t length) {
  std::string_view name(static_cast<const char *>(data), length);
  name = name.substr(0, name.find('\0'));
  if (!QueueServes(name)) return;
  FinishKeeping(); /* before clients hear of it */
  QueueGone(name);
}
