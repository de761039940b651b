// The modem simulator: any bytes on its line, and between them what modemctl asks. A piece that
// begins with "{" is a request, any other one what comes over the tty; pieces end in a byte 0xFE.
#include "check.h"
#include "modem_control.h"
#include "modem_core.h"
#include "modem_sms.h"
#include "modem_tty.h"
#include "parse.h"

namespace {

constexpr time_t kNow = 1732527015;

/* The last answer; each is whole, or the prompt for a PDU. */
std::string Type(Modem *modem, std::string_view bytes) {
  std::string answer;
  while (!bytes.empty()) {
    ModemOutput output;
    const size_t taken = ModemFeed(modem, bytes, kNow, &output);
    Check(taken > 0 && taken <= bytes.size(), "it takes nothing, or more than there is");
    Check(output.answer.empty() || output.answer.substr(output.answer.size() - 2) == "\r\n" ||
              output.answer == "\r\n> ",
          "an answer that breaks off");
    if (!output.answer.empty()) answer = output.answer;
    bytes.remove_prefix(taken);
  }
  return answer;
}

void Ask(Modem *modem, std::string_view text) {
  const Json reply = ModemControl(modem, JsonIn(text), kNow);
  const Json read = ControlReplyIn(ControlBytes(reply));
  Check(!read.is_null() && read["status"] == reply["status"], "modemctl cannot read the reply");
}

void CheckKept(const Modem &modem) {
  for (const auto &[name, storage] : modem.storages) {
    Check(storage.messages.size() <= storage.size, "more messages than places");
    for (const auto &[index, message] : storage.messages) {
      std::string octets;
      Check(index >= 0 && static_cast<size_t>(index) < storage.size, "a place that there is not");
      Check(BytesFromHex(message.pdu, &octets), "a message that is no PDU");
    }
  }
  Check(modem.waiting.size() <= kModemWaitingMax, "more messages wait than may");
  Check(modem.contacts.size() <= modem.contacts_size, "more contacts than places");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Modem modem;
  for (std::string_view rest = TextOf(data, size); !rest.empty();) {
    const std::string_view piece = TakePiece(&rest, '\xFE');
    if (!piece.empty() && piece[0] == '{')
      Ask(&modem, piece);
    else
      (void)Type(&modem, piece);
    CheckKept(modem);
  }
  (void)Type(&modem, std::string_view(&kEscape, 1));
  const std::string answer = Type(&modem, "AT\r");
  Check(answer.size() >= 6 && answer.substr(answer.size() - 6) == "\r\nOK\r\n",
        "it does not answer any more");
  return 0;
}
