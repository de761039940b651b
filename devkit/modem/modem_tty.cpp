// The modem simulator's tty; see modem_tty.h.
#include "modem_tty.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "modem_core.h"
#include "new_file.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr char kIds[] = "2c7c 0125\n";                 /* "VENDOR PRODUCT" that has this tty */
constexpr char kDevinfo[] = "/var/tmp/devinfo";        /* theirs, while it is plugged in */
constexpr char kUssdFile[] = "/var/tmp/urc_ussd_file"; /* its reader deletes it */
constexpr std::chrono::milliseconds kOnTheWay(100);
constexpr size_t kInputMax = 64 * 1024;

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

Tty tty;

int Failed(const char *what, const char *path) {
  fprintf(stderr, "modem: cannot %s %s: %s\n", what, path, strerror(errno));
  return -1;
}

int WriteFile(const char *path, const std::string &text) {
  return WriteNewFile(path, text) == 0 ? 0 : Failed("write", path);
}

/* ---- plugged in, plugged out ---- */

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
  if (OpenTty() == 0 && WriteFile(kDevinfo, kIds) == 0) return 0;
  if (tty.master >= 0) TtyDetach();
  return -1;
}

/* ---- what goes through it ---- */

/* The listener on the modem's second port, which on the board are scripts. */
void PassUnsolicited(Modem *modem) {
  for (; !modem->unsolicited.empty(); modem->unsolicited.pop_front()) {
    printf("unsolicited: %s\n", modem->unsolicited.front().c_str());
    (void)WriteFile(kUssdFile, modem->unsolicited.front() + "\n"); /* it said why not */
  }
}

void Take(const Modem &modem, const ModemOutput &output) {
  bool slow = output.misbehaves && modem.behaviour.kind == ModemBehaviour::SLOW;
  tty.output += output.echo;
  if (output.answer.empty()) return;
  if (!modem.calls.empty())
    printf("%s -> %s\n", modem.calls.back().command.c_str(), modem.calls.back().result.c_str());
  if (slow) {
    tty.held = output.answer;
    tty.due = Clock::now() + std::chrono::milliseconds(modem.behaviour.amount);
  } else if (output.misbehaves && modem.behaviour.kind == ModemBehaviour::DROP) {
    tty.output += output.answer.substr(0, output.answer.size() / 2);
    tty.drops = true;
    tty.due = Clock::now() + kOnTheWay;
  } else {
    tty.output += output.answer;
  }
}

/* Commands that wait, one at a time, until one has to wait for its answer. */
void Work(Modem *modem) {
  while (!tty.input.empty() && tty.held.empty() && !tty.drops) {
    ModemOutput output;
    tty.input.erase(0, ModemFeed(modem, tty.input, time(nullptr), &output));
    Take(*modem, output);
  }
  if (tty.held.empty()) PassUnsolicited(modem);
}

void ReleaseHeld(const Modem &modem) {
  if (tty.held.empty()) return;
  if (modem.behaviour.kind == ModemBehaviour::SLOW && Clock::now() < tty.due) return;
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

void FinishDrop(Modem *modem) {
  if (!tty.drops || Unread()) return;
  modem->attached = false;
  modem->behaviour = {};
  ModemPowerCycle(modem);
}

}  // namespace

void TtyDetach() {
  if (tty.master >= 0) close(tty.master);
  if (tty.slave >= 0) close(tty.slave);
  tty = {};
  (void)unlink(kModemTty); /* may not be there yet */
  (void)unlink(kDevinfo);
}

int TtyFollow(Modem *modem) {
  if (modem->attached == (tty.master >= 0)) return 0;
  if (modem->attached) {
    modem->attached = Attach() == 0;
    return modem->attached ? 0 : -1;
  }
  TtyDetach();
  return 0;
}

int TtyFile() { return tty.master; }

short TtyEvents() {
  short events = tty.output.empty() ? 0 : POLLOUT;
  if (tty.input.size() < kInputMax && tty.held.empty() && !tty.drops) events |= POLLIN;
  return events;
}

int TtyPatience() {
  if (tty.drops) return 10; /* until somebody has read the half answer */
  if (tty.held.empty()) return -1;
  auto left = std::chrono::ceil<std::chrono::milliseconds>(tty.due - Clock::now()).count();
  return left > 0 ? static_cast<int>(left) : 0;
}

void TtyWork(Modem *modem, short events) {
  if ((events & POLLIN) != 0) ReadTty();
  if ((events & POLLOUT) != 0) WriteTty();
  ReleaseHeld(*modem);
  Work(modem);
  FinishDrop(modem);
}
