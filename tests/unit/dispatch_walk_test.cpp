// Which op functions a request calls, in which order and for which node.
#include <cstring>
#include <memory>

#include "support.h"
#include "tds_desk.h"

namespace {

using Lines = std::vector<std::string>;

#define ROOT "InternetGatewayDevice."

/* Op functions whose command lines show that they were called, and for which
 * node. */
constexpr char kModel[] = R"(<InternetGatewayDevice type="object">
  <Top type="object" op="FuncCPUState">
    <A type="string">1</A>
    <B type="string" writable="0">2</B>
    <Plain type="object">
      <Deep type="object" op="FuncMemoryState"><L type="string">x</L></Deep>
      <Refused type="object" op="NoSuchFunction"><R type="string">r</R></Refused>
    </Plain>
    <Rows type="array" op="FuncCPUState">
      <Template><Name type="string">new</Name></Template>
      <Instance id="3"><Name type="string">c</Name></Instance>
    </Rows>
  </Top>
  <Black type="array" op="FuncUPNPBlackListI">
    <Template><Name type="string">new</Name></Template>
    <Instance id="1"><Name type="string">one</Name></Instance>
    <Instance id="3"><Name type="string">three</Name></Instance>
  </Black>
  <Failing type="array" op="FuncDeviceInfo">
    <Template><Name type="string"/></Template>
    <Instance id="1"><Name type="string"/></Instance>
  </Failing>
  <Silent type="array"><Template><Name type="string"/></Template></Silent>
  <Iptv type="object" op="FuncServIPTV"><Mode type="string">0</Mode></Iptv>
  <Wrong type="object" op="NoSuchFunction"><W type="string">w</W></Wrong>
  <Bare type="object"><L type="string">l</L></Bare>
</InternetGatewayDevice>)";

std::string Cpu(const char *node) {
  return std::string("/usr/syscfg/cpuState.sh path=" ROOT) + node + " >/dev/null 2>&1";
}
std::string Memory(const char *node) {
  return std::string("/usr/syscfg/memoryState.sh path=" ROOT) + node + " >/dev/null 2>&1";
}
std::string Black(const char *what) {
  return std::string("/usr/syscfg/miniupnpd.sh blacklist_") + what;
}

struct Outcome {
  int result;
  uint32_t length; /* rLen */
  std::string reply;
  Lines commands;
};

/* Runs a request on this thread. */
Outcome Answer(uint32_t command, const std::string &url, const std::string &value) {
  MsgArg arg = {};
  std::string frame = RequestFrame(7, command, url, value);
  EXPECT_EQ(appt_FillMsgArg(&arg, frame.data(), static_cast<uint32_t>(frame.size())), 0);
  Outcome outcome = {appt_RunRequest(&arg), arg.rLen, arg.rBuf == nullptr ? "" : arg.rBuf, {}};
  __tds_free(arg.rBuf);
  outcome.commands = TakeCommands();
  return outcome;
}

class DispatchWalk : public StoreTest {
 protected:
  std::string DataModel() const override { return kModel; }
};

struct WalkCase {
  const char *what;
  uint32_t command;
  const char *url, *value;
  int result;
  const char *reply; /* NULL: rLen is 0 */
  Lines commands;
};

const WalkCase kRequests[] = {
    {"get of leaves: op first, each text with 0x03 behind",
     APPT_CMD_GET,
     ROOT "Top",
     "B\3A",
     0,
     "B=2\3A=1\3",
     {Cpu("Top")}},
    {"get of an object walks parents first, a refused op stops nothing",
     APPT_CMD_GET,
     ROOT "Top",
     "",
     0,
     "A=1\3B=2\3Plain.Deep.L=x\3Plain.Refused.R=r\3Rows.3.Name=c",
     {Cpu("Top"), Memory("Top.Plain.Deep"), Cpu("Top.Rows")}},
    {"refresh calls and answers nothing",
     APPT_CMD_REFRESH,
     ROOT "Top.Plain",
     "",
     0,
     nullptr,
     {Memory("Top.Plain.Deep")}},
    {"refresh of a leaf calls its object's op",
     APPT_CMD_REFRESH,
     ROOT "Top",
     "A",
     0,
     nullptr,
     {Cpu("Top")}},
    {"an unknown command writes and calls nothing", 0x40, ROOT "Top", "A=9", 0, nullptr, {}},
    {"an instance shares its array's op",
     APPT_CMD_SET,
     ROOT "Black.3",
     "Name=x",
     0,
     nullptr,
     {Black("set " ROOT "Black.3")}},
    {"no op, and no array above", APPT_CMD_GET, ROOT "Bare", "L", -1, nullptr, {}},
    {"an op that no table has", APPT_CMD_GET, ROOT "Wrong", "W", -1, nullptr, {}},
    {"an op without a handler is accepted", APPT_CMD_SET, ROOT "Iptv", "Mode=1", 0, nullptr, {}},
    {"delete calls with the instance's path",
     APPT_CMD_DEL,
     ROOT "Black.3",
     "",
     0,
     nullptr,
     {Black("del 3")}},
    {"delete stands when the op function fails",
     APPT_CMD_DEL,
     ROOT "Failing.1",
     "",
     0,
     nullptr,
     {}},
    {"add answers the new path and calls with it",
     APPT_CMD_ADD,
     ROOT "Black",
     "",
     0,
     ROOT "Black.4",
     {Black("add 4")}},
    {"add to an array without op", APPT_CMD_ADD, ROOT "Silent", "", 0, ROOT "Silent.1", {}},
    {"add whose op function fails", APPT_CMD_ADD, ROOT "Failing", "", -1, ROOT "Failing.2", {}},
    {"get of an array calls its op once",
     APPT_CMD_GET,
     ROOT "Top.Rows",
     "",
     0,
     "3.Name=c",
     {Cpu("Top.Rows")}},
    {"refresh of an array", APPT_CMD_REFRESH, ROOT "Top.Rows", "", 0, nullptr, {Cpu("Top.Rows")}},
    {"get of an array without op", APPT_CMD_GET, ROOT "Silent", "", -1, nullptr, {}},
};

TEST_F(DispatchWalk, RequestsCallAndAnswer) {
  for (const WalkCase &row : kRequests) {
    SCOPED_TRACE(row.what);
    LoadModel(kModel);
    Outcome outcome = Answer(row.command, row.url, row.value);
    EXPECT_EQ(outcome.result, row.result);
    EXPECT_EQ(outcome.length, row.reply == nullptr ? 0U : strlen(row.reply) + 1);
    EXPECT_EQ(outcome.reply, row.reply == nullptr ? "" : row.reply);
    EXPECT_EQ(outcome.commands, row.commands);
  }
}

TEST_F(DispatchWalk, DeletedAndAddedInstancesAreInTheStore) {
  Answer(APPT_CMD_DEL, ROOT "Failing.1", "");
  EXPECT_EQ(Leaf(ROOT "Failing.1.Name"), "(none)");
  Answer(APPT_CMD_DEL, ROOT "Black.3", "");
  Answer(APPT_CMD_ADD, ROOT "Black", "");
  EXPECT_EQ(Leaf(ROOT "Black.4.Name"), "new") << "a number is never used twice";
  EXPECT_EQ(Answer(APPT_CMD_LIST, ROOT "Black", "").reply, "1,4");
}

TEST_F(DispatchWalk, AnAnswerThatNoMessageHoldsIsRefused) {
  StartModules();
  LoadModel(kModel);
  for (int i = 0; i < 33; ++i) {
    Answer(APPT_CMD_ADD, ROOT "Silent", "");
    SetLeaf(ROOT "Silent." + std::to_string(i + 1) + ".Name", std::string(AMS_VALUE_MAX, 'x'));
  }
  Ack ack = Request("sysmgr:devInfo", APPT_CMD_GET, "InternetGatewayDevice");
  EXPECT_EQ(ack.code, static_cast<uint32_t>(APPT_CODE_RESULT));
  EXPECT_EQ(ack.result, -1);
  EXPECT_EQ(ack.value, "");
}

}  // namespace
