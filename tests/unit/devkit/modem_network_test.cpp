// What the network does to the modem simulator, how it misbehaves, and what modemctl may ask of it.
#include <algorithm>

#include "modem_control.h"
#include "modem_support.h"

namespace {

/* Commands that are accepted; the last one brings the answer. */
TEST(Modem, UssdDialogues) {
  const std::string ask = "AT+CUSD=1,\"*1#\",15",
                    unknown = "+CUSD: 0,\"55F7DAFDBEBB4163F43B3D2E03\",15";
  const struct {
    const char *what;
    std::vector<std::string> commands;
    std::string unsolicited;
  } cases[] = {
      {"a choice", {ask, "AT+CUSD=1,\"2\",15"}, "+CUSD: 0,\"two\",1"},
      {"a choice that is none", {ask, "AT+CUSD=1,\"3\",15"}, unknown},
      {"a new code ends the dialogue", {ask, ask}, "+CUSD: 1,\"menu\",1"},
      {"ended: the choice is a code", {ask, "AT+CUSD=2", "AT+CUSD=1,\"2\",15"}, unknown},
      {"septets, filled up", {"AT+CUSD=1,\"*7#\",15"}, "+CUSD: 0,\"E8329BFD7EAF1B\",15"},
      {"UCS2", {"AT+CUSD=1,\"*8#\",15"}, "+CUSD: 0,\"00FC4F60\",72"},
      {"8 bit", {"AT+CUSD=1,\"*4#\",15"}, "+CUSD: 0,\"6162\",4"},
      {"a code in UCS2",
       {"AT+CSCS=\"UCS2\"", "AT+CUSD=1,\"002A00310023\",72"},
       "+CUSD: 1,\"menu\",1"},
      {"nothing to send", {"AT+CUSD=1"}, ""},
  };
  for (const auto &c : cases) {
    Modem modem;
    modem.echo = false;
    modem.ussd = {{"*1#", {"menu", 1}},
                  {"*1#/2", {"two", 1}},
                  {"*7#", {"hellook", 0}},
                  {"*8#", {"\u00fc\u4f60", 0}},
                  {"*4#", {"ab", 4}}};
    for (const std::string &command : c.commands) {
      modem.unsolicited.clear();
      EXPECT_EQ(Bytes(command + "\r", &modem), kOk) << c.what;
    }
    EXPECT_EQ(modem.unsolicited.size(), c.unsolicited.empty() ? 0U : 1U) << c.what;
    if (!modem.unsolicited.empty()) {
      EXPECT_EQ(modem.unsolicited[0], c.unsolicited) << c.what;
    }
  }
  Modem modem;
  modem.echo = false;
  EXPECT_EQ(Bytes("AT+CUSD=1,\"abc\",15\r", &modem), Result("+CME ERROR: 25"));
  EXPECT_EQ(Bytes("AT+CUSD=3\r", &modem), Result("+CME ERROR: 50"));
}

ModemJson Control(Modem *modem, const ModemJson &request) {
  return ModemControl(modem, request, kNow);
}

std::vector<std::string> Received(Modem *modem) {
  std::vector<std::string> pdus;
  for (const auto &entry : modem->storages["SM"].messages) pdus.push_back(entry.second.pdu);
  return pdus;
}

TEST(Modem, ReceivesTexts) {
  const std::string centre = "0891683108100005F0";
  const struct {
    const char *what, *from, *text, *time;
    std::string pdu; /* behind the service centre */
  } cases[] = {
      {"7 bit, a short number", "907", "1036", "", "04038109F70000421152900351000431D8CC06"},
      {"an international number, its own time", "+8613912345678", "a[b", "2099-03-29 15:16:59",
       "040D91683119325476F800009930925161950004E10D4F0C"},
      {"a name of 7 letters has 13 semi-octets", "DESIGNO", "a", "",
       "040DD0C4E23479743E010000421152900351000161"},
      {"UCS2", "10086", "\u00fc", "", "0405810180F60008421152900351000200FC"},
  };
  for (const auto &c : cases) {
    Modem modem;
    ModemJson reply = Control(
        &modem, {{"verb", "receive"}, {"from", c.from}, {"message", c.text}, {"time", c.time}});
    EXPECT_EQ(reply["status"], 0) << c.what << ": " << reply;
    EXPECT_EQ(Received(&modem), std::vector<std::string>{centre + c.pdu}) << c.what;
    EXPECT_EQ(modem.storages["SM"].messages[0].stat, 0) << c.what;
  }
}

/* Texts of as many characters as one message or 255 of them have, of more octets than most. */
TEST(Modem, TextsThatFitAreReceived) {
  std::string most;
  for (int at = 0; at < 255 * 65; ++at) most += "\u4f60";
  for (const auto &[text, messages] : {std::pair(std::string(160, '['), 3), std::pair(most, 255)}) {
    Modem modem;
    ModemJson reply = Control(&modem, {{"verb", "receive"}, {"from", "907"}, {"message", text}});
    std::string places = reply["text"];
    EXPECT_EQ(reply["status"], 0) << places;
    EXPECT_EQ(std::count(places.begin(), places.end(), '\n'), messages);
  }
}

TEST(Modem, LongTextsComeInPartsOfTheirOwn) {
  Modem modem;
  for (int message = 0; message < 2; ++message)
    EXPECT_EQ(
        Control(&modem,
                {{"verb", "receive"}, {"from", "907"}, {"message", std::string(161, 'x')}})["text"],
        message == 0 ? "SM 0\nSM 1\n" : "SM 2\nSM 3\n");
  /* First octet with TP-UDHI; 145 and 16 septets behind the 8 of the header. */
  const std::string head = "0891683108100005F044038109F7000042115290035100";
  const char *const headers[] = {"9906080400010201", "1806080400010202", "9906080400020201",
                                 "1806080400020202"};
  std::vector<std::string> pdus = Received(&modem);
  ASSERT_EQ(pdus.size(), 4u);
  for (size_t i = 0; i < 4; ++i)
    EXPECT_EQ(pdus[i].compare(0, head.size() + 16, head + headers[i]), 0) << pdus[i];
  EXPECT_EQ(pdus[1].substr(head.size() + 16), "783C1E8FC7E3F1783C1E8FC7E3F1");
}

TEST(Modem, MessagesWaitForRoom) {
  Modem modem;
  modem.echo = false;
  EXPECT_EQ(Control(&modem, {{"verb", "size"}, {"what", "SM"}, {"places", 1}})["status"], 0);
  for (const char *pdu : {"01", "02", "03"})
    EXPECT_EQ(Control(&modem, {{"verb", "receive"}, {"pdu", pdu}})["text"],
              std::string(pdu) == "01" ? "SM 0\n" : "waits for room in SM\n");
  RunSteps({"full", {{"AT+CMGW=24", kPrompt}, {kSubmit + "\x1a", Result("+CMS ERROR: 322")}}},
           &modem);
  EXPECT_EQ(Received(&modem), std::vector<std::string>{"01"});
  RunSteps({"room", {{"AT+CMGD=0", kOk}, {"AT+CMGL=4", Lines({"+CMGL: 0,0,,0", "02"})}}}, &modem);
  EXPECT_EQ(Control(&modem, {{"verb", "size"}, {"what", "SM"}, {"places", 2}})["status"], 0);
  EXPECT_EQ(Received(&modem), (std::vector<std::string>{"02", "03"}));
  EXPECT_EQ(Control(&modem, {{"verb", "size"}, {"what", "SM"}, {"places", 1}})["status"], 1);
}

TEST(Modem, RefusesRequestsThatCannotBe) {
  const std::string word = "verb";
  const ModemJson requests[] = {
      nullptr,
      ModemJson::array(),
      {{word, "fly"}},
      {{word, "receive"}},
      {{word, "receive"}, {"pdu", "0"}},
      {{word, "receive"}, {"pdu", std::string(402, '0')}},
      {{word, "receive"}, {"from", "+"}, {"message", "x"}},
      {{word, "receive"}, {"from", "twelve chars"}, {"message", "x"}},
      {{word, "receive"}, {"from", "1"}, {"message", "x"}, {"time", "yesterday"}},
      {{word, "receive"}, {"from", "1"}, {"message", std::string(255 * 145 + 1, 'x')}},
      {{word, "behave"}, {"how", "well"}},
      {{word, "behave"}, {"how", "slow"}, {"amount", -1}},
      {{word, "behave"}, {"how", "refuse"}, {"only", "+CFOO"}},
      {{word, "number"}, {"number", "me"}},
      {{word, "size"}, {"what", "XX"}, {"places", 5}},
      {{word, "size"}, {"what", "SM"}, {"places", 256}},
      {{word, "ussd"}, {"code", "abc"}, {"answer", "x"}},
      {{word, "ussd"}, {"code", "*9#"}, {"answer", "x"}, {"dcs", 256}},
  };
  Modem modem;
  ModemJson before = Control(&modem, {{word, "state"}});
  for (const ModemJson &request : requests) {
    ModemJson reply = Control(&modem, request);
    EXPECT_GT(reply.value("status", 0), 0) << request.dump().substr(0, 200);
    EXPECT_FALSE(reply.value("text", "").empty()) << request.dump().substr(0, 200);
  }
  EXPECT_EQ(Control(&modem, {{word, "state"}}), before);
}

/* ---- misbehaviour ---- */

TEST(Modem, RefusesWhatItIsToldTo) {
  Modem modem;
  modem.echo = false;
  auto refuse = [&](int code, const char *only) {
    Control(&modem, {{"verb", "behave"}, {"how", "refuse"}, {"amount", code}, {"only", only}});
  };
  refuse(0, "");
  RunSteps({"each in its own way",
            {{"AT+CMGL=4", Result("+CMS ERROR: 302")}, {"AT+CPBS?", Result("+CME ERROR: 3")}}},
           &modem);
  refuse(38, "");
  RunSteps({"with a number", {{"AT+CSCA?", Result("+CMS ERROR: 38")}, {"AT", kOk}}}, &modem);
  refuse(38, "at+cmgs");
  RunSteps({"after the PDU, only one",
            {{"AT+CMGS=24", kPrompt},
             {kSubmit + "\x1a", Result("+CMS ERROR: 38")},
             {"AT+CMGW=24", kPrompt},
             {kSubmit + "\x1a", Lines({"+CMGW: 0"})}}},
           &modem);
  EXPECT_TRUE(modem.sent.empty());
}

TEST(Modem, AnswersGarbageBetweenHeadAndEnd) {
  Modem modem;
  modem.echo = false;
  modem.storages["SM"].messages[0] = {0, kDelivered};
  Control(&modem, {{"verb", "behave"}, {"how", "garbage"}});
  std::string said = Bytes("AT+CMGL=4\r", &modem);
  EXPECT_EQ(said.compare(0, 9, "\r\n+CMGL: "), 0) << said;
  EXPECT_EQ(said.substr(said.size() - kOk.size()), kOk);
  EXPECT_EQ(said.find(kDelivered), said.npos);
  EXPECT_GT(said.size(), 2000u);
  EXPECT_EQ(said.find('\0'), said.npos);
  Control(&modem, {{"verb", "behave"}, {"how", "normal"}});
  EXPECT_EQ(Bytes("AT+CMGL=4\r", &modem), Lines({"+CMGL: 0,1,,29", kDelivered}));
}

TEST(Modem, StateTellsTheLastCommandsAndWhatWasSent) {
  Modem modem;
  Bytes("AT+CMGS=23\r" + kElsewhere + "\032AT+C\001\r", &modem);
  ModemJson state = Control(&modem, {{"verb", "state"}})["state"];
  EXPECT_EQ(state["commands"], (ModemJson{{{"command", "AT+CMGS=23"}, {"result", "OK"}},
                                          {{"command", "AT+C\\x01"}, {"result", "ERROR"}}}));
  EXPECT_EQ(state["sent"], (ModemJson{{{"to", "+46708251358"}, {"pdu", kElsewhere}}}));
  for (int i = 0; i < 1000; ++i) Bytes("AT+CMGS=23\r" + kElsewhere + "\x1a", &modem);
  state = Control(&modem, {{"verb", "state"}})["state"];
  EXPECT_EQ(state["commands"].size(), 20u);
  EXPECT_EQ(state["sent"].size(), 100u);
  Control(&modem, {{"verb", "reset"}});
  EXPECT_TRUE(modem.sent.empty());
}

}  // namespace
