// What "iptables -S" prints: any bytes as rules, and what becomes of packets by them. The first
// byte tells the packet.
#include <algorithm>
#include <sstream>

#include "check.h"
#include "panel_rules.h"

namespace {

const Packet kPackets[] = {
    {"br0", "tcp", 23}, {"ppp0", "tcp", 8080}, {"lo", "udp", 0}, {"wan1", "icmp", 8}};

bool IsLine(const std::string &text, std::string_view all) {
  for (std::string_view rest = all; !rest.empty();)
    if (TakePiece(&rest, '\n') == text) return true;
  return false;
}

/* Whether a line begins with the words, whatever stands between them. */
bool HasWords(const std::vector<std::string> &words, const std::string &all) {
  std::istringstream lines(all);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream stream(line);
    std::string word;
    if (std::all_of(words.begin(), words.end(),
                    [&](const std::string &one) { return stream >> word && word == one; }))
      return true;
  }
  return false;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  const std::string text(TextOf(data + 1, size - 1));
  const Packet &packet = kPackets[data[0] % 4];
  const Judgement judgement = Judge(FilterOf(text), packet);
  for (const std::string &line : judgement.exceptions)
    Check(IsLine(line, text), "an exception that no line is");
  Check(judgement.rule.empty() || IsLine(judgement.rule, text) ||
            (judgement.rule == "-P INPUT " + judgement.verdict &&
             HasWords({"-P", "INPUT", judgement.verdict}, text)),
        "a verdict by a rule that no line is");
  Check(judgement.rule.empty() == judgement.verdict.empty(), "a verdict without its rule");
  /* A rule for all in front of the others decides; one that never matches changes nothing. */
  const Judgement first = Judge(FilterOf("-A INPUT -j DROP\n" + text), packet);
  Check(first.verdict == "DROP" && first.exceptions.empty(), "the first rule does not decide");
  const Judgement same = Judge(FilterOf("-A INPUT -p none -j DROP\n" + text), packet);
  Check(same.rule == judgement.rule && same.exceptions == judgement.exceptions,
        "a rule that does not match changes the verdict");
  return 0;
}
