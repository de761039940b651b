// What clients and the data-base manager say to each other, the forms of values, and what it reads
// of others in the file system: times of command lines, folders of notifications. The first byte
// tells which of them the rest is.
#include <algorithm>
#include <cctype>
#include <filesystem>
#include <set>
#include <system_error>
#include <utility>
#include <vector>

#include "check.h"
#include "dbmgr_forms.h"
#include "dbmgr_notify.h"
#include "dbmgr_proto.h"
#include "dbmgr_shell.h"
#include "log_file.h"
#include "tds_desk.h"
#include "watch.h"

namespace fs = std::filesystem;

namespace {

const fs::path kNotify = fs::path(kTdsFolder) / "notify";
using Notifications = std::set<std::pair<uint32_t, std::string>>; /* id and publisher */
Notifications asked;                                              /* of the runtime */
size_t asks;

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

/* The file grows by the bytes, in as many pieces. */
std::vector<std::pair<uint64_t, std::string>> RunsIn(const std::string &bytes, size_t pieces) {
  PutFile(kCommandTimes, "");
  CommandsBegin();
  for (size_t piece = 1; piece <= pieces; ++piece) {
    PutFile(kCommandTimes, bytes.substr(0, bytes.size() * piece / pieces));
    CommandsRead();
  }
  std::vector<std::pair<uint64_t, std::string>> runs;
  for (const CommandRun &run : CommandsBetween(0, UINT64_MAX)) runs.emplace_back(run.at, run.line);
  CommandsEnd();
  return runs;
}

/* Each whole line "DIGITS TEXT" is a run, in their order; each run is what stands behind the blank
   of a line. */
void CommandTimes(const std::string &bytes) {
  const auto runs = RunsIn(bytes, 1);
  auto run = runs.begin();
  size_t lines = 0;
  for (size_t begin = 0, end; (end = bytes.find('\n', begin)) != bytes.npos; begin = end + 1) {
    const std::string line = bytes.substr(begin, end - begin);
    const size_t digits = std::min(line.find_first_not_of("0123456789"), line.size());
    ++lines;
    if (digits == 0 || digits > 19 || line[digits] != ' ') continue;
    const std::pair<uint64_t, std::string> wanted = {std::stoull(line), line.substr(digits + 1)};
    run = std::find(run, runs.end(), wanted);
    Check(run++ != runs.end(), "a line is no run, or not in its order");
  }
  Check(runs.size() <= lines, "more runs than lines");
  for (const auto &[at, text] : runs)
    Check(bytes.find(' ' + text) != bytes.npos, "a run that no line is");
  Check(runs == RunsIn(bytes, 3), "what is read piece by piece is another thing");
}

/* Of a folder that can be. */
bool IsName(const std::string &name) {
  return !name.empty() && name.size() < 256 && name != "." && name != ".." &&
         name.find_first_of(std::string_view("/\0", 2)) == name.npos;
}

bool IsId(const std::string &name) {
  const size_t zeros = std::min(name.find_first_not_of('0'), name.size());
  return name.size() - zeros <= 8 &&
         std::all_of(name.begin(), name.end(), [](unsigned char c) { return isxdigit(c) != 0; });
}

/* Makes the folders of lines "PUBLISHER/ID"; the notifications that they are. */
Notifications MakeFolders(std::string_view lines) {
  Notifications made;
  while (!lines.empty()) {
    std::string_view line = TakePiece(&lines, '\n');
    const std::string publisher(TakePiece(&line, '/')), id(line);
    if (!IsName(publisher) || !IsName(id)) continue;
    fs::create_directories(kNotify / publisher / id);
    if (IsId(id)) made.emplace(static_cast<uint32_t>(std::stoul(id, nullptr, 16)), publisher);
  }
  return made;
}

/* Each notification is asked for once, and nothing else is; then all are forgotten. */
void NotifyFolders(const std::string &bytes) {
  const Notifications made = MakeFolders(bytes);
  asks = 0;
  NotifyWatch();
  NotifyWatch();
  Check(asked == made, "other notifications are asked for than there are");
  Check(asks == made.size(), "one is asked for again");
  for (const auto &[id, publisher] : made)
    Check(NotifyIsWatched(id, publisher.c_str()), "what was asked for is not watched");
  NotifyWatchEnd();
  Check(asked.empty(), "one is not forgotten");
  fs::remove_all(kNotify);
}

}  // namespace

WRAPPED(int, TDS_RegisterNotifyList, uint32_t id, const char *publisher) {
  ++asks;
  asked.emplace(id, publisher);
  return 0;
}
/* tds_forget_notify, by its linker's name. */
WRAPPED(void, _Z17tds_forget_notifyjPKc, uint32_t id, const char *publisher) {
  asked.erase({id, publisher});
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  void (*const parts[])(const std::string &) = {Request, Answer,       Value,
                                                Watch,   CommandTimes, NotifyFolders};
  parts[data[0] % 6](std::string(TextOf(data + 1, size - 1)));
  return 0;
}
