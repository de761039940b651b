// The board's data-model store: a tree of objects, arrays, instances and leaves, shared by every
// process of the gateway.
//
// Paths are dotted, from the root object; one trailing "." is accepted everywhere. Limits: 255
// bytes a path, 64 a name, 32 KiB a value, which has no byte 0x03; what does not fit is refused
// with -1 and a level-4 record. An instance is named by its number in decimal, from 1, without
// leading zeros. The file's form: docs/porting.md. Readers never wait and never see half a change.
// Calls may come from any thread. A process that is stopped inside a read (by a signal, in a
// debugger) holds on to all pages that are written over; when the store has no others left, that
// process is ended. Texts that a call hands out are heap blocks for __tds_free and belong to the
// caller.
//
// Text forms: a leaf reads as "name=value"; an object or array as "relative.path=value" of every
// leaf below it in the file's order, joined by byte 0x03 ("" when there is none).
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

enum {
  AMS_PATH_SIZE = 256,       /* a path with its NUL */
  AMS_NAME_SIZE = 65,        /* a name with its NUL */
  AMS_VALUE_MAX = 32 * 1024, /* bytes of a value, without a NUL */
  AMS_LIST_SLOTS = 50,       /* most instances that ams_mxml_list_array hands out */
  AMS_LIST_SLOT_SIZE = 1024,
  AMS_SEPARATOR = 0x03,
};

#ifdef __cplusplus
extern "C" {
#endif

struct AmsTree; /* a data-model tree; opaque */

/* The shared tree set: its first word is the root of the data-model tree (NULL: nothing loaded). */
struct XmlTreeSet {
  struct AmsTree *root;
};

/* Set once at start-up from ShmPoolSrvInit or ShmPoolCliInit. Calls without a root use it. */
extern struct XmlTreeSet *gptXmlTrees;

/* Creates the shared store, or takes over the one that an earlier server left (its readers stay
   attached). The set belongs to the platform. NULL (logged) when it cannot be had: there is one
   server at a time, for the life of its process. */
struct XmlTreeSet *ShmPoolSrvInit(void);

/* Attaches to the server's store. NULL (logged) when there is none. */
struct XmlTreeSet *ShmPoolCliInit(void);

/* Replaces the tree by the content of an open data-model file, in one step for every reader, and
   returns its root; those handed out before stand for the new tree, too. NULL, and one line on
   standard error with file, line and reason, when the file does not parse or breaks a limit; the
   tree is then as it was, and a span of writes around the call is spoilt. `top` and `callback` are
   NULL. Server only. */
struct AmsTree *ams_mxmlLoadFile(void *top, FILE *file, void *callback);

/* Column after which ams_save_xml breaks a start tag into lines; 0: never (the default is 72). */
void mxmlSetWrapMargin(int column);

/* Lays the kept parameters of nvram area `area`, the keys that begin with the root's name and a
   dot, over the tree, instances included, and then the status that it had, or that the tree before
   a load just now had, in one step, which is no change for the change list. 0 or -1 (logged).
   Entries that do not fit the tree, read-only leaves too, are logged and passed over. */
int update_from_nvram(struct AmsTree *root, int area);

/* Loads a staging source into nvram area 1 and commits it: a file of "path=value" lines, where "#"
   begins a remark and another line is logged and passed over. Sources: 0 factory defaults (drops
   the parameters that are there first, also when it has nothing itself), 2 factory defaults of the
   customer, 3 backup (drops first, unless it has nothing), 4 burnt image. 0; -1 with a line on
   standard output that names the file when it is missing or has nothing; -1 (logged) for another
   number, or a file that cannot be read: nothing of it is taken, and nothing dropped. */
int ams_mxml_load_to_staging(int source);

/* ---- reading ---- */

/* 0 when the node exists, else -1. Logs nothing. */
int ams_check_node(struct AmsTree *root, const char *path);

/* Copies an attribute of the file ("type", "op", "writable", "mod", ...) into `value`, cut and
   terminated. An instance has those of its array's Template, and the type "object". 0; -1 when the
   node does not exist or has no such attribute ("" then). Logs nothing.
 */
int ams_get_node_attr(struct AmsTree *root, const char *path, const char *name, char *value,
                      size_t size);

/* URL of the first child of `parent`, and of the child after `child` (leaves included, file order;
   of an array the instances by number, then what lies beside them), in a buffer of its own. 0, or
   -1 after the last one. The instance `child` may be gone by then. */
int ams_get_first_child(struct AmsTree *root, const char *parent, char url[AMS_PATH_SIZE]);
int ams_get_next_child(struct AmsTree *root, const char *child, char url[AMS_PATH_SIZE]);

/* The node's text form. -1 (and NULL) when the node does not exist or there is no memory. */
int ams_get_node_value(struct AmsTree *root, const char *path, char **text);

/* As ams_get_node_value; each leaf is followed by ` attr="value"` pairs, `"` in a value being
   `&quot;`. With `change_list`, only the leaves whose notify attribute (ams_set_attr) is not "0"
   and whose value a write changed since they were last read so; reading takes them off that list.
   The list of the node ALL_CHANGED_DATA in the root is that of the whole tree. */
int ams_read_withAttr(struct AmsTree *root, const char *path, int change_list, char **text);

/* Instance numbers of an array as "1,3,7" ("" when it is empty). -1 when it is not an array or the
   list does not fit (then "", logged). */
int ams_get_idxes(struct AmsTree *root, const char *array, char *list, size_t size);

/* Highest instance number in the array now, as decimal text ("0" when empty). -1 when it is not an
   array or the text does not fit (then "", logged). */
int ams_get_array_maxIndex(struct AmsTree *root, const char *array, char *text, size_t size);

/* The bare value of a leaf, copied into `value`, cut (logged) and terminated. -1, `value`
   untouched, when there is no such leaf. */
int ams_mxml_get_leaf(const char *path, char *value, size_t size);

/* The instances of an array: paths ending in ".", at most AMS_LIST_SLOTS (more are logged). 0; -1,
   count 0, when it is not an array. */
struct AmsArrayList {
  uintptr_t count;
  char (*slots)[AMS_LIST_SLOT_SIZE]; /* the caller's, AMS_LIST_SLOTS of them */
};
int ams_mxml_list_array(const char *array, struct AmsArrayList *list);

/* ---- writing ----

   Two kinds of write, whoever calls: configuration is kept in nvram area 1 before the call returns
   and is there again after a power cut; a change that cannot be kept is refused, and nothing has
   changed then. Status is gone with the power, but there again when the store's server alone starts
   anew. */

/* Configuration. Sets a leaf; fails on writable="0" and on what is no leaf. A NULL value is "". 0
   or -1 (logged). */
int ams_set_node_value(struct AmsTree *root, const char *path, const char *value);

/* Status: the same without the "writable" check. */
int ams_sset_node_value(struct AmsTree *root, const char *path, const char *value);
int ams_mxml_fset_leaf(const char *path, const char *value);
int ams_mxml_sset_leaf_int(const char *path, int value);

/* Configuration. Adds an instance: the highest number ever used plus one, leaves as in the array's
   Template. `url` gets its path without a trailing ".". Deleting never renumbers. A sibling leaf
   named after the array with "NumberOfEntries" behind counts the instances, from the load on; that
   is no status, but a change. 0 or -1 (logged). */
int ams_add_obj(struct AmsTree *root, const char *array, char url[AMS_PATH_SIZE]);
int ams_del_obj(struct AmsTree *root, const char *instance);

/* The node's notify attribute, 1 to 64 bytes ("0" when it has none); "0" takes a leaf off the
   change list. A board may forget what was set when a file is loaded; the desk keeps it as
   configuration. 0 or -1 (logged). */
int ams_get_attr(struct AmsTree *root, const char *path, char *value, size_t size);
int ams_set_attr(struct AmsTree *root, const char *path, const char *value);

/* Between these two, the calling thread's writes become visible and are kept together, at the end,
   or not at all (-1, logged); a write that is refused spoils nothing. The thread itself reads what
   it wrote, but not yet in nvram; other writers wait, so the span must be short and free of
   commands and messages. Spans do not nest: -1. */
int ams_write_begin(void);
int ams_write_end(void);

/* Ends the span and gives up its writes. 0, or -1 (logged): none was open. */
int ams_write_cancel(void);

/* What leaves were before they were set. */
struct AmsUndo; /* opaque */

/* Adds to `*undo` (NULL: a new one, from here) what the leaf is now: its value, whether that is a
   status, and what nvram keeps of it. 0, or -1 (logged): it is no leaf, or cannot be read. */
int ams_undo_note(struct AmsTree *root, struct AmsUndo **undo, const char *path);

/* Ends `undo` (NULL: nothing was noted). With `put_back` its leaves, read-only ones too, are all of
   that again, together as in a span; those that are gone by now are passed over. Not inside a span.
   0, or -1 (logged): nothing was put back. */
int ams_undo_end(struct AmsUndo *undo, int put_back);

/* Writes the tree to `file` (through a temporary beside it), so that it loads as the same tree, the
   highest number of each array and any byte of a value included: ams_save_xml laid out for reading,
   ams_align_xml as compact as the file that is loaded at start. 0 or -1 (logged). */
int ams_save_xml(struct AmsTree *root, const char *file);
int ams_align_xml(struct AmsTree *root, const char *file);

#ifdef __cplusplus
}

template <size_t N>
int ams_get_node_attr(AmsTree *root, const char *path, const char *name, char (&value)[N]) {
  return ams_get_node_attr(root, path, name, value, N);
}
template <size_t N>
int ams_get_idxes(AmsTree *root, const char *array, char (&list)[N]) {
  return ams_get_idxes(root, array, list, N);
}
template <size_t N>
int ams_get_array_maxIndex(AmsTree *root, const char *array, char (&text)[N]) {
  return ams_get_array_maxIndex(root, array, text, N);
}
template <size_t N>
int ams_mxml_get_leaf_value(const char *path, char (&value)[N]) {
  return ams_mxml_get_leaf(path, value, N);
}
#endif
