// The command-line client's inside: verbs take words and give an outcome; one program prints it.
// Each file of verbs ends in their rows, from which help, usage lines and completion are made.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "requests.h"

struct Options {
  bool json = false;
  bool calls = false;
  uint32_t limit_ms = kUsualLimit; /* for each request */
};

using Words = std::vector<std::string>;

struct Verb {
  const char *name;
  const char *arguments; /* as the help shows them */
  const char *help;      /* "": it is for the shell's completion, and not shown */
  size_t least, most;    /* words */
  bool free_words;       /* words may begin with "-": options go before the verb */
  bool batch;            /* may stand in a batch */
  Outcome (*run)(const Words &words, const Options &options);
};

/* The rows of the files; one without a name ends them. */
extern const Verb kRequestVerbs[], kStoreVerbs[], kMessageVerbs[], kStandinVerbs[], kBatchVerbs[];

std::vector<const Verb *> AllVerbs();

std::string Usage(const Verb &verb);
bool TakesAsMany(const Verb &verb, const Words &words);

/* Runs the verb; wrong usage becomes its usage line. */
Outcome RunVerb(const Verb &verb, const Words &words, const Options &options);

/* One line of a batch: splits it as a shell would (blanks, '...', "...", and a backslash outside of
   '...'). False when a quote is left open. */
bool SplitLine(const std::string &line, Words *words);

/* Splits it and runs its verb, if that may stand in a batch. */
Outcome RunLine(const std::string &line, const Options &options);
