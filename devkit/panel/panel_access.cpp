// The call about access control: what the kernel's chains do now with packets that the page names.
#include "panel_http.h"
#include "panel_program.h"
#include "panel_rules.h"

namespace {

constexpr size_t kPacketsMax = 200;

Json JsonOf(const Judgement &judgement) {
  return {{"verdict", judgement.verdict},
          {"rule", judgement.rule},
          {"exceptions", judgement.exceptions}};
}

/* "packets": objects with "in", "protocol" and "port". */
Json Access(const Json &asked) {
  const Json &packets = asked.at("packets");
  if (packets.size() > kPacketsMax) return ControlReply(EXIT_USAGE, "200 packets at most, please");
  for (const Json &each : packets) {
    const int port = ControlNumber(each, "port", -1);
    if (port < 0 || port > 65535)
      return ControlReply(EXIT_USAGE, "\"port\" is a number from 0 to 65535");
  }
  Json reply = ControlReply(EXIT_DONE, "");
  for (const auto &[name, tool] : {std::pair("v4", "iptables"), std::pair("v6", "ip6tables")}) {
    std::string text;
    if (RunProgram({tool, "-S"}, &text) != 0)
      return ControlReply(EXIT_REFUSED, "this machine's kernel has no packet filter for a sandbox");
    const Filter filter = FilterOf(text);
    Json list = Json::array();
    for (const Json &each : packets) {
      Packet packet = {each.at("in"), each.at("protocol"), ControlNumber(each, "port", -1)};
      if (packet.protocol == "icmp" && name == std::string("v6"))
        packet.port = 128; /* its echo request */
      list.push_back(JsonOf(Judge(filter, packet)));
    }
    reply[name] = std::move(list);
  }
  return reply;
}

}  // namespace

const PanelCall kAccessCalls[] = {{"access", Access}, {}};
