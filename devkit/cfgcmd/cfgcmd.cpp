// cfgcmd, the gateway's command-line client: its options, help and exit statuses; see cfgcmd.h.
#include "cfgcmd.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <new>
#include <sstream>

#include "ams_print.h"
#include "cfgcmd_print.h"
#include "command_line.h"

namespace {

constexpr char kFooter[] =
    "Exit status: 0 done, 1 the gateway said no, 2 wrong usage, 3 no answer in time.\n"
    "Examples:\n"
    "  cfgcmd get InternetGatewayDevice.DeviceInfo.UpTime\n"
    "  cfgcmd --calls set InternetGatewayDevice.Services.ServiceTelnet.Enable 1\n"
    "  cfgcmd tree InternetGatewayDevice.Services --json\n";

std::string Footer() {
  std::string names;
  for (const Verb *verb : AllVerbs())
    if (verb->free_words && verb->help[0] != '\0')
      names += (names.empty() ? "" : ", ") + std::string(verb->name);
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

void AddVerb(CLI::App *app, const Verb &verb, Asked *asked) {
  std::string help = verb.arguments;
  help += help.empty() ? verb.help : std::string(": ") + verb.help;
  CLI::App *sub = app->add_subcommand(verb.name, help);
  sub->footer("Usage: " + Usage(verb));
  if (verb.help[0] == '\0') sub->group(""); /* hidden: for the shell's completion */
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

/* None to go on, else the exit status. */
std::optional<int> Parse(int argc, char **argv, Asked *asked) {
  CLI::App app("Reads and changes the parameters of the gateway.", "cfgcmd");
  app.footer(Footer());
  app.require_subcommand(1);
  app.add_flag("--json", asked->options.json, "Print data as JSON");
  app.add_flag("--calls", asked->options.calls,
               "Print the command lines that the request caused, too");
  AddTimeLimit(&app, &asked->limit_s);
  for (const Verb *verb : AllVerbs()) AddVerb(&app, *verb, asked);
  std::optional<int> end = ParseCommandLine(&app, argc, argv);
  asked->options.limit_ms = static_cast<uint32_t>(asked->limit_s * 1000);
  return end;
}

/* Command lines that were started since the file had `offset` bytes. */
std::string CallsText(uint64_t offset, bool json) {
  std::istringstream lines(AppendedSince(kCommandsLog, offset));
  std::string text, line;
  Json list = Json::array();
  while (std::getline(lines, line)) {
    text += "+ " + line + "\n";
    list.push_back(line);
  }
  return json ? JsonText({{"commands", list}}) : text;
}

}  // namespace

int main(int argc, char **argv) try {
  signal(SIGPIPE, SIG_IGN);
  DF_PRT_MAP[0].level = 100; /* what goes wrong is said once, by the outcome */
  Asked asked;
  if (auto end = Parse(argc, argv, &asked)) return *end;

  uint64_t offset = FileSize(kCommandsLog);
  Outcome outcome = RunVerb(*asked.verb, asked.words, asked.options);
  if (outcome.status == EXIT_DONE || outcome.text.empty())
    fputs(TerminalText(std::move(outcome.text), STDOUT_FILENO).c_str(), stdout);
  else
    fprintf(stderr, "cfgcmd: %s\n", TerminalText(std::move(outcome.text), STDERR_FILENO).c_str());
  if (asked.options.calls)
    fputs(TerminalText(CallsText(offset, asked.options.json), STDOUT_FILENO).c_str(), stdout);
  if (fflush(stdout) != 0) {
    perror("cfgcmd: standard output");
    return EXIT_REFUSED;
  }
  return outcome.status;
} catch (const std::bad_alloc &) {
  fputs("cfgcmd: no memory for what was asked or answered: ask for less, or later\n", stderr);
  return EXIT_REFUSED;
}
