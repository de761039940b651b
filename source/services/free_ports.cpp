// Waiting for ports. Whether one is free is tried, as the next server will: the kernel's lists of
// sockets would tell, too, but take tens of milliseconds to read on a machine with much memory.
#include "free_ports.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "ams_common_api.h"

namespace {

constexpr int kStep = 10, kLongest = 2000; /* ms */

/* Connections that a killed server left behind do not count: servers bind beside them. What else
   than a taken port fails here is the server's to tell. */
bool CanBind(const addrinfo &any) {
  const int on = 1;
  int fd = socket(any.ai_family, any.ai_socktype | SOCK_CLOEXEC, any.ai_protocol);
  if (fd < 0) return true; /* a kernel without that family */
  if (any.ai_socktype == SOCK_STREAM)
    (void)setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (any.ai_family == AF_INET6) (void)setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on);
  bool taken = bind(fd, any.ai_addr, any.ai_addrlen) != 0 && errno == EADDRINUSE;
  close(fd);
  return !taken;
}

bool IsFree(int type, int port) {
  addrinfo wanted = {}, *families;
  wanted.ai_socktype = type;
  wanted.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
  if (getaddrinfo(nullptr, std::to_string(port).c_str(), &wanted, &families) != 0) return true;
  bool is_free = true;
  for (const addrinfo *one = families; one != nullptr; one = one->ai_next)
    is_free = is_free && CanBind(*one);
  freeaddrinfo(families);
  return is_free;
}

}  // namespace

void AwaitFreePorts(int type, const std::vector<int> &ports) {
  int waited = 0;
  for (int port : ports) {
    if (port < 1 || port > 65535) continue;
    for (; !IsFree(type, port); waited += kStep) {
      if (waited >= kLongest) {
        AMS_PRINT(4,
                  "port %d is still taken %d ms after its server was killed, the next one may end "
                  "at once: see who has it\n",
                  port, kLongest);
        return;
      }
      tds_delay(kStep);
    }
  }
}
