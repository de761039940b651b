// The modem simulator of the desk: a pseudo-terminal under the name of the board's modem tty, what
// the hot-plug scripts write about it, and modemctl's socket. What the modem says and keeps is in
// modem_core.h; nothing of it outlives the process.
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "modem_control.h"
#include "modem_files.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr char kIds[] = "2c7c 0125\n";                 /* of the modem that has this tty */
constexpr char kUssdFile[] = "/var/tmp/urc_ussd_file"; /* its reader deletes it */
constexpr std::chrono::milliseconds kOnTheWay(100);
constexpr size_t kInputMax = 64 * 1024, kRequestMax = 256 * 1024;

/* The tty's side that is not the daemon's. */
struct Tty {
  int master = -1;
  int slave = -1;        /* kept open, so that its settings stay and no reader sees a hang-up */
  std::string input;     /* not yet looked at */
  std::string output;    /* not yet read by anybody */
  std::string held;      /* an answer that has to wait */
  Clock::time_point due; /* until then; of drops, not before then */
  bool drops = false;    /* gone once the output was read */
};

Modem modem;
Tty tty;

int Failed(const char *what, const char *path) {
  fprintf(stderr, "modem: cannot %s %s: %s\n", what, path, strerror(errno));
  return -1;
}

/* Written complete under another name first, since its reader may look at any time. */
int WriteFile(const char *path, const std::string &text) {
  std::string fresh = std::string(path) + ".new";
  FILE *file = fopen(fresh.c_str(), "we");
  if (file == nullptr) return Failed("write", fresh.c_str());
  bool written = fwrite(text.data(), 1, text.size(), file) == text.size();
  if (fclose(file) != 0 || !written) return Failed("write", fresh.c_str());
  return rename(fresh.c_str(), path) == 0 ? 0 : Failed("make", path);
}

/* ---- plugged in, plugged out ---- */

void Detach() {
  if (tty.master >= 0) close(tty.master);
  if (tty.slave >= 0) close(tty.slave);
  tty = {};
  (void)unlink(kModemTty); /* may not be there yet */
  (void)unlink(kModemDevinfo);
}

int OpenTty() {
  char path[64];
  struct termios settings;
  struct stat link;
  if (lstat(kModemTty, &link) == 0 && !S_ISLNK(link.st_mode)) {
    fprintf(stderr, "modem: %s is a device of its own: run this inside devkit/sandbox\n",
            kModemTty);
    return -1;
  }
  tty.master = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (tty.master < 0 || grantpt(tty.master) != 0 || unlockpt(tty.master) != 0 ||
      ptsname_r(tty.master, path, sizeof path) != 0)
    return Failed("open", "a pseudo-terminal");
  tty.slave = open(path, O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (tty.slave < 0 || tcgetattr(tty.slave, &settings) != 0) return Failed("open", path);
  cfmakeraw(&settings);
  if (tcsetattr(tty.slave, TCSANOW, &settings) != 0) return Failed("set up", path);
  (void)unlink(kModemTty); /* of one that was killed */
  return symlink(path, kModemTty) == 0 ? 0 : Failed("link", kModemTty);
}

int Attach() {
  if (OpenTty() == 0 && WriteFile(kModemDevinfo, kIds) == 0) return 0;
  if (tty.master >= 0) Detach();
  return -1;
}

/* Makes true what the state says. */
int FollowState() {
  if (modem.attached == (tty.master >= 0)) return 0;
  if (!modem.attached) {
    Detach();
    return 0;
  }
  modem.attached = Attach() == 0;
  return modem.attached ? 0 : -1;
}

/* ---- the tty ---- */

/* The listener on the modem's second port, which on the board are scripts. */
void PassUnsolicited() {
  for (; !modem.unsolicited.empty(); modem.unsolicited.pop_front()) {
    printf("unsolicited: %s\n", modem.unsolicited.front().c_str());
    (void)WriteFile(kUssdFile, modem.unsolicited.front() + "\n"); /* it said why not */
  }
}

void Take(const ModemOutput &output) {
  bool slow = output.misbehaves && modem.behaviour.kind == ModemBehaviour::kSlow;
  tty.output += output.echo;
  if (output.answer.empty()) return;
  if (!modem.calls.empty())
    printf("%s -> %s\n", modem.calls.back().command.c_str(), modem.calls.back().result.c_str());
  if (slow) {
    tty.held = output.answer;
    tty.due = Clock::now() + std::chrono::milliseconds(modem.behaviour.amount);
  } else if (output.misbehaves && modem.behaviour.kind == ModemBehaviour::kDrop) {
    tty.output += output.answer.substr(0, output.answer.size() / 2);
    tty.drops = true;
    tty.due = Clock::now() + kOnTheWay;
  } else {
    tty.output += output.answer;
  }
}

/* Commands that wait, one at a time, until one has to wait for its answer. */
void Work() {
  while (!tty.input.empty() && tty.held.empty() && !tty.drops) {
    ModemOutput output;
    tty.input.erase(0, ModemFeed(&modem, tty.input, time(nullptr), &output));
    Take(output);
  }
  if (tty.held.empty()) PassUnsolicited();
}

void ReleaseHeld() {
  if (tty.held.empty()) return;
  if (modem.behaviour.kind == ModemBehaviour::kSlow && Clock::now() < tty.due) return;
  tty.output += tty.held;
  tty.held.clear();
}

/* A tty that hangs up is none of ours to see: we hold the other end open. */
void ReadTty() {
  char bytes[4096];
  ssize_t length = read(tty.master, bytes, sizeof bytes);
  if (length > 0) tty.input.append(bytes, static_cast<size_t>(length));
}

void WriteTty() {
  ssize_t length = write(tty.master, tty.output.data(), tty.output.size());
  if (length > 0) tty.output.erase(0, static_cast<size_t>(length));
}

/* The half answer has to be read first: what is in a tty dies with it. The kernel moves bytes to
   the other end a little later, where only then they can be counted. */
bool Unread() {
  int bytes = 0;
  return !tty.output.empty() || Clock::now() < tty.due ||
         (ioctl(tty.slave, FIONREAD, &bytes) == 0 && bytes > 0);
}

void FinishDrop() {
  if (!tty.drops || Unread()) return;
  modem.attached = false;
  modem.behaviour = {};
  ModemPowerCycle(&modem);
}

/* ---- modemctl ---- */

int Listen() {
  struct sockaddr_un address = {AF_UNIX, ""};
  memcpy(address.sun_path, kModemSocket, sizeof kModemSocket);
  auto *name = reinterpret_cast<struct sockaddr *>(&address);
  int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (listener < 0) return Failed("open", "a socket");
  if (connect(listener, name, sizeof address) == 0) {
    fprintf(stderr, "modem: another one serves %s: gateway-daemon stop modem ends it\n",
            kModemSocket);
    return -1;
  }
  (void)unlink(kModemSocket); /* of one that was killed */
  if (bind(listener, name, sizeof address) != 0 || listen(listener, 16) != 0)
    return Failed("serve", kModemSocket);
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
  ModemJson request = ModemJson::parse(ReadRequest(client), nullptr, false);
  ModemJson reply = ModemControl(&modem, request, time(nullptr));
  if (FollowState() != 0)
    reply = {{"status", kModemRefused},
             {"text", "the tty did not come back: /var/log/devkit/modem.log names the reason"}};
  std::string text = reply.dump(-1, ' ', false, ModemJson::error_handler_t::replace);
  for (size_t sent = 0; sent < text.size();) {
    ssize_t length = write(client, text.data() + sent, text.size() - sent);
    if (length <= 0) break; /* it does not want to know */
    sent += static_cast<size_t>(length);
  }
  close(client);
}

/* ---- all of it ---- */

/* Milliseconds that poll may wait. */
int Patience() {
  if (tty.drops) return 10; /* until somebody has read the half answer */
  if (tty.held.empty()) return -1;
  auto left = std::chrono::ceil<std::chrono::milliseconds>(tty.due - Clock::now()).count();
  return left > 0 ? static_cast<int>(left) : 0;
}

void Run(int signals, int listener) {
  for (;;) {
    short wanted = 0;
    if (tty.input.size() < kInputMax && tty.held.empty() && !tty.drops) wanted = POLLIN;
    if (!tty.output.empty()) wanted |= POLLOUT;
    struct pollfd ends[] = {{signals, POLLIN, 0}, {listener, POLLIN, 0}, {tty.master, wanted, 0}};
    if (poll(ends, 3, Patience()) < 0 && errno != EINTR) return;
    if (ends[0].revents != 0) return;
    if ((ends[2].revents & POLLIN) != 0) ReadTty();
    if ((ends[2].revents & POLLOUT) != 0) WriteTty();
    if (ends[1].revents != 0) Serve(listener);
    ReleaseHeld();
    Work();
    FinishDrop();
    (void)FollowState(); /* only away, which does not fail */
    fflush(stdout);      /* a log that cannot be written stops nothing */
  }
}

}  // namespace

int main() {
  signal(SIGPIPE, SIG_IGN);
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGTERM);
  sigaddset(&ends, SIGINT);
  sigprocmask(SIG_BLOCK, &ends, nullptr);
  int signals = signalfd(-1, &ends, SFD_CLOEXEC), listener = Listen();
  if (signals < 0 || listener < 0 || Attach() != 0) return 1;
  Run(signals, listener);
  Detach();
  (void)unlink(kModemSocket); /* the next one would, too */
  return 0;
}
