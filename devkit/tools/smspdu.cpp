// smspdu: reads a short message's PDU and makes those of a text, with the gateway's own codec. It
// needs no gateway and runs anywhere.
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>

#include "command_line.h"
#include "escape.h"
#include "exit_status.h"
#include "parse.h"
#include "sms_parts.h"
#include "sms_pdu.h"

namespace {

/* What the command line says. */
struct Asked {
  int stat = SHORTMSG_UNREAD;
  bool json = false;
  std::string pdu, centre, number, text;
};

struct Decoded {
  ShortMsgParam record;
  ShortMsgEntry entry;
  char text[SHORTMSG_TEXT_SIZE];
};

Decoded Decode(const char *pdu, int stat) {
  Decoded decoded = {};
  decoded.record.stat = static_cast<int16_t>(stat);
  PduDecode(pdu, &decoded.record, &decoded.entry, decoded.text);
  return decoded;
}

nlohmann::ordered_json Json(const Decoded &decoded) {
  const ShortMsgParam &record = decoded.record;
  const ShortMsgEntry &entry = decoded.entry;
  return {{"SCA", record.SCA},
          {"TPA", record.TPA},
          {"TP_PID", record.TP_PID},
          {"TP_DCS", record.TP_DCS},
          {"TP_SCTS", record.TP_SCTS},
          {"TP_UD", record.TP_UD},
          {"index", record.index},
          {"stat", record.stat},
          {"hasUdh", entry.hasUdh},
          {"concatRef", entry.concatRef},
          {"concatTotal", entry.concatTotal},
          {"concatSeq", entry.concatSeq},
          {"text", decoded.text}};
}

/* One line; bytes that are no UTF-8, as of 8-bit data, show as U+FFFD. */
void PrintJson(const nlohmann::ordered_json &json) {
  puts(json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
}

/* All but TP_UD, which is the text with the header's bits, and the index, which no PDU has. The
   text is last: it may have several lines. */
void PrintLines(const nlohmann::ordered_json &json) {
  for (const auto &[name, value] : json.items())
    if (name != "TP_UD" && name != "index")
      printf("%s=%s\n", name.c_str(),
             Printable(value.is_string() ? value.get<std::string>() : value.dump()).c_str());
}

int DecodePdu(const Asked &asked) {
  std::string octets;
  if (!BytesFromHex(asked.pdu, &octets) || octets.empty()) {
    fprintf(stderr, "smspdu: \"%s\" is no PDU: give it as hexadecimal digits, two an octet\n",
            asked.pdu.c_str());
    return EXIT_USAGE;
  }
  nlohmann::ordered_json json = Json(Decode(asked.pdu.c_str(), asked.stat));
  if (asked.json)
    PrintJson(json);
  else
    PrintLines(json);
  return EXIT_DONE;
}

/* The number without its "+" into a field of the record. */
int TakeNumber(const char *option, const std::string &number, char (&field)[SHORTMSG_NUMBER_SIZE]) {
  std::string digits = number.substr(number.compare(0, 1, "+") == 0 ? 1 : 0);
  if (!IsPhoneNumber(number, sizeof field - 1)) {
    fprintf(stderr,
            "smspdu: %s \"%s\" is no number: give 1 to %zu digits, with or without a \"+\"\n",
            option, number.c_str(), sizeof field - 1);
    return -1;
  }
  memcpy(field, digits.c_str(), digits.size() + 1);
  return 0;
}

int EncodeText(const Asked &asked) {
  ShortMsgParam record = {};
  ShortMsgParts parts;
  ShortMsgHeader header;
  if (TakeNumber("--sca", asked.centre, record.SCA) != 0 ||
      TakeNumber("--tpa", asked.number, record.TPA) != 0)
    return EXIT_USAGE;
  if (ShortMsgPartsOf(asked.text.data(), asked.text.size(), &parts) < 0) {
    fprintf(stderr, "smspdu: a text of %zu bytes takes more than 255 messages: shorten it\n",
            asked.text.size());
    return EXIT_REFUSED;
  }
  while (ShortMsgNextPart(&parts, &record, &header) != 0) {
    char pdu[SHORTMSG_PDU_SIZE];
    int length = PduEncode(&record, pdu, parts.total > 1 ? &header : nullptr);
    if (asked.json) {
      nlohmann::ordered_json json = Json(Decode(pdu, SHORTMSG_UNSENT));
      json["pdu"] = pdu;
      json["length"] = PduTpduLength(pdu, length);
      PrintJson(json);
    } else {
      puts(pdu);
    }
  }
  return EXIT_DONE;
}

}  // namespace

int main(int argc, char **argv) {
  Asked asked;
  int (*run)(const Asked &) = nullptr;
  CLI::App app("PDUs of short messages.", "smspdu");
  app.require_subcommand(1)->fallthrough();
  app.add_flag("--json", asked.json, "One JSON object a PDU; when encoding, of what it decodes to");
  auto verb = [&](const char *name, const char *help, int (*handler)(const Asked &)) {
    CLI::App *sub = app.add_subcommand(name, help);
    sub->callback([&run, handler] { run = handler; });
    return sub->fallthrough();
  };
  CLI::App *decode = verb("decode", "Print what a PDU says", DecodePdu);
  decode->add_option("HEX", asked.pdu, "The PDU, with the service centre's address")->required();
  decode->add_option("--stat", asked.stat, "0 unread, 1 read: received; 2 unsent, 3 sent")
      ->check(CLI::Range(0, 3))
      ->capture_default_str();
  CLI::App *encode = verb("encode", "Print the PDUs of a text, one a line", EncodeText);
  encode->add_option("--sca", asked.centre, "Number of the service centre")->required();
  encode->add_option("--tpa", asked.number, "Number of the receiver")->required();
  encode->add_option("--text", asked.text, "The text, in UTF-8")->required();
  if (auto end = ParseCommandLine(&app, argc, argv)) return *end;
  return run(asked);
}
