// PDUs of the modem simulator; see modem_pdu.h.
#include "modem_pdu.h"

#include <algorithm>

#include "parse.h"
#include "sms_text.h"

namespace {

constexpr unsigned char kInternational = 0x91, kNational = 0x81, kName = 0xD0;
constexpr size_t kNameMax = 11; /* letters: the address of a sender has 10 octets */

const uint8_t *Bytes(const std::string &octets) {
  return reinterpret_cast<const uint8_t *>(octets.data());
}

/* Digits as semi-octets. */
std::string SemiOctets(const std::string &digits) {
  std::string swapped(digits.size() + 2, '\0'), octets;
  swapped.resize(static_cast<size_t>(
      InvertNumbers(digits.data(), {swapped.data(), swapped.size()}, digits.size())));
  (void)BytesFromHex(swapped, &octets); /* digits are hexadecimal */
  return octets;
}

std::string Digits(const std::string &number) {
  return number.substr(number.compare(0, 1, "+") == 0 ? 1 : 0);
}

unsigned char NumberType(const std::string &number) {
  return number.compare(0, 1, "+") == 0 ? kInternational : kNational;
}

/* Of a sender; the length counts semi-octets. */
std::string Address(const std::string &from) {
  if (IsNumber(from, true)) {
    std::string digits = Digits(from);
    return std::string{static_cast<char>(digits.size()), static_cast<char>(NumberType(from))} +
           SemiOctets(digits);
  }
  size_t septets;
  std::string packed = SeptetsFromUtf8(AsciiFromUtf8(from).substr(0, kNameMax), &septets);
  return std::string{static_cast<char>((7 * septets + 3) / 4), static_cast<char>(kName)} + packed;
}

/* Here the length counts octets, the type's included. */
std::string CentreAddress(const std::string &centre) {
  std::string octets = SemiOctets(Digits(centre));
  if (octets.empty()) return std::string(1, '\0');
  return std::string{static_cast<char>(1 + octets.size()), static_cast<char>(NumberType(centre))} +
         octets;
}

/* Year to zone, two swapped digits each; the zone is Greenwich's. */
std::string TimeStamp(const struct tm &when) {
  char text[20];
  size_t length = strftime(text, sizeof text, "%Y%m%d%H%M%S00", &when);
  return SemiOctets(std::string(text, length).substr(2)); /* without the century */
}

/* Octets of the user data that TP-UDL announces. */
size_t DataOctets(unsigned char dcs, unsigned char length) {
  return (dcs & 0x0C) == 0 ? (length * 7u + 7) / 8 : length;
}

/* Octets of TP-VP by the format in the first octet: none, enhanced, relative, absolute. */
size_t ValidityOctets(unsigned char first) {
  const size_t octets[] = {0, 7, 1, 7};
  return octets[first >> 3 & 3];
}

std::string NumberText(unsigned char type, const std::string &octets, size_t digits) {
  std::string hex = HexFromBytes(octets), number(hex.size() + 2, '\0');
  number.resize(
      static_cast<size_t>(InvertNumbers(hex.data(), {number.data(), number.size()}, hex.size())));
  number.resize(std::min(digits, number.size()));
  return (type == kInternational ? "+" : "") + number;
}

}  // namespace

std::string Ucs2FromUtf8(const std::string &utf8) {
  std::string octets(2 * utf8.size() + 2, '\0');
  octets.resize(static_cast<size_t>(Utf8ToUcs2(
      utf8.data(), {reinterpret_cast<uint8_t *>(octets.data()), octets.size()}, utf8.size())));
  return octets;
}

std::string Utf8FromUcs2(const std::string &octets) {
  std::string utf8(2 * octets.size() + 4, '\0');
  utf8.resize(
      static_cast<size_t>(Ucs2ToUtf8(Bytes(octets), {utf8.data(), utf8.size()}, octets.size())));
  return utf8;
}

std::string AsciiFromUtf8(const std::string &utf8) {
  std::string ascii;
  const char *at = utf8.data(), *end = at + utf8.size();
  while (at < end) {
    uint16_t unit = Utf8Next(&at, end);
    ascii += unit < 0x80 ? static_cast<char>(unit) : '?';
  }
  return ascii;
}

std::string SeptetsFromUtf8(const std::string &utf8, size_t *septets) {
  std::string ascii = AsciiFromUtf8(utf8), packed(2 * ascii.size() + 2, '\0');
  int escapes;
  packed.resize(static_cast<size_t>(
      Encode7bit(ascii.c_str(), {reinterpret_cast<uint8_t *>(packed.data()), packed.size()},
                 ascii.size() + 1, &escapes)));
  if (septets != nullptr) *septets = ascii.size() + static_cast<size_t>(escapes);
  return packed;
}

size_t CentreOctets(const std::string &octets) {
  return octets.empty() ? 0 : std::min(octets.size(), size_t{1} + Bytes(octets)[0]);
}

const char *ParseSubmit(const std::string &octets, SubmitPdu *submit) {
  const uint8_t *byte = Bytes(octets);
  size_t at = CentreOctets(octets);
  submit->centre_octets = at;
  if (at == 0 || octets.size() < at + 4) return "the PDU ends before the recipient";
  submit->first = byte[at];
  if ((submit->first & 3) != 1) return "the PDU is no SMS-SUBMIT";
  at += 2; /* TP-MR is the network's */
  size_t digits = byte[at], address = (digits + 1) / 2;
  if (digits == 0 || digits > 20) return "the recipient has not 1 to 20 digits";
  if (octets.size() < at + 2 + address + 2) return "the PDU ends within the recipient or TP-DCS";
  submit->number = NumberText(byte[at + 1], octets.substr(at + 2, address), digits);
  at += 2 + address;
  submit->fields = octets.substr(at, 2);
  at += 2 + ValidityOctets(submit->first);
  if (octets.size() <= at) return "the PDU ends before TP-UDL";
  submit->data = octets.substr(at);
  auto dcs = static_cast<unsigned char>(submit->fields[1]);
  size_t data = DataOctets(dcs, byte[at]);
  if (data > 140) return "TP-UDL says more than 140 octets";
  return submit->data.size() == 1 + data ? nullptr : "TP-UDL does not fit the octets behind it";
}

std::string PartOf(const std::string &octets) {
  SubmitPdu submit;
  if (ParseSubmit(octets, &submit) != nullptr || (submit.first & 0x40) == 0) return "";
  const uint8_t *data = Bytes(submit.data); /* its length, the header's, the header's elements */
  const size_t size = submit.data.size(), end = size < 2 ? 0 : std::min(size, 2 + size_t{data[1]});
  for (size_t at = 2, next; at + 2 <= end; at = next) {
    next = at + 2 + data[at + 1];
    /* The one that numbers parts has a reference of 8 bits or of 16, how many, and which. */
    const size_t length = data[at] == 0x00 ? 3 : data[at] == 0x08 ? 4 : 0;
    if (length == 0 || data[at + 1] != length || next > end) continue;
    return "part " + std::to_string(data[next - 1]) + " of " + std::to_string(data[next - 2]) +
           " to " + submit.number;
  }
  return "";
}

std::string DeliverPdu(const SubmitPdu &submit, const std::string &centre, const std::string &from,
                       const struct tm &when) {
  /* SMS-DELIVER, no more messages wait; the header's mark comes along. */
  char first = static_cast<char>(0x04 | (submit.first & 0x40));
  return HexFromBytes(CentreAddress(centre) + first + Address(from) + submit.fields +
                      TimeStamp(when) + submit.data);
}
