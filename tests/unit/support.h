// What the tests of the daemon's own code share: a private store with a small data model, a record
// of every shell command, the daemon's modules running in this process, and what they send out.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "appt_request.h"

/* ---- store ---- */

/* Replaces the tree by a data-model text; a failure fails the test. */
void LoadModel(const std::string &text);

/* The leaf's value, or "(none)". */
std::string Leaf(const std::string &path);

/* A status write; a failure fails the test. */
void SetLeaf(const std::string &path, const std::string &value);

/* The file's text, or "(none)". */
std::string FileText(const std::string &path);

/* Each test starts with the tree of DataModel() and with no commands, answers or messages left. */
class StoreTest : public ::testing::Test {
 protected:
  void SetUp() override;
  virtual std::string DataModel() const;

  /* Starts the modules of the daemon, once in this process, and returns when their start is over
     and what it ran is forgotten. They go on running in the tests that follow; beside them stands
     the peer "msgcenter:cAckAgt", which records. */
  void StartModules();
};

/* The same with the tree of the gateway. */
class GatewayTest : public StoreTest {
  std::string DataModel() const override { return FileText("/etc/tr098_data_model.xml"); }
};

/* ---- shell ---- */

using Lines = std::vector<std::string>;

/* The lines given to system() and popen() since the last call, in order, and forgets them. */
std::vector<std::string> TakeCommands();

/* As TakeCommands, once the line `last` has been run; a minute later the test fails. */
std::vector<std::string> AwaitCommand(const std::string &last);

/* Output of the next popen() that has none yet; without any, output is empty. */
void AnswerPopen(std::string output);

/* The next popen() that has no answer yet fails. */
void FailPopen();

/* Called with each line given to system() from now on that the shell does not really run, to leave
   what the line would leave. Until the end of the test. */
void OnSystem(std::function<void(const std::string &line)> answer);

/* What the next system() that has no result yet gives back, with `error` in errno. Without any it
   gives 0 and leaves errno alone. */
void AnswerSystem(int status, int error);

/* What was said of next ones (AnswerPopen to FailThread) and nothing has asked for. */
void ForgetAnswers();

/* Called in place of each tds_delay() of this thread from now on, so that what it waits for comes
   when the test says, and time decides nothing. Until the end of the test. */
void OnDelay(std::function<void()> instead);

/* What this thread asks of the runtime and of the clock (timers, messages, registrations, waits) is
   recorded from now on with the lines given to the shell, such as "SetTimer(1, 300)", and not done.
   Until the end of the test. */
void RecordRuntime();

/* What the next recorded synchronous call is answered; without any it fails. */
void AnswerCall(const std::string &reply);

/* The next thread that this one wants cannot be had. */
void FailThread();

/* Whether the shell really runs the lines, after recording them. Off at the start of a test. */
void RunCommands(bool really);

/* How far this process can write files, in bytes, as on a disk without room; RLIM_INFINITY: as
   before. */
void LimitFiles(rlim_t bytes);

/* ---- handlers ---- */

/* Calls the handler of the first row `name`; a row that is missing or has none fails the test. */
int RunOp(const OpFuncEntry *table, const std::string &name, int op, const std::string &path = "",
          const char *value = nullptr);

/* What goes to standard error while `work` runs with records of this level and above. */
std::string LogOf(int32_t level, const std::function<void()> &work);

/* What `work` logs has to have the records, "LEVEL TEXT", whole, in this order and from `source`.
 */
void ExpectRecords(const std::string &source, const Lines &records,
                   const std::function<void()> &work);

/* Gives the process another time zone, as the C library spells it. At its start it has "UTC0". */
void SetZone(const char *zone);

/* Calls the handler of message `id` on this thread. */
void RunMessage(const MsgEntry *table, uint32_t id, const std::string &payload = "");

/* ---- messages ---- */

/* What one of the recording peers got. */
struct PeerMessage {
  std::string peer, sender, payload;
  uint32_t id;
};

/* Takes out the oldest message `id` that a peer got, waiting for it; a minute later the test fails.
 */
PeerMessage AwaitMessage(uint32_t id);

/* A request frame as the data-base manager sends it, and its way to a module. */
std::string RequestFrame(uint32_t chain, uint32_t command, const std::string &url,
                         const std::string &value = "");
void Send(const std::string &module, uint32_t id, const std::string &payload);

/* Sends the request and waits for its acknowledgement. */
struct Ack {
  uint32_t chain, command, code;
  int32_t result;
  std::string value; /* without the NUL */
};
Ack Request(const std::string &module, uint32_t command, const std::string &url,
            const std::string &value = "");
Ack ParseAck(const std::string &payload);
