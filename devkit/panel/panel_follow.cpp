// Following what passes; see panel_follow.h.
#include "panel_follow.h"

#include <chrono>
#include <thread>

#include "panel_events.h"
#include "panel_health.h"
#include "requests.h"
#include "watch.h"

namespace {

constexpr auto kAgain = std::chrono::milliseconds(100); /* without a page, or a dbmgr */

bool Ask(WatchNews *news) {
  std::string reply;
  const std::string question = WatchQuestion(news->place, {});
  return Call(kDbmgrName, kDbmgrWatch, question, kUsualLimit, &reply).status == EXIT_DONE &&
         WatchGetAnswer(reply, news);
}

void Show(const WatchNews &news) {
  if (news.missed > 0) EventAdd({{"kind", "missed"}, {"count", news.missed}});
  for (const Json &event : news.events) {
    if (event.contains("total_ms") && event["total_ms"].is_number()) HealthCount(event["total_ms"]);
    EventAdd(event);
  }
}

}  // namespace

void FollowForEver() {
  for (WatchNews news;;) {
    if (EventsWanted() && Ask(&news)) {
      Show(news);
    } else {
      news.place = {}; /* what passed meanwhile is nobody's */
      std::this_thread::sleep_for(kAgain);
    }
  }
}
