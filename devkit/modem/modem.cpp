// The modem simulator of the desk: its tty (modem_tty.h), and modemctl's socket. What the modem
// says and keeps is in modem_core.h; nothing of it outlives the process.
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "command_line.h"
#include "modem_control.h"
#include "modem_tty.h"

namespace {

constexpr size_t kRequestMax = 256 * 1024;

Modem modem;

int Failed(const char *what) {
  fprintf(stderr, "modem: cannot %s %s: %s\n", what, kModemSocket, strerror(errno));
  return -1;
}

int Listen() {
  struct sockaddr_un address = {AF_UNIX, ""};
  memcpy(address.sun_path, kModemSocket, sizeof kModemSocket);
  auto *name = reinterpret_cast<struct sockaddr *>(&address);
  int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (listener < 0) return Failed("open a socket for");
  if (connect(listener, name, sizeof address) == 0) {
    fprintf(stderr, "modem: another one serves %s: gateway-daemon stop modem ends it\n",
            kModemSocket);
    return -1;
  }
  (void)unlink(kModemSocket); /* of one that was killed */
  if (bind(listener, name, sizeof address) != 0 || listen(listener, 16) != 0)
    return Failed("serve");
  return listener;
}

/* The request up to its end; "" when it is too long or does not come in time. */
std::string ReadRequest(int client) {
  std::string text;
  char bytes[4096];
  ssize_t length;
  while ((length = read(client, bytes, sizeof bytes)) > 0 && text.size() <= kRequestMax)
    text.append(bytes, static_cast<size_t>(length));
  return length == 0 ? text : "";
}

void Serve(int listener) {
  const struct timeval limit = {1, 0}; /* nobody else is served meanwhile */
  int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
  if (client < 0) return;                                                  /* it has gone already */
  (void)setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit); /* cannot fail */
  (void)setsockopt(client, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  Json request = JsonIn(ReadRequest(client));
  Json reply = ModemControl(&modem, request, time(nullptr));
  if (TtyFollow(&modem) != 0)
    reply = ControlReply(EXIT_REFUSED,
                         "the tty did not come back: /var/log/devkit/modem.log names the reason");
  std::string text = ControlBytes(reply);
  for (size_t sent = 0; sent < text.size();) {
    ssize_t length = write(client, text.data() + sent, text.size() - sent);
    if (length <= 0) break; /* it does not want to know */
    sent += static_cast<size_t>(length);
  }
  close(client);
}

void Run(int signals, int listener) {
  for (;;) {
    struct pollfd ends[] = {
        {signals, POLLIN, 0}, {listener, POLLIN, 0}, {TtyFile(), TtyEvents(), 0}};
    if (poll(ends, 3, TtyPatience()) < 0 && errno != EINTR) return;
    if (ends[0].revents != 0) return;
    if (ends[1].revents != 0) Serve(listener);
    TtyWork(&modem, ends[2].revents);
    (void)TtyFollow(&modem); /* only away, which does not fail */
    fflush(stdout);          /* a log that cannot be written stops nothing */
  }
}

}  // namespace

int main(int argc, char **argv) {
  CLI::App app("Modem of the gateway on a desk; modemctl --help tells what its network does.",
               "modem");
  if (auto end = ParseCommandLine(&app, argc, argv)) return *end;
  signal(SIGPIPE, SIG_IGN);
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGTERM);
  sigaddset(&ends, SIGINT);
  sigprocmask(SIG_BLOCK, &ends, nullptr);
  int signals = signalfd(-1, &ends, SFD_CLOEXEC), listener = Listen();
  if (signals < 0 || listener < 0 || TtyFollow(&modem) != 0) return EXIT_REFUSED;
  Run(signals, listener);
  TtyDetach();
  (void)unlink(kModemSocket); /* the next one would, too */
  return EXIT_DONE;
}
