// The client's batches and what it makes of answers. The first byte tells whether it prints JSON;
// then a line of a batch, and behind a line feed the answer that each of its requests gets.
#include <cerrno>

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
  const std::string line(TakePiece(&answer, '\n'));
  Words words;
  if (SplitLine(line, &words)) Quote(words);
  if (line.find('\0') != line.npos) return 0; /* no argument has it, nor a line that is typed */
  Outcome outcome = RunLine(line, options);
  Check(outcome.status >= EXIT_DONE && outcome.status <= EXIT_NO_ANSWER, "there is no such status");
  if (options.json && outcome.status == EXIT_DONE && !outcome.text.empty())
    Check(Json::accept(outcome.text), "what is printed as JSON is none");
  (void)truncate("/var/log/devkit/informs", 0); /* there may be none */
  return 0;
}
