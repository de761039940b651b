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
  bool usual_limit = true;         /* nobody asked for another one */
  std::string base;                /* what paths are below that do not begin at the root */
  bool raw = false;                /* get */
  uint32_t depth = UINT32_MAX;     /* tree: levels below the path */
  std::string file;                /* set */
};

using Words = std::vector<std::string>;

/* An option of one verb: before or among its words, before them when those may begin with "-". */
struct VerbOption {
  const char *names; /* "-r,--raw" */
  const char *value; /* as the help shows it; "": it has none */
  const char *help;
  bool (*take)(const std::string &value, Options *options); /* false: it cannot have this value */
};

struct Verb {
  const char *name;
  const char *arguments; /* as the help shows them */
  const char *help;
  size_t least, most; /* words */
  bool free_words;    /* words may begin with "-": options go before the verb */
  bool batch;         /* may stand in a batch */
  Outcome (*run)(const Words &words, const Options &options);
  const VerbOption *options = nullptr; /* one without names ends them */
  bool streams = false;                /* it prints by itself, as it goes */
};

/* The rows of the files; one without a name ends them. */
extern const Verb kRequestVerbs[], kStoreVerbs[], kMessageVerbs[], kStandinVerbs[], kBatchVerbs[],
    kPathVerbs[], kMonitorVerbs[], kPlanVerbs[], kChangeVerbs[];

std::vector<const Verb *> AllVerbs();

std::string Usage(const Verb &verb);
bool TakesAsMany(const Verb &verb, const Words &words);

/* Takes the verb's options off the words. "", or what is wrong with one. */
std::string TakeOptions(const Verb &verb, Words *words, Options *options);

/* Runs the verb; wrong usage becomes its usage line. */
Outcome RunVerb(const Verb &verb, const Words &words, const Options &options);

/* One line of a batch: splits it as a shell would (blanks, '...', "...", and a backslash outside of
   '...'). False when a quote is left open. */
bool SplitLine(const std::string &line, Words *words);

/* Splits it and runs its verb, if that may stand in a batch. */
Outcome RunLine(const std::string &line, const Options &options);
