// Rows of the FUNC tables; see op_rows.h.
#include "op_rows.h"

#include <cstdlib>
#include <cstring>

#include "ams_config_shell.h"

void OpLog(const OpForm &form, const OpFuncArg *arg) {
  const char *value = arg->value == nullptr ? "(null)" : arg->value;
  if (form.named)
    AMS_PRINT_AT(2, form.source, form.line, "%s: op: %d, path: %s, value: %s\n", arg->name, arg->op,
                 arg->path, value);
  else
    AMS_PRINT_AT(2, form.source, form.line, "op: %d, path: %s, value: %s\n", arg->op, arg->path,
                 value);
}

/* The formats are the rows'. */
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
int RunScript(const Script &script, const OpFuncArg *arg) {
  for (const ScriptLine &line : script.lines) {
    if (line.format == nullptr) break;
    if ((line.ops & 1u << arg->op) == 0) continue;
    if (line.arg == ARG_NONE)
      cfgSystemCmd("%s", line.format);
    else if (line.arg == ARG_PATH)
      cfgSystemCmd(line.format, arg->path);
    else
      cfgSystemCmd(line.format, InstanceNumber(arg->path));
  }
  return 0;
}
#pragma GCC diagnostic pop

int InstanceNumber(const char *path) {
  const char *dot = strrchr(path, '.');
  return dot == nullptr ? 0 : atoi(dot + 1);
}
