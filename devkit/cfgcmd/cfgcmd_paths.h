// Paths as people write them: below a base, with wildcards, or wrong. All but the first two look
// into the store themselves.
#pragma once

#include "cfgcmd.h"

constexpr char kRoot[] = "InternetGatewayDevice";

/* The base that the verb "base" keeps for the session; "" when there is none. */
std::string KeptBase();

/* The path from the root, without a "." behind it: one that does not begin with the root's name is
   below `base`, and "." is that itself. */
std::string FullPath(const std::string &path, const std::string &base);

/* Attaches to the store, at the first call. False: there is none. */
bool AttachStore();
extern const Outcome kNoStore;

/* "*" in a name stands for any part of one name, the name "**" for any number of names. */
bool IsPattern(const std::string &path);

/* The full paths that the words say, in their order; what is below another one of them, or said
   twice, is left out. Refused: nothing matches a pattern. */
Outcome PathsOf(const Words &words, const Options &options, std::vector<std::string> *paths);

/* Why there is no node `path`: the deepest part that exists, and the name that may have been meant.
   "no parameter ..." as the data-base manager says it when the store cannot be seen. */
std::string WrongPath(const std::string &path);

/* A refusal of the data-base manager that only says that there is no such node, with all of the
   above; any other text as it is. */
std::string ExplainedRefusal(const std::string &text);
