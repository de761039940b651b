// What the desk needs of the settings beside the board's interface: many changes as one, and a
// look that can fail.
#pragma once

#include <optional>
#include <string>
#include <vector>

struct NvramChange {
  std::string key;
  std::optional<std::string> value; /* none: the key is unset */
};

/* As nvram_get, but tells what is not set (0, no value) from what cannot be read (-1, logged). */
int nvram_desk_read(int type, const std::string &key, std::optional<std::string> *value);

/* Copies the settings in use, of all areas, as they are at one moment, into an empty folder, where
   others that are opened would look for them. 0, or an errno. Any thread. */
int nvram_desk_copy(const char *folder);

/* Makes all changes to area `type`, in order, and commits the area: one step for every reader and
   for a power cut, whenever the caller or the power ends. What was set before and is not committed
   yet is committed with it. `before`, unless it is NULL, gets what takes the changes back again.
   Keys and values as in nvram.h, without NUL bytes. 0, also when nothing had to be changed (flash
   is not written then); -1 (logged), as when flash is full: nothing is changed. Any thread of any
   process. */
int nvram_desk_apply(int type, const std::vector<NvramChange> &changes,
                     std::vector<NvramChange> *before = nullptr);
