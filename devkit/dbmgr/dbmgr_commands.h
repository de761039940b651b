// The commands of requests: one row each says what it takes, what it does with the store and what a
// refusal tells.
#pragma once

#include <string_view>

#include "dbmgr_plan.h"

/* What a node is. */
enum : unsigned { LEAF = 1, OBJECT = 2, ARRAY = 4, INSTANCE = 8 };

/* How a command is planned, as a sum. */
enum : unsigned {
  READS = 1,      /* values, which the modules below the node bring up to date first */
  ANSWERS = 2,    /* with a value: an answer without one is none */
  SETS = 4,       /* the leaves of its value */
  STORE_ONLY = 8, /* no op function has a say in it */
};

struct Command {
  uint32_t command;
  const char *name;
  unsigned takes;    /* nodes */
  const char *needs; /* for the refusal of other nodes */
  unsigned traits;
  DbmgrAnswer (*serve)(const Plan &plan); /* from the store */
  /* Of a refused plan, what it left in the tree, where it might: whoever refuses undoes first, but
     that may fail, too. `row`: the path of the new row, if whoever refused told one. */
  std::string (*left)(const Plan &plan, const std::string *row);
};

/* The command's row, or that of all others that the framework knows. NULL: there is no such
   command. */
const Command *FindCommand(uint32_t command);

/* What the leaves hold now, in order, each with a NUL behind it; of none "". */
std::string ValuesOf(const std::vector<std::string> &paths);

/* Why something was refused, in one line without control characters: of the records of failures
   (print_desk.h) of whoever refused it the last that tells more than that there was one; without
   any, where to look. */
std::string Reason(std::string_view records, const char *log);

/* The refusal of a plan by `who` ("the store", a module), and `why`. It also says what became of
   the parameters, or of `row`, the path of the new row that `who` told. */
DbmgrAnswer RefusedBy(const std::string &who, const Plan &plan, const std::string &why,
                      const std::string &row = "");

/* That its module will not answer it, and `why`: what it had written stands. */
DbmgrAnswer NoAnswerTo(const Plan &plan, const std::string &why, const char *log);

/* Serves a plan that has no module. */
DbmgrAnswer ServeFromStore(const Plan &plan);
