// What clients and the data-base manager say to each other, and the forms of values. The first byte
// tells which of them the rest is.
#include "check.h"
#include "dbmgr_forms.h"
#include "dbmgr_proto.h"
#include "watch.h"

namespace {

/* What is a message is put together as the same bytes. */
void Request(const std::string &bytes) {
  DbmgrRequest request;
  if (DbmgrGetRequest(bytes.data(), bytes.size(), &request) != 0) return;
  Check(DbmgrPutRequest(request) == bytes, "a request changes");
}

void Answer(const std::string &bytes) {
  DbmgrAnswer answer;
  if (DbmgrGetAnswer(bytes, &answer) != 0) return;
  Check(DbmgrPutAnswer(answer) == bytes, "an answer changes");
}

/* Whatever the leaf: what is taken keeps to one line, and quotes, expands and redirects nothing. */
void Value(const std::string &bytes) {
  for (const char *form :
       {"port", "port list", "numbers", "service code", "path", "name", "text", "address", "range",
        "interface", "url", "boolean", "int", "unsignedInt", "dateTime"}) {
    std::string value = bytes, why;
    const bool type = strstr("boolean int unsignedInt dateTime", form) != nullptr;
    AmsDeskLeaf leaf = {"A.B", type ? form : "string", type ? "" : form, "", "40", "", true};
    if (CheckValue(leaf, &value, &why) != 0) {
      Check(!why.empty() && why.find('\n') == why.npos, "why it is refused is not one line");
      continue;
    }
    Check(type || value.size() <= 40, "a value that is too long is taken");
    for (char byte : value)
      Check(byte >= ' ' && byte <= '~' &&
                (strchr("\"'`$\\<>|&(){}!", byte) == nullptr ||
                 (byte == '&' && strcmp(form, "url") == 0)), /* in single quotes, as all urls are */
            "a byte that means something to a shell is taken");
    Check(value.empty() || value[0] != '-' || strstr("int", form) != nullptr,
          "a value that is an option is taken");
  }
}

/* What is a question, or an answer, stays so when it is put together again. */
void Watch(const std::string &bytes) {
  WatchPlace place, place_again;
  std::vector<std::string> paths, paths_again;
  if (WatchGetQuestion(bytes, &place, &paths)) {
    const std::string again = WatchQuestion(place, paths);
    Check(WatchGetQuestion(again, &place_again, &paths_again) && place_again.run == place.run &&
              place_again.next == place.next && paths_again.size() == paths.size(),
          "a question changes");
  }
  WatchNews news, news_again;
  if (WatchGetAnswer(bytes, &news))
    Check(WatchGetAnswer(WatchAnswer(news), &news_again) &&
              news_again.events.size() == news.events.size() && news_again.missed == news.missed,
          "an answer changes");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  void (*const parts[])(const std::string &) = {Request, Answer, Value, Watch};
  parts[data[0] % 4](std::string(TextOf(data + 1, size - 1)));
  return 0;
}
