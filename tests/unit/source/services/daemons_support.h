// What the tests of the network daemons share.
#pragma once

#include "support.h"

const std::string kServices = "InternetGatewayDevice.Services.";

/* What snmpd reads, and how the start looks for it to be. */
const char kSnmpConfig[] = "/var/snmpd.conf";
const char kSnmpText[] =
    "agentAddress udp:161\nsysservices 79\npsysname a\npsyscontact a\npsyslocation a\n"
    "rwcommunity a\nrocommunity a\nview read_wr included .1 \n";

inline bool BeginsWith(const std::string &text, const std::string &begin) {
  return text.compare(0, begin.size(), begin) == 0;
}
