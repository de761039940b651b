// Round trips of requests beside bare sockets and sd-bus, in the same run.
//
//   bus_bench straight SYSMGR   a module alone, in the root file system without daemons: this
//                               program is the store's server and the message centre
//   bus_bench dbmgr             through the data-base manager of the running gateway
//   bus_bench request           the same, with nothing beside it
//   bus_bench rounds            the same, a round for each line that it reads
//
// Prints one line a figure: name, value. Starts itself as "bus_bench MODULE SIZE" for the modules
// that only pass messages on.
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "appt_request.h"
#include "bare_bus.h"
#include "dbmgr_proto.h"
#include "dbus_bus.h"
#include "nanoseconds.h"
#include "runtime_bus.h"
#include "wire.h"

namespace {

constexpr int kRounds = 7, kTrips = 4000, kRateCalls = 40000, kClients = 8;
constexpr double kStartMs = 50; /* to be initialised in, scripts apart */
constexpr char kCommands[] = "/tmp/commands";
constexpr char kModule[] = "sysmgr:devInfo";
constexpr char kObject[] = "InternetGatewayDevice.DeviceInfo";
constexpr char kLeaf[] = "Manufacturer";

void Fail(const char *what) {
  fprintf(stderr, "bus_bench: %s\n", what);
  exit(1);
}

/* A leaf read whose op function runs no script. */
std::string RequestFrame() {
  std::string url = kObject, value = kLeaf, text(APPT_HEAD_SIZE, '\0');
  appt_PutWord(&text[APPT_AT_COMMAND], APPT_CMD_GET);
  appt_PutWord(&text[APPT_AT_CODE], APPT_CODE_REQUEST);
  text += static_cast<char>(url.size());
  text += url + '\0';
  text += static_cast<char>(value.size());
  return text + value + '\0';
}

std::string frame = RequestFrame();

/* ---- clients of plain sockets that wait in the read, as those of the bare servers do ---- */

/* A connection that messages come on. */
struct Line {
  int fd;
  WireHead announced;
  WireFrame frame;
};

/* The next message, which must be of this kind. */
const WireFrame &Receive(Line *line, WireKind kind) {
  if (WireReceive(line->fd, &line->announced, &line->frame, 0) != 1 ||
      line->frame.head.kind != kind)
    Fail("no answer: is the gateway running?");
  return line->frame;
}

/* Requests go to it on several connections; its acknowledgements come on one of its own. */
struct Module {
  std::vector<int> to;
  Line from;
};

void Ask(const Module &module, uint32_t chain) {
  appt_PutWord(&frame[APPT_AT_CHAIN], chain);
  if (WireSend(module.to[chain], WireKind::POST, EV_APPT_MSG_REQUEST, 0, frame.data(),
               static_cast<uint32_t>(frame.size()), 0) != 0)
    Fail("the request could not be sent");
}

/* The number of the connection whose request is acknowledged. */
uint32_t Acknowledged(Module *module) {
  const WireFrame &in = Receive(&module->from, WireKind::POST);
  if (in.head.length < APPT_ACK_HEAD_SIZE ||
      appt_GetWord(static_cast<const char *>(in.data) + APPT_AT_RESULT) != 0)
    Fail("the module refused the request");
  return appt_GetWord(in.data);
}

int Connect(const char *name, const std::string &own) {
  const int fd = WireConnect(name, true);
  if (fd < 0 || WireSend(fd, WireKind::HELLO, 0, 0, own.c_str(),
                         static_cast<uint32_t>(own.size()) + 1, 0) != 0)
    Fail("no connection");
  return fd;
}

/* `listener`: the message centre's. */
void Open(Module *module, const char *name, size_t connections, int listener) {
  for (size_t at = 0; at < connections; ++at) module->to.push_back(Connect(name, kApptAckPeer));
  Ask(*module, 0);
  struct pollfd wait = {listener, POLLIN, 0};
  if (poll(&wait, 1, 10000) != 1) Fail("the module does not answer");
  module->from.fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
  (void)Receive(&module->from, WireKind::HELLO);
  (void)Acknowledged(module);
}

/* Calls a second, with one of each connection under way. */
double RateOf(Module *module) {
  DoNotPreempt();
  const uint64_t start = Nanoseconds();
  for (uint32_t chain = 0; chain < module->to.size(); ++chain) Ask(*module, chain);
  for (size_t left = kRateCalls; left > 0; --left) {
    const uint32_t chain = Acknowledged(module);
    if (left > module->to.size()) Ask(*module, chain);
  }
  return kRateCalls * 1e9 / static_cast<double>(Nanoseconds() - start);
}

/* ---- figures ---- */

uint64_t Percentile(std::vector<uint64_t> samples, double share) {
  std::sort(samples.begin(), samples.end());
  return samples[static_cast<size_t>(share * static_cast<double>(samples.size() - 1))];
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void Print(const std::string &name, double value) { printf("%s %.1f\n", name.c_str(), value); }

/* The median over the rounds of each round's p50 and p99. */
void Report(const char *name, const std::vector<std::vector<uint64_t>> &rounds) {
  std::vector<double> p50, p99;
  for (const std::vector<uint64_t> &round : rounds) {
    p50.push_back(static_cast<double>(Percentile(round, 0.50)));
    p99.push_back(static_cast<double>(Percentile(round, 0.99)));
  }
  Print(std::string(name) + "/p50", Median(p50));
  Print(std::string(name) + "/p99", Median(p99));
}

std::vector<uint64_t> Timed(const std::function<void()> &trip) {
  std::vector<uint64_t> samples;
  for (int i = 0; i < kTrips; ++i) {
    uint64_t start = Nanoseconds();
    trip();
    samples.push_back(Nanoseconds() - start);
  }
  return samples;
}

/* Times each kind of trip in each round. */
void TakeTurns(const std::vector<std::pair<const char *, std::function<void()>>> &trips) {
  std::vector<std::vector<std::vector<uint64_t>>> rounds(trips.size());
  for (int round = 0; round < kRounds; ++round)
    for (size_t trip = 0; trip < trips.size(); ++trip)
      rounds[trip].push_back(Timed(trips[trip].second));
  for (size_t trip = 0; trip < trips.size(); ++trip) Report(trips[trip].first, rounds[trip]);
}

/* Waits until `name` is served and past its init. */
void AwaitEndpoint(const char *name) {
  std::string reply;
  for (int tries = 0; tries < 10000; ++tries) {
    if (tds_call(0x1ffff, nullptr, 0, name, 10000, &reply) != 0 && errno == ENOMSG) return;
    tds_delay(1);
  }
  Fail("the module does not come up");
}

/* Starts a program that dies with this one; arguments that are NULL are none. */
pid_t Start(const char *program, const char *first, const char *second) {
  pid_t pid = fork();
  if (pid < 0) Fail("fork");
  if (pid > 0) return pid;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  execl(program, program, first, second, nullptr);
  _exit(127);
}

/* Starts one of the modules that only pass messages on. */
void StartRuntime(const char *name, size_t answer_size) {
  Start("/proc/self/exe", name, std::to_string(answer_size).c_str());
  AwaitEndpoint(name);
}

double MillisecondsSince(uint64_t start) {
  return static_cast<double>(Nanoseconds() - start) / 1e6;
}

/* How many commands the shell that does nothing was given; it writes a byte for each. */
double CommandsGiven() {
  struct stat status;
  return stat(kCommands, &status) == 0 ? static_cast<double>(status.st_size) : 0;
}

/* Milliseconds of one, which is its process and no more. */
double CommandTime() {
  constexpr int kTimes = 100;
  const uint64_t start = Nanoseconds();
  for (int i = 0; i < kTimes; ++i)
    if (system("nothing") != 0) Fail("no shell");
  return MillisecondsSince(start) / kTimes;
}

/* Milliseconds until every module of the daemon is past its init. */
double StartOnce(const char *program, pid_t *daemon) {
  uint64_t start = Nanoseconds();
  *daemon = Start(program, nullptr, nullptr);
  for (const char *name : {kModule, "sysmgr:capabinfo", "sysmgr:mgtsrvr", "sysmgr:button_proc"})
    AwaitEndpoint(name);
  return MillisecondsSince(start);
}

/* The last one that was started goes on. What the commands of the start do is no part of it:
   script/bench gives the daemon a shell that does nothing. Their processes come on top of what a
   start may take. */
void StartDaemon(const char *program) {
  pid_t daemon = -1;
  std::vector<double> starts, limits;
  gptXmlTrees = ShmPoolSrvInit();
  FILE *file = fopen("/etc/tr098_data_model.xml", "re");
  if (gptXmlTrees == nullptr || file == nullptr) Fail("no store or no data-model file");
  gptXmlTrees->root = ams_mxmlLoadFile(nullptr, file, nullptr);
  fclose(file);
  for (int round = 0; round < kRounds; ++round) {
    if (daemon > 0 && (kill(daemon, SIGKILL) != 0 || waitpid(daemon, nullptr, 0) != daemon))
      Fail("the daemon did not end");
    const double before = CommandsGiven();
    starts.push_back(StartOnce(program, &daemon));
    const double commands = CommandsGiven() - before;
    limits.push_back(kStartMs + commands * CommandTime());
  }
  Print("startup/ms", Median(starts));
  Print("startup/limit/ms", Median(limits));
}

int Straight(const char *program) {
  Module daemon = {}, echo = {};
  StartDaemon(program);
  const int listener = WireListen(kApptAckPeer);
  if (listener < 0) Fail("no message centre");
  Open(&daemon, kModule, kClients, listener);
  const size_t answer = daemon.from.frame.head.length;
  StartRuntime(kEcho, answer);
  Open(&echo, kEcho, 1, listener);
  const WireSizes sizes = {sizeof(WireHead) + frame.size(), sizeof(WireHead) + answer};
  auto asked = [](Module *module) {
    return [=] {
      Ask(*module, 0);
      (void)Acknowledged(module);
    };
  };
  TakeTurns({{"straight/ours", asked(&daemon)},
             {"straight/runtime", asked(&echo)},
             {"straight/bare", BareTrip(sizes, 1, BARE_EPOLL)},
             {"straight/blocking", BareTrip(sizes, 1, BARE_READ)}});
  std::vector<double> rates, bare_rates;
  for (int round = 0; round < kRounds; ++round) {
    rates.push_back(RateOf(&daemon));
    bare_rates.push_back(BareRate(sizes, kClients, kRateCalls));
  }
  Print("clients8/ours/rate", Median(rates));
  Print("clients8/bare/rate", Median(bare_rates));
  return 0;
}

/* Where each message is answered on the connection that it came by. */
void Call(Line *line, uint32_t id, const std::string &data) {
  if (WireSend(line->fd, WireKind::CALL, id, 0, data.data(), static_cast<uint32_t>(data.size()),
               0) != 0)
    Fail("the request could not be sent");
  (void)Receive(line, WireKind::ANSWER);
}

/* As a client of the runtime's library has it. */
std::string CallByLibrary(const std::string &request) {
  std::string reply;
  if (tds_call(kDbmgrRequest, request.data(), static_cast<uint32_t>(request.size()), kDbmgrName,
               10000, &reply) != 0)
    Fail("no answer: is the gateway running?");
  return reply;
}

const std::string dbmgr_request =
    DbmgrPutRequest({APPT_CMD_GET, std::string(kObject) + "." + kLeaf, std::string()});

/* To dbmgr, whose answer is seen to be one. */
Line DbmgrLine() {
  DbmgrAnswer answer;
  if (DbmgrGetAnswer(CallByLibrary(dbmgr_request), &answer) != 0 || answer.result < 0 ||
      answer.text.empty())
    Fail("dbmgr refuses a get: does sysmgr run?");
  return {Connect(kDbmgrName, "bus_bench"), {}, {}};
}

int Request() {
  Line dbmgr = DbmgrLine();
  TakeTurns({{"request", [&] { Call(&dbmgr, kDbmgrRequest, dbmgr_request); }}});
  return 0;
}

int Rounds() {
  Line dbmgr = DbmgrLine();
  while (getchar() != EOF)
    Print("request/p50", static_cast<double>(Percentile(
                             Timed([&] { Call(&dbmgr, kDbmgrRequest, dbmgr_request); }), 0.50)));
  return 0;
}

int ThroughDbmgr() {
  constexpr size_t kAnswer = 64;
  StartRuntime(kEcho, kAnswer);
  StartRuntime(kRelay, kAnswer);
  Line dbmgr = DbmgrLine(), relay = {Connect(kRelay, "bus_bench"), {}, {}};
  const WireSizes sizes = {sizeof(WireHead) + frame.size(), sizeof(WireHead) + kAnswer};
  const std::function<void()> dbus = DbusTrip(sizes);
  if (!dbus) Fail("no dbus-daemon: script/bootstrap --with bench installs it");
  TakeTurns({{"dbmgr/ours", [&] { Call(&dbmgr, kDbmgrRequest, dbmgr_request); }},
             {"dbmgr/library", [] { (void)CallByLibrary(dbmgr_request); }},
             {"dbmgr/runtime", [&] { Call(&relay, kRelayed, frame); }},
             {"dbmgr/bare", BareTrip(sizes, 2, BARE_EPOLL)},
             {"dbmgr/sdbus", dbus},
             {"dbmgr/blocking", BareTrip(sizes, 2, BARE_READ)}});
  return 0;
}

}  // namespace

int main(int argc, char **argv) {
  signal(SIGPIPE, SIG_IGN);
  setvbuf(stdout, nullptr, _IOLBF, 0);
  if (argc == 3 && strcmp(argv[1], "straight") == 0) return Straight(argv[2]);
  if (argc == 2 && strcmp(argv[1], "dbmgr") == 0) return ThroughDbmgr();
  if (argc == 2 && strcmp(argv[1], "request") == 0) return Request();
  if (argc == 2 && strcmp(argv[1], "rounds") == 0) return Rounds();
  if (argc == 3 && (strcmp(argv[1], kEcho) == 0 || strcmp(argv[1], kRelay) == 0))
    ServeRuntime(argv[1], strtoul(argv[2], nullptr, 10));
  fprintf(stderr, "usage: bus_bench straight SYSMGR | dbmgr | request | rounds\n");
  return 2;
}
