// Coding and checked decoding of questions and answers; see watch.h.
#include "watch.h"

#include <algorithm>

namespace {

constexpr size_t kPathsMax = 64, kPathMax = 255;

/* The object in the bytes; null: there is none. */
Json ObjectIn(const std::string &bytes) {
  Json json = JsonIn(bytes);
  return json.is_object() ? json : Json();
}

bool TakeNumber(const Json &object, const char *name, uint64_t *number) {
  const auto found = object.find(name);
  if (found == object.end() || !found->is_number_unsigned()) return false;
  *number = *found;
  return true;
}

bool TakePlace(const Json &object, WatchPlace *place) {
  return TakeNumber(object, "run", &place->run) && TakeNumber(object, "next", &place->next);
}

bool IsPath(const Json &word) {
  return word.is_string() && word.get_ref<const std::string &>().size() <= kPathMax;
}

}  // namespace

std::string WatchQuestion(const WatchPlace &place, const std::vector<std::string> &paths) {
  return ControlBytes({{"run", place.run}, {"next", place.next}, {"paths", paths}});
}

bool WatchGetQuestion(const std::string &bytes, WatchPlace *place,
                      std::vector<std::string> *paths) {
  const Json question = ObjectIn(bytes);
  if (question.is_null() || !TakePlace(question, place)) return false;
  const auto list = question.find("paths");
  if (list == question.end() || !list->is_array() || list->size() > kPathsMax ||
      !std::all_of(list->begin(), list->end(), IsPath))
    return false;
  *paths = list->get<std::vector<std::string>>();
  return true;
}

std::string WatchAnswer(const WatchNews &news) {
  return ControlBytes({{"run", news.place.run},
                       {"next", news.place.next},
                       {"missed", news.missed},
                       {"events", news.events}});
}

bool WatchGetAnswer(const std::string &bytes, WatchNews *news) {
  Json answer = ObjectIn(bytes);
  if (answer.is_null() || !TakePlace(answer, &news->place) ||
      !TakeNumber(answer, "missed", &news->missed))
    return false;
  const auto events = answer.find("events");
  if (events == answer.end() || !events->is_array() ||
      !std::all_of(events->begin(), events->end(), [](const Json &each) {
        return each.is_object() && each.contains("kind") && each["kind"].is_string();
      }))
    return false;
  news->events = std::move(*events);
  return true;
}
