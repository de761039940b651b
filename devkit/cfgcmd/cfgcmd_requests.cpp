// Verbs that go to the data-base manager: each builds a request and prints the answer.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <new>
#include <sstream>

#include "ams_store.h"
#include "appt_request.h"
#include "cfgcmd_messages.h"
#include "cfgcmd_paths.h"
#include "cfgcmd_print.h"
#include "dbmgr_proto.h"

namespace {

/* What the store has, without asking anybody. */
Outcome AskStore(const std::string &path, DbmgrAnswer *answer) {
  if (!AttachStore()) return kNoStore;
  std::string value(AMS_VALUE_MAX + 1, '\0');
  char *text = nullptr;
  if (ams_mxml_get_leaf(path.c_str(), value.data(), value.size()) == 0) {
    *answer = {0, DbmgrText::LEAF, value.c_str()};
  } else if (ams_get_node_value(gptXmlTrees->root, path.c_str(), &text) == 0) {
    *answer = {0, DbmgrText::TEXT, text};
    __tds_free(text);
  } else if (ams_check_node(gptXmlTrees->root, path.c_str()) == 0) {
    throw std::bad_alloc();
  } else {
    return {EXIT_REFUSED, WrongPath(path)};
  }
  return {};
}

Outcome Get(const Words &words, const Options &options) {
  std::vector<std::string> paths;
  std::string document;
  Outcome outcome = PathsOf(words, options, &paths);
  const bool bare = words.size() == 1 && !IsPattern(words[0]) && !options.json;
  for (size_t i = 0; i < paths.size() && outcome.status == EXIT_DONE; ++i) {
    DbmgrAnswer answer;
    outcome = options.raw ? AskStore(paths[i], &answer)
                          : Ask(APPT_CMD_GET, paths[i], "", options.limit_ms, &answer);
    if (answer.kind != DbmgrText::LEAF)
      AddText(&document, NodeText(paths[i], answer.text, options.json), options.json);
    else if (bare)
      document = answer.text + "\n";
    else
      AddText(&document, LeafText(paths[i], answer.text, options.json), options.json);
  }
  if (outcome.status == EXIT_DONE) outcome.text = DocumentText(std::move(document), options.json);
  return outcome;
}

/* Paths and values in turn from the words of a set, or of one in a file. False: a path has none. */
bool TakePairs(const Words &words, Words *pairs) {
  for (size_t i = 0; i < words.size(); ++i) {
    const size_t equals = words[i].find('=');
    if (equals == std::string::npos && i + 1 == words.size()) return false;
    pairs->push_back(words[i].substr(0, equals));
    pairs->push_back(equals == std::string::npos ? words[++i] : words[i].substr(equals + 1));
  }
  return true;
}

constexpr size_t kFileMost = 16 * 1024 * 1024;

Outcome ReadWhole(const std::string &name, std::string *text) {
  std::ifstream file;
  if (name != "-") file.open(name);
  std::istream &in = name == "-" ? std::cin : file;
  text->resize(kFileMost + 1);
  if (in) in.read(text->data(), static_cast<std::streamsize>(text->size()));
  text->resize(static_cast<size_t>(in.gcount()));
  if (text->size() > kFileMost)
    return {EXIT_USAGE, name + " has more than 16 MiB: give a smaller one"};
  if (!in.eof()) return {EXIT_USAGE, "cannot read " + name + ": " + strerror(errno)};
  return {};
}

Outcome TakeJson(const std::string &name, const std::string &text, Words *pairs) {
  const Json values = JsonIn(text);
  if (values.is_discarded()) return {EXIT_REFUSED, name + " begins with {, but is no JSON"};
  for (const auto &[path, value] : values.items()) {
    pairs->push_back(path);
    pairs->push_back(value.is_string() ? value.get<std::string>() : ControlBytes(value));
  }
  return {};
}

Outcome TakeLines(const std::string &name, const std::string &text, Words *pairs) {
  std::istringstream lines(text);
  size_t number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    if (line.empty() || line[0] == '#') continue;
    if (line.find('=') == line.npos)
      return {EXIT_REFUSED,
              name + " line " + std::to_string(number) + " is no PATH=VALUE: \"" + line + "\""};
    (void)TakePairs({line}, pairs); /* it has one */
  }
  return {};
}

/* "PATH=VALUE" lines, or a JSON object, both as get prints them. */
Outcome TakeFile(const std::string &name, Words *pairs) {
  std::string text;
  Outcome outcome = ReadWhole(name, &text);
  if (outcome.status != EXIT_DONE) return outcome;
  outcome = text[0] == '{' ? TakeJson(name, text, pairs) : TakeLines(name, text, pairs);
  for (size_t i = 0; i < pairs->size() && outcome.status == EXIT_DONE; ++i)
    if ((*pairs)[i].find('\0') != std::string::npos)
      outcome = {EXIT_REFUSED, name + " has a zero byte in \"" + (*pairs)[i - i % 2] +
                                   "\" or its value: no parameter takes one"};
  return outcome;
}

Outcome Set(const Words &said, const Options &options) {
  Words words;
  if (said.empty() == options.file.empty()) return {EXIT_USAGE, "values, or a file of them"};
  if (!TakePairs(said, &words)) return {EXIT_USAGE, "a value for each path"};
  Outcome taken = options.file.empty() ? Outcome() : TakeFile(options.file, &words);
  if (taken.status != EXIT_DONE) return taken;
  for (size_t i = 0; i < words.size(); i += 2) words[i] = FullPath(words[i], options.base);
  return SetLeaves(words, options.limit_ms);
}

Outcome Add(const Words &words, const Options &options) {
  DbmgrAnswer answer;
  Outcome outcome =
      Ask(APPT_CMD_ADD, FullPath(words[0], options.base), "", options.limit_ms, &answer);
  if (outcome.status != EXIT_DONE) return outcome;
  return {EXIT_DONE, options.json ? JsonText({{"path", answer.text}}) : answer.text + "\n"};
}

Outcome Del(const Words &words, const Options &options) {
  DbmgrAnswer answer;
  return Ask(APPT_CMD_DEL, FullPath(words[0], options.base), "", options.limit_ms, &answer);
}

Outcome List(const Words &words, const Options &options) {
  DbmgrAnswer answer;
  Outcome outcome =
      Ask(APPT_CMD_LIST, FullPath(words[0], options.base), "", options.limit_ms, &answer);
  if (outcome.status != EXIT_DONE) return outcome;
  if (!options.json) return {EXIT_DONE, answer.text + "\n"};
  const Json list = JsonIn("[" + answer.text + "]");
  if (list.is_discarded()) return kDamagedAnswer;
  return {EXIT_DONE, JsonText(list)};
}

/* The list of changes has a node of its own, but names what changed. */
std::string WithoutList(const std::string &path) {
  constexpr std::string_view kList = ".ALL_CHANGED_DATA";
  const size_t at = path.size() < kList.size() ? path.npos : path.size() - kList.size();
  return at != path.npos && path.compare(at, kList.size(), kList) == 0 ? path.substr(0, at) : path;
}

Outcome Attr(const Words &words, const Options &options) {
  std::vector<std::string> paths;
  std::string document;
  Outcome outcome = PathsOf(words, options, &paths);
  for (size_t i = 0; i < paths.size() && outcome.status == EXIT_DONE; ++i) {
    DbmgrAnswer answer;
    outcome = Ask(APPT_CMD_ATTR, paths[i], "", options.limit_ms, &answer);
    std::string path = WithoutList(paths[i]);
    if (answer.kind == DbmgrText::LEAF)
      path = path.substr(0, path.rfind('.')); /* its own name is in the text */
    AddText(&document, AttributeText(path, answer.text, options.json), options.json);
  }
  if (outcome.status == EXIT_DONE) outcome.text = DocumentText(std::move(document), options.json);
  return outcome;
}

Outcome Refresh(const Words &words, const Options &options) {
  DbmgrAnswer answer;
  return Ask(APPT_CMD_REFRESH, FullPath(words[0], options.base), "", options.limit_ms, &answer);
}

bool TakeRaw(const std::string &, Options *options) { return options->raw = true; }

bool TakeFileName(const std::string &name, Options *options) {
  options->file = name;
  return !name.empty();
}

const VerbOption kGetOptions[] = {
    {"-r,--raw", "", "As the store has it: no op function brings it up to date", TakeRaw},
    {},
};
const VerbOption kSetOptions[] = {
    {"--file", "FILE", "PATH=VALUE lines or JSON, as get prints them; \"-\": standard input",
     TakeFileName},
    {},
};

}  // namespace

const Verb kRequestVerbs[] = {
    {"get", "[-r] PATH...", "Value of one parameter; path=value lines of more", 1, 200, false, true,
     Get, kGetOptions},
    {"set", "[--file FILE] [PARAMETER VALUE...]",
     "Set parameters, also as PARAMETER=VALUE; those of one object travel together", 0, 200, true,
     true, Set, kSetOptions},
    {"add", "ARRAY", "Add an instance and print its path", 1, 1, false, true, Add},
    {"del", "INSTANCE", "Delete an instance", 1, 1, false, true, Del},
    {"list", "ARRAY", "Instance numbers of an array", 1, 1, false, true, List},
    {"attr", "PATH...", "Values with their attributes", 1, 200, false, true, Attr},
    {"refresh", "PATH", "Have the values brought up to date", 1, 1, false, true, Refresh},
    {},
};
