// What modemctl asks: messages from the network, behaviour, what the modem keeps; see
// modem_control.h.
#include "modem_control.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "modem_core.h"
#include "modem_sms.h"
#include "parse.h"
#include "sms_text.h"

namespace {

constexpr size_t kPduMax = 2 * 200, kCodeMax = 64;

Json Done(const std::string &text = "") { return ControlReply(EXIT_DONE, text); }
Json Refused(const std::string &text) { return ControlReply(EXIT_REFUSED, text); }
Json Usage(const std::string &text) { return ControlReply(EXIT_USAGE, text); }

std::string Word(const Json &request, const char *name) { return request.value(name, ""); }

bool IsSubscriber(const std::string &text) { return IsNumber(text, true, 20); }

/* What the sender of a message may be called. */
bool IsName(const std::string &text) {
  return !text.empty() && text.size() <= 11 &&
         std::all_of(text.begin(), text.end(), [](unsigned char c) {
           return isalnum(c) != 0 || strchr(" .-_", c) != nullptr;
         });
}

/* "2024-11-25 09:30:15"; "" is `now`. By parts: messages know later years than the seconds of a
 * board. */
bool Time(const std::string &text, time_t now, struct tm *when) {
  if (text.empty()) return gmtime_r(&now, when) != nullptr;
  *when = {};
  const char *end = strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", when);
  return end != nullptr && *end == '\0';
}

/* ---- messages ---- */

Json ReceivePdus(Modem *modem, const std::vector<std::string> &pdus) {
  std::string text;
  if (modem->waiting.size() + pdus.size() > kModemWaitingMax)
    return Refused("1000 messages wait for room: have some deleted, or modemctl reset");
  for (const std::string &pdu : pdus) {
    std::string place = ModemReceive(modem, pdu);
    text += (place.empty() ? "waits for room in " + modem->memory[2] : place) + "\n";
  }
  return Done(text);
}

Json Receive(Modem *modem, const Json &request, time_t now) {
  std::string pdu = Word(request, "pdu"), from = Word(request, "from"),
              text = Word(request, "message"), octets;
  struct tm when;
  if (!pdu.empty()) {
    if (pdu.size() > kPduMax || !BytesFromHex(pdu, &octets))
      return Usage("no PDU: give 2 to 400 hexadecimal digits, two an octet");
    return ReceivePdus(modem, {HexFromBytes(octets)});
  }
  if (!IsSubscriber(from) && !IsName(from))
    return Usage("\"" + from +
                 "\" sends no messages: give a number of 1 to 20 digits, or a name of "
                 "1 to 11 letters and digits");
  if (!Time(Word(request, "time"), now, &when))
    return Usage("no such time: write it as \"2024-11-25 09:30:15\"");
  std::vector<std::string> pdus;
  const char *why = ModemDeliverText(modem, from, text, when, &pdus);
  if (why != nullptr) return Refused(why);
  return ReceivePdus(modem, pdus);
}

/* ---- what it keeps ---- */

const char *const kKinds[] = {"normal", "slow", "refuse", "garbage", "drop"};

Json State(Modem *modem, const Json &, time_t) {
  Json storages = Json::object(), contacts = Json::array(), sent = Json::array(),
       calls = Json::array(), ussd = Json::object();
  for (const auto &[name, storage] : modem->storages) {
    Json list = Json::array();
    for (const auto &[index, message] : storage.messages)
      list.push_back({{"index", index}, {"status", message.stat}, {"pdu", message.pdu}});
    storages[name] = {{"size", storage.size}, {"messages", list}};
  }
  for (const auto &[index, contact] : modem->contacts)
    contacts.push_back({{"index", index},
                        {"number", contact.number},
                        {"type", contact.type},
                        {"name", contact.name}});
  for (const ModemSent &message : modem->sent)
    sent.push_back({{"to", message.to}, {"pdu", message.pdu}});
  for (const ModemCall &call : modem->calls)
    calls.push_back({{"command", call.command}, {"result", call.result}});
  for (const auto &[code, answer] : modem->ussd)
    ussd[code] = {{"text", answer.text}, {"dcs", answer.dcs}};
  Json reply = Done();
  reply["state"] = {{"number", modem->number},
                    {"centre", modem->centre},
                    {"charset", modem->charset},
                    {"signal", modem->signal},
                    {"attached", modem->attached},
                    {"behaviour", kKinds[modem->behaviour.kind]},
                    {"amount", modem->behaviour.amount},
                    {"only", modem->behaviour.only},
                    {"memory", modem->memory},
                    {"storages", storages},
                    {"waiting", modem->waiting.size()},
                    {"phonebook", {{"size", modem->contacts_size}, {"entries", contacts}}},
                    {"settings", modem->settings},
                    {"ussd", ussd},
                    {"sent", sent},
                    {"commands", calls}};
  return reply;
}

/* ---- what it is told to be ---- */

Json Behave(Modem *modem, const Json &request, time_t) {
  std::string how = Word(request, "how"), only = Word(request, "only");
  if (how == "vanish" || how == "return") {
    modem->attached = how == "return";
    if (!modem->attached) ModemPowerCycle(modem);
    return Done();
  }
  auto kind = std::find(std::begin(kKinds), std::end(kKinds), how);
  int amount = ControlNumber(request, "amount", 0);
  if (kind == std::end(kKinds))
    return Usage("no such behaviour as \"" + how +
                 "\": normal, slow MS, refuse [CODE], garbage, drop, vanish, return");
  if (amount < 0 || amount > 600000) return Usage("a number from 0 to 600000, please");
  for (char &letter : only) letter = static_cast<char>(toupper(static_cast<unsigned char>(letter)));
  if (only.compare(0, 2, "AT") == 0) only.erase(0, 2);
  if (!only.empty() && only[0] != '+' && FindAtRow("+" + only) != nullptr) only.insert(0, "+");
  if (!only.empty() && FindAtRow(only) == nullptr)
    return Usage("no command AT" + only + " is known: --only takes a name such as +CMGS");
  modem->behaviour = {static_cast<ModemBehaviour::Kind>(kind - std::begin(kKinds)), amount, only};
  return Done();
}

Json Number(Modem *modem, const Json &request, time_t) {
  std::string number = Word(request, "number");
  if (number.empty()) return Done(modem->number + "\n");
  if (!IsSubscriber(number)) return Usage("\"" + number + "\" is no number: give 1 to 20 digits");
  modem->number = number;
  return Done();
}

Json Signal(Modem *modem, const Json &request, time_t) {
  const int strength = ControlNumber(request, "strength", modem->signal);
  if (!request.contains("strength")) return Done(std::to_string(strength) + "\n");
  if ((strength < 0 || strength > kModemBestSignal) && strength != kModemNoNetwork)
    return Usage("no such signal as " + request["strength"].dump() +
                 ": 0 to 31, or 99 for no network");
  modem->signal = strength;
  return Done();
}

Json Size(Modem *modem, const Json &request, time_t) {
  std::string what = Word(request, "what");
  int places = ControlNumber(request, "places", 0);
  bool contacts = what == "phonebook";
  if (!contacts && modem->storages.count(what) == 0)
    return Usage("no storage \"" + what + "\": SM, ME or phonebook");
  if (places < 1 || places > 255) return Usage("a size from 1 to 255, please");
  int last = 0; /* places that are needed */
  if (contacts && !modem->contacts.empty()) last = modem->contacts.rbegin()->first;
  if (!contacts && !modem->storages[what].messages.empty())
    last = modem->storages[what].messages.rbegin()->first + 1;
  if (last > places)
    return Refused("place " + std::to_string(last) + " of " + what +
                   " is taken: have it deleted first");
  (contacts ? modem->contacts_size : modem->storages[what].size) = static_cast<size_t>(places);
  (void)ModemDeliverWaiting(modem); /* if there is room now */
  return Done();
}

Json Ussd(Modem *modem, const Json &request, time_t) {
  std::string code = Word(request, "code");
  int dcs = ControlNumber(request, "dcs", 0);
  if (code.empty() || code.size() > kCodeMax || modem->ussd.size() >= 1000 ||
      code.find_first_not_of("+*#/0123456789") != code.npos)
    return Usage("\"" + code +
                 "\" is no code: write \"*100#\", and \"*100#/1\" for choice 1 of it");
  if (dcs < 0 || dcs > 255) return Usage("a DCS from 0 to 255, please");
  if (request.contains("answer"))
    modem->ussd[code] = {Word(request, "answer").substr(0, 182), dcs};
  else if (modem->ussd.erase(code) == 0)
    return Refused("the network knows no " + code + ": modemctl state lists the codes");
  return Done();
}

Json Reset(Modem *modem, const Json &, time_t) {
  *modem = Modem();
  return Done();
}

Json Wait(Modem *, const Json &, time_t) { return Done(); }

const struct {
  const char *name;
  Json (*run)(Modem *modem, const Json &request, time_t now);
} kVerbs[] = {
    {"receive", Receive}, {"state", State},   {"behave", Behave},
    {"number", Number},   {"signal", Signal}, {"size", Size},
    {"ussd", Ussd},       {"reset", Reset},   {"wait", Wait},
};

}  // namespace

Json ModemControl(Modem *modem, const Json &request, time_t now) {
  try {
    std::string name = request.is_object() ? Word(request, "verb") : "";
    for (const auto &verb : kVerbs)
      if (name == verb.name) return verb.run(modem, request, now);
    return Usage("no verb \"" + name + "\": see modemctl --help");
  } catch (const Json::exception &error) {
    return Usage(std::string("a request that is none of modemctl's: ") + error.what());
  }
}
