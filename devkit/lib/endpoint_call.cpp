// Calls of the gateway's processes; see endpoint_call.h.
#include "endpoint_call.h"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <future>
#include <system_error>

#include "tds_desk.h"

namespace {

/* Which process of the desk serves endpoints with this beginning. */
const struct {
  const char *endpoint, *process;
} kProcesses[] = {{"dbmgr:", "dbmgr"},
                  {"msgcenter:", "dbmgr"},
                  {"sysmgr", "sysmgr"},
                  {"tdsmgr:vermgt", "vermgt"}};

std::string Why(int error, const std::string &name, uint32_t limit_ms) {
  switch (error) {
    case ENOENT:
      return name + " is not running: " + HowToStart(name);
    case EPIPE:
      return name + " died before it answered: look at its log in /var/log/devkit";
    case ENOMSG:
      return name + " does not answer such a message: check the id";
    case EMSGSIZE:
      return "the message or its answer is longer than 64 MiB: ask for less";
    case EPERM:
      return "the message's id is the runtime's own: nobody else may send it";
    case EUSERS:
      return name + " has no room for more clients: end some, or try later";
    case ETIMEDOUT:
      return name + " gave no answer in " + std::to_string(limit_ms) +
             " ms: it is busy or hangs, --timeout waits longer";
    case EAGAIN:
      return name + " takes no more messages: it is busy or hangs, try later";
    default:
      return name + " cannot be asked: " + strerror(error);
  }
}

constexpr auto kLong = std::chrono::seconds(1);

/* tds_call. Who sits at a terminal is told of a wait that gets long, and how long it may become. */
int CallAtTerminal(const char *dest, uint32_t id, const std::string &payload, uint32_t limit_ms,
                   std::string *reply) {
  std::promise<void> answered;
  std::future<void> notice;
  if (limit_ms > std::chrono::milliseconds(kLong).count() && isatty(STDERR_FILENO) == 1) try {
      notice = std::async(std::launch::async, [&] {
        if (answered.get_future().wait_for(kLong) == std::future_status::timeout)
          fprintf(stderr, "%s: no answer of %s yet, it is waited for up to %g s (--timeout)\n",
                  program_invocation_short_name, dest, limit_ms / 1e3);
      });
    } catch (const std::system_error &) {
      /* without a thread there is no notice */
    }
  int result =
      tds_call(id, payload.data(), static_cast<uint32_t>(payload.size()), dest, limit_ms, reply);
  int error = errno;
  answered.set_value();
  if (notice.valid()) notice.wait();
  errno = error;
  return result;
}

}  // namespace

std::string HowToStart(const std::string &endpoint) {
  if (access("/usr/sbin/gateway-daemon", X_OK) != 0) return "start the gateway with script/gateway";
  for (const auto &row : kProcesses)
    if (endpoint.compare(0, strlen(row.endpoint), row.endpoint) == 0)
      return std::string("gateway-daemon start ") + row.process + " starts it";
  return "is the name right?";
}

ExitStatus CallEndpoint(const char *dest, uint32_t id, const std::string &payload,
                        uint32_t limit_ms, std::string *reply) {
  if (CallAtTerminal(dest, id, payload, limit_ms, reply) == 0) return EXIT_DONE;
  const int error = errno;
  *reply = Why(error, dest, limit_ms);
  return error == ETIMEDOUT || error == EAGAIN ? EXIT_NO_ANSWER : EXIT_REFUSED;
}
