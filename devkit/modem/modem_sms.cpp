// Short messages; see modem_sms.h.
#include "modem_sms.h"

#include <algorithm>

#include "modem_pdu.h"
#include "parse.h"
#include "sms_parts.h"
#include "sms_pdu.h"

namespace {

/* Of 3GPP TS 27.005. */
enum {
  NOT_ALLOWED = 302,
  NOT_SUPPORTED = 303,
  BAD_PDU = 304,
  NO_INDEX = 321,
  FULL = 322,
  NO_CENTRE = 330,
  NO_NETWORK = 331
};

enum { TO_READ, TO_WRITE, TO_RECEIVE };

constexpr size_t kSentMax = 100;
constexpr int kTpduMax = 164; /* octets */
constexpr int kIndexMax = 999;
constexpr int kAllStats = 4;

bool PduMode(const Modem &modem) {
  auto format = modem.settings.find("+CMGF");
  return format == modem.settings.end() || format->second == 0;
}

ModemStorage *Storage(Modem *modem, int which) { return &modem->storages[modem->memory[which]]; }

/* The index that the message got; -1: there is no room. */
int Put(ModemStorage *storage, int stat, const std::string &pdu) {
  for (int index = 0; index < static_cast<int>(storage->size); ++index)
    if (storage->messages.emplace(index, ModemMessage{stat, pdu}).second) return index;
  return -1;
}

/* The stat, length and PDU of "+CMGL:" and "+CMGR:"; reading makes it read. */
void List(ModemMessage *message, const std::string &head, AtAnswer *answer) {
  std::string octets;
  (void)BytesFromHex(message->pdu, &octets); /* only what is hexadecimal is kept */
  answer->lines.push_back(head + std::to_string(message->stat) + ",," +
                          std::to_string(octets.size() - CentreOctets(octets)));
  answer->lines.push_back(message->pdu);
  if (message->stat == SHORTMSG_UNREAD) message->stat = SHORTMSG_READ;
}

std::string LastDigits(const std::string &number) {
  constexpr size_t kSubscriber = 8; /* with or without the country's code they are the same */
  return number.substr(number.size() > kSubscriber ? number.size() - kSubscriber : 0);
}

/* The octets of the PDU at the prompt: NULL, or why it is none of the announced length. */
const char *PduOctets(const AtCall &call, std::string *octets) {
  int length;
  if (!BytesFromHex(call.pdu, octets)) return "the PDU is not hexadecimal digits, two an octet";
  bool announced = AtNumber(call.arguments[0], 1, kTpduMax, &length) &&
                   octets->size() == CentreOctets(*octets) + static_cast<size_t>(length);
  return announced ? nullptr : "the PDU has not as many octets as the command says";
}

/* The same of a message to send. */
const char *SubmitOctets(const AtCall &call, std::string *octets, SubmitPdu *submit) {
  const char *why = PduOctets(call, octets);
  return why != nullptr ? why : ParseSubmit(*octets, submit);
}

AtAnswer BadPdu(const char *why) {
  AtAnswer answer = AtMessageError(BAD_PDU);
  answer.why = why;
  return answer;
}

/* What both commands with a PDU want of their length. */
AtAnswer CheckLength(const Modem &modem, const AtCall &call, size_t most) {
  int length;
  if (call.form == AtCall::TEST) return {};
  if (!PduMode(modem)) return AtMessageError(NOT_SUPPORTED);
  if (call.form != AtCall::SET || call.arguments.size() > most ||
      !AtNumber(call.arguments[0], 1, kTpduMax, &length))
    return AtMessageError(BAD_PDU);
  return {};
}

std::string Fills(const Modem &modem, bool names) {
  std::string text = "+CPMS: ";
  for (const std::string &memory : modem.memory) {
    const ModemStorage &storage = modem.storages.at(memory);
    if (&memory != modem.memory) text += ",";
    if (names) text += "\"" + memory + "\",";
    text += std::to_string(storage.messages.size()) + "," + std::to_string(storage.size);
  }
  return text;
}

/* A stat argument that may be missing. */
bool Stat(const AtCall &call, size_t at, int most, int usual, int *stat) {
  *stat = usual;
  if (call.form == AtCall::RUN || call.arguments.size() <= at) return true;
  return AtNumber(call.arguments[at], 0, most, stat);
}

AtAnswer MessageFormat(Modem *modem, const AtCall &call) {
  int text;
  if (call.form == AtCall::TEST) return {{"+CMGF: (0,1)"}};
  if (call.form == AtCall::READ) return {{PduMode(*modem) ? "+CMGF: 0" : "+CMGF: 1"}};
  if (call.form != AtCall::SET || !AtNumber(call.arguments[0], 0, 1, &text))
    return AtMessageError(NOT_ALLOWED);
  modem->settings["+CMGF"] = text;
  return {};
}

AtAnswer ServiceCentre(Modem *modem, const AtCall &call) {
  if (call.form == AtCall::TEST) return {};
  if (call.form == AtCall::READ)
    return {{"+CSCA: \"" + modem->centre + "\"," +
             (modem->centre.compare(0, 1, "+") == 0 ? "145" : "129")}};
  if (call.form != AtCall::SET || call.arguments.size() > 2) return AtMessageError(NOT_ALLOWED);
  if (!IsNumber(call.arguments[0], true, 20)) return AtMessageError(NOT_ALLOWED);
  modem->centre = call.arguments[0];
  return {};
}

AtAnswer Storages(Modem *modem, const AtCall &call) {
  if (call.form == AtCall::TEST) return {{R"(+CPMS: ("SM","ME"),("SM","ME"),("SM","ME"))"}};
  if (call.form == AtCall::READ) return {{Fills(*modem, true)}};
  if (call.form != AtCall::SET || call.arguments.size() > 3) return AtMessageError(NOT_ALLOWED);
  for (const std::string &name : call.arguments)
    if (modem->storages.count(name) == 0) return AtMessageError(NOT_ALLOWED);
  std::copy(call.arguments.begin(), call.arguments.end(), modem->memory);
  return {{Fills(*modem, false)}};
}

AtAnswer ListMessages(Modem *modem, const AtCall &call) {
  AtAnswer answer;
  int stat;
  if (call.form == AtCall::TEST) return {{"+CMGL: (0-4)"}};
  if (!PduMode(*modem)) return AtMessageError(NOT_SUPPORTED);
  if (call.form == AtCall::READ || !Stat(call, 0, kAllStats, SHORTMSG_UNREAD, &stat))
    return AtMessageError(NOT_ALLOWED);
  for (auto &[index, message] : Storage(modem, TO_READ)->messages)
    if (stat == kAllStats || message.stat == stat)
      List(&message, "+CMGL: " + std::to_string(index) + ",", &answer);
  return answer;
}

AtAnswer ReadMessage(Modem *modem, const AtCall &call) {
  AtAnswer answer;
  int index;
  if (call.form == AtCall::TEST) return {};
  if (!PduMode(*modem)) return AtMessageError(NOT_SUPPORTED);
  auto &messages = Storage(modem, TO_READ)->messages;
  if (call.form != AtCall::SET || !AtNumber(call.arguments[0], 0, kIndexMax, &index) ||
      messages.count(index) == 0)
    return AtMessageError(NO_INDEX);
  List(&messages[index], "+CMGR: ", &answer);
  return answer;
}

/* The flag: 0 the one, 1 all that were read, 2 and sent, 3 and unsent, 4 and unread. */
AtAnswer DeleteMessage(Modem *modem, const AtCall &call) {
  int index, flag;
  if (call.form == AtCall::TEST) return {{"+CMGD: (0-" + std::to_string(kIndexMax) + "),(0-4)"}};
  auto &messages = Storage(modem, TO_READ)->messages;
  if (call.form != AtCall::SET || !AtNumber(call.arguments[0], 0, kIndexMax, &index) ||
      !Stat(call, 1, 4, 0, &flag))
    return AtMessageError(NO_INDEX);
  if (flag == 0) return messages.erase(index) == 1 ? AtAnswer{} : AtMessageError(NO_INDEX);
  const int flag_of_stat[] = {4, 1, 3, 2};
  for (auto it = messages.begin(); it != messages.end();)
    it = flag_of_stat[it->second.stat] <= flag ? messages.erase(it) : std::next(it);
  return {};
}

AtAnswer SendArguments(Modem *modem, const AtCall &call) { return CheckLength(*modem, call, 1); }

AtAnswer Send(Modem *modem, const AtCall &call) {
  std::string octets;
  SubmitPdu submit;
  const char *why = SubmitOctets(call, &octets, &submit);
  if (why != nullptr) return BadPdu(why);
  if (modem->signal == kModemNoNetwork) return AtMessageError(NO_NETWORK);
  if (submit.centre_octets == 1 && modem->centre.empty()) return AtMessageError(NO_CENTRE);
  modem->sent.push_back({submit.number, call.pdu});
  if (modem->sent.size() > kSentMax) modem->sent.pop_front();
  struct tm now;
  if (LastDigits(submit.number) == LastDigits(modem->number) &&
      modem->waiting.size() < kModemWaitingMax && gmtime_r(&call.now, &now) != nullptr)
    (void)ModemReceive(modem, DeliverPdu(submit, modem->centre, modem->number, now));
  int reference = modem->reference;
  modem->reference = (reference + 1) % 256;
  return {{"+CMGS: " + std::to_string(reference)}};
}

AtAnswer WriteArguments(Modem *modem, const AtCall &call) {
  int stat;
  AtAnswer answer = CheckLength(*modem, call, 2);
  if (answer.result == "OK" && !Stat(call, 1, SHORTMSG_SENT, SHORTMSG_UNSENT, &stat))
    return AtMessageError(BAD_PDU);
  return answer;
}

/* Received messages can be written, too; those are taken as they are. */
AtAnswer Write(Modem *modem, const AtCall &call) {
  std::string octets;
  SubmitPdu submit;
  int stat;
  (void)Stat(call, 1, SHORTMSG_SENT, SHORTMSG_UNSENT, &stat); /* it was checked */
  const char *why =
      stat >= SHORTMSG_UNSENT ? SubmitOctets(call, &octets, &submit) : PduOctets(call, &octets);
  if (why != nullptr) return BadPdu(why);
  int index = Put(Storage(modem, TO_WRITE), stat, call.pdu);
  if (index < 0) return AtMessageError(FULL);
  return {{"+CMGW: " + std::to_string(index)}};
}

}  // namespace

const AtRow kSmsRows[] = {
    {"+CMGF", AtErrors::MESSAGE, MessageFormat, nullptr},
    {"+CSCA", AtErrors::MESSAGE, ServiceCentre, nullptr},
    {"+CPMS", AtErrors::MESSAGE, Storages, nullptr},
    {"+CMGL", AtErrors::MESSAGE, ListMessages, nullptr},
    {"+CMGR", AtErrors::MESSAGE, ReadMessage, nullptr},
    {"+CMGD", AtErrors::MESSAGE, DeleteMessage, nullptr},
    {"+CMGS", AtErrors::MESSAGE, SendArguments, Send},
    {"+CMGW", AtErrors::MESSAGE, WriteArguments, Write},
    {},
};

/* ---- the network's side ---- */

std::string ModemDeliverWaiting(Modem *modem) {
  std::string place;
  while (!modem->waiting.empty()) {
    int index = Put(Storage(modem, TO_RECEIVE), SHORTMSG_UNREAD, modem->waiting.front());
    if (index < 0) return "";
    modem->waiting.pop_front();
    place = modem->memory[TO_RECEIVE] + " " + std::to_string(index);
  }
  return place;
}

std::string ModemReceive(Modem *modem, const std::string &pdu) {
  modem->waiting.push_back(pdu);
  return ModemDeliverWaiting(modem);
}

/* The codec makes what would be sent, and the network's other end makes of it what is received. */
const char *ModemDeliverText(Modem *modem, const std::string &from, const std::string &text,
                             const struct tm &when, std::vector<std::string> *pdus) {
  ShortMsgParts parts;
  ShortMsgHeader header;
  ShortMsgParam record = {};
  record.TPA[0] = '0'; /* any number: only its place is taken */
  if (ShortMsgPartsOf(text.data(), text.size(), &parts) < 0)
    return "the text takes more than 255 messages: shorten it";
  unsigned reference = ++modem->long_reference;
  while (ShortMsgNextPart(&parts, &record, &header) != 0) {
    char pdu[SHORTMSG_PDU_SIZE];
    std::string octets;
    SubmitPdu submit;
    header.octets[3] = static_cast<uint8_t>(reference >> 8); /* each sender counts its own */
    header.octets[4] = static_cast<uint8_t>(reference);
    PduEncode(&record, pdu, parts.total > 1 ? &header : nullptr);
    (void)BytesFromHex(pdu, &octets); /* only what is hexadecimal is kept */
    const char *why = ParseSubmit(octets, &submit);
    if (why != nullptr) return why;
    pdus->push_back(DeliverPdu(submit, modem->centre, from, when));
  }
  return nullptr;
}
