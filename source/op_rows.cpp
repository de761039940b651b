// Rows of the FUNC tables; see op_rows.h.
#include "op_rows.h"

#include <cstdlib>
#include <cstring>

#include "ams_config_shell.h"

namespace {

/* The op in a line's sum; 0 for one that no sum has. */
unsigned Bit(int op) { return op >= 0 && op < 32 ? 1u << op : 0; }

}  // namespace

void OpLog(const OpForm &form, const OpFuncArg *arg) {
  const char *name = form.name == nullptr ? arg->name : form.name;
  AMS_PRINT_AT(2, form.source, form.line, "%s%sop: %d, path: %s, value: %s%s", name,
               *name == '\0' ? "" : ": ", arg->op, arg->path,
               arg->value == nullptr ? "(null)" : arg->value, form.end);
}

/* The formats are the rows'. */
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
int RunScript(const Script &script, const OpFuncArg *arg) {
  for (const ScriptLine &line : script.lines) {
    if (line.format == nullptr) break;
    if ((line.ops & Bit(arg->op)) == 0) continue;
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
