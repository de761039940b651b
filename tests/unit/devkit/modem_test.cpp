// The modem simulator without its tty: dialogues of AT commands. Expected PDUs are written out, not
// made by the code under test.
#include "modem_pdu.h"
#include "modem_support.h"

namespace {

template <size_t N>
void RunCases(const DialogueCase (&cases)[N]) {
  for (const DialogueCase &c : cases) {
    Modem modem;
    modem.echo = false;
    RunSteps(c, &modem);
  }
}

TEST(Modem, CommandLines) {
  const std::string noise = std::string("\x01\0\xff", 3) + "noise";
  const DialogueCase cases[] = {
      {"plain", {{"AT", kOk}, {"at", kOk}, {"  AT", kOk}, {"", ""}}},
      {"what is not for a modem", {{noise, ""}, {"OK", ""}, {"AT", kOk}}},
      {"unknown",
       {{"AT+CFOO", Result("ERROR")}, {"AT+", Result("ERROR")}, {"ATE7", Result("ERROR")}}},
      {"too long", {{"AT+CSCA=" + std::string(5000, '1'), Result("ERROR")}, {"AT", kOk}}},
      {"open quote", {{"AT+CSCS=\"GSM", Result("ERROR")}}},
      {"character sets",
       {{"AT+CSCS?", Lines({"+CSCS: \"GSM\""})},
        {"AT+CSCS=\"UCS2\"", kOk},
        {"AT+CSCS=\"KOI8\"", Result("+CME ERROR: 50")},
        {"AT+CSCS?", Lines({"+CSCS: \"UCS2\""})}}},
      {"reset",
       {{"AT+CSCS=\"UCS2\"", kOk},
        {"ATZ", kOk},
        {"AT+CSCS?", "AT+CSCS?\r" + Lines({"+CSCS: \"GSM\""})}}},
  };
  RunCases(cases);
}

TEST(Modem, EchoesUntilToldNotTo) {
  Modem modem;
  EXPECT_EQ(Bytes("AT\r", &modem), "AT\r" + kOk);
  EXPECT_EQ(Bytes("AT\r\nAT+CMGF?\r", &modem), "AT\r" + kOk + "\nAT+CMGF?\r" + Lines({"+CMGF: 0"}));
  EXPECT_EQ(Bytes("ATE0\r", &modem), "ATE0\r" + kOk);
  EXPECT_EQ(Bytes("AT\r", &modem), kOk);
}

/* Bytes come in any pieces, and what one command gives does not depend on them. */
TEST(Modem, TakesBytesOneByOne) {
  Modem whole, pieces;
  std::string text = "AT+CMGF=0\rAT+CMGW=24,3\r" + kSubmit + "\x1a\rAT+CMGL=4\r", said;
  for (char byte : text) said += Bytes(std::string(1, byte), &pieces);
  EXPECT_EQ(said, Bytes(text, &whole));
  EXPECT_NE(said.find("+CMGL: 0,3,,24\r\n" + kSubmit + "\r\n" + kOk), said.npos) << said;
}

TEST(Modem, Messages) {
  const std::string write = kSubmit + "\x1a";
  const DialogueCase cases[] = {
      {"storages",
       {{"AT+CPMS=\"ME\",\"ME\",\"ME\"", Lines({"+CPMS: 0,100,0,100,0,100"})},
        {"AT+CPMS=\"SM\"", Lines({"+CPMS: 0,50,0,100,0,100"})},
        {"AT+CPMS?", Lines({"+CPMS: \"SM\",0,50,\"ME\",0,100,\"ME\",0,100"})},
        {"AT+CPMS=\"SM\",\"XX\"", Result("+CMS ERROR: 302")},
        {"AT+CPMS?", Lines({"+CPMS: \"SM\",0,50,\"ME\",0,100,\"ME\",0,100"})}}},
      {"service centre",
       {{"AT+CSCA?", Lines({"+CSCA: \"+8613800100500\",145"})},
        {"AT+CSCA=\"12345\"", kOk},
        {"AT+CSCA?", Lines({"+CSCA: \"12345\",129"})},
        {"AT+CSCA=\"\"", Result("+CMS ERROR: 302")},
        {"AT+CSCA=\"+12a\"", Result("+CMS ERROR: 302")},
        {"AT+CSCA=\"123456789012345678901\"", Result("+CMS ERROR: 302")}}},
      {"write, list, read, delete",
       {{"AT+CMGW=24,3", kPrompt},
        {write, Lines({"+CMGW: 0"})},
        {"AT+CMGW=24", kPrompt},
        {write, Lines({"+CMGW: 1"})},
        {"AT+CMGL", kOk},
        {"AT+CMGR=1", Lines({"+CMGR: 2,,24", kSubmit})},
        {"AT+CMGD=0", kOk},
        {"AT+CMGD=0", Result("+CMS ERROR: 321")},
        {"AT+CMGD=-1", Result("+CMS ERROR: 321")},
        {"AT+CMGD=0,9", Result("+CMS ERROR: 321")},
        {"AT+CMGW=24,1", kPrompt},
        {write, Lines({"+CMGW: 0"})},
        {"AT+CMGL=4", Lines({"+CMGL: 0,1,,24", kSubmit, "+CMGL: 1,2,,24", kSubmit})},
        {"AT+CMGD=0,2", kOk},
        {"AT+CMGL=4", Lines({"+CMGL: 1,2,,24", kSubmit})},
        {"AT+CMGD=0,4", kOk},
        {"AT+CMGL=4", kOk},
        {"AT+CMGL=5", Result("+CMS ERROR: 302")}}},
      {"PDUs at the prompt",
       {{"AT+CMGW=24", kPrompt},
        {kSubmit.substr(0, 20) + "\r\n" + kSubmit.substr(20) + "\x1a", Lines({"+CMGW: 0"})},
        {"AT+CMGW=23", kPrompt},
        {write, Result("+CMS ERROR: 304")},
        {"AT+CMGS=24", kPrompt},
        {"\x1a", Result("+CMS ERROR: 304")},
        {"AT+CMGS=24", kPrompt},
        {std::string(9000, 'A') + "\x1a", Result("+CMS ERROR: 304")},
        {"AT+CMGS=24", kPrompt},
        {kSubmit.substr(0, 10) + "\x1b", kOk},
        {"AT+CMGS=165", Result("+CMS ERROR: 304")},
        {"AT+CMGW=24,4", Result("+CMS ERROR: 304")},
        {"AT", kOk}}},
      {"sending to itself: unread until it was listed",
       {{"AT+CMGS=24", kPrompt},
        {write, Lines({"+CMGS: 0"})},
        {"AT+CMGL=0", Lines({"+CMGL: 0,0,,29", kDelivered})},
        {"AT+CMGL=0", kOk},
        {"AT+CMGL=1", Lines({"+CMGL: 0,1,,29", kDelivered})}}},
      {"sending elsewhere",
       {{"AT+CMGS=23", kPrompt}, {kElsewhere + "\x1a", Lines({"+CMGS: 0"})}, {"AT+CMGL=4", kOk}}},
  };
  RunCases(cases);
}

/* Whatever its lengths say, nothing beyond the PDU is read, and only a whole one is sent. */
TEST(Modem, RefusesPdusThatBreakOff) {
  std::vector<std::pair<std::string, std::string>> bad = {
      {"0004000B916407281553F80000AA0AE8329BFD4697D9EC37", "no SMS-SUBMIT"},
      {"00110015916407281553F80000AA0AE8329BFD4697D9EC37", "1 to 20 digits"}, /* 21 */
      {"00110000910000AA0AE8329BFD4697D9EC37", "1 to 20 digits"},             /* none */
      {"0011000B916407281553F80000AA0AE8329BFD4697D9EC3700", "TP-UDL does not fit"},
      {"0011000B916407281553F80004AAFFE8329BFD4697D9EC37", "more than 140 octets"},
  };
  for (size_t octets = 1; octets < kSubmit.size() / 2; ++octets)
    bad.emplace_back(kSubmit.substr(0, 2 * octets), octets < 24 ? "PDU ends" : "TP-UDL");
  for (const auto &[pdu, why] : bad) {
    Modem modem;
    size_t centre = pdu.compare(0, 2, "08") == 0 ? 9 : 1;
    size_t length = pdu.size() / 2 - std::min(pdu.size() / 2, centre);
    for (const char *command : {"AT+CMGS=", "AT+CMGW="}) {
      std::string number = std::to_string(std::max<size_t>(length, 1));
      (void)Bytes(command + number + "\r" + pdu + "\x1a", &modem);
      std::string result = modem.calls.back().result;
      EXPECT_EQ(result.find("+CMS ERROR: 304: "), 0U) << pdu;
      EXPECT_NE(result.find(length == 0 ? "as many octets" : why), result.npos) << pdu << result;
    }
  }
}

TEST(Modem, Phonebook) {
  const DialogueCase cases[] = {
      {"fill, add, read, delete",
       {{"AT+CPBS=\"SM\"", kOk},
        {"AT+CPBS=\"ME\"", Result("+CME ERROR: 50")},
        {"AT+CPBS?", Lines({"+CPBS: \"SM\",0,250"})},
        {"AT+CPBR=1,30", Result("+CME ERROR: 22")},
        {"AT+CPBW=,\"10086\",129,\"Mobile\"", kOk},
        {"AT+CPBW=3,\"+86139\",145,\"a,b\"", kOk},
        {"AT+CPBW=,\"907\"", kOk},
        {"AT+CPBS?", Lines({"+CPBS: \"SM\",3,250"})},
        {"AT+CPBR=1,30", Lines({"+CPBR: 1,\"10086\",129,\"Mobile\"", "+CPBR: 2,\"907\",129,\"\"",
                                "+CPBR: 3,\"+86139\",145,\"a,b\""})},
        {"AT+CPBR=241,270", Result("+CME ERROR: 22")},
        {"AT+CPBW=1", kOk},
        {"AT+CPBW=1", Result("+CME ERROR: 22")},
        {"AT+CPBR=1", Result("+CME ERROR: 22")}}},
      {"names in UCS2",
       {{"AT+CSCS=\"UCS2\"", kOk},
        {"AT+CPBW=,\"112\",129,\"00fc4F60\"", kOk},
        {"AT+CPBW=,\"112\",129,\"00f\"", Result("+CME ERROR: 25")},
        {"AT+CPBR=1", Lines({"+CPBR: 1,\"112\",129,\"00FC4F60\""})},
        {"AT+CSCS=\"GSM\"", kOk},
        {"AT+CPBR=1", Lines({"+CPBR: 1,\"112\",129,\"??\""})}}},
      {"refused",
       {{"AT+CPBW=0,\"1\"", Result("+CME ERROR: 21")},
        {"AT+CPBW=", Result("+CME ERROR: 50")},
        {"AT+CPBW=1,\"1x\"", Result("+CME ERROR: 27")},
        {"AT+CPBW=1,\"" + std::string(41, '1') + "\"", Result("+CME ERROR: 26")},
        {"AT+CPBW=1,\"1\",130,\"\"", Result("+CME ERROR: 50")},
        {"AT+CPBW=1,\"1\",129,\"fifteen letters\"", Result("+CME ERROR: 24")},
        {"AT+CPBR=0,1", Result("+CME ERROR: 21")},
        {"AT+CPBR=2,1", Result("+CME ERROR: 21")}}},
  };
  RunCases(cases);
}

TEST(Modem, PhonebookThatIsFull) {
  Modem modem;
  modem.echo = false;
  modem.contacts_size = 1;
  RunSteps({"", {{"AT+CPBW=,\"1\"", kOk}, {"AT+CPBW=,\"2\"", Result("+CME ERROR: 20")}}}, &modem);
}

}  // namespace
