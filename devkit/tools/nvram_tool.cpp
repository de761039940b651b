// nvram: looks at and changes the non-volatile settings by hand, with or without a running gateway.
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "ams_print.h"
#include "command_line.h"
#include "exit_status.h"
#include "nvram.h"

namespace {

/* What the command line says. */
struct Asked {
  int area = NVTYPE_STAGING;
  std::string key, setting;
};

ExitStatus Done(int result) { return result == 0 ? EXIT_DONE : EXIT_REFUSED; }

ExitStatus Get(const Asked &asked) {
  std::unique_ptr<char, decltype(&free)> value(nvram_get(asked.key.c_str(), asked.area), free);
  if (!value) {
    fprintf(stderr, "nvram: \"%s\" is not set in area %d: nvram show lists what is\n",
            asked.key.c_str(), asked.area);
    return EXIT_REFUSED;
  }
  puts(value.get());
  return EXIT_DONE;
}

ExitStatus Set(const Asked &asked) {
  size_t equals = asked.setting.find('=');
  if (equals == std::string::npos || equals == 0) {
    fprintf(stderr, "nvram: \"%s\" is no KEY=VALUE\n", asked.setting.c_str());
    return EXIT_USAGE;
  }
  return Done(nvram_set(asked.setting.substr(0, equals).c_str(),
                        asked.setting.substr(equals + 1).c_str(), asked.area));
}

ExitStatus Unset(const Asked &asked) { return Done(nvram_unset(asked.key.c_str(), asked.area)); }

ExitStatus Commit(const Asked &asked) { return Done(nvram_commit(asked.area)); }

int ShowOne(const char *key, const char *value, void *) {
  printf("%s=%s\n", key, value);
  return 0;
}

ExitStatus Show(const Asked &asked) { return Done(nvram_walk(asked.area, "", ShowOne, nullptr)); }

int OfferKey(const char *key, const char *, void *found) {
  static_cast<Candidates *>(found)->push_back({key, ""});
  return 0;
}

/* The keys of both areas, in a setting with their "=". */
Candidates Keys(const std::string &kind, const Typed &) {
  Candidates found;
  if (kind.compare(0, 3, "KEY") != 0 || nvram_init_semaphore() != 0) return found;
  for (int area : {NVTYPE_STAGING, NVTYPE_BASIC}) (void)nvram_walk(area, "", OfferKey, &found);
  for (Candidate &candidate : found)
    if (kind != "KEY") candidate.text += '=';
  return found;
}

}  // namespace

int main(int argc, char **argv) {
  AMS_PrintMgt_Init();
  Asked asked;
  ExitStatus (*run)(const Asked &) = nullptr;
  CLI::App app("Non-volatile settings of the gateway.", "nvram");
  app.require_subcommand(1)->fallthrough();
  app.add_option("--area", asked.area, "1: changed parameters, 2: basic settings")
      ->check(CLI::Range(1, 2))
      ->capture_default_str();
  auto verb = [&](const char *name, const char *help, ExitStatus (*handler)(const Asked &)) {
    CLI::App *sub = app.add_subcommand(name, help);
    sub->callback([&run, handler] { run = handler; });
    return sub->fallthrough();
  };
  verb("get", "Print a value", Get)->add_option("KEY", asked.key)->type_name("KEY")->required();
  verb("set", "Set a value, seen at once", Set)
      ->add_option("KEY=VALUE", asked.setting)
      ->type_name("KEY=")
      ->required();
  verb("unset", "Remove a key", Unset)->add_option("KEY", asked.key)->type_name("KEY")->required();
  verb("commit", "Make the area survive a restart", Commit);
  verb("show", "Print every setting of the area", Show);
  if (auto end = ParseCommandLine(&app, argc, argv, {nullptr, Keys})) return *end;
  /* Settings that cannot be opened are not settings that are not set. */
  return nvram_init_semaphore() == 0 ? run(asked) : EXIT_REFUSED;
}
