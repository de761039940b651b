// Script calls as rows of a table, and integers of the data model, for the op functions.
#include "op_rows.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include "ams_config_api.h"

namespace {

/* The number behind the last "." of a path; 0 when there is none. */
int InstanceNumber(const char *path) {
  const char *dot = strrchr(path, '.');
  return dot == nullptr ? 0 : atoi(dot + 1);
}

std::string Expand(const char *line, const char *path) {
  std::string text = line;
  size_t at = text.find('%');
  if (at != text.npos)
    text.replace(at, 2, text[at + 1] == 'd' ? std::to_string(InstanceNumber(path)) : path);
  return text;
}

}  // namespace

int ScriptRowsRun(const ScriptRow *rows, size_t count, const OpFuncArg *arg) {
  for (const ScriptRow *row = rows; row != rows + count; ++row)
    if (row->op == arg->op && strcmp(row->name, arg->name) == 0)
      cfgSystemCmd("%s", Expand(row->line, arg->path).c_str());
  return 0;
}

int LeafInt(const char *path, int without) {
  char value[128];
  return ams_mxml_get_leaf_value(path, value) == 0 ? atoi(value) : without;
}
