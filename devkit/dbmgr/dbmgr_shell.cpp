// Command lines and their times; see dbmgr_shell.h.
#include "dbmgr_shell.h"

#include <charconv>
#include <deque>
#include <system_error>

#include "log_file.h"

namespace {

constexpr size_t kRunsMax = 2000;
constexpr size_t kReadMax = 1024 * 1024; /* bytes at a time */

std::deque<CommandRun> runs;
uint64_t offset; /* of what was read */

/* "TIME LINE", the time in nanoseconds. */
void Add(const std::string &line) {
  uint64_t at = 0;
  const char *end = line.data() + line.size();
  const auto [behind, error] = std::from_chars(line.data(), end, at);
  if (error != std::errc() || behind == end || *behind != ' ') return;
  runs.push_back({at, std::string(behind + 1, end)});
  if (runs.size() > kRunsMax) runs.pop_front();
}

}  // namespace

void CommandsBegin() { offset = FileSize(kCommandTimes); }

void CommandsEnd() { runs.clear(); }

/* Line by line: the end of one that is being written comes with the next look. */
void CommandsRead() {
  for (std::string text; !(text = AppendedSince(kCommandTimes, offset, kReadMax)).empty();) {
    size_t begin = 0;
    for (size_t end; (end = text.find('\n', begin)) != text.npos; begin = end + 1)
      Add(text.substr(begin, end - begin));
    if (begin == 0 && text.size() == kReadMax) begin = text.size(); /* nobody starts such a line */
    if (begin == 0) return;
    offset += begin;
  }
}

std::vector<CommandRun> CommandsBetween(uint64_t begin, uint64_t end) {
  std::vector<CommandRun> found;
  for (const CommandRun &run : runs)
    if (run.at >= begin && run.at <= end) found.push_back(run);
  return found;
}
