// The records of the typed views (ams_config_tree.h) and how a caller declares them.
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
