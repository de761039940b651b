// Answers to requests; see dbmgr_request.h.
#include "dbmgr_request.h"

#include "ams_print.h"
#include "dbmgr_commands.h"
#include "dbmgr_watch.h"
#include "tds_desk.h"

void Answer(uint64_t client, const DbmgrAnswer &answer) {
  std::string bytes = DbmgrPutAnswer(answer);
  (void)tds_reply_held(client, bytes.data(),
                       static_cast<uint32_t>(bytes.size())); /* client gone: its loss */
  WatchAnswered(client, answer);
}

void Refuse(uint64_t client, const std::string &why) { Answer(client, {-1, DbmgrText::TEXT, why}); }

void RefuseWithoutMemory(uint64_t client) {
  static const char kAnswer[] =
      "\xff\xff\xff\xff\x01the data-base manager has no memory for it: ask again later";
  AMS_PRINT(5, "no memory for a request or its answer: the client is told to ask again");
  (void)tds_reply_held(client, kAnswer, sizeof kAnswer - 1);
  WatchAnswered(client, {-1, DbmgrText::TEXT, ""});
}

uint64_t ClientOf(const Request &request) {
  return request.whole == nullptr ? request.client : request.whole->client;
}

void HandOut(const Request &request, const DbmgrAnswer &answer) {
  if (request.whole == nullptr) return Answer(request.client, answer);
  Whole &whole = *request.whole;
  --whole.missing;
  if (whole.client == 0 || (answer.result >= 0 && whole.missing > 0)) return;
  Answer(whole.client, answer.result < 0 ? answer : ServeFromStore(whole.plan));
  whole.client = 0;
}

void HandOutWithoutMemory(const Request &request) {
  RefuseWithoutMemory(ClientOf(request));
  if (request.whole != nullptr) request.whole->client = 0;
}
