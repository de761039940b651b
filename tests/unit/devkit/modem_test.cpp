// The modem simulator without its tty: the dialogues of tests/data/modem (commands.txt says how
// they are written), byte by byte and as a whole, and what cannot be written there.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>

#include "modem_control.h"
#include "modem_core.h"
#include "modem_pdu.h"
#include "parse.h"

namespace {

constexpr time_t kNow = 1732527015; /* 2024-11-25 09:30:15 */

/* An SMS-SUBMIT of "hellohello" to +8613900000001, the modem's own number; of the same without a
   service centre, to a number that is not its own. */
const std::string kSubmit = "0891683108100005F011000D91683109000000F10000000AE8329BFD4697D9EC37";
const std::string kElsewhere = "0011000B916407281553F80000AA0AE8329BFD4697D9EC37";

std::string Hear(const std::string &bytes, Modem *modem) {
  std::string said, left = bytes;
  while (!left.empty()) {
    ModemOutput output;
    left.erase(0, ModemFeed(modem, left, kNow, &output));
    said += output.echo + output.answer;
  }
  return said;
}

Json Control(Modem *modem, const Json &request) { return ModemControl(modem, request, kNow); }

/* ---- dialogues ---- */

struct Step {
  char who; /* '>', '!' */
  std::string say;
  std::vector<std::string> hear, unsolicited;
};

std::string Unescaped(const std::string &line) {
  std::string bytes, byte;
  for (size_t at = 0; at < line.size(); ++at) {
    if (line.compare(at, 2, "\\x") == 0 && BytesFromHex(line.substr(at + 2, 2), &byte)) {
      bytes += byte;
      at += 3;
    } else {
      bytes += line[at];
    }
  }
  return bytes;
}

/* As a modem frames what it says: information, a blank line, the result. */
std::string Framed(const std::vector<std::string> &lines) {
  if (lines.empty()) return "";
  if (lines[0] == "> ") return "\r\n> ";
  std::string text = lines.size() > 1 ? "\r\n" : "";
  for (size_t at = 0; at + 1 < lines.size(); ++at) text += lines[at] + "\r\n";
  return text + "\r\n" + lines.back() + "\r\n";
}

void RunStep(const Step &step, bool pieces, Modem *modem) {
  modem->unsolicited.clear();
  if (step.who == '!') {
    Json state = Control(modem, {{"verb", "state"}}), reply;
    reply = Control(modem, Json::parse(step.say));
    std::string want, text = reply["text"];
    for (const std::string &line : step.hear) want += line + "\n";
    std::string got = reply["status"].dump() + (text.empty() ? "" : " ") + text;
    EXPECT_EQ(got + (got.back() == '\n' ? "" : "\n"), want);
    EXPECT_TRUE(reply["status"] == EXIT_DONE || Control(modem, {{"verb", "state"}}) == state);
    return;
  }
  std::string said, say = Unescaped(step.say);
  if (say.find_first_of("\x1a\x1b") == say.npos) say += '\r';
  for (size_t at = 0, size = pieces ? 1 : say.size(); at < say.size(); at += size)
    said += Hear(say.substr(at, size), modem);
  bool echo = !step.hear.empty() && step.hear[0] == step.say + "\\x0d";
  EXPECT_EQ(said,
            (echo ? say : "") + Framed({step.hear.begin() + (echo ? 1 : 0), step.hear.end()}));
  EXPECT_EQ(std::vector<std::string>(modem->unsolicited.begin(), modem->unsolicited.end()),
            step.unsolicited);
}

/* The steps of each dialogue of a file, the first by its title. */
std::vector<std::pair<std::string, std::vector<Step>>> ReadDialogues(const std::string &path) {
  std::vector<std::pair<std::string, std::vector<Step>>> dialogues;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    std::string rest = line.size() > 2 ? line.substr(2) : "";
    if (line.compare(0, 2, "==") == 0) dialogues.push_back({path + line, {}});
    if (dialogues.empty() || line.empty()) continue;
    std::vector<Step> &steps = dialogues.back().second;
    if (line[0] == '>' || line[0] == '!') steps.push_back({line[0], rest, {}, {}});
    if (line[0] == '<') steps.back().hear.push_back(rest);
    if (line[0] == '*') steps.back().unsolicited.push_back(rest);
  }
  return dialogues;
}

TEST(Modem, Dialogues) {
  const char *source = getenv("DEVKIT_SOURCE");
  std::string folder = std::string(source == nullptr ? "." : source) + "/tests/data/modem";
  for (const auto &file : std::filesystem::directory_iterator(folder))
    for (const auto &[what, steps] : ReadDialogues(file.path()))
      for (bool pieces : {false, true}) {
        Modem modem;
        modem.echo = false;
        ASSERT_FALSE(steps.empty()) << what;
        for (const Step &step : steps) {
          SCOPED_TRACE(what + ": " + step.who + step.say);
          RunStep(step, pieces, &modem);
        }
      }
}

/* ---- what is too long, echo, and more than one command ---- */

TEST(Modem, TakesSeveralCommandsAtOnce) {
  const std::string ok = "\r\nOK\r\n";
  Modem modem;
  EXPECT_EQ(Hear("AT\r\nAT+CMGF?\r", &modem),
            "AT\r" + ok + "\nAT+CMGF?\r" + "\r\n+CMGF: 0\r\n" + ok);
  EXPECT_EQ(Hear("ATE0\r", &modem), "ATE0\r" + ok);
  EXPECT_EQ(Hear("AT\rAT\r", &modem), ok + ok);
  EXPECT_EQ(Hear("AT+CSCA=" + std::string(5000, '1') + "\rAT\r", &modem), "\r\nERROR\r\n" + ok);
  EXPECT_EQ(Hear("AT+CMGS=24\r" + std::string(9000, 'A') + "\x1a", &modem),
            "\r\n> \r\n+CMS ERROR: 304\r\n");
}

/* User data with a header behind an SMS-SUBMIT's beginning. */
TEST(Parts, AreToldByTheElementThatNumbersThem) {
  const struct {
    const char *what, *data, *said;
  } cases[] = {
      {"a reference of 8 bits", "0705000307030241", "part 2 of 3 to +46708251358"},
      {"of 16", "080608040007030141", "part 1 of 3 to +46708251358"},
      {"behind another element", "0D0B0504000000000003070201FF", "part 1 of 2 to +46708251358"},
      {"another element alone", "080605040000000041", ""},
      {"an element longer than the header", "0705000907030241", ""},
      {"one of another length", "06040002070341", ""},
      {"a header longer than the data", "020941", ""},
      {"half an element", "03020003", ""},
      {"no data", "00", ""},
  };
  for (const auto &row : cases)
    for (const char *first : {"41", "01"}) {
      std::string octets;
      ASSERT_TRUE(
          BytesFromHex(std::string("00") + first + "000B916407281553F80004" + row.data, &octets));
      EXPECT_EQ(PartOf(octets), *first == '4' ? row.said : "") << row.what;
    }
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
      (void)Hear(command + number + "\r" + pdu + "\x1a", &modem);
      std::string result = modem.calls.back().result;
      EXPECT_EQ(result.find("+CMS ERROR: 304: "), 0U) << pdu;
      EXPECT_NE(result.find(length == 0 ? "as many octets" : why), result.npos) << pdu << result;
    }
  }
}

/* Texts of as many characters as 255 messages have, of more octets than most. */
TEST(Modem, TheLongestTextIsReceivedInParts) {
  std::string most;
  for (int at = 0; at < 255 * 65; ++at) most += "\u4f60";
  Modem modem;
  Json text = {{"verb", "receive"}, {"from", "907"}, {"message", most}};
  const std::string places = Control(&modem, text)["text"];
  EXPECT_EQ(std::count(places.begin(), places.end(), '\n'), 255);
  text["message"] = most + "x";
  EXPECT_EQ(Control(&modem, text)["status"], EXIT_REFUSED);
}

TEST(Modem, RefusesWhatIsNoWholeNumberInPlaceOfOne) {
  const Json verbs[] = {{{"verb", "behave"}, {"how", "slow"}, {"of", "amount"}},
                        {{"verb", "size"}, {"what", "SM"}, {"of", "places"}},
                        {{"verb", "signal"}, {"of", "strength"}},
                        {{"verb", "ussd"}, {"code", "*1#"}, {"of", "dcs"}}};
  Modem modem;
  for (Json verb : verbs)
    for (const Json &number : {Json(7.5), Json(3e101), Json(UINT64_MAX), Json(INT64_MIN),
                               Json(int64_t{1} << 40), Json("7"), Json(-1)}) {
      verb[verb["of"].get<std::string>()] = number;
      EXPECT_EQ(Control(&modem, verb)["status"], EXIT_USAGE) << verb;
    }
}

TEST(Modem, StateTellsTheLastCommandsAndWhatWasSent) {
  Modem modem;
  for (int i = 0; i < 1000; ++i) Hear("AT+CMGS=23\r" + kElsewhere + "\x1a", &modem);
  Hear("AT+C\001\r", &modem);
  Json state = Control(&modem, {{"verb", "state"}})["state"];
  EXPECT_EQ(state["commands"].size(), 20u);
  EXPECT_EQ(state["commands"].back(), (Json{{"command", "AT+C\\x01"}, {"result", "ERROR"}}));
  EXPECT_EQ(state["sent"].size(), 100u);
  EXPECT_EQ(state["sent"].back(), (Json{{"to", "+46708251358"}, {"pdu", kElsewhere}}));
  Control(&modem, {{"verb", "reset"}});
  EXPECT_TRUE(modem.sent.empty());
}

/* What it asks could not be refused with it named, as far down as it goes. */
TEST(Control, AsksInJsonOfAHundredLevelsAtMost) {
  for (const auto &[levels, taken] :
       std::map<size_t, bool>{{100, true}, {101, false}, {130000, false}}) {
    const std::string text = std::string(levels, '[') + "1" + std::string(levels, ']');
    EXPECT_NE(JsonIn(text).is_discarded(), taken) << levels;
  }
  EXPECT_TRUE(ControlReplyIn(R"({"status": 1, "text": 5})").is_null());
}

}  // namespace
