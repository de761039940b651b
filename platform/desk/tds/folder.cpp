// Serving anew what has lost its file; see folder.h.
#include "folder.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "ams_print.h"
#include "connections.h"
#include "endpoint.h"
#include "module.h"
#include "notify.h"
#include "wire.h"

namespace {

constexpr uint32_t kGone = IN_DELETE | IN_MOVED_FROM | IN_DELETE_SELF | IN_MOVE_SELF;
constexpr uint64_t kAgain = 1000; /* ms */

/* Who was about to come in by the old socket still does. 0, or -1 with errno. */
int ServeAgain(Module *module, size_t at) {
  int fd = WireListen(module->names[at].c_str());
  if (fd < 0) return -1;
  WatchKey key = ModuleWatch(module, WatchKind::LISTENER, fd);
  if (key == 0) {
    close(fd);
    return -1;
  }
  while (ConnectionAccept(module, WatchFd(module->listeners[at])) == 0) continue;
  close(WatchFd(module->listeners[at]));
  module->listeners[at] = key;
  AMS_PRINT(3, "%s was gone from %s, it is served anew", module->names[at].c_str(), kTdsFolder);
  return 0;
}

int ServeMissing(Module *module) {
  for (size_t at = 0; at < module->names.size(); ++at)
    if (!WireIsServed(module->names[at].c_str()) && ServeAgain(module, at) != 0) return -1;
  return inotify_add_watch(module->folder, kTdsFolder, kGone | IN_ONLYDIR) < 0 ? -1 : 0;
}

}  // namespace

void FolderWatch(Module *module) {
  module->folder = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
  if (module->folder >= 0 && ModuleWatch(module, WatchKind::FOLDER, module->folder) != 0 &&
      inotify_add_watch(module->folder, kTdsFolder, kGone | IN_ONLYDIR) >= 0)
    return;
  AMS_PRINT(3, "%s: if %s goes, nobody new reaches it: %s", module->name.c_str(), kTdsFolder,
            strerror(errno));
}

void FolderChanged(Module *module, int watch) {
  alignas(struct inotify_event) char events[4096];
  ssize_t size;
  while ((size = read(watch, events, sizeof events)) > 0)
    for (ssize_t at = 0; at < size;) {
      struct inotify_event event;
      memcpy(&event, events + at, sizeof event);
      at += static_cast<ssize_t>(sizeof event + event.len);
      if ((event.mask & IN_MOVE_SELF) != 0) (void)inotify_rm_watch(watch, event.wd); /* elsewhere */
    }
  FolderServe(module);
}

void FolderServe(Module *module) {
  const bool known = module->folder_gone;
  module->folder_gone = true; /* until all of it is done, also when memory for the rest lacks */
  TidyBy(module, MonotonicMs() + kAgain);
  if (ServeMissing(module) == 0 && NotifyAskAgain(module) == 0) {
    module->folder_gone = false;
    TidyNoLonger(module);
    return;
  }
  if (!known)
    AMS_PRINT(4, "%s: %s cannot be made anew: %s", module->name.c_str(), kTdsFolder,
              strerror(errno));
}
