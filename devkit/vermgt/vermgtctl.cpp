// vermgtctl: makes images, makes the version manager misbehave, and looks at what it does. What is
// done is decided in vermgt.cpp; here are words and printing.
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "ams_print.h"
#include "command_line.h"
#include "endpoint_call.h"
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
    "Exit status: 0 done, 1 it said no, or the order that was watched failed, 2 wrong usage, 3 no\n"
    "answer, or nothing to watch, in time.\n"
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

/* Its reply; what lacks is said. The status to end with. */
int Ask(const Asked &asked, const char *verb, Json *reply) {
  Json request = {{"verb", verb}, {"how", asked.how}, {"amount", asked.amount}};
  std::string bytes;
  if (CallEndpoint(kVersionManager, VERSION_CONTROL, ControlBytes(request),
                   static_cast<uint32_t>(asked.limit_s * 1000), &bytes) != EXIT_DONE)
    return Say(EXIT_NO_ANSWER, bytes);
  *reply = ControlReplyIn(bytes.c_str());
  if (reply->is_null())
    return Say(EXIT_NO_ANSWER, std::string(kVersionManager) + " is no version manager");
  return EXIT_DONE;
}

int Print(const Asked &asked) {
  Json reply;
  int status = Ask(asked, asked.verb.c_str(), &reply);
  return status == EXIT_DONE ? ControlPrint("vermgtctl", reply, asked.json, PrintState) : status;
}

/* ---- watching ---- */

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr auto kLook = std::chrono::milliseconds(50), kLine = std::chrono::milliseconds(1000);

/* What goes on, and how far it is. */
struct Stage {
  std::string what, how_far;
};

/* What curl, if it runs, writes. Processes go while they are looked at. */
Stage Fetching(double limit_s) {
  std::error_code gone;
  for (const auto &process : fs::directory_iterator("/proc", gone)) {
    std::string name, word;
    std::ifstream comm(process.path() / "comm"), words(process.path() / "cmdline");
    if (!std::getline(comm, name) || name != "curl") continue;
    while (std::getline(words, word, '\0') && word != "-o") {
    }
    if (!std::getline(words, word, '\0')) continue;
    uintmax_t bytes = fs::file_size(word, gone);
    return {"fetching " + word, std::to_string(gone ? 0 : bytes) + " bytes"};
  }
  std::ostringstream limit;
  limit << limit_s << " s at most";
  return {"waiting for an order", limit.str()};
}

Stage StageOf(const Json &state, bool began, double limit_s) {
  if (!began) return Fetching(limit_s);
  return {"order " + state["name"].get<std::string>() + " of " +
              state["orderer"].get<std::string>() + ": " + state["word"].get<std::string>(),
          "after " + std::to_string(state["polls"].get<int>()) + " polls"};
}

/* A line for each stage, and one a second for how far a long one is. Ends with the order that runs,
   or else with the next one. */
int Watch(const Asked &asked) {
  auto limit = std::chrono::duration<double>(asked.limit_s);
  auto changed = Clock::now(), told = changed;
  Stage last;
  int before = -1; /* orders that are over */
  for (;; std::this_thread::sleep_for(kLook)) {
    Json reply;
    int status = Ask(asked, "state", &reply);
    if (status != EXIT_DONE) return status;
    const Json &state = reply["state"];
    bool runs = state["runs"];
    if (before < 0) before = state["orders"].get<int>() - (runs ? 1 : 0);
    bool began = state["orders"] > before;
    Stage stage = StageOf(state, began, asked.limit_s);
    auto now = Clock::now();
    bool next = stage.what != last.what, moved = stage.how_far != last.how_far;
    if (next || (moved && now - told >= kLine)) {
      printf("%s, %s\n", stage.what.c_str(), stage.how_far.c_str());
      fflush(stdout); /* a reader that is gone is no reason to end */
      told = now;
    }
    if (next || moved) changed = now;
    last = stage;
    if (began && !runs) return state["word"] == "success" ? EXIT_DONE : EXIT_REFUSED;
    if (now - changed > limit)
      return Say(EXIT_NO_ANSWER, "nothing happened in time: --timeout watches longer");
  }
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
  verb("watch", "What becomes of a download, from the fetching on, until its order ends");
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
  if (asked.verb == "image") return MakeImage(asked);
  return asked.verb == "watch" ? Watch(asked) : Print(asked);
}
