// Typed, reference-counted views of the data model: an object with named parameters, and tables of
// rows, with tables inside the rows where wanted.
//
// A caller declares static records (ams_config_records.h). A get loads a record when
// its count goes from 0 to 1, a release gives the values back when the count returns to 0; between
// the two the record does not follow the store. Gets and releases must pair. A record is for one
// thread at a time; there is no lock inside.
//
// Null records given to the calls that change or copy are faults of the program: they end it.
#pragma once

#include "ams_common_api.h"
#include "ams_config_records.h"

/* The first parameter of a record. */
ConfigItem *ConfigItemsOf(ConfigObject *object);
ConfigItem *ConfigItemsOf(ConfigInst *inst);

/* The value of the row's or object's parameter `name`; "" when there is none or it is not loaded.
   Valid until the release. */
const char *ConfigValue(const ConfigItem *items, const char *name);

/* ---- reading and releasing ---- */

/* Loads `prefix`.`name` (a "." comes between them where the prefix has none; NULL is ""): what is
   behind the first "=" of the store's "name=value", or "" when there is no such node. 0; -1 when
   item is NULL, or (logged) without memory: `val` stays NULL then, and reads as "" below. */
int ConfigItemGet(ConfigItem *item, const char *prefix);

/* Load every parameter of the record. 0. */
int ConfigObjectGet(ConfigObject *object);
int ConfigInstGet(const char *path, ConfigInst *inst); /* `path`: the row's; sets its index */

/* Loads the rows that the store has. 0; -1 when there is no memory for a row: those loaded before
   stay, and the table is to be released all the same. */
int ConfigArrayGet(ConfigArray *array);

void ConfigItemDestroy(ConfigItem *item);
void ConfigObjectDestroy(ConfigObject *object);
void ConfigInstDestroy(ConfigInst *inst);

/* Frees the rows whatever their own counts: no row may be used after it. `count` and `maxIndex`
   stay. */
void ConfigArrayDestroy(ConfigArray *array);

/* Releases the tables in every loaded row, then the table. */
void ConfigNestedArrayDestroy(ConfigArray *array);

/* ---- writing: the store's results count only where it is said ---- */

/* Adds a row to the store; the view does not change. Its number, else the store's result. -1
   (logged) when the path has no name or is longer than 255 bytes. */
int ConfigInstAdd(const ConfigArray *array);

/* Deletes a row in the store. The store's result. `index` must be above 0. */
int ConfigInstDel(const ConfigArray *array, int index);

/* Deletes every loaded row in the store; the loaded rows stay until the release. 0. */
int ConfigArrayClear(const ConfigArray *array);

/* Writes the values of one record to the parameters of another, pair by pair in their order, up to
   the shorter list's end. What is not loaded is passed over; the target's own values do not change.
   0. */
int ConfigInstAssign(const ConfigArray *array, ConfigInst *lhs, ConfigInst *rhs);
int ConfigObjectAssign(ConfigObject *lhs, ConfigObject *rhs);

/* Adds a row to the target for each loaded row of the source and writes its values. A row that
   cannot be added is passed over. 0; -1 without memory, nothing written. */
int ConfigArrayFill(const ConfigArray *lhs, const ConfigArray *rhs);

/* The same with the tables in the rows. A table that cannot be copied is logged and passed over. */
int ConfigNestedArrayFill(const ConfigArray *lhs, const ConfigArray *rhs);

/* Copies the first table of row `rhs` to every table of row `lhs` (whose index counts). Their paths
   hold "{i}", also afterwards. 0, also without a table to copy; -1 (logged): no memory, no "{i}".
 */
int ConfigNestedSubArrayFill(ConfigInst *lhs, ConfigInst *rhs);

/* The first table record behind a row's parameters. */
ConfigArray *ConfigNestedSubArrayOf(ConfigInst *inst);

/* Writes the table's path with `index` for its "{i}" into `path` (`size` bytes) and makes it the
   table's path: the caller keeps the buffer and puts the old one back. 0; -1 (logged, nothing
   changed) when there is no "{i}" or the path does not fit. */
int ConfigPathExpand(ConfigArray *sub, int index, char *path, size_t size);

/* When the request's value has the leaf `source`: copies the value of `source` below `object` to
   `target` below it, where that exists (a status write if a plain one is refused). Unless `type` is
   "string" it is written as a decimal integer. 0, or the store's result; -1 without memory. */
int cfgCopyNodeValue(const OpFuncArg *arg, const char *object, const char *source,
                     const char *target, const char *type);
