// Watching notifications; see dbmgr_notify.h.
#include "dbmgr_notify.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

#include "tds_desk.h"

namespace fs = std::filesystem;

namespace {

std::vector<std::pair<uint32_t, std::string>> asked; /* id and publisher */

bool IsAsked(uint32_t id, const std::string &publisher) {
  return std::find(asked.begin(), asked.end(), std::make_pair(id, publisher)) != asked.end();
}

/* A folder "PUBLISHER/ID", the id in hexadecimal, with a file for each who has asked. */
void AskLike(const fs::path &folder) {
  uint32_t id = 0;
  const std::string name = folder.filename(), publisher = folder.parent_path().filename();
  const char *end = name.data() + name.size();
  const auto [behind, error] = std::from_chars(name.data(), end, id, 16);
  if (behind != end || error != std::errc() || IsAsked(id, publisher)) return;
  if (TDS_RegisterNotifyList(id, publisher.c_str()) == 0) asked.emplace_back(id, publisher);
}

/* What goes while it is looked at is not there. */
template <class Look>
void ForEach(const fs::path &folder, Look look) {
  std::error_code gone;
  for (fs::directory_iterator at(folder, gone), end; at != end; at.increment(gone))
    look(at->path());
}

}  // namespace

void NotifyWatch() {
  ForEach(std::string(kTdsFolder) + "/notify",
          [](const fs::path &publisher) { ForEach(publisher, AskLike); });
}

void NotifyWatchEnd() {
  for (const auto &[id, publisher] : asked) tds_forget_notify(id, publisher.c_str());
  asked.clear();
}

bool NotifyIsWatched(uint32_t id, const char *publisher) {
  if (IsAsked(id, publisher)) return true;
  tds_forget_notify(id, publisher); /* an earlier run of ours has asked, and died */
  return false;
}
