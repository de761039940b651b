// Notifications; see notify.h. Who wants what is a tree of empty files, publisher/id/subscriber, so
// that it holds whichever side starts first and outlives both.
#include "notify.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "ams_print.h"
#include "endpoint.h"
#include "module.h"
#include "wire.h"

namespace {

std::string NotifyFolder(const std::string &publisher, uint32_t id) {
  char number[16];
  snprintf(number, sizeof(number), "/%x", id);
  return std::string(kTdsFolder) + "/notify/" + publisher + number;
}

/* Makes every folder of the path below the runtime's own. */
bool MakeFolders(const std::string &folder) {
  for (size_t end = strlen(kTdsFolder); end != std::string::npos; end = folder.find('/', end + 1))
    if (mkdir(folder.substr(0, end).c_str(), 0700) != 0 && errno != EEXIST) return false;
  return mkdir(folder.c_str(), 0700) == 0 || errno == EEXIST;
}

/* 0 or -1 (logged). */
int MakeFile(uint32_t id, const std::string &publisher) {
  const std::string folder = NotifyFolder(publisher, id);
  int fd = -1;
  if (MakeFolders(folder))
    fd = open((folder + "/" + ThreadName(ThisThread())).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC,
              0600);
  if (fd < 0) {
    AMS_PRINT(4, "TDS_RegisterNotifyList: %s: %s", folder.c_str(), strerror(errno));
    return -1;
  }
  close(fd);
  return 0;
}

int Register(uint32_t id, const char *publisher) {
  if (ThisThread()->module == nullptr || !WireNameFits(publisher)) {
    AMS_PRINT(
        4, "TDS_RegisterNotifyList: %s",
        publisher == nullptr ? "no publisher" : "a module thread and a plain name are needed");
    return -1;
  }
  std::vector<std::pair<uint32_t, std::string>> &asked = ThisThread()->module->asked;
  const std::pair<uint32_t, std::string> wanted(id, publisher);
  if (MakeFile(id, wanted.second) != 0) return -1;
  if (std::find(asked.begin(), asked.end(), wanted) == asked.end()) asked.push_back(wanted);
  return 0;
}

int Notify(uint32_t id, const void *data, uint32_t len) {
  const Module *module = ThisThread()->module;
  const std::string &own = ThreadName(ThisThread());
  int result = 0;
  if (module != nullptr && ModuleRow(module, id) != nullptr)
    result = SendMsg(id, data, len, own.c_str());
  const std::string name = NotifyFolder(own, id);
  DIR *folder = opendir(name.c_str());
  if (folder == nullptr) {
    if (errno == ENOENT) return result; /* nobody has asked yet */
    AMS_PRINT(4, "TDS_NotifyRegistrant: %s: %s, nobody else is told", name.c_str(),
              strerror(errno));
    return -1;
  }
  while (const struct dirent *entry = readdir(folder))
    if (entry->d_name[0] != '.' && own != entry->d_name)
      (void)SendMsg(id, data, len, entry->d_name); /* logged there; the others still get theirs */
  closedir(folder);
  return result;
}

/* The result of `work`, or -1 (logged) when there is no memory for it. */
template <class Work>
int Logged(const char *call, Work work) {
  try {
    return work();
  } catch (const std::bad_alloc &) {
    AMS_PRINT(4, "%s: %s", call, strerror(ENOMEM));
    return -1;
  }
}

}  // namespace

int NotifyAskAgain(Module *module) {
  int result = 0;
  for (const auto &[id, publisher] : module->asked)
    if (MakeFile(id, publisher) != 0) result = -1;
  return result;
}

int TDS_RegisterNotifyList(uint32_t id, const char *publisher) {
  return Logged("TDS_RegisterNotifyList", [=] { return Register(id, publisher); });
}

void tds_forget_notify(uint32_t id, const char *publisher) {
  Module *module = ThisThread()->module;
  if (module == nullptr || !WireNameFits(publisher)) return;
  std::vector<std::pair<uint32_t, std::string>> &asked = module->asked;
  asked.erase(std::remove(asked.begin(), asked.end(), std::make_pair(id, std::string(publisher))),
              asked.end());
  (void)unlink((NotifyFolder(publisher, id) + "/" + module->name).c_str()); /* where there is one */
}

int TDS_NotifyRegistrant(uint32_t id, const void *data, uint32_t len) {
  return Logged("TDS_NotifyRegistrant", [=] { return Notify(id, data, len); });
}
