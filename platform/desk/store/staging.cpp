// The staging sources: files of "path=value" lines that become the kept parameters of nvram area 1.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ams_print.h"
#include "ams_store.h"
#include "keep.h"
#include "nvram.h"
#include "tree.h"

namespace {

/* When the parameters that are kept already are dropped before a source is laid in. */
enum Drop { DROP_NEVER, DROP_ALWAYS, DROP_IF_ANY };

struct StagingSource {
  int number;
  const char *file;
  Drop drop;
};

const StagingSource kSources[] = {
    {0, "/etc/staging/factory.conf", DROP_ALWAYS},
    {2, "/etc/staging/customer.conf", DROP_NEVER},
    {3, "/var/config/backup.conf", DROP_IF_ANY},
    {4, "/etc/staging/burnt_image.conf", DROP_NEVER},
};

using Entries = std::vector<std::pair<std::string, std::string>>;

constexpr size_t kLineMax = NVRAM_KEY_MAX + 1 + AMS_VALUE_MAX;

const StagingSource *FindSource(int number) {
  for (const StagingSource &source : kSources)
    if (source.number == number) return &source;
  return nullptr;
}

/* What is wrong with a line, or NULL; the entry it makes goes to `entries`. */
const char *ReadLine(std::string_view line, Entries *entries) {
  size_t equals = line.find('=');
  if (line.empty() || line[0] == '#') return nullptr;
  if (equals == std::string_view::npos) return "has no \"=\"";
  if (equals == 0 || equals > NVRAM_KEY_MAX)
    return "needs a path of 1 to 400 bytes before the \"=\"";
  if (line.size() > kLineMax || line.size() - equals - 1 > AMS_VALUE_MAX)
    return "has a value of more than 32768 bytes";
  if (line.find('\0') != std::string_view::npos) return "holds a zero byte";
  entries->emplace_back(line.substr(0, equals), line.substr(equals + 1));
  return nullptr;
}

int CannotRead(const char *path) {
  AMS_PRINT(4, "store: cannot read %s: %s\n", path, strerror(errno));
  return -1;
}

/* A bad line is named and passed over. 0, also without the file, or -1 (logged). */
int ReadSource(const char *path, Entries *entries) {
  std::unique_ptr<FILE, int (*)(FILE *)> file(fopen(path, "re"), fclose);
  if (file == nullptr) return errno == ENOENT ? 0 : CannotRead(path);
  struct Text {
    char *bytes = nullptr;
    ~Text() { free(bytes); }
  } text;
  size_t room = 0;
  ssize_t length;
  for (int number = 1; (length = getline(&text.bytes, &room, file.get())) >= 0; ++number) {
    std::string_view line(text.bytes, static_cast<size_t>(length));
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
    const char *wrong = ReadLine(line, entries);
    if (wrong != nullptr)
      AMS_PRINT(4, "store: %s:%d passed over: the line %s\n", path, number, wrong);
  }
  return feof(file.get()) != 0 ? 0 : CannotRead(path);
}

int Unset(const char *key, const char *, void *) { return nvram_unset(key, NVTYPE_STAGING); }

/* The kept parameters with their list of changes; of a gateway that is to be as new the marks, too.
 */
int DropKept(Drop drop) {
  const std::string below = std::string(kRootName) + ".";
  for (const char *prefix : {below.c_str(), kKeptChanges, kKeptNotify})
    if ((prefix != kKeptNotify || drop == DROP_ALWAYS) &&
        nvram_walk(NVTYPE_STAGING, prefix, Unset, nullptr) != 0)
      return -1;
  return 0;
}

}  // namespace

int ams_mxml_load_to_staging(int number) {
  const StagingSource *source = FindSource(number);
  if (source == nullptr) {
    AMS_PRINT(4, "store: there is no staging source %d\n", number);
    return -1;
  }
  Entries entries;
  if (ReadSource(source->file, &entries) != 0) return -1; /* half of it is none of it */
  bool drop = source->drop == DROP_ALWAYS || (source->drop == DROP_IF_ANY && !entries.empty());
  if (drop && DropKept(source->drop) != 0) return -1;
  for (const auto &entry : entries)
    if (nvram_set(entry.first.c_str(), entry.second.c_str(), NVTYPE_STAGING) != 0) return -1;
  if ((drop || !entries.empty()) && nvram_commit(NVTYPE_STAGING) != 0) return -1;
  if (!entries.empty()) return 0;
  printf("staging source %d (%s) has nothing\n", number, source->file);
  return -1;
}
