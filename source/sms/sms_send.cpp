// Who is dialled, how a text becomes the modem's commands, and whether the modem took them; see
// sms_send.h.
#include "sms_send.h"

#include <unistd.h>

#include <cstring>
#include <string>

#include "ams_common_api.h"
#include "modem_at.h"
#include "modem_route.h"
#include "sms_parts.h"
#include "sms_trace.h"

namespace {

/* Sent exactly as it is: the provider's own service, which has no country. */
constexpr char kProvider[] = "10010";

const char *Behind(const char *text, char first) { return *text == first ? text + 1 : text; }

/* The digits that are dialled for `number` from a country with the code `country`. -1 (logged): it
   is longer than a PDU takes. */
int Dial(const char *number, const char *country, char (&digits)[SHORTMSG_NUMBER_SIZE]) {
  const char *local = number;
  if (strcmp(number, kProvider) == 0)
    country = "";
  else
    local = Behind(Behind(number, '+'), '0');
  if (*country == '+' || *country == '0') ++country;
  int length = snprintf(digits, sizeof digits, "%s%s", country, local);
  if (length < static_cast<int>(sizeof digits) && IsNumber(digits, false)) return 0;
  AMS_PRINT(4, "number %s%s cannot be dialled: it has to be 1 to %zu digits\n", country, local,
            sizeof digits - 1);
  return -1;
}

/* Hands one PDU to the modem. `status`: as SendOrStore's. */
int Hand(const ShortMsgParam &record, const ShortMsgHeader *header, int status) {
  char pdu[SHORTMSG_PDU_SIZE], command[48];
  int length = SHORTMSG_EncodePdu(&record, pdu, header);
  int octets = PduTpduLength(pdu, length);
  memcpy(pdu + length, "\x1a\r", 3); /* the array has room for them */
  if (status < 0)
    snprintf(command, sizeof command, "AT+CMGS=%d\r|", octets);
  else
    snprintf(command, sizeof command, "AT+CMGW=%d,%d\r|", octets, status);
  return SHORTMSG_DoLockedCommand((std::string(command) + pdu).c_str());
}

/* The modem's answer to the last one, "" when there is none. */
std::string Answer() {
  char answer[4096] = "";
  int length = SHORTMSG_GetCommandResult(answer, sizeof answer);
  return length > 0 ? std::string(answer, static_cast<size_t>(length)) : "";
}

bool Has(const std::string &text, const char *word) { return text.find(word) != text.npos; }

int NotTaken(int status, const std::string &answer) {
  AMS_PRINT(4, "message not %s, the modem answered \"%s\"\n", status < 0 ? "sent" : "stored",
            ModemSaid(answer).c_str());
  return -1;
}

int HandOne(ShortMsgParts *parts, ShortMsgParam *record, int status) {
  ShortMsgHeader header;
  if (ShortMsgNextPart(parts, record, &header) == 0 || Hand(*record, nullptr, status) != 0)
    return -1;
  std::string answer = Answer();
  return Has(answer, "OK") || Has(answer, "ok") ? 0 : NotTaken(status, answer);
}

/* Goes on after a part that failed, so that one lost part does not take the others with it; without
   a tty or an answer there is nothing to go on with. The pauses are the modem's: it drops what
   comes sooner. */
int HandMany(ShortMsgParts *parts, ShortMsgParam *record, int status) {
  ShortMsgHeader header;
  int result = 0;
  while (ShortMsgNextPart(parts, record, &header) != 0) {
    if (Hand(*record, &header, status) != 0) return -1;
    sleep(1);
    std::string answer = Answer();
    if (answer.empty()) return NotTaken(status, answer);
    if (Has(answer, "ERROR")) result = NotTaken(status, answer);
    usleep(500000);
  }
  return result;
}

/* `status`: -1 to send. */
int SendOrStore(const char *number, const char *text, const char *country, int status) {
  ShortMsgParam record = {};
  ShortMsgParts parts;
  int count = ShortMsgPartsOf(text, strlen(text), &parts);
  if (count < 0) {
    AMS_PRINT(4, "message of %zu bytes takes more than 255 parts: send less\n", strlen(text));
    return -1;
  }
  ModemReadServiceCentre();
  snprintf(record.SCA, sizeof record.SCA, "%.20s", Behind(short_msg_state.SCA, '+'));
  if (ModemPduMode() != 0 || Dial(number, country, record.TPA) != 0) return -1;
  return count == 1 ? HandOne(&parts, &record, status) : HandMany(&parts, &record, status);
}

}  // namespace

int SHORTMSG_SendMessage(const char *number, const char *text, const char *country) {
  return SendOrStore(number, text, country, -1);
}

int SHORTMSG_saveMessage(const char *number, const char *text, const char *country, int status) {
  SMS_TRACE("===>SHORTMSG_saveMessage() stat is %d\n", status);
  int result = SendOrStore(number, text, country, status);
  SMS_TRACE("<===SHORTMSG_saveMessage() ret is %d\n", result);
  return result;
}
