// Answers to requests; see dbmgr_request.h.
#include "dbmgr_request.h"

#include <string_view>
#include <utility>

#include "ams_print.h"
#include "dbmgr_commands.h"
#include "dbmgr_timers.h"
#include "dbmgr_watch.h"
#include "tds_desk.h"

namespace {

constexpr size_t kLarge = 1024 * 1024; /* bytes; of less the heap keeps little */
constexpr uint32_t kGiveBackMs = 1000; /* who asks again at once finds the memory in place */

/* Made while there is memory. */
const std::string kNoMemory = DbmgrPutAnswer(
    {-1, DbmgrText::TEXT,
     "the data-base manager has no memory for it or its answer: look what is there, ask again"});

}  // namespace

void Answer(uint64_t client, DbmgrAnswer &&answer) {
  DbmgrFit(&answer);
  const int32_t result = answer.result;
  const std::string bytes = DbmgrPutAnswer(std::move(answer));
  (void)tds_reply_held(client, bytes.data(),
                       static_cast<uint32_t>(bytes.size())); /* client gone: its loss */
  WatchAnswered(client, result, std::string_view(bytes).substr(0, bytes.size() - kDbmgrAnswerTail));
  if (bytes.size() >= kLarge)
    (void)SetTimer(GIVE_BACK_TIMER, kGiveBackMs); /* of this module: cannot fail */
}

void GiveBack(int32_t, const void *, uint32_t) { tds_give_back(); }

void Refuse(uint64_t client, const std::string &why) { Answer(client, {-1, DbmgrText::TEXT, why}); }

void RefuseWithoutMemory(uint64_t client) {
  AMS_PRINT(5, "no memory for a request or its answer: the client is told to ask again");
  (void)tds_reply_held(client, kNoMemory.data(), static_cast<uint32_t>(kNoMemory.size()));
  WatchAnswered(client, -1, "");
}

uint64_t ClientOf(const Request &request) {
  return request.whole == nullptr ? request.client : request.whole->client;
}

void HandOut(const Request &request, DbmgrAnswer &&answer) {
  if (request.whole == nullptr) return Answer(request.client, std::move(answer));
  Whole &whole = *request.whole;
  --whole.missing;
  if (whole.client == 0 || (answer.result >= 0 && whole.missing > 0)) return;
  Answer(whole.client, answer.result < 0 ? std::move(answer) : ServeFromStore(whole.plan));
  whole.client = 0;
}

void HandOutWithoutMemory(const Request &request) {
  RefuseWithoutMemory(ClientOf(request));
  if (request.whole != nullptr) request.whole->client = 0;
}
