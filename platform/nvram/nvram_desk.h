// What the desk needs of the settings beside the board's interface: many changes as one.
#pragma once

#include <optional>
#include <string>
#include <vector>

struct NvramChange {
  std::string key;
  std::optional<std::string> value; /* none: the key is unset */
};

/* Makes all changes to area `type`, in order, and commits the area: one step for every reader and
   for a power cut. 0, also when nothing had to be changed; -1 (logged): nothing is changed. Any
   thread. */
int nvram_desk_apply(int type, const std::vector<NvramChange> &changes);
