// What the desk's data-base manager and client need of the store beside the board's interface: who
// serves a node, what a leaf takes, all nodes below one, and a check of what nvram kept.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/* The "mod" attribute of the node or its nearest ancestor that has one, whole. 0, or -1: none, or
   `size` is too small. */
int ams_desk_mod(const char *path, char *mod, size_t size);

/* What a node is, and who serves it. */
struct AmsDeskPlace {
  bool is_leaf, is_array, is_instance; /* none: an object that is no array's */
  bool has_op;                         /* the object, of a leaf its own, or that one's array */
  std::string mod; /* of the object, of a leaf its own, or its nearest ancestor that has one */
};

/* The node's place. 0, or -1: there is no such node, or no memory (logged). Any thread. */
int ams_desk_place(const char *path, AmsDeskPlace *place);

/* Attributes of the file; "" where there is none. Many nodes share them. */
struct AmsDeskAttributes {
  std::string_view description, op, mod, writable, min, max, values;
};

/* A node as the walk shows it; the texts are good until `visit` returns, the attributes until the
   walk ends. */
struct AmsDeskNode {
  std::string_view path, value;
  const char *type;
  std::string_view mod; /* of its own; "": none */
  bool op, is_leaf;
  const AmsDeskAttributes *attributes;
};
using AmsDeskVisit = int (*)(const AmsDeskNode &node, void *context);

/* Calls `visit` for the node and all below it, in the file's order, without its leaves or with
   them, on a snapshot, which is kept meanwhile: `visit` must not wait, nor write. It ends the walk
   by returning non-zero. Returns that value, else 0; -1: there is no such node, or no
   memory (logged). Any thread. */
int ams_desk_walk(const char *path, bool leaves, AmsDeskVisit visit, void *context);

/* ams_get_node_value into a string, to which `room` bytes may be added without a copy. 0; or -1, as
   there, then the string is anything. Any thread. */
int ams_desk_text(const char *path, size_t room, std::string *text);

/* A leaf of the change list (ams_read_withAttr): what it was before its first change since the list
   was read, 255 bytes of it, and is now; who made that change, and when, ms since 1970. */
struct AmsDeskChange {
  std::string_view path, before, now, who;
  int64_t time;
};
using AmsDeskChangeVisit = void (*)(const AmsDeskChange &change, void *context);

/* Calls `visit` for each leaf of the list, which stays as it is, on a snapshot, as ams_desk_walk
   does. 0 or -1 (logged). Any thread. */
int ams_desk_changes(AmsDeskChangeVisit visit, void *context);

/* The leaf's change was made for `who`, if it was noted since then, ms since 1970; else it is not
   touched. 0 or -1 (logged). Any thread. */
int ams_desk_changed_by(const char *path, const char *who, int64_t since);

/* Copies the store, as it is at one moment, into an empty folder, where another that is opened
   would look for it. 0, or an errno. Any thread, once the store is attached. */
int ams_desk_copy(const char *folder);

/* A leaf and what its attributes of these names say of its values; "" what they leave open. */
struct AmsDeskLeaf {
  std::string path, type, check;
  std::string min, max; /* of a number; of a string its most bytes */
  std::string values;   /* all that there are, with commas between */
  bool writable = true;
};

/* The leaf's attributes. 0, or -1: there is no such leaf, or no memory (logged). Any thread. */
int ams_desk_leaf(const char *path, AmsDeskLeaf *leaf);

/* Whether the leaf may have `*value`, which becomes what the store is to hold. 0, or -1 with one
   line in `why`. */
using AmsDeskCheck = int (*)(const AmsDeskLeaf &leaf, std::string *value, std::string *why);

/* What update_from_nvram asks before it lays a kept value over the tree; NULL (at first): nobody.
   Set before the tree is loaded, by the process that loads it. */
extern AmsDeskCheck ams_desk_check_kept;
