// modemctl: what the network and the hardware do to the simulated modem, and a look at what it
// keeps. Everything is decided in the simulator (modem_control.cpp); here are words and printing.
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>

#include "command_line.h"
#include "modem_control.h"

namespace {

constexpr char kFooter[] =
    "Exit status: 0 done, 1 the modem said no, 2 wrong usage, 3 no answer in time.\n"
    "Behaviours: normal; slow MS; refuse [CODE]; garbage (in the place of each line but the "
    "last);\n"
    "drop (gone in the middle of the next answer); vanish; return.\n"
    "Examples:\n"
    "  modemctl receive --from 10086 --text 'Your balance is 12.50'\n"
    "  modemctl behave refuse 38 --only CMGS\n"
    "  modemctl ussd '*101#' 'Nothing new'\n";

/* What the command line says. */
struct Asked {
  bool json = false;
  double limit_s = 10;
  std::string from, message, pdu, time, how, only, number, what, code, answer;
  int amount = 0, places = 0, dcs = 0, strength = -1;
};

using Clock = std::chrono::steady_clock;

/* Again and again until it serves. */
Json AskUntilItServes(const Json &request, double limit_s) {
  const auto end = Clock::now() + std::chrono::duration<double>(limit_s);
  double left = limit_s;
  Json reply = ControlAsk(kModemSocket, request, left);
  while (reply.is_null() &&
         (left = std::chrono::duration<double>(end - Clock::now()).count()) > 0) {
    usleep(10000);
    reply = ControlAsk(kModemSocket, request, left);
  }
  return reply;
}

/* ---- the state as lines ---- */

const char *const kStats[] = {"unread", "read", "unsent", "sent"};

std::string String(const Json &value) { return value.get<std::string>(); }

void PrintState(const Json &state) {
  printf("number %s\ncentre %s\ncharacter set %s\n", String(state["number"]).c_str(),
         String(state["centre"]).c_str(), String(state["charset"]).c_str());
  printf("signal %d\n", state["signal"].get<int>());
  printf("%s, behaviour %s", state["attached"].get<bool>() ? "attached" : "vanished",
         String(state["behaviour"]).c_str());
  if (state["amount"] != 0) printf(" %d", state["amount"].get<int>());
  if (state["only"] != "") printf(" only %s", String(state["only"]).c_str());
  printf("\nreads %s, writes %s, receives %s\n", String(state["memory"][0]).c_str(),
         String(state["memory"][1]).c_str(), String(state["memory"][2]).c_str());
  for (const auto &[name, storage] : state["storages"].items()) {
    printf("%s: %zu of %d messages\n", name.c_str(), storage["messages"].size(),
           storage["size"].get<int>());
    for (const Json &message : storage["messages"])
      printf("  %d %s %s\n", message["index"].get<int>(),
             kStats[message["status"].get<unsigned>() & 3], String(message["pdu"]).c_str());
  }
  if (state["waiting"] != 0) printf("  %d more wait for room\n", state["waiting"].get<int>());
  printf("phonebook: %zu of %d contacts\n", state["phonebook"]["entries"].size(),
         state["phonebook"]["size"].get<int>());
  for (const Json &contact : state["phonebook"]["entries"])
    printf("  %d %s %d %s\n", contact["index"].get<int>(), String(contact["number"]).c_str(),
           contact["type"].get<int>(), String(contact["name"]).c_str());
  puts("ussd:");
  for (const auto &[code, answer] : state["ussd"].items())
    printf("  %s %s\n", code.c_str(), answer["text"].dump().c_str());
  puts("sent:");
  for (const Json &message : state["sent"])
    printf("  %s %s\n", String(message["to"]).c_str(), String(message["pdu"]).c_str());
  puts("last commands:");
  for (const Json &call : state["commands"])
    printf("  %s -> %s\n", String(call["command"]).c_str(), String(call["result"]).c_str());
}

/* The status to end with. */
int Print(const Json &reply, const Asked &asked) {
  if (reply.is_null()) {
    fprintf(stderr, "modemctl: no answer at %s: gateway-daemon start modem starts the simulator\n",
            kModemSocket);
    return EXIT_NO_ANSWER;
  }
  return ControlPrint("modemctl", reply, asked.json, PrintState);
}

/* ---- verbs ---- */

CLI::App *AddVerb(CLI::App *app, const char *name, const char *help, Json *request) {
  CLI::App *sub = app->add_subcommand(name, help)->fallthrough();
  sub->callback([request, name] { (*request)["verb"] = name; });
  return sub;
}

void AddVerbs(CLI::App *app, Asked *asked, Json *request) {
  CLI::App *receive = AddVerb(app, "receive", "A message from the network", request);
  CLI::Option *from = receive->add_option("--from", asked->from, "Number or name of the sender");
  CLI::Option *text = receive->add_option("--text", asked->message, "Its text, in UTF-8");
  CLI::Option *pdu = receive->add_option("--pdu", asked->pdu, "The message as it is, hexadecimal");
  receive->add_option("--time", asked->time, "Its time stamp, \"2024-11-25 09:30:15\"");
  from->needs(text)->excludes(pdu);
  text->needs(from)->excludes(pdu);
  AddVerb(app, "state", "What it keeps, and the last commands", request)
      ->add_flag("--json", asked->json, "As a JSON object");
  CLI::App *behave = AddVerb(app, "behave", "How it behaves from now on", request);
  behave->add_option("HOW", asked->how)
      ->type_name("normal|slow|refuse|garbage|drop|vanish|return")
      ->required();
  behave->add_option("AMOUNT", asked->amount, "slow: milliseconds; refuse: the error's number");
  behave->add_option("--only", asked->only, "For one command, such as +CMGS");
  AddVerb(app, "number", "Its own number, where messages come back from", request)
      ->add_option("N", asked->number, "Another number");
  AddVerb(app, "signal", "How strong the network is", request)
      ->add_option("N", asked->strength, "0 to 31, or 99: there is no network")
      ->check(CLI::NonNegativeNumber);
  CLI::App *size = AddVerb(app, "size", "How many messages or contacts fit", request);
  size->add_option("WHAT", asked->what)->type_name("SM|ME|phonebook")->required();
  size->add_option("N", asked->places, "From 1 to 255")->required();
  CLI::App *ussd =
      AddVerb(app, "ussd", "What the network answers to a code; nothing more", request);
  ussd->add_option("CODE", asked->code, "\"*100#\", and \"*100#/1\" for choice 1 of it")
      ->required();
  ussd->add_option("TEXT", asked->answer, "The answer; without it the code is forgotten")
      ->each([request](const std::string &answer) { (*request)["answer"] = answer; });
  ussd->add_option("--dcs", asked->dcs, "The data coding it is sent in, 0: what fits the text");
  AddVerb(app, "reset", "As it was at the start, plugged in", request);
  AddVerb(app, "wait", "Wait until it serves", request);
}

void FillIn(const Asked &asked, Json *request) {
  const std::pair<const char *, const std::string &> texts[] = {
      {"from", asked.from},     {"message", asked.message}, {"pdu", asked.pdu},
      {"time", asked.time},     {"how", asked.how},         {"only", asked.only},
      {"number", asked.number}, {"what", asked.what},       {"code", asked.code}};
  for (const auto &[name, text] : texts)
    if (!text.empty()) (*request)[name] = text;
  (*request)["amount"] = asked.amount;
  (*request)["places"] = asked.places;
  (*request)["dcs"] = asked.dcs;
  (*request)["strength"] = asked.strength;
}

}  // namespace

int main(int argc, char **argv) {
  signal(SIGPIPE, SIG_IGN);
  Asked asked;
  Json request;
  CLI::App app("The network and the hardware around the simulated modem.", "modemctl");
  app.footer(kFooter);
  app.require_subcommand(1);
  AddTimeLimit(&app, &asked.limit_s);
  AddVerbs(&app, &asked, &request);
  if (auto end = ParseCommandLine(&app, argc, argv)) return *end;
  FillIn(asked, &request);
  bool waits = request["verb"] == "wait";
  return Print(waits ? AskUntilItServes(request, asked.limit_s)
                     : ControlAsk(kModemSocket, request, asked.limit_s),
               asked);
}
