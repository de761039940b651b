// Requests from a file or standard input, one a line, answered in order on standard output.
#include <unistd.h>

#include <fstream>
#include <iostream>

#include "cfgcmd.h"
#include "cfgcmd_print.h"
#include "nearest.h"

bool SplitLine(const std::string &line, Words *words) {
  std::string word;
  bool started = false;
  char quote = 0;
  for (size_t i = 0; i < line.size(); ++i) {
    char c = line[i];
    if (c == '\\' && quote != '\'' && i + 1 < line.size()) {
      word += line[++i];
      started = true;
    } else if (quote != 0) {
      if (c == quote)
        quote = 0;
      else
        word += c;
    } else if (c == '\'' || c == '"') {
      quote = c;
      started = true;
    } else if (c == ' ' || c == '\t') {
      if (started) words->push_back(word);
      word.clear();
      started = false;
    } else {
      word += c;
      started = true;
    }
  }
  if (started) words->push_back(word);
  return quote == 0;
}

Outcome RunLine(const std::string &line, const Options &options) {
  Words words, names;
  if (!SplitLine(line, &words)) return {EXIT_USAGE, "a quote is not closed"};
  const std::string name = words.empty() ? "" : words[0];
  for (const Verb *verb : AllVerbs()) {
    if (!verb->batch) continue;
    names.push_back(verb->name);
    if (name != verb->name) continue;
    words.erase(words.begin());
    Options own = options;
    std::string wrong = TakeOptions(*verb, &words, &own);
    if (wrong.empty() && !own.file.empty()) wrong = "a batch has the values in its own lines";
    if (!wrong.empty()) return {EXIT_USAGE, "usage: " + Usage(*verb) + " (" + wrong + ")"};
    return RunVerb(*verb, words, own);
  }
  const std::string near = Nearest(name, names);
  return {EXIT_USAGE, "no request: \"" + line + "\"" +
                          (near.empty() ? "" : ", did you mean \"" + near + "\"?")};
}

namespace {

/* As JSON each request has a document on a line; else what was refused goes to standard error. */
void Tell(Outcome outcome, size_t number, bool json) {
  const bool done = outcome.status == EXIT_DONE;
  if (json) {
    Json told = {{"line", number}};
    if (!done)
      told["error"] = outcome.text;
    else
      told["answer"] = outcome.text.empty() ? Json::object() : Json::parse(outcome.text);
    std::cout << ControlBytes(told) << "\n";
  } else if (done) {
    if (outcome.text.empty()) outcome.text = "ok\n"; /* each request has its answer */
    std::cout << TerminalText(std::move(outcome.text), STDOUT_FILENO);
  } else {
    std::cout.flush(); /* both may be one stream */
    std::cerr << "cfgcmd: line " << number << ": "
              << TerminalText(std::move(outcome.text), STDERR_FILENO) << "\n";
  }
}

/* 0, or 1 when a request was refused. */
int RunLines(std::istream &lines, const Options &options) {
  std::string line;
  int status = EXIT_DONE;
  for (size_t number = 1; std::getline(lines, line); ++number) {
    if (line.empty() || line[0] == '#') continue;
    Outcome outcome = RunLine(line, options);
    if (outcome.status != EXIT_DONE) status = EXIT_REFUSED;
    Tell(std::move(outcome), number, options.json);
    if (lines.rdbuf()->in_avail() <= 0) std::cout.flush(); /* whoever asks may wait for it */
  }
  std::cout.flush();
  return status;
}

Outcome Batch(const Words &words, const Options &options) {
  if (words.empty() || words[0] == "-") return {RunLines(std::cin, options), ""};
  std::ifstream file(words[0]);
  if (!file)
    return {EXIT_USAGE, "cannot read " + words[0] + ": give a file of requests, one a line"};
  return {RunLines(file, options), ""};
}

}  // namespace

const Verb kBatchVerbs[] = {
    {"batch", "[FILE]", "Requests from FILE or standard input, one a line", 0, 1, false, false,
     Batch, nullptr, true},
    {},
};
