// The folder of the sockets' files: when it goes, or a file of the module's in it, that is made
// anew.
#pragma once

struct Module;

/* Begins to watch the folder, which is there. Without a watch (logged) the module goes on. */
void FolderWatch(Module *module);

/* Something in the folder, or the folder itself, has gone. */
void FolderChanged(Module *module, int watch);

/* Serves the names whose files are gone, and asks again for the notifications. What cannot be done
   now (logged, once) is due once more at the module's `tidy_at`. */
void FolderServe(Module *module);
