// The command-line client's inside: verbs take words and give an outcome; one program prints it.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "dbmgr_proto.h"

/* Exit statuses. */
enum : int { kDone = 0, kRefused = 1, kUsage = 2, kNoAnswer = 3 };

struct Options {
  bool json = false;
  bool calls = false;
  uint32_t limit_ms = 10000; /* for each request */
};

/* `text`: on success what goes to standard output, with its line feeds; else one line, without. */
struct Outcome {
  int status = kDone;
  std::string text;
};

using Words = std::vector<std::string>;
using Json = nlohmann::ordered_json;

struct Verb {
  const char *name;
  const char *arguments; /* as the help shows them */
  const char *help;
  size_t least, most; /* words */
  bool free_words;    /* words may begin with "-": options go before the verb */
  bool batch;         /* may stand in a batch */
  Outcome (*run)(const Words &words, const Options &options);
};

extern const std::vector<Verb> kVerbs;
const Verb *FindVerb(const std::string &name);

/* ---- texts (cfgcmd_print) ---- */

std::string JsonText(const Json &json);

/* The store's text form of the node `path`: "path=value" lines, or one JSON object. */
std::string NodeText(const std::string &path, const std::string &text, bool json);

/* The same with attributes behind each value. */
std::string AttributeText(const std::string &path, const std::string &text, bool json);

/* `text`; with its control characters escaped when `descriptor` is a terminal: values come from
   strangers, too. */
std::string TerminalText(const std::string &text, int descriptor);

/* Size of a file, 0 when there is none; and what was written behind `offset` since. */
uint64_t FileSize(const char *path);
std::string AppendedSince(const char *path, uint64_t offset);

/* A number within bounds, decimal or with 0x. */
bool ParseNumber(const std::string &text, long least, long most, long *number);

/* "NAME ID [--wait] [--text T | --hex H]". */
struct Message {
  long id = 0;
  bool wait = false;
  std::string payload;
};
bool ParseMessage(const Words &words, Message *message);

/* ---- verbs ---- */

/* Requests to the data-base manager (cfgcmd_requests). */
Outcome VerbGet(const Words &words, const Options &options);
Outcome VerbSet(const Words &words, const Options &options);
Outcome VerbAdd(const Words &words, const Options &options);
Outcome VerbDel(const Words &words, const Options &options);
Outcome VerbList(const Words &words, const Options &options);
Outcome VerbAttr(const Words &words, const Options &options);
Outcome VerbRefresh(const Words &words, const Options &options);

/* Straight to the store (cfgcmd_store). */
Outcome VerbTree(const Words &words, const Options &options);
Outcome VerbSset(const Words &words, const Options &options);
Outcome VerbComplete(const Words &words, const Options &options);

/* Messages to any endpoint (cfgcmd_messages). */
Outcome VerbSend(const Words &words, const Options &options);
Outcome VerbLevel(const Words &words, const Options &options);
Outcome VerbTrace(const Words &words, const Options &options);
Outcome VerbMem(const Words &words, const Options &options);
Outcome VerbWait(const Words &words, const Options &options);
Outcome VerbInform(const Words &words, const Options &options);

/* A probe of VerbWait has an id that no message table has. */
constexpr uint32_t kProbe = 0x1ffffe;

/* In place of processes that the desk does not have (cfgcmd_standin). */
Outcome VerbListen(const Words &words, const Options &options);
Outcome VerbPublish(const Words &words, const Options &options);

/* Lines of requests (cfgcmd_batch). */
Outcome VerbBatch(const Words &words, const Options &options);

/* tds_call with a failure as an outcome: `*reply` is the answer's bytes. */
Outcome Call(const char *dest, uint32_t id, const std::string &payload, const Options &options,
             std::string *reply);
