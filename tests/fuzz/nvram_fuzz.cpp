// The files of the settings on flash. The first byte tells the area, and what the rest is: a whole
// file, a copy, the settings of a file that is sound else, or the changes of a commit to it.
#include <algorithm>
#include <map>

#include "check.h"
#include "flash.h"

namespace {

using Settings = std::map<std::string, std::string>;

Settings Loaded(int area) {
  std::string settings;
  FlashEnd end;
  Check(FlashLoad(area, &settings, &end) == 0, "damage is told as an error");
  Settings loaded;
  std::string_view rest = settings, key, value;
  while (!rest.empty()) {
    Check(FlashNext(&rest, &key, &value), "what is loaded are no settings");
    Check(loaded.emplace(key, value).second, "a setting is loaded twice");
  }
  return loaded;
}

std::string NameOf(int area) { return "/var/nvram/area" + std::to_string(area); }

/* Whatever the file is: what is loaded stands in it. */
void LoadNamed(int area, const std::string &name, const std::string &file) {
  PutFile(name.c_str(), file);
  for (const auto &[key, value] : Loaded(area))
    Check(file.find(key) != file.npos && file.find(value) != file.npos,
          "what is loaded is not the file's");
}

void LoadFile(int area, const std::string &file) { LoadNamed(area, NameOf(area), file); }
void LoadCopy(int area, const std::string &file) { LoadNamed(area, NameOf(area) + ".1", file); }

/* Stores settings, then adds changes. */
void Store(int area, const std::string &settings, const std::string &changes) {
  FlashEnd end;
  int folder = FlashLock();
  Check(folder >= 0, "there is no lock");
  Check(FlashStore(area, settings, &end) == 0, "settings are not stored");
  Check(FlashAdd(area, changes, settings.size(), &end) == 0, "changes are not stored");
  FlashUnlock(folder);
}

/* Lays "KEY\0VALUE\0", or of changes "KEY\0=VALUE\0" and "KEY\0\0", over the model. False when one
   is none of them: then all of it is of no use. */
bool Lay(std::string_view text, bool changes, Settings *model) {
  Settings laid = *model;
  while (!text.empty()) {
    if (std::count(text.begin(), text.end(), '\0') < 2) return false;
    const std::string key(TakePiece(&text, '\0'));
    std::string value(TakePiece(&text, '\0'));
    const bool unset = changes && value.empty();
    if (key.empty() || key.size() > 400) return false;
    if (changes && !unset && value[0] != '=') return false;
    if (changes && !unset) value.erase(0, 1);
    if (value.size() > 32768) return false;
    laid[key] = value;
    if (unset) laid.erase(key);
  }
  *model = laid;
  return true;
}

void LoadSettings(int area, const std::string &settings) {
  Settings model;
  (void)Lay(settings, false, &model); /* else there are none */
  Store(area, settings, "");
  Check(Loaded(area) == model, "settings are read as others");
}

void LoadChanges(int area, const std::string &changes) {
  Settings model = {{"a", "b"}};
  (void)Lay(changes, true, &model); /* else they stay as they are */
  Store(area, std::string("a\0b\0", 4), changes);
  Check(Loaded(area) == model, "changed settings are read as others");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  int area = 1 + (data[0] & 1);
  void (*const parts[])(int, const std::string &) = {LoadFile, LoadSettings, LoadCopy, LoadChanges};
  parts[data[0] / 2 % 4](area, std::string(TextOf(data + 1, size - 1)));
  for (const char *name : {"", ".1", ".new", ".bad.1", ".bad.2", ".bad.3", ".bad.4"})
    (void)unlink((NameOf(area) + name).c_str()); /* most are not there */
  return 0;
}
