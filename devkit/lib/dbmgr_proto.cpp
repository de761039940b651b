// Coding and bounded decoding of the messages; see dbmgr_proto.h.
#include "dbmgr_proto.h"

#include <string_view>
#include <utility>

#include "tds.h"

namespace {

void CodeNumber(uint32_t number, size_t width, char *coded) {
  for (size_t i = 0; i < width; ++i) coded[i] = static_cast<char>(number >> (8 * i));
}

void PutNumber(std::string *bytes, uint32_t number, size_t width) {
  char coded[sizeof number];
  CodeNumber(number, width, coded);
  bytes->append(coded, width);
}

/* Takes a number of `width` bytes off the front. False when there are not that many. */
bool TakeNumber(std::string_view *bytes, size_t width, uint32_t *number) {
  if (bytes->size() < width) return false;
  *number = 0;
  for (size_t i = 0; i < width; ++i)
    *number |= static_cast<uint32_t>(static_cast<uint8_t>((*bytes)[i])) << (8 * i);
  bytes->remove_prefix(width);
  return true;
}

/* Takes a text with its length in front. A NUL inside is refused: the store's calls end there. */
bool TakeText(std::string_view *bytes, size_t width, std::string *text) {
  uint32_t length;
  if (!TakeNumber(bytes, width, &length) || length > bytes->size()) return false;
  *text = std::string(bytes->substr(0, length));
  bytes->remove_prefix(length);
  return text->find('\0') == std::string::npos;
}

}  // namespace

std::string DbmgrPutRequest(const DbmgrRequest &request) {
  std::string bytes;
  PutNumber(&bytes, request.command, 4);
  PutNumber(&bytes, static_cast<uint32_t>(request.url.size()), 2);
  bytes += request.url;
  PutNumber(&bytes, static_cast<uint32_t>(request.value.size()), 4);
  return bytes + request.value;
}

void DbmgrFit(DbmgrAnswer *answer) {
  constexpr size_t kMost = TDS_PAYLOAD_MAX - kDbmgrAnswerTail;
  if (answer->text.size() <= kMost) return;
  *answer = {-1, DbmgrText::TEXT,
             "the answer has " + std::to_string(answer->text.size()) +
                 " bytes, a message carries " + std::to_string(kMost) + ": ask for parts of it"};
}

std::string DbmgrPutAnswer(DbmgrAnswer answer) {
  char tail[kDbmgrAnswerTail];
  CodeNumber(static_cast<uint32_t>(answer.result), 4, tail);
  CodeNumber(static_cast<uint32_t>(answer.kind), 1, tail + 4);
  answer.text.append(tail, sizeof tail);
  return std::move(answer.text);
}

int DbmgrGetRequest(const void *data, size_t length, DbmgrRequest *request) {
  std::string_view bytes(static_cast<const char *>(data), length);
  bool good = TakeNumber(&bytes, 4, &request->command) && TakeText(&bytes, 2, &request->url) &&
              TakeText(&bytes, 4, &request->value) && bytes.empty();
  return good ? 0 : -1;
}

int DbmgrGetAnswer(std::string bytes, DbmgrAnswer *answer) {
  if (bytes.size() < kDbmgrAnswerTail) return -1;
  const size_t length = bytes.size() - kDbmgrAnswerTail;
  std::string_view tail = std::string_view(bytes).substr(length);
  uint32_t result, kind;
  if (!TakeNumber(&tail, 4, &result) || !TakeNumber(&tail, 1, &kind)) return -1;
  if (kind > static_cast<uint32_t>(DbmgrText::LEAF)) return -1;
  bytes.resize(length);
  answer->result = static_cast<int32_t>(result);
  answer->kind = static_cast<DbmgrText>(kind);
  answer->text = std::move(bytes);
  return 0;
}
