// How a row of a FUNC table is bound to what it does, and op functions that are command lines
// alone.
#pragma once

#include "ams_common_api.h"

/* ---- rows of the FUNC tables ---- */

/* How the op functions of a table begin. */
struct OpForm {
  const char *source; /* where their log line says that it was written */
  int line;
  int without_arg;  /* their result for a null argument */
  const char *name; /* in front of that line; NULL: the op function's, "": none */
  const char *end = "\n";
};

/* Writes that line. On the thread that runs the op function. */
void OpLog(const OpForm &form, const OpFuncArg *arg);

/* The handler of a row: the beginning, then what the op function does. */
template <const OpForm &Form, OpFunc Do>
int Op(OpFuncArg *arg) {
  if (arg == nullptr) return Form.without_arg;
  OpLog(Form, arg);
  return Do(arg);
}

/* An op function that only logs. */
inline int LogOnly(OpFuncArg *) { return 0; }

/* Whether `op` is one with which a service is brought up: at start, or when its parameters change.
 */
inline bool IsInitOrSet(int op) { return op == TMF_INIT || op == TMF_SET; }

/* ---- op functions that are command lines alone ---- */

/* The ops that a line serves, as a sum. */
enum : unsigned {
  ON_INIT = 1u << TMF_INIT,
  ON_GET = 1u << TMF_GET,
  ON_SET = 1u << TMF_SET,
  ON_ADD = 1u << TMF_ADD,
  ON_DEL = 1u << TMF_DEL,
};

/* What goes into a line's format. */
enum ScriptArg { ARG_NONE, ARG_PATH /* %s: the node's */, ARG_INSTANCE /* %d: its number */ };

struct ScriptLine {
  unsigned ops;
  const char *format;
  ScriptArg arg = ARG_NONE;
};

/* The lines of an op function, run in this order. */
struct Script {
  ScriptLine lines[6];
};

/* Runs the lines that serve the op. Returns 0. */
int RunScript(const Script &script, const OpFuncArg *arg);

template <const Script &Lines>
int Scripted(OpFuncArg *arg) {
  return RunScript(Lines, arg);
}

/* The rest of a row {NAME, SCRIPTED(FORM, SCRIPT)}. */
#define SCRIPTED(form, script) Op<form, Scripted<script>>, &(script)

/* The number behind the last "." of a path; 0 when there is none. */
int InstanceNumber(const char *path);
