// Command lines; see command_line.h.
#include "command_line.h"

#include <cstdio>
#include <cstring>

#include "exit_status.h"
#include "nearest.h"

CLI::Option *AddTimeLimit(CLI::App *app, double *limit_s) {
  return app->add_option("--timeout", *limit_s, "Seconds to wait for each answer")
      ->check(CLI::Range(0.001, 86400.0))
      ->envname("GATEWAY_TIMEOUT")
      ->capture_default_str();
}

namespace {

/* Ends the parsing. The program's own help() would be that of the verb "help". */
void PrintHelp(const CLI::App &app, const std::string &verb) {
  const CLI::App *of = verb.empty() ? &app : VerbNamed(app, verb);
  if (of == nullptr) throw CLI::ExtrasError(app.get_name(), {verb});
  auto own = app.get_formatter();
  fputs((verb.empty() ? own->make_help(of, app.get_name(), CLI::AppFormatMode::Normal)
                      : of->help(app.get_name()))
            .c_str(),
        stdout);
  throw CLI::Success();
}

/* The word that stands where a verb has to; "": none does, or one that there is. */
std::string NoVerb(const CLI::App &app) {
  if (VerbsOf(app).empty() || !app.get_subcommands().empty()) return "";
  for (const std::string &word : app.remaining())
    if (!word.empty() && word[0] != '-') return word;
  return "";
}

std::string WrongVerb(const CLI::App &app, const std::string &word) {
  std::vector<std::string> names;
  for (const CLI::App *verb : VerbsOf(app)) names.push_back(verb->get_name());
  const std::string near = Nearest(word, names);
  return "no verb \"" + word + "\"" + (near.empty() ? "" : ", did you mean \"" + near + "\"?");
}

}  // namespace

std::optional<int> ParseCommandLine(CLI::App *app, int argc, char **argv,
                                    const Completion &completion) {
  app->set_version_flag("--version", app->get_name() + " " SYSMGR_VERSION);
  std::string of;
  if (!VerbsOf(*app).empty()) {
    CLI::App *help = app->add_subcommand("help", "[VERB]: What a verb takes");
    help->add_option("VERB", of, "The verb, or none for all");
    help->callback([app, &of] { PrintHelp(*app, of); });
  }
  if (argc > 1 && strcmp(argv[1], "complete") == 0) {
    fputs(CompletionText(*app, {argv + 2, argv + argc}, completion).c_str(), stdout);
    return EXIT_DONE;
  }
  try {
    app->parse(argc, argv);
    return std::nullopt;
  } catch (const CLI::Success &asked_for) {
    return app->exit(asked_for);
  } catch (const CLI::ParseError &error) {
    const char *program = app->get_name().c_str();
    const std::string word = of.empty() ? NoVerb(*app) : of;
    const std::string why = word.empty() ? error.what() : WrongVerb(*app, word);
    fprintf(stderr, "%s: %s (see %s --help)\n", program, why.c_str(), program);
    return EXIT_USAGE;
  }
}
