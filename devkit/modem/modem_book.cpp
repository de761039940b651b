// Phonebook and dialogues; see modem_book.h.
#include "modem_book.h"

#include "modem_pdu.h"
#include "parse.h"

namespace {

/* Of 3GPP TS 27.007. */
enum {
  FULL = 20,
  BAD_INDEX = 21,
  NOT_FOUND = 22,
  LONG_TEXT = 24,
  BAD_TEXT = 25,
  LONG_NUMBER = 26,
  BAD_NUMBER = 27,
  NO_NETWORK = 30,
  BAD_PARAMETERS = 50
};

constexpr size_t kNumberMax = 40, kNameMax = 14;
constexpr int kInternational = 145;

/* DCS of 3GPP TS 23.038: 7-bit and UCS2. */
enum { DCS_7BIT = 15, DCS_UCS2 = 72 };

size_t Letters(const std::string &utf8) { return Ucs2FromUtf8(utf8).size() / 2; }

std::string Quoted(const std::string &text) { return "\"" + text + "\""; }

bool IsDialled(const std::string &text) {
  return !text.empty() && text.find_first_not_of("+*#0123456789") == text.npos;
}

/* ---- dialogues ---- */

bool HasChoices(const Modem &modem, const std::string &code) {
  auto next = modem.ussd.upper_bound(code + "/");
  return next != modem.ussd.end() && next->first.compare(0, code.size() + 1, code + "/") == 0;
}

/* The text as it stands between the quotes, which its DCS tells: units or packed septets as
   hexadecimal digits, or as it is. */
std::string UssdText(const std::string &utf8, int dcs) {
  int low = dcs & 0x0F;
  if (dcs == 17 || (low >= 8 && low <= 11)) return HexFromBytes(Ucs2FromUtf8(utf8));
  if (dcs == 1) return utf8;
  if (dcs == DCS_7BIT || (low >= 1 && low <= 3)) {
    size_t septets;
    std::string packed = SeptetsFromUtf8(utf8, &septets);
    /* 7 bits left over would read as "@": 3GPP TS 23.038 has a carriage return there. */
    return HexFromBytes(septets % 8 == 7 ? SeptetsFromUtf8(utf8 + "\r") : packed);
  }
  if (low >= 4 && low <= 7) return HexFromBytes(utf8);
  return utf8;
}

void Answer(Modem *modem, const std::string &code) {
  auto found = modem->ussd.find(code);
  ModemUssd answer = {"Unknown choice", 0};
  if (found != modem->ussd.end()) answer = found->second;
  bool open = found != modem->ussd.end() && HasChoices(*modem, code);
  modem->ussd_at = open ? code : "";
  int dcs = answer.dcs;
  if (dcs == 0) dcs = AsciiFromUtf8(answer.text) == answer.text ? DCS_7BIT : DCS_UCS2;
  modem->unsolicited.push_back("+CUSD: " + std::to_string(open ? 1 : 0) + "," +
                               Quoted(UssdText(answer.text, dcs)) + "," + std::to_string(dcs));
}

AtAnswer Phonebook(Modem *modem, const AtCall &call) {
  if (call.form == AtCall::TEST) return {{"+CPBS: (\"SM\")"}};
  if (call.form == AtCall::READ)
    return {{"+CPBS: \"SM\"," + std::to_string(modem->contacts.size()) + "," +
             std::to_string(modem->contacts_size)}};
  if (call.form != AtCall::SET || call.arguments != std::vector<std::string>{"SM"})
    return AtEquipmentError(BAD_PARAMETERS);
  return {};
}

AtAnswer ReadContacts(Modem *modem, const AtCall &call) {
  int first, last, most = static_cast<int>(modem->contacts_size);
  if (call.form == AtCall::TEST)
    return {{"+CPBR: (1-" + std::to_string(most) + ")," + std::to_string(kNumberMax) + "," +
             std::to_string(kNameMax)}};
  if (call.form != AtCall::SET || call.arguments.size() > 2)
    return AtEquipmentError(BAD_PARAMETERS);
  if (!AtNumber(call.arguments[0], 1, most, &first) ||
      !AtNumber(call.arguments.back(), first, 999, &last))
    return AtEquipmentError(BAD_INDEX);
  AtAnswer answer;
  for (auto it = modem->contacts.lower_bound(first);
       it != modem->contacts.end() && it->first <= last; ++it)
    answer.lines.push_back("+CPBR: " + std::to_string(it->first) + "," + Quoted(it->second.number) +
                           "," + std::to_string(it->second.type) + "," +
                           Quoted(AtText(*modem, it->second.name)));
  if (answer.lines.empty()) return AtEquipmentError(NOT_FOUND);
  return answer;
}

/* "+CPBW=INDEX" deletes; with a number it writes, without an index to the first free place. */
AtAnswer WriteContact(Modem *modem, const AtCall &call) {
  const auto &arguments = call.arguments;
  int most = static_cast<int>(modem->contacts_size), index = 1, type = 129;
  if (call.form == AtCall::TEST)
    return {{"+CPBW: (1-" + std::to_string(most) + ")," + std::to_string(kNumberMax) +
             ",(129,145)," + std::to_string(kNameMax)}};
  if (call.form != AtCall::SET || arguments.size() > 4) return AtEquipmentError(BAD_PARAMETERS);
  if (!arguments[0].empty() && !AtNumber(arguments[0], 1, most, &index))
    return AtEquipmentError(BAD_INDEX);
  if (arguments.size() == 1) {
    if (arguments[0].empty()) return AtEquipmentError(BAD_PARAMETERS);
    return modem->contacts.erase(index) == 1 ? AtAnswer{} : AtEquipmentError(NOT_FOUND);
  }
  ModemContact contact = {arguments[1], 0, ""};
  if (!IsDialled(contact.number)) return AtEquipmentError(BAD_NUMBER);
  if (contact.number.size() > kNumberMax) return AtEquipmentError(LONG_NUMBER);
  if (arguments.size() > 2 && (!AtNumber(arguments[2], 129, kInternational, &type) ||
                               (type != 129 && type != kInternational)))
    return AtEquipmentError(BAD_PARAMETERS);
  contact.type = type;
  if (arguments.size() > 3 && !AtTextFrom(*modem, arguments[3], &contact.name))
    return AtEquipmentError(BAD_TEXT);
  if (Letters(contact.name) > kNameMax) return AtEquipmentError(LONG_TEXT);
  while (arguments[0].empty() && modem->contacts.count(index) != 0) ++index;
  if (index > most) return AtEquipmentError(FULL);
  modem->contacts[index] = contact;
  return {};
}

/* "+CUSD=1,CODE,DCS" asks the network, which answers by itself later; 2 ends the dialogue. */
AtAnswer Ussd(Modem *modem, const AtCall &call) {
  int action;
  if (call.form == AtCall::TEST) return {{"+CUSD: (0-2)"}};
  if (call.form == AtCall::READ) return {{"+CUSD: 1"}};
  if (call.form != AtCall::SET || call.arguments.size() > 3 ||
      !AtNumber(call.arguments[0], 0, 2, &action))
    return AtEquipmentError(BAD_PARAMETERS);
  if (action == 2) modem->ussd_at.clear();
  if (action != 1 || call.arguments.size() == 1) return {};
  if (modem->signal == kModemNoNetwork) return AtEquipmentError(NO_NETWORK);
  std::string code;
  if (!AtTextFrom(*modem, call.arguments[1], &code) || !IsDialled(code))
    return AtEquipmentError(BAD_TEXT);
  bool anew = modem->ussd_at.empty() || code[0] == '*' || code[0] == '#';
  Answer(modem, anew ? code : modem->ussd_at + "/" + code);
  return {};
}

}  // namespace

const AtRow kBookRows[] = {
    {"+CPBS", AtErrors::EQUIPMENT, Phonebook, nullptr},
    {"+CPBR", AtErrors::EQUIPMENT, ReadContacts, nullptr},
    {"+CPBW", AtErrors::EQUIPMENT, WriteContact, nullptr},
    {"+CUSD", AtErrors::EQUIPMENT, Ussd, nullptr},
    {},
};
