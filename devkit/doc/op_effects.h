// What the op functions do: as the rows of the FUNC tables say it where they are scripts or daemons
// with ports, else as docs/op_functions.txt does.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "exit_status.h"

struct Effect {
  std::string ops, text; /* no ops: the text is the function that does the same */
};

using Effects = std::map<std::string, std::vector<Effect>>; /* by the function's name */

/* EXIT_DONE, or EXIT_REFUSED (said on standard error): the list does not fit the tables. */
int ReadEffects(const char *file, Effects *effects);

/* Names of the tables, and whether any of their rows has a handler. */
std::map<std::string, bool> TableNames();

/* The board's programs that the rows call by their path, one a line. EXIT_DONE or EXIT_REFUSED. */
int PrintPrograms();

/* Says what is wrong. The status to end with. */
int Fail(const std::string &what, ExitStatus status = EXIT_REFUSED);
