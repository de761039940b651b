// Typed, reference-counted views of the data model: an object with named parameters, and tables of
// rows, with tables inside the rows where wanted.
//
// A caller declares static records with the declaration helpers below. A get loads a record when
// its count goes from 0 to 1, a release gives the values back when the count returns to 0; between
// the two the record does not follow the store. Gets and releases must pair. A record is for one
// thread at a time; there is no lock inside.
//
// Null records given to the calls that change or copy are faults of the program: they end it.
#pragma once

#include <cstddef>
#include <cstdint>

/* One parameter; a NULL name ends a run of them. */
struct ConfigItem {
  int32_t refcnt;
  const char *name; /* relative to its object or row */
  char *val;        /* heap, the item's; NULL while it is not loaded */
};

/* An object. Its ConfigItem records follow directly. */
struct ConfigObject {
  int32_t refcnt;
  const char *path;
};

/* A row of a table. Its ConfigItem records follow directly; behind the one that ends them come the
   ConfigArray records of the tables in the row, up to one whose path and proto are NULL. */
struct ConfigInst {
  int32_t refcnt;
  int32_t index; /* instance number */
  ConfigInst *next;
};

/* A table. */
struct ConfigArray {
  int32_t refcnt;
  const char *path;        /* ends in "."; of a table in a row "{i}" stands for the row's number */
  size_t instSize;         /* bytes of a row with all that follows it */
  int32_t maxIndex, count; /* highest instance number at the last load, rows loaded */
  ConfigInst *head;        /* rows in ascending number; heap, the table's */
  const ConfigInst *proto; /* copied into every new row */
};

/* ---- declarations ----

   A caller names paths and parameters; layout, sizes and ends follow:

     auto device = ConfigObjectOf("InternetGatewayDevice.DeviceInfo.", "ModelName", "UpTime");

     const auto codec_row = ConfigRowOf("Name");
     const auto line_row =
         ConfigRowWith({ConfigArrayOf("[...].Line.{i}.Codec.", codec_row)}, "Name", "Enable");
     ConfigArray lines = ConfigArrayOf("[...].Line.", line_row);

   The calls take `&device.object` and `&lines`. A row's declaration outlives its tables: both are
   static. */

template <size_t N>
struct ConfigObjectRecord {
  ConfigObject object;
  ConfigItem items[N + 1];
};

/* Every row ends its tables, also when it has none, so that each call may look for them. */
template <size_t N, size_t Tables>
struct ConfigRowRecord {
  ConfigInst inst;
  ConfigItem items[N + 1];
  ConfigArray tables[Tables + 1];
};

template <typename... Names>
constexpr ConfigObjectRecord<sizeof...(Names)> ConfigObjectOf(const char *path, Names... names) {
  return {{0, path}, {{0, names, nullptr}..., {0, nullptr, nullptr}}};
}

template <typename... Names>
constexpr ConfigRowRecord<sizeof...(Names), 0> ConfigRowOf(Names... names) {
  return {{0, 0, nullptr}, {{0, names, nullptr}..., {0, nullptr, nullptr}}, {}};
}

template <size_t Tables, typename... Names>
constexpr ConfigRowRecord<sizeof...(Names), Tables> ConfigRowWith(
    const ConfigArray (&tables)[Tables], Names... names) {
  ConfigRowRecord<sizeof...(Names), Tables> row = {
      {0, 0, nullptr}, {{0, names, nullptr}..., {0, nullptr, nullptr}}, {}};
  for (size_t i = 0; i < Tables; ++i) row.tables[i] = tables[i];
  return row;
}

template <typename Row>
constexpr ConfigArray ConfigArrayOf(const char *path, const Row &row) {
  return {0, path, sizeof row, 0, 0, nullptr, &row.inst};
}
template <typename Row>
ConfigArray ConfigArrayOf(const char *path, const Row &&row) = delete; /* gone before the table */

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
