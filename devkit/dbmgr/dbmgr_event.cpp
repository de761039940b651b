// Events for watchers; see dbmgr_event.h.
#include "dbmgr_event.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <string_view>

#include "dbmgr_commands.h"
#include "escape.h"
#include "leaf_list.h"
#include "nodes.h"
#include "time_text.h"

namespace {

/* The op function of the node, or of the nearest above it that has one. */
std::string OpOf(std::string path) {
  for (;; path.erase(path.rfind('.'))) {
    const std::string op = Attribute(path, "op");
    if (!op.empty() || path.find('.') == path.npos) return op;
  }
}

std::string CommandName(uint32_t command) {
  const Command *row = FindCommand(command);
  return row != nullptr && row->command == command ? row->name : std::to_string(command);
}

/* Takes a text off the front of those that each end with a NUL. */
std::string TakeText(std::string_view *texts) {
  const std::string_view text = texts->substr(0, texts->find('\0'));
  texts->remove_prefix(std::min(texts->size(), text.size() + 1));
  return std::string(text);
}

Json Leaves(const Watched &event) {
  std::string_view before = event.before, after = event.after;
  Json leaves = Json::array();
  for (const std::string &path : event.paths)
    leaves.push_back({{"path", path}, {"before", TakeText(&before)}, {"after", TakeText(&after)}});
  return leaves;
}

std::string Modules(const Watched &event) {
  std::set<std::string> modules;
  std::string names;
  for (const Stay &stay : event.stays) modules.insert(stay.module);
  for (const std::string &name : modules) names += (names.empty() ? "" : ", ") + name;
  return names;
}

Json Notification(const Watched &event) {
  char id[16];
  std::string text = event.text;
  snprintf(id, sizeof id, "0x%x", event.command);
  if (!text.empty() && text.back() == '\0') text.pop_back(); /* it ends a text */
  return {{"kind", "notification"},
          {"time", TimeText(event.time)},
          {"publisher", event.client},
          {"id", id},
          {"text", Escaped(text)}};
}

}  // namespace

size_t EventBytes(const Watched &event) {
  size_t bytes = sizeof event + event.client.size() + event.path.size() + event.text.size() +
                 event.before.size() + event.after.size();
  for (const std::string &path : event.paths) bytes += path.size();
  return bytes;
}

bool EventIsBelow(const Watched &event, const std::vector<std::string> &paths) {
  if (paths.empty() || event.is_notification) return true;
  return std::any_of(paths.begin(), paths.end(), [&](const std::string &top) {
    return IsAtOrBelow(event.path, top) ||
           std::any_of(event.paths.begin(), event.paths.end(),
                       [&](const std::string &path) { return IsAtOrBelow(path, top); });
  });
}

bool WasAt(const Stay &stay, uint64_t time) {
  return time >= std::max(stay.begun, stay.sent) &&
         (stay.acknowledged == 0 || time <= stay.acknowledged);
}

double MsBetween(uint64_t begin, uint64_t end) {
  return std::round((static_cast<double>(end) - static_cast<double>(begin)) / 1e3) / 1e3;
}

Json EventJson(const Watched &event) {
  if (event.is_notification) return Notification(event);
  Json json = {
      {"kind", "request"}, {"time", TimeText(event.time)},          {"client", event.client},
      {"pid", event.pid},  {"command", CommandName(event.command)}, {"path", event.path}};
  if (!event.stays.empty()) json["module"] = Modules(event);
  if (event.stays.size() == 1) {
    const Stay &stay = event.stays[0];
    json["op"] = OpOf(event.path);
    json["queued_ms"] = MsBetween(event.begun, stay.begun);
    json["module_ms"] = MsBetween(stay.begun, stay.acknowledged);
  }
  if (!event.paths.empty()) json["leaves"] = Leaves(event);
  json["result"] = event.result < 0 ? "refused" : "done";
  if (!event.text.empty()) json["text"] = event.text;
  json["total_ms"] = MsBetween(event.begun, event.ended);
  return json;
}
