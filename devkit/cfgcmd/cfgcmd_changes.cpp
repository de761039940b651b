// Verbs of the change list: which nodes are on it, and what is there.
#include "ams_store.h"
#include "cfgcmd_paths.h"
#include "cfgcmd_print.h"
#include "store_desk.h"
#include "time_text.h"

namespace {

Outcome Notify(const Words &words, const Options &options) {
  if (words[1] != "on" && words[1] != "off") return {EXIT_USAGE, "it is \"on\" or \"off\""};
  if (!AttachStore()) return kNoStore;
  const std::string path = FullPath(words[0], options.base);
  const char *mark = words[1] == "on" ? "1" : "0";
  if (ams_check_node(gptXmlTrees->root, path.c_str()) != 0) return {EXIT_REFUSED, WrongPath(path)};
  if (ams_set_attr(gptXmlTrees->root, path.c_str(), mark) == 0) return {};
  return {EXIT_REFUSED,
          "the mark of \"" + path + "\" cannot be kept: make room in /dev/shm and /var/nvram"};
}

/* One that was taken back is none. */
void Add(const AmsDeskChange &change, void *context) {
  if (change.before == change.now) return;
  static_cast<Json *>(context)->push_back({{"path", change.path},
                                           {"before", change.before},
                                           {"now", change.now},
                                           {"who", change.who},
                                           {"time", TimeText(change.time)}});
}

Outcome Changes(const Words &, const Options &options) {
  if (!AttachStore()) return kNoStore;
  Json list = Json::array();
  if (ams_desk_changes(Add, &list) != 0) throw std::bad_alloc();
  if (options.json) return {EXIT_DONE, JsonText(list)};
  std::string text;
  for (const Json &change : list) {
    auto word = [&](const char *name) { return change[name].get<std::string>(); };
    text += word("path") + ": \"" + word("before") + "\" -> \"" + word("now") + "\", " +
            word("time") + " by " + word("who") + "\n";
  }
  return {EXIT_DONE, text};
}

}  // namespace

const Verb kChangeVerbs[] = {
    {"notify", "PATH on|off", "Whether changes of a parameter go to the change list", 2, 2, false,
     true, Notify},
    {"changes", "", "The change list: what changed first, when and by whom, until it is read", 0, 0,
     false, true, Changes},
    {},
};
