// Every command on every kind of node: which op functions it calls, in which order and for which
// node, what it answers, and what it leaves in the store and in nvram.
#include "appt_dispatch.h"

#include <cerrno>
#include <cstring>

#include "ams_config_shell.h"
#include "appt_store.h"
#include "nvram.h"
#include "support.h"
#include "tds_desk.h"

namespace {
const char *no_memory_for; /* a tag; NULL: there is memory */
}

extern "C" char *__real___tds_strdup(const char *text, const char *tag);
extern "C" char *__wrap___tds_strdup(const char *text, const char *tag);
extern "C" char *__wrap___tds_strdup(const char *text, const char *tag) {
  return no_memory_for != nullptr && strcmp(no_memory_for, tag) == 0
             ? nullptr
             : __real___tds_strdup(text, tag);
}

namespace {

using Lines = std::vector<std::string>;

#define ROOT   "InternetGatewayDevice."
#define NAME64 "TheLongestNameThatALeafOfTheDataModelMayHaveWhichIsSixtyFourByte"
static_assert(sizeof NAME64 == 65);

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
  <Wrong type="object" op="NoSuchFunction">
    <W type="string">w</W><R type="string" writable="0">r</R>
  </Wrong>
  <Bare type="object"><L type="string">l</L></Bare>
  <Long type="object" op="FuncServIPTV"><)" NAME64 R"( type="string">l</)" NAME64 R"(></Long>
</InternetGatewayDevice>)";

std::string Cpu(const std::string &node) {
  return "/usr/syscfg/cpuState.sh path=" ROOT + node + " >/dev/null 2>&1";
}
std::string Memory(const std::string &node) {
  return "/usr/syscfg/memoryState.sh path=" ROOT + node + " >/dev/null 2>&1";
}
std::string Black(const std::string &what) { return "/usr/syscfg/miniupnpd.sh blacklist_" + what; }

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

class Dispatch : public StoreTest {
 protected:
  std::string DataModel() const override { return kModel; }
};

struct WalkCase {
  const char *what;
  uint32_t command;
  const char *url, *value; /* below the root */
  int result;
  const char *reply; /* NULL: rLen is 0 */
  Lines commands;
};

constexpr uint32_t kGet = APPT_CMD_GET, kSet = APPT_CMD_SET, kAdd = APPT_CMD_ADD;
constexpr uint32_t kDel = APPT_CMD_DEL, kRefresh = APPT_CMD_REFRESH;

const WalkCase kRequests[] = {
    {"each leaf has 0x03 behind", kGet, "Top", "B\3A", 0, "B=2\3A=1\3", {Cpu("Top")}},
    {"get of an object walks parents first, a refused op stops nothing",
     kGet,
     "Top",
     "",
     0,
     "A=1\3B=2\3Plain.Deep.L=x\3Plain.Refused.R=r\3Rows.3.Name=c",
     {Cpu("Top"), Memory("Top.Plain.Deep"), Cpu("Top.Rows")}},
    {"refresh answers nothing", kRefresh, "Top.Plain", "", 0, nullptr, {Memory("Top.Plain.Deep")}},
    {"refresh of a leaf calls its object's op", kRefresh, "Top", "A", 0, nullptr, {Cpu("Top")}},
    {"an unknown command writes and calls nothing", 0x40, "Top", "A=9", 0, nullptr, {}},
    {"an instance shares its array's op",
     kSet,
     "Black.3",
     "Name=x",
     0,
     nullptr,
     {Black("set " ROOT "Black.3")}},
    {"no op, and no array above", kGet, "Bare", "L", -1, nullptr, {}},
    {"an op that no table has", kGet, "Wrong", "W", -1, nullptr, {}},
    {"an op without a handler is accepted", kSet, "Iptv", "Mode=1", 0, nullptr, {}},
    {"a name of 64 bytes", kGet, "Long", NAME64, 0, NAME64 "=l\3", {}},
    {"a longer one is cut", kGet, "Long", NAME64 "s", 0, NAME64 "=l\3", {}},
    {"delete calls with the path", kDel, "Black.3", "", 0, nullptr, {Black("del 3")}},
    {"a dot behind the path is left out", kDel, "Black.3.", "", 0, nullptr, {Black("del 3")}},
    {"of a set, too", kSet, "Black.3.", "Name=x", 0, nullptr, {Black("set " ROOT "Black.3")}},
    {"of an add, too", kAdd, "Black.", "", 0, ROOT "Black.4", {Black("add 4")}},
    {"two dots are no path", kDel, "Black.3..", "", -1, nullptr, {}},
    {"delete stands when the op function fails", kDel, "Failing.1", "", 0, nullptr, {}},
    {"add answers the new path", kAdd, "Black", "", 0, ROOT "Black.4", {Black("add 4")}},
    {"add to an array without op", kAdd, "Silent", "", 0, ROOT "Silent.1", {}},
    {"add whose op function fails", kAdd, "Failing", "", -1, ROOT "Failing.2", {}},
    {"an array calls its op once", kGet, "Top.Rows", "", 0, "3.Name=c", {Cpu("Top.Rows")}},
    {"refresh of an array", kRefresh, "Top.Rows", "", 0, nullptr, {Cpu("Top.Rows")}},
    {"get of an array without op", kGet, "Silent", "", -1, nullptr, {}},
    {"a leaf that is not there spoils no other",
     kGet,
     "Top",
     "Nowhere\3A",
     0,
     "A=1\3",
     {Cpu("Top")}},
    {"no name, nothing read", kGet, "Iptv", "=", 0, nullptr, {}},
    {"attributes",
     APPT_CMD_ATTR,
     "Top",
     "B",
     0,
     "B=2 type=\"string\" writable=\"0\"\3",
     {Cpu("Top")}},
    {"attributes of an array",
     APPT_CMD_ATTR,
     "Top.Rows",
     "",
     0,
     "3.Name=c type=\"string\"",
     {Cpu("Top.Rows")}},
    {"set needs leaves", kSet, "Top", "", -1, nullptr, {}},
    {"set of an array", kSet, "Black", "", -1, nullptr, {}},
    {"add needs an array", kAdd, "Top", "", -1, nullptr, {}},
    {"leaves of an add", kAdd, "Top", "A=1", 0, nullptr, {}},
    {"a list", APPT_CMD_LIST, "Black", "", 0, "1,3", {}},
    {"a leaf is no node to ask", kGet, "Top.A", "", -1, nullptr, {}},
    {"no such node", kGet, "Nowhere", "", -1, nullptr, {}},
    {"delete of what is no instance", kDel, "Bare", "", -1, nullptr, {}},
};

TEST_F(Dispatch, RequestsCallAndAnswer) {
  for (const WalkCase &row : kRequests) {
    SCOPED_TRACE(row.what);
    LoadModel(kModel);
    Outcome outcome = Answer(row.command, std::string(ROOT) + row.url, row.value);
    EXPECT_EQ(outcome.result, row.result);
    EXPECT_EQ(outcome.length, row.reply == nullptr ? 0U : strlen(row.reply) + 1);
    EXPECT_EQ(outcome.reply, row.reply == nullptr ? "" : row.reply);
    EXPECT_EQ(outcome.commands, row.commands);
    if (row.command == kDel && row.result == 0) {
      EXPECT_EQ(ams_check_node(gptXmlTrees->root, (std::string(ROOT) + row.url).c_str()), -1);
    }
  }
}

enum Trouble { NONE, NO_COMMANDS, NO_MEMORY };

struct ChangeCase {
  const char *what;
  Trouble trouble;
  uint32_t command;
  const char *url, *value;
  int result;
  const char *node, *text; /* a node above, and what it holds then */
  const char *kept;        /* in nvram */
};

constexpr char kBlackAsItWas[] = "1.Name=one\0033.Name=three";
constexpr char kThree[] = "Black.3.Name=three "; /* is kept before */

const ChangeCase kChanges[] = {
    {"a refused set", NONE, kSet, "Wrong", "W=1\3R=1\3W=2\3Nowhere=1", -1, "Wrong", "W=w\3R=r",
     kThree},
    {"a set whose command cannot be run", NO_COMMANDS, kSet, "Black.3", "Name=x\3Name=y", -1,
     "Black", kBlackAsItWas, kThree},
    {"of a row that nothing is kept of", NO_COMMANDS, kSet, "Black.1", "Name=x", -1, "Black",
     kBlackAsItWas, kThree},
    {"the same when it can", NONE, kSet, "Black.3", "Name=x", 0, "Black", "1.Name=one\0033.Name=x",
     "Black.3.Name=x "},
    {"a set without memory for the op function", NO_MEMORY, kSet, "Black.3", "Name=x", -1, "Black",
     kBlackAsItWas, kThree},
    {"a refused add uses up a number", NONE, kAdd, "Failing", "", -1, "Failing",
     "1.Name=", "Black.3.Name=three Failing.=2 "},
    {"an add whose command cannot be run", NO_COMMANDS, kAdd, "Black", "", -1, "Black",
     kBlackAsItWas, "Black.=4 Black.3.Name=three "},
    {"an add without memory for its path", NO_MEMORY, kAdd, "Black", "", -1, "Black", kBlackAsItWas,
     kThree},
    {"a deletion stands", NO_COMMANDS, kDel, "Black.3", "", 0, "Black", "1.Name=one",
     "Black.=3 Black.3.=0 "},
    {"a get whose command cannot be run", NO_COMMANDS, kGet, "Top", "A", -1, "Top.Plain.Deep",
     "L=x", kThree},
    {"a set without a handler", NONE, kSet, "Iptv", "Mode=1\3Nowhere=1", 0, "Iptv", "Mode=1",
     "Black.3.Name=three Iptv.Mode=1 "},
    {"a set of no leaf that is there", NONE, kSet, "Iptv", "Nowhere=1\3=2", 0, "Iptv", "Mode=0",
     kThree},
    {"a refused set of no leaf that is there", NONE, kSet, "Wrong", "Nowhere=1", -1, "Wrong",
     "W=w\3R=r", kThree},
    {"an empty value is a value", NONE, kSet, "Iptv", "Mode=", 0, "Iptv",
     "Mode=", "Black.3.Name=three Iptv.Mode= "},
    {"a read-only leaf takes a status", NONE, kSet, "Top", "B=5=6\3A=1", 0, "Top.Plain.Deep", "L=x",
     "Black.3.Name=three Top.A=1 "},
    {"a set of a name of 64 bytes", NONE, kSet, "Long", NAME64 "=1", 0, "Long", NAME64 "=1",
     "Black.3.Name=three Long." NAME64 "=1 "},
    {"a longer one is no other's", NONE, kSet, "Long", NAME64 "s=1", 0, "Long", NAME64 "=l",
     kThree},
};

std::string Kept() {
  std::string kept;
  auto visit = [](const char *key, const char *value, void *context) {
    *static_cast<std::string *>(context) += std::string(key + sizeof ROOT - 1) + "=" + value + " ";
    return 0;
  };
  EXPECT_EQ(nvram_walk(NVTYPE_STAGING, ROOT, visit, &kept), 0);
  return kept;
}

TEST_F(Dispatch, ARefusedChangeLeavesEverythingAsItWas) {
  for (const ChangeCase &row : kChanges) {
    SCOPED_TRACE(row.what);
    LoadModel(kModel);
    ASSERT_EQ(nvram_clean(NVTYPE_STAGING), 0);
    ASSERT_EQ(ams_set_node_value(gptXmlTrees->root, ROOT "Black.3.Name", "three"), 0);
    AnswerSystem(-1, ECHILD); /* this one ran: the kernel has thrown its status away */
    EXPECT_EQ(cfgSystemCmd("before"), 0);
    if (row.trouble == NO_COMMANDS) AnswerSystem(-1, EAGAIN);
    if (row.trouble == NO_MEMORY)
      no_memory_for = row.command == kAdd ? "AMS_Appt_Addobj" : "appt_Do_OpFunc";
    TakeCommands();
    Outcome outcome = Answer(row.command, std::string(ROOT) + row.url, row.value);
    no_memory_for = nullptr;
    EXPECT_EQ(outcome.result, row.result);
    if (row.trouble == NO_MEMORY) {
      EXPECT_EQ(outcome.commands, Lines());
    }
    char *text = nullptr;
    EXPECT_EQ(ams_get_node_value(gptXmlTrees->root, (std::string(ROOT) + row.node).c_str(), &text),
              0);
    EXPECT_STREQ(text, row.text);
    EXPECT_EQ(Kept(), row.kept);
    __tds_free(text);
  }
  ASSERT_EQ(nvram_clean(NVTYPE_STAGING), 0);
}

/* Whatever failed on the thread before is nobody's refusal. */
TEST_F(Dispatch, OnlyTheOpFunctionsOwnCommandsCount) {
  AnswerSystem(-1, EAGAIN);
  EXPECT_EQ(cfgSystemCmd("a timer's"), -1);
  EXPECT_EQ(Answer(kSet, ROOT "Black.3", "Name=x").result, 0);
}

TEST_F(Dispatch, NamesThatAreCutAreLogged) {
  std::string log = LogOf(4, [] { Answer(kGet, ROOT "Long", NAME64 "s"); });
  EXPECT_NE(log.find(NAME64 "s"), log.npos) << log;
}

TEST_F(Dispatch, ListsOfAnyLength) {
  std::string rows, list;
  for (int number = 1; number <= 7300; ++number) {
    rows += "<Instance id=\"" + std::to_string(number) + "\"/>";
    list += (number == 1 ? "" : ",") + std::to_string(number);
  }
  LoadModel(
      "<InternetGatewayDevice type=\"object\"><Many type=\"array\"><Template>"
      "<Name type=\"string\"/></Template>" +
      rows + "</Many></InternetGatewayDevice>");
  MsgArg arg = {};
  arg.url = ROOT "Many";
  std::string log = LogOf(2, [&] {
    Outcome outcome = Answer(APPT_CMD_LIST, arg.url, "");
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.length, list.size() + 1);
    EXPECT_TRUE(outcome.reply == list);
    EXPECT_EQ(AMS_Appt_Getidxes(&arg), 0);
    EXPECT_TRUE(arg.rBuf != nullptr && arg.rBuf == list);
  });
  __tds_free(arg.rBuf);
  EXPECT_EQ(log, "");
}

TEST_F(Dispatch, AnAnswerThatNoMessageHoldsIsRefused) {
  const std::string longest(AMS_VALUE_MAX, 'x');
  StartModules();
  LoadModel(kModel);
  ASSERT_EQ(ams_write_begin(), 0);
  for (int i = 1; i <= TDS_PAYLOAD_MAX / AMS_VALUE_MAX + 1; ++i) {
    char url[AMS_PATH_SIZE];
    ASSERT_EQ(ams_add_obj(gptXmlTrees->root, ROOT "Silent", url), 0);
    SetLeaf(std::string(url) + ".Name", longest);
  }
  ASSERT_EQ(ams_write_end(), 0);
  Ack ack;
  std::string log =
      LogOf(4, [&] { ack = Request("sysmgr:devInfo", APPT_CMD_GET, "InternetGatewayDevice"); });
  EXPECT_EQ(ack.code, static_cast<uint32_t>(APPT_CODE_RESULT));
  EXPECT_EQ(ack.result, -1);
  EXPECT_EQ(ack.value, "");
  EXPECT_NE(log.find("too large for a message, -1 is answered"), log.npos) << log;
}

TEST_F(Dispatch, ANodeWithoutTypeIsReportedBeforeTheAcknowledgement) {
  StartModules();
  Send("sysmgr:capabinfo", EV_APPT_MSG_REQUEST,
       RequestFrame(0x01020304, APPT_CMD_GET, ROOT "Nowhere"));
  EXPECT_EQ("\4\3\2\1", AwaitMessage(EV_APPT_MSG_NO_OBJECT).payload) << "little-endian";
  EXPECT_EQ(-1, ParseAck(AwaitMessage(EV_APPT_MSG_ACKTO_AGT).payload).result);
}

TEST_F(Dispatch, AnEmptyListIsAnEmptyTextOfTwoBytes) {
  Outcome outcome = Answer(APPT_CMD_LIST, ROOT "Silent", "");
  EXPECT_EQ(outcome.result, 0);
  EXPECT_EQ(outcome.length, 2U);
  EXPECT_EQ(outcome.reply, "");
}

TEST_F(Dispatch, StoreWrappersAnswerAsTheyShould) {
  MsgArg arg = {};
  arg.url = ROOT "Silent";
  EXPECT_EQ(0, AMS_Appt_Getidxes(&arg));
  EXPECT_STREQ("0", arg.rBuf) << "unlike the agent's own listing, which is empty";
  EXPECT_EQ(2U, arg.rLen);
  __tds_free(arg.rBuf);
  arg.value = "2";
  EXPECT_EQ(0, AMS_Appt_Setattr(&arg));
  EXPECT_EQ(0, AMS_Appt_Getattr(&arg));
  EXPECT_STREQ("2", arg.rBuf);
  __tds_free(arg.rBuf);
  MsgArg none = {};
  EXPECT_EQ(-1, AMS_Appt_Addobj(&none) & AMS_Appt_Delobj(&none));
  arg.value = "/tmp/tree.debug.xml";
  EXPECT_EQ(0, AMS_Appt_Savetree(&arg));
  arg.value = "/nowhere/tree.xml";
  EXPECT_EQ(-1, AMS_Appt_Savetree(&arg));
}

}  // namespace
