// What the op functions do: as the rows of the FUNC tables say it where they are scripts, else as
// docs/op_functions.txt does.
#pragma once

#include <map>
#include <string>
#include <vector>

struct Effect {
  std::string ops, text; /* no ops: the text is the function that does the same */
};

using Effects = std::map<std::string, std::vector<Effect>>; /* by the function's name */

/* 0, or 1 (said on standard error): the list does not fit the tables. */
int ReadEffects(const char *file, Effects *effects);

/* Names of the tables, and whether any of their rows has a handler. */
std::map<std::string, bool> TableNames();

/* The board's programs that the scripts call, one a line. 0 or 1. */
int PrintPrograms();

/* Says what is wrong. 1. */
int Fail(const std::string &what);
