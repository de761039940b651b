// The floor of the bus: SOCK_SEQPACKET round trips with nothing else on the way.
#include "bare_bus.h"

#include <sched.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "nanoseconds.h"

namespace {

constexpr size_t kMost = 4096;

[[noreturn]] void Give(const char *what) {
  perror(what);
  exit(1);
}

/* Forks a process that runs `serve` for ever and dies with this one. */
void Spawn(const std::function<void()> &serve) {
  pid_t pid = fork();
  if (pid < 0) Give("fork");
  if (pid > 0) return;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  serve();
  _exit(1);
}

std::array<int, 2> Pair() {
  std::array<int, 2> pair;
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair.data()) != 0) Give("socketpair");
  return pair;
}

void Send(int fd, size_t size) {
  static char bytes[kMost];
  if (send(fd, bytes, size, MSG_NOSIGNAL) != static_cast<ssize_t>(size)) Give("send");
}

void Receive(int fd) {
  static char bytes[kMost];
  if (recv(fd, bytes, sizeof(bytes), 0) <= 0) Give("recv");
}

/* An epoll set of these descriptors. */
int SetOf(const std::vector<int> &fds) {
  int set = epoll_create1(EPOLL_CLOEXEC);
  for (int fd : fds) {
    struct epoll_event event = {};
    event.events = EPOLLIN;
    event.data.fd = fd;
    if (epoll_ctl(set, EPOLL_CTL_ADD, fd, &event) != 0) Give("epoll_ctl");
  }
  return set;
}

/* Answers each message of `from` with one of `size` bytes to `to`. */
struct Leg {
  int from, to;
  size_t size;
};

/* Serves the legs for ever; without epoll they take turns. */
void Serve(const std::vector<Leg> &legs, BareWait wait) {
  std::vector<int> fds;
  for (const Leg &leg : legs) fds.push_back(leg.from);
  int set = SetOf(fds);
  for (;;) {
    for (const Leg &leg : legs) {
      struct epoll_event event;
      if (wait == BARE_EPOLL && epoll_wait(set, &event, 1, -1) != 1) Give("epoll_wait");
      Receive(leg.from);
      Send(leg.to, leg.size);
    }
  }
}

}  // namespace

std::function<void()> BareTrip(WireSizes sizes, int hops, BareWait wait) {
  std::array<int, 2> front = Pair();
  if (hops == 1) {
    Spawn([=] { Serve({{front[1], front[1], sizes.answer}}, wait); });
  } else {
    std::array<int, 2> back = Pair();
    Spawn([=] { Serve({{back[1], back[1], sizes.answer}}, wait); });
    Spawn([=] {
      Serve({{front[1], back[0], sizes.request}, {back[0], front[1], sizes.answer}}, wait);
    });
  }
  return [=] {
    Send(front[0], sizes.request);
    Receive(front[0]);
  };
}

void DoNotPreempt() {
  const struct sched_param none = {};
  if (sched_setscheduler(0, SCHED_BATCH | SCHED_RESET_ON_FORK, &none) != 0)
    Give("sched_setscheduler");
}

double BareRate(WireSizes sizes, int clients, int calls) {
  std::vector<std::array<int, 2>> pairs;
  for (int i = 0; i < clients; ++i) pairs.push_back(Pair());
  auto loop = [&](size_t side, size_t size, int rounds) {
    std::vector<int> fds;
    for (const std::array<int, 2> &pair : pairs) fds.push_back(pair[side]);
    int set = SetOf(fds);
    while (rounds != 0) {
      struct epoll_event events[16];
      int count = epoll_wait(set, events, 16, -1);
      for (int i = 0; i < count; ++i, --rounds) {
        Receive(events[i].data.fd);
        Send(events[i].data.fd, size);
        if (rounds == 1) return;
      }
    }
  };
  Spawn([&] { loop(1, sizes.answer, -1); });
  DoNotPreempt();
  for (const std::array<int, 2> &pair : pairs) Send(pair[0], sizes.request);
  uint64_t start = Nanoseconds();
  loop(0, sizes.request, calls);
  double rate = calls * 1e9 / static_cast<double>(Nanoseconds() - start);
  for (const std::array<int, 2> &pair : pairs) {
    close(pair[0]);
    close(pair[1]);
  }
  return rate;
}
