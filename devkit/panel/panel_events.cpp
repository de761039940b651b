// Events; see panel_events.h.
#include "panel_events.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>

#include "parse.h"

namespace {

constexpr size_t kAtOnce = 64 * 1024; /* bytes written to a page in one go */

std::mutex mutex;
std::condition_variable added;
std::deque<std::string> kept; /* as JSON */
size_t kept_bytes = 0;
int64_t first = 1; /* number of kept.front() */
size_t readers = 0;

}  // namespace

struct EventReader {
  int64_t next = 1; /* number of the event that it wants */

  EventReader() = default;
  EventReader(const EventReader &) = delete;
  EventReader &operator=(const EventReader &) = delete;
  ~EventReader() {
    std::lock_guard<std::mutex> lock(mutex);
    --readers;
  }
};

void EventAdd(const Json &event) {
  std::string text = ControlBytes(event);
  std::lock_guard<std::mutex> lock(mutex);
  kept_bytes += text.size();
  kept.push_back(std::move(text));
  while (kept.size() > 1 && (kept.size() > kEventsKept || kept_bytes > kEventsBytes)) {
    kept_bytes -= kept.front().size();
    kept.pop_front();
    ++first;
  }
  added.notify_all();
}

std::shared_ptr<EventReader> EventsRead(const std::string &after) {
  int64_t last = 0;
  (void)ParseDecimal(after, 0, INT64_MAX - 1, &last); /* else all that is kept */
  std::lock_guard<std::mutex> lock(mutex);
  if (readers >= kEventReaders) return nullptr;
  auto reader = std::make_shared<EventReader>();
  ++readers;
  const int64_t end = first + static_cast<int64_t>(kept.size());
  reader->next = last < end ? last + 1 : 1; /* a number from before this start means nothing */
  return reader;
}

std::string EventsNext(EventReader *reader) {
  std::unique_lock<std::mutex> lock(mutex);
  auto end = [] { return first + static_cast<int64_t>(kept.size()); };
  if (!added.wait_for(lock, std::chrono::seconds(10), [&] { return reader->next < end(); }))
    return ": nothing new\n\n";
  std::string text;
  if (reader->next < first) {
    if (reader->next > 1)
      text =
          "data: {\"kind\":\"missed\",\"count\":" + std::to_string(first - reader->next) + "}\n\n";
    reader->next = first;
  }
  for (; reader->next < end() && text.size() < kAtOnce; ++reader->next)
    text += "id: " + std::to_string(reader->next) +
            "\ndata: " + kept[static_cast<size_t>(reader->next - first)] + "\n\n";
  return text;
}

bool EventsWanted() {
  std::lock_guard<std::mutex> lock(mutex);
  return readers > 0;
}
