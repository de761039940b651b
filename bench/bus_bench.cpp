// Round trips of requests beside bare sockets and sd-bus, in the same run.
//
//   bus_bench straight SYSMGR   a module alone, in the root file system without daemons: this
//                               program is the store's server and the message centre
//   bus_bench dbmgr             through the data-base manager of the running gateway
//
// Prints one line a figure: name, value. Starts itself as "bus_bench MODULE SIZE" for the modules
// that only pass messages on.
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "appt_request.h"
#include "bare_bus.h"
#include "dbmgr_proto.h"
#include "dbus_bus.h"
#include "nanoseconds.h"
#include "runtime_bus.h"
#include "wire.h"

namespace {

constexpr int kRounds = 7, kTrips = 4000, kRateCalls = 40000, kClients = 8;
constexpr char kModule[] = "sysmgr:devInfo";
constexpr char kObject[] = "InternetGatewayDevice.DeviceInfo";
constexpr char kLeaf[] = "Manufacturer";

std::string frame; /* the request: one leaf read whose op function runs no script */
std::mutex mutex;
std::condition_variable finished;

/* The run that the message centre's thread is in; the main thread waits for it to end. */
struct Run {
  const char *module;
  int left, window;
  uint64_t sent_at;
  std::vector<uint64_t> *samples; /* NULL: only the rate is wanted */
  std::vector<int> clients;       /* connections of the rate run */
  size_t answer_size;
} run;

void Fail(const char *what) {
  fprintf(stderr, "bus_bench: %s\n", what);
  exit(1);
}

std::string RequestFrame() {
  std::string url = kObject, value = kLeaf, text(APPT_HEAD_SIZE, '\0');
  appt_PutWord(&text[APPT_AT_COMMAND], APPT_CMD_GET);
  appt_PutWord(&text[APPT_AT_CODE], APPT_CODE_REQUEST);
  text += static_cast<char>(url.size());
  text += url + '\0';
  text += static_cast<char>(value.size());
  return text + value + '\0';
}

void SendOne(uint32_t chain) {
  appt_PutWord(&frame[APPT_AT_CHAIN], chain);
  uint32_t size = static_cast<uint32_t>(frame.size());
  if (run.samples != nullptr) run.sent_at = Nanoseconds();
  int sent = run.clients.empty() ? SendMsg(EV_APPT_MSG_REQUEST, frame.data(), size, run.module)
                                 : WireSend(run.clients[chain], WireKind::POST, EV_APPT_MSG_REQUEST,
                                            0, frame.data(), size, 0);
  if (sent != 0) Fail("the request could not be sent");
}

void OnStart(int32_t, const void *, uint32_t) {
  if (run.window > 1) DoNotPreempt();
  for (uint32_t chain = 0; chain < static_cast<uint32_t>(run.window); ++chain) SendOne(chain);
}

void OnAnswer(int32_t, const void *data, uint32_t len) {
  if (run.samples != nullptr) run.samples->push_back(Nanoseconds() - run.sent_at);
  if (len < APPT_ACK_HEAD_SIZE ||
      appt_GetWord(static_cast<const char *>(data) + APPT_AT_RESULT) != 0)
    Fail("the module refused the request");
  run.answer_size = len;
  if (--run.left >= run.window) {
    SendOne(appt_GetWord(data));
  } else if (run.left == 0) {
    std::lock_guard<std::mutex> lock(mutex);
    finished.notify_one();
  }
}

constexpr uint32_t kStart = 0x110100;
const MsgEntry kCentre[] = {{kStart, OnStart}, {EV_APPT_MSG_ACKTO_AGT, OnAnswer}, {0, nullptr}};
const ModuleEntry kModules[] = {{kApptAckPeer, {0, 0}, kCentre}, {}};

/* Runs `trips` requests of a module with `window` of them under way. */
void RunOnCentre(const char *module, int trips, int window, std::vector<uint64_t> *samples) {
  std::unique_lock<std::mutex> lock(mutex);
  run.module = module;
  run.left = trips;
  run.window = window;
  run.samples = samples;
  if (SendMsg(kStart, nullptr, 0, kApptAckPeer) != 0) Fail("no message centre");
  if (!finished.wait_for(lock, std::chrono::seconds(60), [] { return run.left == 0; }))
    Fail("answers are missing");
}

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

/* Milliseconds until every module of the daemon is past its init. The commands of the start cost
   what they cost: script/bench gives the daemon a shell that does nothing. */
double StartOnce(const char *program, pid_t *daemon) {
  uint64_t start = Nanoseconds();
  *daemon = Start(program, nullptr, nullptr);
  for (const char *name : {kModule, "sysmgr:capabinfo", "sysmgr:mgtsrvr", "sysmgr:button_proc"})
    AwaitEndpoint(name);
  return static_cast<double>(Nanoseconds() - start) / 1e6;
}

/* The last one that was started goes on. */
void StartDaemon(const char *program) {
  pid_t daemon = -1;
  std::vector<double> starts;
  gptXmlTrees = ShmPoolSrvInit();
  FILE *file = fopen("/etc/tr098_data_model.xml", "re");
  if (gptXmlTrees == nullptr || file == nullptr) Fail("no store or no data-model file");
  gptXmlTrees->root = ams_mxmlLoadFile(nullptr, file, nullptr);
  fclose(file);
  if (SysInit(kModules) != 0) Fail("SysInit");
  for (int round = 0; round < kRounds; ++round) {
    if (daemon > 0 && (kill(daemon, SIGKILL) != 0 || waitpid(daemon, nullptr, 0) != daemon))
      Fail("the daemon did not end");
    starts.push_back(StartOnce(program, &daemon));
  }
  Print("startup/ms", Median(starts));
}

/* The connections of as many clients of the module, all handled on the centre's thread. */
void OpenClients() {
  for (int i = 0; i < kClients; ++i) {
    int fd = WireConnect(kModule, true);
    if (fd < 0 || WireSend(fd, WireKind::HELLO, 0, 0, "client", 7, 0) != 0) Fail("no connection");
    run.clients.push_back(fd);
  }
}

int Straight(const char *program) {
  StartDaemon(program);
  RunOnCentre(kModule, 1000, 1, nullptr);
  StartRuntime(kEcho, run.answer_size);
  WireSizes sizes = {sizeof(WireHead) + frame.size(), sizeof(WireHead) + run.answer_size};
  std::function<void()> bare = BareTrip(sizes, 1, BARE_EPOLL),
                        blocking = BareTrip(sizes, 1, BARE_READ);
  std::vector<std::vector<uint64_t>> ours(kRounds), runtime(kRounds), floor, blocking_floor;
  for (size_t round = 0; round < kRounds; ++round) {
    RunOnCentre(kModule, kTrips, 1, &ours[round]);
    RunOnCentre(kEcho, kTrips, 1, &runtime[round]);
    floor.push_back(Timed(bare));
    blocking_floor.push_back(Timed(blocking));
  }
  Report("straight/ours", ours);
  Report("straight/runtime", runtime);
  Report("straight/bare", floor);
  Report("straight/blocking", blocking_floor);
  OpenClients();
  std::vector<double> rates, bare_rates;
  for (int round = 0; round < kRounds; ++round) {
    uint64_t start = Nanoseconds();
    RunOnCentre(kModule, kRateCalls, kClients, nullptr);
    rates.push_back(kRateCalls * 1e9 / static_cast<double>(Nanoseconds() - start));
    bare_rates.push_back(BareRate(sizes, kClients, kRateCalls));
  }
  Print("clients8/ours/rate", Median(rates));
  Print("clients8/bare/rate", Median(bare_rates));
  return 0;
}

int ThroughDbmgr() {
  constexpr size_t kAnswer = 64;
  std::string request =
      DbmgrPutRequest({APPT_CMD_GET, std::string(kObject) + "." + kLeaf, std::string()});
  std::string reply;
  auto call = [&](uint32_t id, const std::string &data, const char *module) {
    if (tds_call(id, data.data(), static_cast<uint32_t>(data.size()), module, 10000, &reply) != 0)
      Fail("no answer: is the gateway running?");
  };
  auto ours = [&] { call(kDbmgrRequest, request, kDbmgrName); };
  auto runtime = [&] { call(kRelayed, frame, kRelay); };
  ours();
  DbmgrAnswer answer;
  if (DbmgrGetAnswer(reply, &answer) != 0 || answer.result < 0 || answer.text.empty())
    Fail("dbmgr refuses a get: does sysmgr run?");
  WireSizes sizes = {sizeof(WireHead) + frame.size(), sizeof(WireHead) + kAnswer};
  std::function<void()> bare = BareTrip(sizes, 2, BARE_EPOLL),
                        blocking = BareTrip(sizes, 2, BARE_READ), dbus = DbusTrip(sizes);
  if (!dbus) Fail("no dbus-daemon: script/bootstrap --with bench installs it");
  StartRuntime(kEcho, kAnswer);
  StartRuntime(kRelay, kAnswer);
  const struct {
    const char *name;
    std::function<void()> trip;
  } chains[] = {{"dbmgr/ours", ours},
                {"dbmgr/runtime", runtime},
                {"dbmgr/bare", bare},
                {"dbmgr/sdbus", dbus},
                {"dbmgr/blocking", blocking}};
  std::vector<std::vector<uint64_t>> rounds[std::size(chains)];
  for (int round = 0; round < kRounds; ++round)
    for (size_t chain = 0; chain < std::size(chains); ++chain)
      rounds[chain].push_back(Timed(chains[chain].trip));
  for (size_t chain = 0; chain < std::size(chains); ++chain)
    Report(chains[chain].name, rounds[chain]);
  return 0;
}

}  // namespace

int main(int argc, char **argv) {
  signal(SIGPIPE, SIG_IGN);
  frame = RequestFrame();
  setvbuf(stdout, nullptr, _IOLBF, 0);
  if (argc == 3 && strcmp(argv[1], "straight") == 0) return Straight(argv[2]);
  if (argc == 2 && strcmp(argv[1], "dbmgr") == 0) return ThroughDbmgr();
  if (argc == 3 && (strcmp(argv[1], kEcho) == 0 || strcmp(argv[1], kRelay) == 0))
    ServeRuntime(argv[1], strtoul(argv[2], nullptr, 10));
  fprintf(stderr, "usage: bus_bench straight SYSMGR | bus_bench dbmgr\n");
  return 2;
}
