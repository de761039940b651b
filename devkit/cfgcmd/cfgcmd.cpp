// cfgcmd, the gateway's command-line client: its options, help and exit statuses; see cfgcmd.h.
#include "cfgcmd.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <new>
#include <sstream>

#include "ams_print.h"
#include "cfgcmd_complete.h"
#include "cfgcmd_paths.h"
#include "cfgcmd_print.h"
#include "command_line.h"

namespace {

constexpr char kFooter[] =
    "Exit status: 0 done, 1 the gateway said no, 2 wrong usage, 3 no answer in time.\n"
    "Examples:\n"
    "  cfgcmd get InternetGatewayDevice.DeviceInfo.UpTime\n"
    "  cfgcmd --calls set InternetGatewayDevice.Services.ServiceTelnet.Enable 1\n"
    "  cfgcmd get 'InternetGatewayDevice.Services.**.Enable'\n"
    "  cfgcmd tree InternetGatewayDevice.Services --depth 1 --json\n";

std::string Footer() {
  std::string names;
  for (const Verb *verb : AllVerbs())
    if (verb->free_words) names += (names.empty() ? "" : ", ") + std::string(verb->name);
  return std::string(kFooter) +
         "These take their words as they are, options go before the verb: " + names + "\n";
}

/* What the command line says. */
struct Asked {
  Options options;
  double limit_s = 10;
  Words words;
  const Verb *verb = nullptr;
};

void AddOption(CLI::App *sub, const VerbOption &option, Options *options) {
  auto take = [&option, options](const std::string &value) {
    if (!option.take(value, options))
      throw CLI::ValidationError(option.names, "cannot be \"" + value + "\"");
  };
  if (option.value[0] == '\0')
    sub->add_flag_function(
        option.names, [take](int64_t) { take(""); }, option.help);
  else
    sub->add_option_function<std::string>(option.names, take, option.help)->type_name(option.value);
}

/* A verb's own help; its row tells the words, which the library would call "words". */
std::string VerbHelp(const Verb &verb, const CLI::App *sub, CLI::AppFormatMode mode) {
  return std::string(verb.help) + "\nUsage: " + Usage(verb) + "\n" +
         CLI::Formatter().make_groups(sub, mode);
}

void AddVerb(CLI::App *app, const Verb &verb, Asked *asked) {
  std::string help = verb.arguments;
  help += help.empty() ? verb.help : std::string(": ") + verb.help;
  CLI::App *sub = app->add_subcommand(verb.name, help);
  sub->formatter_fn([&verb](const CLI::App *of, const std::string &, CLI::AppFormatMode mode) {
    return VerbHelp(verb, of, mode);
  });
  for (const VerbOption *row = verb.options; row != nullptr && row->names != nullptr; ++row)
    AddOption(sub, *row, &asked->options);
  if (verb.free_words) {
    sub->prefix_command();
  } else {
    sub->fallthrough();
    if (verb.most > 0)
      sub->add_option("words", asked->words, verb.arguments)
          ->expected(static_cast<int>(verb.least), static_cast<int>(verb.most))
          ->required(verb.least > 0);
  }
  sub->callback([sub, &verb, asked] {
    asked->verb = &verb;
    if (verb.free_words) asked->words = sub->remaining();
    if (!TakesAsMany(verb, asked->words)) throw CLI::ValidationError("usage: " + Usage(verb));
  });
}

std::string ArgumentsOf(const std::string &name) {
  for (const Verb *verb : AllVerbs())
    if (verb->name == name) return verb->arguments;
  return "";
}

/* None to go on, else the exit status. */
std::optional<int> Parse(int argc, char **argv, Asked *asked) {
  CLI::App app("Reads and changes the parameters of the gateway.", "cfgcmd");
  app.footer(Footer());
  app.require_subcommand(1);
  app.add_flag("--json", asked->options.json, "Print data as JSON");
  app.add_flag("--calls", asked->options.calls,
               "Print the command lines that the request caused, too");
  const CLI::Option *limit = AddTimeLimit(&app, &asked->limit_s);
  CLI::Option *base =
      app.add_option("--base", asked->options.base, "Where paths begin, in place of cfgcmd base's")
          ->type_name("PATH");
  for (const Verb *verb : AllVerbs()) AddVerb(&app, *verb, asked);
  std::optional<int> end = ParseCommandLine(&app, argc, argv, {ArgumentsOf, CandidatesOfKind});
  Options &options = asked->options;
  options.limit_ms = static_cast<uint32_t>(asked->limit_s * 1000);
  options.usual_limit = limit->empty();
  options.base = base->empty() ? KeptBase() : FullPath(options.base == "/" ? "" : options.base, "");
  return end;
}

/* Command lines that were started since the file had `offset` bytes. */
Json CallsSince(uint64_t offset) {
  std::istringstream lines(AppendedSince(kCommandsLog, offset));
  Json list = Json::array();
  for (std::string line; std::getline(lines, line);) list.push_back(line);
  return list;
}

/* `answer`, a JSON document, and the command lines in one document. */
std::string WithCalls(const std::string &answer, const Json &calls) {
  std::string list = JsonText(calls);
  list.pop_back();
  return "{\n\"answer\": " + answer + ",\n\"commands\": " + list + "\n}\n";
}

/* What goes to standard output; as JSON, one document. */
std::string Printed(const Asked &asked, Outcome outcome, uint64_t offset) {
  const Options &options = asked.options;
  const bool done = outcome.status == EXIT_DONE;
  const bool one_document = options.json && !asked.verb->streams;
  std::string text = done ? std::move(outcome.text) : "";
  if (one_document && done && text.empty()) text = "{}\n";
  if (!options.calls) return text;
  const Json calls = CallsSince(offset);
  if (one_document)
    return WithCalls(text.empty() ? "null" : text.substr(0, text.size() - 1), calls);
  if (options.json) return text + Json({{"commands", calls}}).dump() + "\n";
  for (const Json &call : calls) text += "+ " + call.get<std::string>() + "\n";
  return text;
}

}  // namespace

int main(int argc, char **argv) try {
  signal(SIGPIPE, SIG_IGN);
  DF_PRT_MAP[0].level = 100; /* what goes wrong is said once, by the outcome */
  Asked asked;
  if (auto end = Parse(argc, argv, &asked)) return *end;

  uint64_t offset = FileSize(kCommandsLog);
  Outcome outcome = RunVerb(*asked.verb, asked.words, asked.options);
  if (outcome.status != EXIT_DONE && !outcome.text.empty())
    fprintf(stderr, "cfgcmd: %s\n", TerminalText(outcome.text, STDERR_FILENO).c_str());
  fputs(TerminalText(Printed(asked, std::move(outcome), offset), STDOUT_FILENO).c_str(), stdout);
  if (fflush(stdout) != 0) {
    perror("cfgcmd: standard output");
    return EXIT_REFUSED;
  }
  return outcome.status;
} catch (const std::bad_alloc &) {
  fputs("cfgcmd: no memory for what was asked or answered: ask for less, or later\n", stderr);
  return EXIT_REFUSED;
}
