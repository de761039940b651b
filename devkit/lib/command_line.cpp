// Command lines; see command_line.h.
#include "command_line.h"

#include <cstdio>

#include "exit_status.h"

void AddTimeLimit(CLI::App *app, double *limit_s) {
  app->add_option("--timeout", *limit_s, "Seconds to wait for each answer")
      ->check(CLI::Range(0.001, 86400.0))
      ->envname("GATEWAY_TIMEOUT")
      ->capture_default_str();
}

std::optional<int> ParseCommandLine(CLI::App *app, int argc, char **argv) {
  app->set_version_flag("--version", app->get_name() + " " SYSMGR_VERSION);
  try {
    app->parse(argc, argv);
    return std::nullopt;
  } catch (const CLI::Success &asked_for) {
    return app->exit(asked_for);
  } catch (const CLI::ParseError &error) {
    const char *program = app->get_name().c_str();
    fprintf(stderr, "%s: %s (see %s --help)\n", program, error.what(), program);
    return EXIT_USAGE;
  }
}
