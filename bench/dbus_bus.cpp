// The peer of the bus: sd-bus method calls through a private dbus-daemon.
#include "dbus_bus.h"

#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace {

constexpr char kName[] = "bench.Gateway";
std::string answer_text;

int OnCall(sd_bus_message *message, void *, sd_bus_error *) {
  const char *text;
  int read = sd_bus_message_read(message, "s", &text);
  return read < 0 ? read : sd_bus_reply_method_return(message, "s", answer_text.c_str());
}

const sd_bus_vtable kTable[] = {SD_BUS_VTABLE_START(0),
                                SD_BUS_METHOD("Get", "s", "s", OnCall, SD_BUS_VTABLE_UNPRIVILEGED),
                                SD_BUS_VTABLE_END};

sd_bus *Connect(const std::string &address) {
  sd_bus *bus = nullptr;
  if (sd_bus_new(&bus) < 0 || sd_bus_set_address(bus, address.c_str()) < 0 ||
      sd_bus_set_bus_client(bus, 1) < 0 || sd_bus_start(bus) < 0)
    return nullptr;
  return bus;
}

/* Starts dbus-daemon; its address, which it prints once it listens. "" when it cannot be run. */
std::string StartDaemon() {
  int out[2];
  if (pipe(out) != 0) return "";
  pid_t pid = fork();
  if (pid == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(out[1], STDOUT_FILENO);
    execlp("dbus-daemon", "dbus-daemon", "--session", "--nofork", "--print-address", nullptr);
    _exit(127);
  }
  close(out[1]);
  FILE *stream = fdopen(out[0], "r");
  char line[512] = "";
  bool got = fgets(line, sizeof(line), stream) != nullptr;
  (void)stream; /* kept open: the daemon may write to it */
  std::string address(line);
  return got ? address.substr(0, address.find('\n')) : "";
}

[[noreturn]] void Serve(const std::string &address, int ready) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  sd_bus *bus = Connect(address);
  sd_bus_slot *slot = nullptr;
  if (bus == nullptr || sd_bus_add_object_vtable(bus, &slot, "/g", kName, kTable, nullptr) < 0 ||
      sd_bus_request_name(bus, kName, 0) < 0 || write(ready, "r", 1) != 1)
    _exit(1);
  for (;;) {
    int more = sd_bus_process(bus, nullptr);
    if (more < 0) _exit(1);
    if (more == 0) sd_bus_wait(bus, UINT64_MAX);
  }
}

}  // namespace

std::function<void()> DbusTrip(WireSizes sizes) {
  std::string address = StartDaemon();
  int ready[2];
  char byte;
  answer_text.assign(sizes.answer, 'a');
  if (address.empty() || pipe(ready) != 0) return {};
  if (fork() == 0) Serve(address, ready[1]);
  close(ready[1]);
  sd_bus *bus = Connect(address);
  if (read(ready[0], &byte, 1) != 1 || bus == nullptr) return {};
  std::string request(sizes.request, 'r');
  return [=] {
    sd_bus_message *reply = nullptr;
    if (sd_bus_call_method(bus, kName, "/g", kName, "Get", nullptr, &reply, "s", request.c_str()) <
        0) {
      fprintf(stderr, "bus_bench: the sd-bus call failed\n");
      exit(1);
    }
    sd_bus_message_unref(reply);
  };
}
