// The client's batches, its files of values, and what it makes of answers. The first byte tells
// whether it prints JSON, and whether it sets what is in a file; then a line of a batch, to a line
// feed, or the file, to a byte 0xFE; behind it the answer that each of its requests gets.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "ams_print.h"
#include "cfgcmd.h"
#include "check.h"
#include "control.h"
#include "dbmgr_proto.h"
#include "tds_desk.h"

namespace {

std::string_view answer;

/* The words written as a shell has to read them are the same words. */
void Quote(const Words &words) {
  std::string line;
  for (const std::string &word : words) {
    line += '\'';
    for (char byte : word) line += byte == '\'' ? std::string("'\\''") : std::string(1, byte);
    line += "' ";
  }
  Words again;
  Check(SplitLine(line, &again) && again == words, "quoted words are others");
}

Outcome FromLine(const Options &options) {
  const std::string line(TakePiece(&answer, '\n'));
  Words words;
  if (SplitLine(line, &words)) Quote(words);
  if (line.find('\0') != line.npos) return {}; /* no argument has it, nor a line that is typed */
  return RunLine(line, options);
}

Outcome FromFile(Options *options) {
  static const std::vector<const Verb *> verbs = AllVerbs();
  static const auto set = std::find_if(
      verbs.begin(), verbs.end(), [](const Verb *verb) { return strcmp(verb->name, "set") == 0; });
  options->file = "/tmp/values";
  PutFile(options->file.c_str(), TakePiece(&answer, '\xFE'));
  return RunVerb(**set, {}, *options);
}

}  // namespace

/* tds_call, by its linker's name: what dbmgr is asked is a request for it. No answer: nobody is
 * there. */
WRAPPED(int, _Z8tds_calljPKvjPKcjPNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE, uint32_t id,
        const void *data, uint32_t length, const char *, uint32_t, std::string *reply) {
  DbmgrRequest request;
  if (id == kDbmgrRequest)
    Check(DbmgrGetRequest(data, length, &request) == 0, "the client's request is none");
  if (answer.empty()) {
    errno = ENOENT;
    return -1;
  }
  *reply = answer;
  return 0;
}
WRAPPED(int, SendMsg, uint32_t, const void *, uint32_t, const char *) { return 0; }

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  DF_PRT_MAP[0].level = 100; /* as the client has it */
  return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  Options options;
  options.json = (data[0] & 1) != 0;
  answer = TextOf(data + 1, size - 1);
  const Outcome outcome = (data[0] & 2) != 0 ? FromFile(&options) : FromLine(options);
  Check(outcome.status >= EXIT_DONE && outcome.status <= EXIT_NO_ANSWER, "there is no such status");
  if (options.json && outcome.status == EXIT_DONE && !outcome.text.empty())
    Check(Json::accept(outcome.text), "what is printed as JSON is none");
  (void)truncate("/var/log/devkit/informs", 0); /* there may be none */
  return 0;
}
