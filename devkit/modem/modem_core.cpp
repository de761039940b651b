// The modem simulator's command line: echo, prompt, arguments, the table of commands, and the ways
// in which it misbehaves; see modem_core.h.
#include "modem_core.h"

#include <algorithm>
#include <cctype>

#include "escape.h"
#include "modem_book.h"
#include "modem_pdu.h"
#include "modem_sms.h"
#include "modem_tty.h"
#include "parse.h"

namespace {

constexpr size_t kLineMax = 1024; /* bytes of a command or a PDU */
constexpr size_t kCallsMax = 20;

std::string Upper(std::string text) {
  for (char &letter : text) letter = static_cast<char>(toupper(static_cast<unsigned char>(letter)));
  return text;
}

/* ---- arguments ---- */

/* `"SM",1,,"a,b"` -> SM 1 "" a,b. False when a quote is not closed. */
bool SplitArguments(const std::string &text, std::vector<std::string> *arguments) {
  bool quoted = false;
  arguments->assign(1, "");
  for (char letter : text) {
    if (letter == '"')
      quoted = !quoted;
    else if (letter == ',' && !quoted)
      arguments->emplace_back();
    else if (letter != ' ' || quoted)
      arguments->back() += letter;
  }
  return !quoted;
}

/* "+CMGD=1,4" or "E0" into name, form and arguments: false when it cannot be one. */
bool ParseCommand(const std::string &text, std::string *name, AtCall *call) {
  size_t end = 0;
  while (end < text.size() && (isalpha(static_cast<unsigned char>(text[end])) || text[end] == '+'))
    ++end;
  *name = Upper(text.substr(0, end));
  std::string rest = text.substr(end);
  bool basic = name->compare(0, 1, "+") != 0;
  call->form = AtCall::SET;
  call->arguments.clear();
  if (rest.empty())
    call->form = AtCall::RUN;
  else if (rest == "?")
    call->form = AtCall::READ;
  else if (rest == "=?")
    call->form = AtCall::TEST;
  else if (basic)
    call->arguments = {rest};
  else
    return rest[0] == '=' && SplitArguments(rest.substr(1), &call->arguments);
  return true;
}

/* ---- commands without a room of their own ---- */

AtAnswer Nothing(Modem *, const AtCall &) { return {}; }

AtAnswer Echo(Modem *modem, const AtCall &call) {
  int on = 0;
  if (call.form == AtCall::SET && !AtNumber(call.arguments[0], 0, 1, &on)) return AtError();
  modem->echo = on != 0;
  return {};
}

AtAnswer Identity(Modem *, const AtCall &) {
  return {{"devkit", "Simulated modem", "Revision: 2c7c 0125"}};
}

AtAnswer Reset(Modem *modem, const AtCall &) {
  ModemPowerCycle(modem);
  return {};
}

AtAnswer CharacterSet(Modem *modem, const AtCall &call) {
  static const std::vector<std::string> known = {"GSM", "IRA", "UCS2"};
  if (call.form == AtCall::TEST) return {{"+CSCS: (\"GSM\",\"IRA\",\"UCS2\")"}};
  if (call.form == AtCall::READ) return {{"+CSCS: \"" + modem->charset + "\""}};
  if (call.form != AtCall::SET || call.arguments.size() != 1 ||
      std::find(known.begin(), known.end(), call.arguments[0]) == known.end())
    return AtEquipmentError(50);
  modem->charset = call.arguments[0];
  return {};
}

/* Commands that only keep a number. */
template <int most>
AtAnswer Keep(Modem *modem, const AtCall &call, const char *name) {
  int number;
  if (call.form == AtCall::TEST)
    return {{std::string(name) + ": (0-" + std::to_string(most) + ")"}};
  if (call.form == AtCall::READ)
    return {{std::string(name) + ": " + std::to_string(modem->settings[name])}};
  if (call.form != AtCall::SET || call.arguments.size() != 1 ||
      !AtNumber(call.arguments[0], 0, most, &number))
    return AtEquipmentError(50);
  modem->settings[name] = number;
  return {};
}

/* The strength, and an error rate that is not known. */
AtAnswer Signal(Modem *modem, const AtCall &call) {
  if (call.form == AtCall::TEST)
    return {{"+CSQ: (0-" + std::to_string(kModemBestSignal) + ",99),(99)"}};
  if (call.form != AtCall::RUN) return AtEquipmentError(50);
  return {{"+CSQ: " + std::to_string(modem->signal) + ",99"}};
}

AtAnswer VoiceMode(Modem *modem, const AtCall &call) { return Keep<3>(modem, call, "+CVMOD"); }
AtAnswer CellLock(Modem *modem, const AtCall &call) { return Keep<1>(modem, call, "+QCELLLOCK"); }

const AtRow kOwnRows[] = {
    {"E", AtErrors::PLAIN, Echo, nullptr},
    {"I", AtErrors::PLAIN, Identity, nullptr},
    {"Z", AtErrors::PLAIN, Reset, nullptr},
    {"", AtErrors::PLAIN, Nothing, nullptr},
    {"+CSCS", AtErrors::EQUIPMENT, CharacterSet, nullptr},
    {"+CSQ", AtErrors::EQUIPMENT, Signal, nullptr},
    {"+CVMOD", AtErrors::EQUIPMENT, VoiceMode, nullptr},
    {"+QCELLLOCK", AtErrors::EQUIPMENT, CellLock, nullptr},
    {},
};

/* ---- answers ---- */

bool Misbehaves(const Modem &modem, const AtRow &row, ModemBehaviour::Kind kind) {
  const ModemBehaviour &behaviour = modem.behaviour;
  return behaviour.kind == kind && (behaviour.only.empty() || behaviour.only == row.name);
}

/* What comes of a command for which everything is refused; plain commands are not. */
bool Refused(const Modem &modem, const AtRow &row, AtAnswer *answer) {
  int number = modem.behaviour.amount;
  if (!Misbehaves(modem, row, ModemBehaviour::REFUSE) || row.errors == AtErrors::PLAIN)
    return false;
  bool message = row.errors == AtErrors::MESSAGE;
  *answer = message ? AtMessageError(number != 0 ? number : 302)
                    : AtEquipmentError(number != 0 ? number : 3);
  return true;
}

/* Noise in the place of what each line says: longer than readers expect, with bytes that are no
   text and quotes and commas where none belong. The beginning and the result stay, so that whoever
   looks only at those goes on with the rest. */
void MakeGarbage(AtAnswer *answer) {
  unsigned state = 1;
  if (answer->lines.empty()) answer->lines.emplace_back();
  for (std::string &line : answer->lines) {
    size_t colon = line.find(':');
    line.resize(colon == line.npos ? 0 : colon + 2);
    for (int i = 0; i < 1500; ++i) {
      state = state * 1103515245 + 12345;
      char byte = static_cast<char>(state >> 16);
      if (byte != '\r' && byte != '\n' && byte != '\0')
        line += i % 50 == 0 ? "\"-,"[i / 50 % 3] : byte;
    }
  }
}

std::string AnswerText(const AtAnswer &answer) {
  std::string text;
  if (!answer.lines.empty()) text = "\r\n";
  for (const std::string &line : answer.lines) text += line + "\r\n";
  return text + "\r\n" + answer.result + "\r\n";
}

void Record(Modem *modem, const std::string &command, const std::string &result) {
  modem->calls.push_back({Escaped(command), result});
  if (modem->calls.size() > kCallsMax) modem->calls.pop_front();
}

/* The end of a command, and of its PDU if it has one. */
std::string Finish(Modem *modem, const AtRow &row, AtAnswer answer) {
  if (Misbehaves(*modem, row, ModemBehaviour::GARBAGE)) MakeGarbage(&answer);
  modem->calls.back().result = answer.result + (answer.why.empty() ? "" : ": " + answer.why);
  (void)ModemDeliverWaiting(modem); /* if room has come */
  return AnswerText(answer);
}

std::string RunLine(Modem *modem, time_t now, ModemOutput *output) {
  std::string line = modem->line, name;
  modem->line.clear();
  line.erase(0, line.find_first_not_of(' '));
  if (Upper(line.substr(0, 2)) != "AT") return ""; /* as all modems do */
  Record(modem, line, "");
  AtCall call = {AtCall::RUN, {}, now, ""};
  const AtRow *row = nullptr;
  if (line.size() < kLineMax && ParseCommand(line.substr(2), &name, &call)) row = FindAtRow(name);
  if (row == nullptr) {
    modem->calls.back().result = "ERROR";
    return AnswerText(AtError());
  }
  output->misbehaves = Misbehaves(*modem, *row, modem->behaviour.kind);
  AtAnswer answer;
  if (row->take_pdu == nullptr && Refused(*modem, *row, &answer))
    return Finish(modem, *row, answer);
  answer = row->run(modem, call);
  if (row->take_pdu == nullptr || call.form != AtCall::SET || answer.result != "OK")
    return Finish(modem, *row, answer);
  modem->wants_pdu = row;
  modem->pdu_arguments = call.arguments;
  modem->calls.back().result = ">";
  return "\r\n> ";
}

/* A refusal of what is sent comes from the network, so after the PDU. */
std::string RunPdu(Modem *modem, time_t now, ModemOutput *output) {
  const AtRow &row = *modem->wants_pdu;
  AtCall call = {AtCall::SET, modem->pdu_arguments, now, Upper(modem->line)};
  modem->wants_pdu = nullptr;
  modem->line.clear();
  output->misbehaves = Misbehaves(*modem, row, modem->behaviour.kind);
  AtAnswer answer;
  if (!Refused(*modem, row, &answer)) answer = row.take_pdu(modem, call);
  std::string octets;
  if (answer.why.empty() && BytesFromHex(call.pdu, &octets)) answer.why = PartOf(octets);
  return Finish(modem, row, answer);
}

/* Takes one byte; true when it ended a command or a PDU. */
bool TakeByte(Modem *modem, char byte, time_t now, ModemOutput *output) {
  if (byte == kEscape) { /* no PDU after all; a half command is forgotten, too */
    bool cancelled = modem->wants_pdu != nullptr;
    modem->wants_pdu = nullptr;
    modem->line.clear();
    if (!cancelled) return false;
    modem->calls.back().result = "OK";
    output->answer = AnswerText({});
    return true;
  }
  if (modem->wants_pdu != nullptr && byte == kEndOfPdu) {
    output->answer = RunPdu(modem, now, output);
    return true;
  }
  if (modem->wants_pdu == nullptr && byte == '\r' && !modem->line.empty()) {
    output->answer = RunLine(modem, now, output);
    return true;
  }
  /* A line that is too long is refused at its end. */
  if (byte != '\r' && byte != '\n' && modem->line.size() < kLineMax) modem->line += byte;
  return false;
}

}  // namespace

const AtRow *FindAtRow(const std::string &name) {
  for (const AtRow *row : {kOwnRows, kBookRows, kSmsRows})
    for (; row->name != nullptr; ++row)
      if (name == row->name) return row;
  return nullptr;
}

size_t ModemFeed(Modem *modem, std::string_view bytes, time_t now, ModemOutput *output) {
  *output = {};
  for (size_t taken = 0; taken < bytes.size(); ++taken) {
    if (modem->echo) output->echo += bytes[taken];
    if (TakeByte(modem, bytes[taken], now, output)) return taken + 1;
  }
  return bytes.size();
}
