// What the modem simulator's commands share; see modem_command.h.
#include "modem_command.h"

#include <algorithm>
#include <cctype>

#include "modem_pdu.h"
#include "parse.h"

AtAnswer AtEquipmentError(int number) { return {{}, "+CME ERROR: " + std::to_string(number)}; }
AtAnswer AtMessageError(int number) { return {{}, "+CMS ERROR: " + std::to_string(number), ""}; }
AtAnswer AtError() { return {{}, "ERROR", ""}; }

bool AtNumber(const std::string &text, int least, int most, int *number) {
  int64_t value;
  if (text.size() > 9 || !ParseDecimal(text, least, most, &value)) return false;
  *number = static_cast<int>(value);
  return true;
}

std::string AtText(const Modem &modem, const std::string &utf8) {
  return modem.charset == "UCS2" ? HexFromBytes(Ucs2FromUtf8(utf8)) : AsciiFromUtf8(utf8);
}

bool AtTextFrom(const Modem &modem, const std::string &text, std::string *utf8) {
  std::string octets;
  *utf8 = text;
  if (modem.charset == "UCS2") {
    if (!BytesFromHex(text, &octets) || octets.size() % 2 != 0) return false;
    *utf8 = Utf8FromUcs2(octets);
  }
  return std::none_of(utf8->begin(), utf8->end(),
                      [](char letter) { return iscntrl(static_cast<unsigned char>(letter)); });
}
