// What the tests of the daemon's own code share: a private store with a small data model, and calls
// of handlers. What these ask for is recorded (recorder.h); a test may start the modules
// (daemon_modules.h).
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdint>
#include <functional>
#include <string>

#include "daemon_modules.h"
#include "recorder.h"

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
