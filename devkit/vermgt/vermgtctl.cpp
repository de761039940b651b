// vermgtctl: makes images, makes the version manager misbehave, and looks at what it does. What is
// done is decided in vermgt.cpp; here are words and printing.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "ams_print.h"
#include "command_line.h"
#include "tds_desk.h"
#include "vermgt_image.h"

namespace {

constexpr char kFooter[] =
    "An image is one line, \"sha256 \" and the 64 hexadecimal digits of the digest, and behind "
    "its\n"
    "line feed the content that the digest is of. The version manager takes /tmp/NAME, checks it,\n"
    "and keeps it in /var/persist/firmware/image.\n"
    "Behaviours, until another one is told: normal; occupied; slow N (\"downloading\" for N "
    "polls);\n"
    "reject; fail (to flash); hang (\"downloading\" for ever); die N (at the poll after N);\n"
    "halt PID (as hang, and each poll stops that process, as a breakpoint would).\n"
    "Exit status: 0 done, 1 it said no, 2 wrong usage, 3 no answer in time.\n"
    "Examples:\n"
    "  vermgtctl image /etc/passwd /var/www/firmware.bin\n"
    "  vermgtctl behave slow 20\n"
    "  vermgtctl state --json\n";

/* What the command line says. */
struct Asked {
  bool json = false;
  double limit_s = 10;
  std::string verb, how, content, image;
  int amount = 0;
};

int Say(int status, const std::string &text) {
  fprintf(stderr, "vermgtctl: %s\n", text.c_str());
  return status;
}

int MakeImage(const Asked &asked) {
  std::string content, why;
  if (ImageRead(asked.content.c_str(), &content, &why) != 0) return Say(EXIT_REFUSED, why);
  std::string image = ImageOf(content);
  if (content.empty() || image.size() > kImageMax)
    return Say(EXIT_REFUSED, asked.content + " has " + std::to_string(content.size()) +
                                 " bytes: an image has content, and " + std::to_string(kImageMax) +
                                 " bytes at most");
  return ImageWrite(asked.image.c_str(), image, &why) == 0 ? EXIT_DONE : Say(EXIT_REFUSED, why);
}

void PrintState(const Json &state) {
  int amount = state["amount"];
  printf("behaviour %s%s\n%s\n", state["behaviour"].get<std::string>().c_str(),
         amount == 0 ? "" : (" " + std::to_string(amount)).c_str(),
         state["occupied"].get<bool>() ? "occupied" : "free");
  if (state["name"] != "")
    printf("order %s of %s: %s after %d polls\n", state["name"].get<std::string>().c_str(),
           state["orderer"].get<std::string>().c_str(), state["word"].get<std::string>().c_str(),
           state["polls"].get<int>());
  const Json &flashed = state["flashed"];
  if (flashed.is_null())
    puts("flashed nothing");
  else
    printf("flashed sha256 %s, %zu bytes\n", flashed["sha256"].get<std::string>().c_str(),
           flashed["bytes"].get<size_t>());
}

int Ask(const Asked &asked) {
  Json request = {{"verb", asked.verb}, {"how", asked.how}, {"amount", asked.amount}};
  std::string text = ControlBytes(request);
  void *bytes = nullptr;
  uint32_t length = 0;
  if (tds_call(VERSION_CONTROL, text.data(), static_cast<uint32_t>(text.size()), kVersionManager,
               static_cast<uint32_t>(asked.limit_s * 1000), &bytes, &length) != 0)
    return Say(EXIT_NO_ANSWER, std::string("no answer of ") + kVersionManager + ", " +
                                   strerror(errno) + ": gateway-daemon start vermgt starts it");
  Json reply = ControlReplyIn(bytes == nullptr ? "" : static_cast<char *>(bytes));
  __tds_free(bytes);
  if (reply.is_null())
    return Say(EXIT_NO_ANSWER, std::string(kVersionManager) + " is no version manager");
  return ControlPrint("vermgtctl", reply, asked.json, PrintState);
}

void AddVerbs(CLI::App *app, Asked *asked) {
  auto verb = [&](const char *name, const char *help) {
    CLI::App *sub = app->add_subcommand(name, help)->fallthrough();
    sub->callback([asked, name] { asked->verb = name; });
    return sub;
  };
  CLI::App *image = verb("image", "Make an image of a file");
  image->add_option("FILE", asked->content, "What it holds")->type_name("FILE")->required();
  image->add_option("IMAGE", asked->image, "The file to write it to")
      ->type_name("FILE")
      ->required();
  CLI::App *behave = verb("behave", "How it behaves from now on");
  behave->add_option("HOW", asked->how)
      ->type_name("normal|occupied|slow|reject|fail|hang|die|halt")
      ->required();
  behave->add_option("N", asked->amount,
                     "slow, die: polls that are answered before; halt: a process");
  verb("state", "Its behaviour, the last order, and what is flashed")
      ->add_flag("--json", asked->json, "As a JSON object");
}

}  // namespace

int main(int argc, char **argv) {
  signal(SIGPIPE, SIG_IGN);
  AMS_PrintMgt_Init();
  Asked asked;
  CLI::App app("The hand on the version manager of the gateway on a desk.", "vermgtctl");
  app.footer(kFooter);
  app.require_subcommand(1);
  AddTimeLimit(&app, &asked.limit_s);
  AddVerbs(&app, &asked);
  if (auto end = ParseCommandLine(&app, argc, argv)) return *end;
  return asked.verb == "image" ? MakeImage(asked) : Ask(asked);
}
