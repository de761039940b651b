// What the desk's data-base manager needs of the store beside the board's interface: who serves a
// node, and its check of what nvram kept.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/* The "mod" attribute of the node or its nearest ancestor that has one, whole. 0, or -1: none, or
   `size` is too small. */
int ams_desk_mod(const char *path, char *mod, size_t size);

/* Whether the leaf `path` may have `value`: its "check" attribute names `form`, or, without one,
   its type is that (but "string": such a leaf may have any). 0, or -1 with one line in `why`. */
using AmsDeskCheck = int (*)(const std::string &path, const std::string &form,
                             std::string_view value, std::string *why);

/* What update_from_nvram asks before it lays a kept value over the tree; NULL (at first): nobody.
   Set before the tree is loaded, by the process that loads it. */
extern AmsDeskCheck ams_desk_check_kept;
