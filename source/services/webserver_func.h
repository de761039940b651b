// The web server's restart. On the thread of "sysmgr:capabinfo".
#pragma once

#include <cstdint>

constexpr uint32_t kWebPortSlots = 16;

/* Ports of the web server, in the order in which it is told them: the first `count` of the slots.
 */
struct WebPorts {
  uint32_t count;
  int32_t ports[kWebPortSlots];
};

/* Restarts the web server on these ports and returns before that happens: a script in the
   background waits some seconds first. What goes wrong is logged at level 4; the server then goes
   on as it is. */
void WebServerRestart(const WebPorts &web);
