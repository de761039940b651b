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

#define ROOT   "InternetGatewayDevice."
#define NAME64 "TheLongestNameThatALeafOfTheDataModelMayHaveWhichIsSixtyFourByte"
static_assert(sizeof NAME64 == 65);

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
  std::string DataModel() const override { return FileText(TEST_DATA "/request_model.xml"); }
};

constexpr uint32_t kGet = APPT_CMD_GET, kSet = APPT_CMD_SET;

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

/* The calls themselves: the requests' cases are in tests/data/ops/requests.txt. */
TEST_F(Dispatch, EachCallLogsWhatIsWrong) {
  const struct {
    int (*call)(MsgArg *);
    uint32_t command;
    const char *url, *value;
    int result;
    Lines records;
  } cases[] = {
      {appt_Do_OpFunc,
       kGet,
       ROOT "Top",
       nullptr,
       -1,
       {"2 The fucName is NULL at appt_Do_OpFunc, url " ROOT "Top"}},
      {appt_Do_Obj_Data,
       kSet,
       ROOT "Top",
       "A=9",
       0,
       {"1 Appt_Write url:" ROOT "Top.A value:9\n", "1 *pFunc->name is FuncCPUState"}},
      {appt_Do_Obj_Data, kSet, ROOT "None", "A=9", -1, {"4 Url " ROOT "None get op failed."}},
      {appt_Do_Obj_NoData,
       kGet,
       ROOT "None",
       nullptr,
       -1,
       {"4 Url " ROOT "None get op failed.",
        "4 ERROR accur at appt_Do_OpFunc when appt_Do_Obj_NoData"}},
      /* the array above is not found behind the dot */
      {appt_Do_Obj_NoData,
       APPT_CMD_DEL,
       ROOT "Black.3.",
       nullptr,
       0,
       {"4 appt_GetArrayOPFunc return ERROR."}},
      {appt_Do_Array, kGet, ROOT "None", nullptr, -1, {"4 Url " ROOT "None get op failed."}},
      {appt_Do_Array,
       0,
       ROOT "Black",
       nullptr,
       -1,
       {"4 The input has NULL para at appt_Do_Array."}},
  };
  for (const auto &one : cases) {
    const std::string frame = RequestFrame(7, one.command, one.url);
    MsgArg arg = {};
    if (one.command != 0) arg.raw = reinterpret_cast<const uint8_t *>(frame.data());
    arg.url = one.url;
    arg.value = one.value;
    ExpectRecords("./../common/appt/appt_dispatch", one.records,
                  [&] { EXPECT_EQ(one.call(&arg), one.result) << one.records[0]; });
    EXPECT_EQ(arg.rBuf, nullptr);
  }
}

TEST_F(Dispatch, AnAnswerThatNoMessageHoldsIsRefused) {
  const std::string longest(AMS_VALUE_MAX, 'x');
  StartModules();
  LoadModel(DataModel());
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

TEST_F(Dispatch, StoreWrappersAnswerAsTheyShould) {
  MsgArg arg = {};
  arg.url = ROOT "Silent";
  EXPECT_EQ(0, AMS_Appt_Getidxes(&arg));
  EXPECT_STREQ("0", arg.rBuf) << "unlike the agent's own listing, which is empty";
  EXPECT_EQ(2U, arg.rLen);
  __tds_free(arg.rBuf);
  arg.value = "2";
  const std::string source = "./../common/appt/appt_store";
  ExpectRecords(source, {"1 url:" ROOT "Silent value:2"},
                [&] { EXPECT_EQ(0, AMS_Appt_Setattr(&arg)); });
  EXPECT_EQ(0, AMS_Appt_Getattr(&arg));
  EXPECT_STREQ("2", arg.rBuf);
  __tds_free(arg.rBuf);
  MsgArg none = {};
  EXPECT_EQ(-1, AMS_Appt_Addobj(&none) & AMS_Appt_Delobj(&none));
  arg.value = "/tmp/tree.debug.xml";
  ExpectRecords(source, {"1 dbagt:url:" ROOT "Silent value:/tmp/tree.debug.xml\n"},
                [&] { EXPECT_EQ(0, AMS_Appt_Savetree(&arg)); });
  arg.value = "/nowhere/tree.xml";
  EXPECT_EQ(-1, AMS_Appt_Savetree(&arg));
  arg.url = ROOT "Black.3.Name";
  arg.value = "set";
  ExpectRecords(source, {"1 dbagt:url:" ROOT "Black.3.Name value:set\n"},
                [&] { EXPECT_EQ(0, AMS_Appt_Setleaf(&arg)); });
  EXPECT_EQ("set", Leaf(arg.url));
}

}  // namespace
