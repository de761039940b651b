// What the tests of the message runtime share: two modules of this process ("unit:a" and "unit:b")
// that record what they are sent, and a second process with "peer:a", which is this program again.
// The contract alone is used, so that all of it runs on any board.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tds.h"

using Clock = std::chrono::steady_clock;

constexpr uint32_t kAny = 0, /* for Await */
    kNote = 0x110001,        /* recorded */
    kEcho = 0x110002,        /* answered with its payload */
    kDie = 0x110003,         /* the process dies in the handler */
    kRun = 0x110004,         /* payload: pointer to a std::function, run on the module's thread */
    kPublished = 0x110005;

struct Received {
  uint32_t id;
  std::string payload, sender, self;
};

/* Seconds for what is sure to come: GATEWAY_TIMEOUT, 60 without it. */
uint32_t Patience();

/* Waits for `count` records of `id`, Patience at most, and forgets all; returns those of `id`. */
std::vector<Received> Await(uint32_t id, size_t count);

/* Runs `work` on the module's thread: to the end; or once it has time, then `work` has to live. */
using Work = std::function<void()>;
void OnModule(const char *module, const Work &work);
int Post(const Work *work, const char *module);

/* An answer's text; "refused" without one. */
std::string Ask(uint32_t id, const std::string &payload, const char *dest);

std::string Taken(void *reply, uint32_t length); /* frees it */

/* Answers the call in work. 0 or -1. */
int Answer(std::string_view text);

/* A second process that serves "peer:a" and the process endpoint "peer". */
struct PeerProcess {
  pid_t pid;
  explicit PeerProcess(rlim_t descriptors = 0);
  ~PeerProcess() { Kill(); }
  void Kill();
  std::string File(const char *name) const { return "/proc/" + std::to_string(pid) + "/" + name; }
};

/* The soft limit of a process's descriptors; 0: this one. */
void LimitDescriptors(pid_t whose, rlim_t descriptors);

/* The modules run from the first test on. */
class Tds : public testing::Test {
 protected:
  static void SetUpTestSuite();
  void SetUp() override;
};
