// The page's server without its sockets: what it reads off the packet filter's rules, and the
// events that pages read.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>

#include "panel_events.h"
#include "panel_http.h"
#include "panel_rules.h"

namespace {

/* ---- calls ---- */

Json Called(const PanelCall *call, const char *name, const Json &asked) {
  while (strcmp(call->name, name) != 0) ++call;
  return call->run(asked);
}

TEST(PanelCalls, RefuseWhatIsNoNumberInPlaceOfOne) {
  for (const Json &number : {Json(7.5), Json("7"), Json(UINT64_MAX), Json(INT64_MIN), Json()}) {
    EXPECT_EQ(Called(kDeskCalls, "press", {{"event", number}})["status"], EXIT_USAGE) << number;
    EXPECT_EQ(Called(kHealthCalls, "health", {{"after", number}})["status"], EXIT_USAGE) << number;
    const Json packet = {{"in", "br0"}, {"protocol", "tcp"}, {"port", number}};
    const Json asked = {{"packets", Json::array({packet})}};
    EXPECT_EQ(Called(kAccessCalls, "access", asked)["status"], EXIT_USAGE) << number;
  }
}

/* ---- rules ---- */

/* As "iptables -S" of Debian 12 prints them, of a gateway with four entries in its list. */
constexpr char kRules[] =
    "-P INPUT ACCEPT\n"
    "-P FORWARD ACCEPT\n"
    "-N SCL_IP_ACCEPT\n"
    "-A INPUT -m conntrack --ctstate RELATED,ESTABLISHED -j ACCEPT\n"
    "-A INPUT -j SCL_IP_FILTER_ACCEPT\n"
    "-A INPUT -j SCL_IP_DROP\n"
    "-A INPUT -i eth+ -p tcp -m tcp --dport 9000 -j REJECT --reject-with icmp-port-unreachable\n"
    "-A SCL_IP_ACCEPT -i lo -j RETURN\n"
    "-A SCL_IP_ACCEPT ! -i br+ -p tcp -m iprange --src-range 10.0.0.1-10.0.0.9 -m tcp --dport 8080 "
    "-j ACCEPT\n"
    "-A SCL_IP_ACCEPT -i br+ -p tcp -m tcp --dport 23 -j ACCEPT\n"
    "-A SCL_IP_ACCEPT ! -i br+ -p tcp -m tcp --dport 30000:30099 -j ACCEPT\n"
    "-A SCL_IP_DROP -i lo -j RETURN\n"
    "-A SCL_IP_DROP -p tcp -m multiport --dports 23,2323 -j DROP\n"
    "-A SCL_IP_DROP -p tcp -m tcp --dport 8080 -j DROP\n"
    "-A SCL_IP_DROP -p udp -m multiport --dports 137,138 -j DROP\n"
    "-A SCL_IP_DROP -p icmp -m icmp --icmp-type 8 -j DROP\n"
    "-A SCL_IP_FILTER_ACCEPT -j SCL_IP_ACCEPT\n";

struct RuleCase {
  const char *what;
  Packet packet;
  const char *verdict, *rule_has;
  size_t exceptions;
};

const RuleCase kRuleCases[] = {
    {"an entry lets the LAN in",
     {"br0", "tcp", 23},
     "ACCEPT",
     "-i br+ -p tcp -m tcp --dport 23",
     0},
    {"but not the WAN", {"wan0", "tcp", 23}, "DROP", "--dports 23,2323", 0},
    {"the last port of a list", {"br0", "tcp", 2323}, "DROP", "--dports 23,2323", 0},
    {"a range of sources is an exception",
     {"wan0", "tcp", 8080},
     "DROP",
     "--dport 8080 -j DROP",
     1},
    {"which is not the LAN's", {"br0", "tcp", 8080}, "DROP", "--dport 8080 -j DROP", 0},
    {"the last port of a range", {"wan0", "tcp", 30099}, "ACCEPT", "30000:30099", 0},
    {"the one behind it", {"wan0", "tcp", 30100}, "ACCEPT", "-P INPUT ACCEPT", 0},
    {"the same port of another protocol", {"br0", "udp", 23}, "ACCEPT", "-P INPUT", 0},
    {"a return goes on behind the jump", {"lo", "tcp", 23}, "ACCEPT", "-P INPUT", 0},
    {"an echo request", {"wan0", "icmp", 8}, "DROP", "--icmp-type 8", 0},
    {"an echo reply", {"wan0", "icmp", 0}, "ACCEPT", "-P INPUT", 0},
    {"words behind the target ask for nothing", {"eth1", "tcp", 9000}, "REJECT", "-i eth+", 0},
};

TEST(PanelRules, Judgements) {
  const Filter filter = FilterOf(kRules);
  for (const RuleCase &each : kRuleCases) {
    const Judgement judgement = Judge(filter, each.packet);
    EXPECT_EQ(judgement.verdict, each.verdict) << each.what;
    EXPECT_NE(judgement.rule.find(each.rule_has), std::string::npos)
        << each.what << ": " << judgement.rule;
    EXPECT_EQ(judgement.exceptions.size(), each.exceptions) << each.what;
  }
}

TEST(PanelRules, ChainsThatLeadBackEnd) {
  const Filter filter = FilterOf("-P INPUT DROP\n-A INPUT -j A\n-A A -j A\n-A \n");
  EXPECT_EQ(Judge(filter, {"br0", "tcp", 1}).verdict, "DROP");
}

/* ---- events ---- */

size_t Count(const std::string &text, const std::string &part) {
  size_t count = 0;
  for (size_t at = 0; (at = text.find(part, at)) != text.npos; at += part.size()) ++count;
  return count;
}

/* Reads until the event with this mark. */
std::string ReadTo(EventReader *reader, const std::string &mark) {
  std::string text;
  while (text.find(mark) == text.npos) text += EventsNext(reader);
  return text;
}

TEST(PanelEvents, EachOnceAndInOrderForWhoKeepsUp) {
  EventAdd({{"kind", "first"}, {"n", 1}});
  auto reader = EventsRead("");
  ASSERT_NE(reader, nullptr);
  EventAdd({{"kind", "second"}, {"text", "a \"quoted\"\nline"}});
  const std::string text = ReadTo(reader.get(), "second");
  EXPECT_LT(text.find("first"), text.find("second"));
  EXPECT_NE(text.find(R"("a \"quoted\"\nline")"), text.npos) << "a line feed would end the event";
  EventAdd({{"kind", "third"}});
  EXPECT_EQ(ReadTo(reader.get(), "third").find("second"), std::string::npos);
}

TEST(PanelEvents, AfterItsLastOne) {
  EventAdd({{"kind", "known"}});
  auto reader = EventsRead("");
  const std::string text = ReadTo(reader.get(), "known");
  const std::string number =
      text.substr(text.rfind("id: ") + 4, text.rfind("\ndata") - text.rfind("id: ") - 4);
  EventAdd({{"kind", "unknown"}});
  auto again = EventsRead(number);
  const std::string rest = ReadTo(again.get(), "unknown");
  EXPECT_EQ(rest.find("\"known\""), rest.npos);
  EXPECT_EQ(Count(rest, "id: "), 1U);
}

TEST(PanelEvents, AHundredThousandLeaveTheLastThousandAndTellWhoWasSlow) {
  EventAdd({{"kind", "begin"}});
  auto reader = EventsRead("");
  (void)ReadTo(reader.get(), "begin");
  for (int i = 0; i < 100000; ++i) EventAdd({{"kind", "request"}, {"i", i}});
  EventAdd({{"kind", "end"}});
  const std::string text = ReadTo(reader.get(), "\"end\"");
  EXPECT_EQ(Count(text, "\nid: ") + (text.compare(0, 4, "id: ") == 0 ? 1U : 0U), kEventsKept);
  EXPECT_NE(text.find(R"({"kind":"missed","count":)" + std::to_string(100001 - kEventsKept) + "}"),
            text.npos);
}

TEST(PanelEvents, LongOnesDoNotStay) {
  const std::string text(64 * 1024, 'x');
  for (int i = 0; i < 100; ++i) EventAdd({{"kind", "request"}, {"text", text}});
  EventAdd({{"kind", "last"}});
  auto reader = EventsRead("");
  EXPECT_LE(ReadTo(reader.get(), "last").size(), kEventsBytes + 2 * text.size());
}

TEST(PanelEvents, SoManyPagesAndAnotherWhenOneGoes) {
  std::vector<std::shared_ptr<EventReader>> readers;
  EXPECT_FALSE(EventsWanted());
  for (size_t i = 0; i < kEventReaders; ++i) readers.push_back(EventsRead(""));
  EXPECT_NE(readers.back(), nullptr);
  EXPECT_EQ(EventsRead(""), nullptr);
  readers.pop_back();
  EXPECT_NE(EventsRead(""), nullptr);
  EXPECT_TRUE(EventsWanted());
}

}  // namespace
