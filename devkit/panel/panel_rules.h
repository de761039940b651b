// What the kernel's packet filter does with a new connection, read off the rules that "iptables -S"
// prints. Pure: no tool is run here. Any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct FilterRule {
  std::string chain, text; /* the whole line, as it was printed */
  std::string in; /* name of the interface, with "+" at its end for all that begin so; "": any */
  bool in_negated = false;
  std::string protocol;                   /* "": any */
  std::vector<std::pair<int, int>> ports; /* first and last, none: any */
  int icmp_type = -1;
  bool old_connections = false; /* only what stands already */
  bool conditional = false; /* it also asks for what a packet here does not tell, as its source */
  std::string target;
};

struct Filter {
  std::vector<FilterRule> rules;
  std::vector<std::pair<std::string, std::string>> policies; /* of a chain */
};

/* Lines that are no rule are passed over; what a rule asks for and is not known here makes it
   conditional. */
Filter FilterOf(std::string_view text);

/* The first packet of a connection. */
struct Packet {
  std::string in, protocol; /* "tcp", "udp" or "icmp" */
  int port = 0;             /* of icmp the type */
};

/* "ACCEPT", "DROP", "REJECT", and by which line; and the conditional rules before it, which some
   packets like it meet. */
struct Judgement {
  std::string verdict, rule;
  std::vector<std::string> exceptions;
};
Judgement Judge(const Filter &filter, const Packet &packet);
