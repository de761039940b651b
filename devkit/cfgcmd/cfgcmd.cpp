// cfgcmd, the gateway's command-line client: its verbs, options, help and exit statuses.
#include "cfgcmd.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <sstream>

#include "ams_print.h"
#include "tds.h"

extern "C" {
/* Nothing is printed by the libraries: what goes wrong is said once, by the outcome. */
PrtMapEntry DF_PRT_MAP[] = {{"default", 100}, {nullptr, 0}};
const MsgEntry prosCtlMsgTab[] = {{0, nullptr}};
}

const std::vector<Verb> kVerbs = {
    {"get", "PATH", "Value of a parameter; path=value lines of anything else", 1, 1, false, true,
     VerbGet},
    {"set", "PATH VALUE...", "Set parameters; those of one object travel together", 2, 200, true,
     true, VerbSet},
    {"add", "ARRAY", "Add an instance and print its path", 1, 1, false, true, VerbAdd},
    {"del", "INSTANCE", "Delete an instance", 1, 1, false, true, VerbDel},
    {"list", "ARRAY", "Instance numbers of an array", 1, 1, false, true, VerbList},
    {"attr", "PATH", "Values with their attributes", 1, 1, false, true, VerbAttr},
    {"refresh", "PATH", "Have the values brought up to date", 1, 1, false, true, VerbRefresh},
    {"tree", "[PATH]", "List what there is: path, type, value, description", 0, 1, false, true,
     VerbTree},
    {"sset", "PATH VALUE", "Write a status straight to the store, read-only ones too", 2, 2, true,
     true, VerbSset},
    {"send", "NAME ID [--wait] [--text T | --hex H]", "Send any message to any endpoint", 2, 5,
     true, true, VerbSend},
    {"listen", "NAME [COUNT]", "Be an endpoint and print the messages it gets, COUNT of them", 1, 2,
     false, false, VerbListen},
    {"publish", "NAME ID [--text T | --hex H]",
     "Be an endpoint and notify all that registered for its message", 2, 4, true, true,
     VerbPublish},
    {"level", "MODULE N", "Print level of a module of the daemon, or of all", 2, 2, false, true,
     VerbLevel},
    {"trace", "on|off", "Message trace of the daemon", 1, 1, false, true, VerbTrace},
    {"mem", "", "The daemon's live memory by tag", 0, 0, false, true, VerbMem},
    {"wait", "NAME...", "Wait until endpoints serve messages", 1, 50, false, false, VerbWait},
    {"manully_inform", "WORD...", "Record an inform for the management client", 1, 50, true, true,
     VerbInform},
    {"batch", "[FILE]", "Requests from FILE or standard input, one a line", 0, 1, false, false,
     VerbBatch},
    {"complete", "[--verbs] WORD", "", 0, 2, true, false, VerbComplete},
};

const Verb *FindVerb(const std::string &name) {
  for (const Verb &verb : kVerbs)
    if (name == verb.name) return &verb;
  return nullptr;
}

namespace {

constexpr char kCommands[] = "/var/log/devkit/commands";

constexpr char kFooter[] =
    "Exit status: 0 done, 1 the gateway said no, 2 wrong usage, 3 no answer in time.\n"
    "set, sset, send and manully_inform take their words as they are: options go before the verb.\n"
    "Examples:\n"
    "  cfgcmd get InternetGatewayDevice.DeviceInfo.UpTime\n"
    "  cfgcmd --calls set InternetGatewayDevice.Services.ServiceTelnet.Enable 1\n"
    "  cfgcmd tree InternetGatewayDevice.Services --json\n";

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
  sub->footer(std::string("Usage: cfgcmd [OPTIONS] ") + verb.name + " " + verb.arguments);
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
    if (asked->words.size() < verb.least || asked->words.size() > verb.most)
      throw CLI::ValidationError(std::string("usage: cfgcmd ") + verb.name + " " + verb.arguments);
  });
}

/* 0 to go on, else the exit status + 1 (help is asked for: 1). */
int ParseCommandLine(int argc, char **argv, Asked *asked) {
  CLI::App app("Reads and changes the parameters of the gateway.", "cfgcmd");
  app.footer(kFooter);
  app.require_subcommand(1);
  app.add_flag("--json", asked->options.json, "Print data as JSON");
  app.add_flag("--calls", asked->options.calls,
               "Print the command lines that the request caused, too");
  app.add_option("--timeout", asked->limit_s, "Seconds to wait for each answer")
      ->check(CLI::Range(0.001, 86400.0))
      ->capture_default_str();
  for (const Verb &verb : kVerbs) AddVerb(&app, verb, asked);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp &help) {
    return app.exit(help) + 1;
  } catch (const CLI::ParseError &error) {
    fprintf(stderr, "cfgcmd: %s (see cfgcmd --help)\n", error.what());
    return kUsage + 1;
  }
  asked->options.limit_ms = static_cast<uint32_t>(asked->limit_s * 1000);
  return 0;
}

/* Command lines that were started since the file had `offset` bytes. */
std::string CallsText(uint64_t offset, bool json) {
  std::istringstream lines(AppendedSince(kCommands, offset));
  std::string text, line;
  Json list = Json::array();
  while (std::getline(lines, line)) {
    text += "+ " + line + "\n";
    list.push_back(line);
  }
  return json ? JsonText({{"commands", list}}) : text;
}

}  // namespace

int main(int argc, char **argv) {
  signal(SIGPIPE, SIG_IGN);
  Asked asked;
  int parsed = ParseCommandLine(argc, argv, &asked);
  if (parsed != 0) return parsed - 1;

  uint64_t offset = FileSize(kCommands);
  Outcome outcome = asked.verb->run(asked.words, asked.options);
  bool whole = outcome.status == kDone || asked.verb->run == VerbBatch;
  if (whole)
    fputs(TerminalText(outcome.text, STDOUT_FILENO).c_str(), stdout);
  else
    fprintf(stderr, "cfgcmd: %s\n", TerminalText(outcome.text, STDERR_FILENO).c_str());
  if (asked.options.calls)
    fputs(TerminalText(CallsText(offset, asked.options.json), STDOUT_FILENO).c_str(), stdout);
  if (fflush(stdout) != 0) {
    perror("cfgcmd: standard output");
    return kRefused;
  }
  return outcome.status;
}
