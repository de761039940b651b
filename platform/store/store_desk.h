// What the desk's data-base manager needs of the store beside the board's interface: who serves a
// node, and keeping changed parameters in nvram area 1. Nothing here commits nvram.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/* The "mod" attribute of the node or its nearest ancestor that has one, whole. 0, or -1: none, or
   `size` is too small. */
int ams_desk_mod(const char *path, char *mod, size_t size);

/* Keeps the leaf's present value under its path. 0 or -1 (logged). */
int ams_desk_persist_leaf(const char *path);

/* Keeps which instances an array has, under its path and a dot, as "1,3,7/9": the instances and,
   behind the slash, the highest number ever used. 0 or -1 (logged). */
int ams_desk_persist_array(const char *array);

/* Keeps what a new instance has beyond its Template: what the op function of its array put into it.
   Read-only leaves are left out. 0 or -1 (logged). */
int ams_desk_persist_instance(const char *instance);

/* Forgets all that is kept below an instance (which is gone from the tree). 0 or -1 (logged). */
int ams_desk_forget(const char *instance);

/* Whether the leaf `path`, whose "check" attribute names `form` (never ""), may have `value`. 0, or
   -1 with one line in `why`. */
using AmsDeskCheck = int (*)(const std::string &path, const std::string &form,
                             std::string_view value, std::string *why);

/* What update_from_nvram asks before it lays a kept value over the tree; NULL (at first): nobody.
   Before the tree is loaded. */
void ams_desk_check_kept(AmsDeskCheck check);
