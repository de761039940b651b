// Answers that no message holds, nodes without a type, the store's commands. Every command on every
// kind of node, and the calls below them, are in tests/data/ops/requests.txt.
#include "appt_dispatch.h"

#include "appt_store.h"
#include "support.h"
#include "tds_desk.h"

namespace {

#define ROOT "InternetGatewayDevice."

class Dispatch : public StoreTest {
 protected:
  std::string DataModel() const override { return FileText(TEST_DATA "/request_model.xml"); }
};

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
