// Dialogues with the modem simulator's core, for its tests.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "modem_core.h"

constexpr time_t kNow = 1732527015; /* 2024-11-25 09:30:15 */

/* An SMS-SUBMIT of "hellohello" to +8613900000001, the modem's own number, and what comes back. */
inline const std::string kSubmit =
    "0891683108100005F011000D91683109000000F10000000AE8329BFD4697D9EC37";
inline const std::string kDelivered =
    "0891683108100005F0040D91683109000000F1000042115290035100"
    "0AE8329BFD4697D9EC37";
/* The same without a service centre, to a number that is not its own. */
inline const std::string kElsewhere = "0011000B916407281553F80000AA0AE8329BFD4697D9EC37";

inline std::string Bytes(const std::string &bytes, Modem *modem) {
  std::string said, left = bytes;
  while (!left.empty()) {
    ModemOutput output;
    left.erase(0, ModemFeed(modem, left, kNow, &output));
    said += output.echo + output.answer;
  }
  return said;
}

inline std::string Result(const std::string &result) { return "\r\n" + result + "\r\n"; }
inline const std::string kOk = Result("OK"), kPrompt = "\r\n> ";

inline std::string Lines(const std::vector<std::string> &lines) {
  std::string text = "\r\n";
  for (const std::string &line : lines) text += line + "\r\n";
  return text + kOk;
}

/* Each command is sent with its carriage return, without echo. */
struct Step {
  std::string say, hear;
};
struct DialogueCase {
  const char *what;
  std::vector<Step> steps;
};

inline void RunSteps(const DialogueCase &c, Modem *modem) {
  for (const Step &step : c.steps) {
    bool pdu = step.say.find('\x1a') != step.say.npos || step.say.find('\x1b') != step.say.npos;
    EXPECT_EQ(Bytes(step.say + (pdu ? "" : "\r"), modem), step.hear) << c.what << ": " << step.say;
  }
}
