// Rules; see panel_rules.h.
#include "panel_rules.h"

#include <algorithm>
#include <set>
#include <sstream>

#include "parse.h"

namespace {

constexpr size_t kChainsMax = 1000; /* a packet is followed through; further ones are passed over */

std::vector<std::string> Words(const std::string &line) {
  std::istringstream stream(line);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

int Port(std::string_view text) {
  int64_t number;
  return ParseDecimal(text, 0, 65535, &number) ? static_cast<int>(number) : -1;
}

/* "23", "30000:30099", "445,139" */
void TakePorts(const std::string &text, FilterRule *rule) {
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, ',');) {
    const size_t colon = part.find(':');
    const int first = Port(part.substr(0, colon));
    rule->ports.emplace_back(first, colon == part.npos ? first : Port(part.substr(colon + 1)));
  }
}

void TakeWord(const std::string &word, const std::string &value, bool negated, FilterRule *rule) {
  if (word == "-j" || word == "-g") {
    rule->target = value;
  } else if (word == "-i") {
    rule->in = value;
    rule->in_negated = negated;
  } else if (negated) {
    rule->conditional = true;
  } else if (word == "-p") {
    rule->protocol = value == "ipv6-icmp" || value == "icmpv6" ? "icmp" : value;
  } else if (word == "--dport" || word == "--dports") {
    TakePorts(value, rule);
  } else if (word == "--icmp-type" || word == "--icmpv6-type") {
    rule->icmp_type = Port(value);
  } else if (word == "--ctstate") {
    rule->old_connections = value.find("NEW") == value.npos;
  } else if (word != "-m") {
    rule->conditional = true;
  }
}

FilterRule RuleOf(const std::string &line, const std::vector<std::string> &words) {
  FilterRule rule;
  rule.text = line;
  rule.chain = words[1];
  bool negated = false;
  for (size_t i = 2; i + 1 < words.size() && rule.target.empty();
       ++i) { /* the target's words end it */
    if (words[i] == "!") {
      negated = true;
    } else if (words[i][0] == '-') {
      TakeWord(words[i], words[i + 1], negated, &rule);
      negated = false;
      ++i;
    }
  }
  return rule;
}

bool IsInterface(const std::string &pattern, const std::string &name) {
  if (pattern.empty() || pattern.back() != '+') return pattern == name;
  return name.compare(0, pattern.size() - 1, pattern, 0, pattern.size() - 1) == 0;
}

bool Matches(const FilterRule &rule, const Packet &packet) {
  if (rule.old_connections) return false;
  if (!rule.in.empty() && IsInterface(rule.in, packet.in) == rule.in_negated) return false;
  if (!rule.protocol.empty() && rule.protocol != "all" && rule.protocol != packet.protocol)
    return false;
  if (rule.icmp_type >= 0 && rule.icmp_type != packet.port) return false;
  auto has = [&](const auto &ports) {
    return ports.first <= packet.port && packet.port <= ports.second;
  };
  return rule.ports.empty() || std::any_of(rule.ports.begin(), rule.ports.end(), has);
}

/* False: the chain's end was reached, or a rule returned. One that was `walked` once would decide
   as little again, and the kernel lets none lead back. */
bool Walk(const Filter &filter, const std::string &chain, const Packet &packet,
          std::set<std::string> *walked, Judgement *judgement) {
  if (walked->size() == kChainsMax || !walked->insert(chain).second) return false;
  for (const FilterRule &rule : filter.rules) {
    if (rule.chain != chain || rule.target.empty() || !Matches(rule, packet)) continue;
    if (rule.conditional) {
      judgement->exceptions.push_back(rule.text);
      continue;
    }
    if (rule.target == "RETURN") return false;
    if (rule.target == "ACCEPT" || rule.target == "DROP" || rule.target == "REJECT") {
      judgement->verdict = rule.target;
      judgement->rule = rule.text;
      return true;
    }
    if (Walk(filter, rule.target, packet, walked, judgement)) return true;
  }
  return false;
}

}  // namespace

Filter FilterOf(std::string_view text) {
  Filter filter;
  std::istringstream stream{std::string(text)};
  for (std::string line; std::getline(stream, line);) {
    const std::vector<std::string> words = Words(line);
    if (words.size() < 3) continue;
    if (words[0] == "-A") filter.rules.push_back(RuleOf(line, words));
    if (words[0] == "-P") filter.policies.emplace_back(words[1], words[2]);
  }
  return filter;
}

Judgement Judge(const Filter &filter, const Packet &packet) {
  Judgement judgement;
  std::set<std::string> walked;
  if (Walk(filter, "INPUT", packet, &walked, &judgement)) return judgement;
  for (const auto &[chain, policy] : filter.policies) {
    if (chain != "INPUT") continue;
    judgement.verdict = policy;
    judgement.rule = "-P INPUT " + policy;
  }
  return judgement;
}
