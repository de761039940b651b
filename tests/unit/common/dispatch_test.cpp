// The agent framework from frame to acknowledgement: every command on every kind of node, through
// the real modules, and frames that are none.
#include <gtest/gtest.h>

#include "ams_common_api.h"
#include "appt_store.h"
#include "support.h"
#include "tds_desk.h"

namespace {

const std::string kRoot = "InternetGatewayDevice.";
const std::string kInfo = kRoot + "DeviceInfo";
const std::string kTelnet = kRoot + "Services.ServiceTelnet";
const std::string kUsers = kRoot + "X_CT-COM_UserInfo.UserList";
const std::string kInfoModule = "sysmgr:devInfo", kServices = "sysmgr:capabinfo";

class Dispatch : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    StartModules();
  }
};

struct RequestCase {
  const char *what;
  std::string module;
  uint32_t command;
  std::string url, value;
  int32_t result;
  std::string text; /* "(none)": acknowledged without a reply text */
};

const RequestCase kRequests[] = {
    {"two leaves read", kInfoModule, APPT_CMD_GET, kInfo, "ModelName\3ProvisioningCode", 0,
     "ModelName=DG-2000\3ProvisioningCode=\3"},
    {"a leaf that is not there spoils no other", kInfoModule, APPT_CMD_GET, kInfo,
     "Nothing\3ModelName", 0, "ModelName=DG-2000\3"},
    {"leaf with attributes", kInfoModule, APPT_CMD_ATTR, kInfo, "ModelName", 0,
     "ModelName=DG-2000 type=\"string\" writable=\"0\"\3"},
    {"an object whole", kServices, APPT_CMD_GET, kTelnet, "", 0, "Enable=0\3Port=23"},
    {"an object below which an op function fails to be named", kServices, APPT_CMD_GET,
     kRoot + "Services", "", 0,
     "ServiceTelnet.Enable=0\3ServiceTelnet.Port=23\3ServiceSamba.Enable=0\3"
     "ServiceDLNA.Enable=0\3ServiceWOL.MACAddr=\3ServiceVRRP.Enable=0\3ServiceIPSLA.Enable=0\3"
     "X_KVO_IPSec.TunnelListNumberOfEntries=0"},
    {"set needs leaves", kServices, APPT_CMD_SET, kTelnet, "", -1, "(none)"},
    {"add needs an array", kServices, APPT_CMD_ADD, kTelnet, "", -1, "(none)"},
    {"leaves of an add", kServices, APPT_CMD_ADD, kTelnet, "Port=1", 0, "(none)"},
    {"an empty array lists as empty text of two bytes", kServices, APPT_CMD_LIST, kUsers, "", 0,
     std::string(1, '\0')},
    {"set of an array", kServices, APPT_CMD_SET, kUsers, "", -1, "(none)"},
    {"a leaf is no node to ask", kServices, APPT_CMD_GET, kTelnet + ".Port", "", -1, "(none)"},
    {"no such node", kServices, APPT_CMD_GET, kRoot + "Nowhere", "", -1, "(none)"},
    {"delete of what is no instance", kServices, APPT_CMD_DEL, kTelnet, "", -1, "(none)"},
};

TEST_F(Dispatch, EveryCommandIsAcknowledged) {
  for (const RequestCase &one : kRequests) {
    Ack ack = Request(one.module, one.command, one.url, one.value);
    EXPECT_EQ(one.result, ack.result) << one.what;
    EXPECT_EQ(one.command, ack.command) << one.what;
    EXPECT_EQ(one.text == "(none)" ? 3U : 4U, ack.code) << one.what;
    EXPECT_EQ(one.text == "(none)" ? "" : one.text, ack.value) << one.what;
  }
}

TEST_F(Dispatch, ASetWritesEveryLeafThenCallsTheOpFunctionOnce) {
  Ack ack = Request(kServices, APPT_CMD_SET, kTelnet, "Port=2323,2324\3Enable=1");
  EXPECT_EQ(0, ack.result);
  EXPECT_EQ(3U, ack.code);
  std::vector<std::string> expected = {"killall telnetd >/dev/null 2>&1",
                                       "telnetd -l /usr/sbin/ams_cli -p 2323 &",
                                       "telnetd -l /usr/sbin/ams_cli -p 2324 &"};
  EXPECT_EQ(expected, TakeCommands());
  EXPECT_EQ("2323,2324", Leaf(kTelnet + ".Port"));
}

TEST_F(Dispatch, SetsOfOddLeaves) {
  EXPECT_EQ(0, Request(kServices, APPT_CMD_SET, kTelnet, "Nowhere=1\3Port=7\3Enable=").result);
  EXPECT_EQ("7", Leaf(kTelnet + ".Port")) << "a failed leaf stops the others";
  EXPECT_EQ("", Leaf(kTelnet + ".Enable")) << "an empty value is a value";
  EXPECT_EQ(0, Request(kInfoModule, APPT_CMD_SET, kInfo, "UpTime=5=6").result);
  EXPECT_EQ(0, Request(kInfoModule, APPT_CMD_SET, kInfo, "=1\3ProvisioningCode=p").result);
  EXPECT_EQ("p", Leaf(kInfo + ".ProvisioningCode")) << "a value without a name";
  EXPECT_EQ(3U, Request(kInfoModule, APPT_CMD_GET, kInfo, "=").code) << "no name, nothing read";
  EXPECT_EQ("5=6", Leaf(kInfo + ".UpTime")) << "read-only leaves are written as a status";
}

TEST_F(Dispatch, InstancesComeAndGo) {
  Ack first = Request(kServices, APPT_CMD_ADD, kUsers),
      second = Request(kServices, APPT_CMD_ADD, kUsers);
  EXPECT_EQ(0, first.result);
  EXPECT_EQ(kUsers + ".1", first.value);
  EXPECT_EQ(kUsers + ".2", second.value);
  EXPECT_EQ("1,2", Request(kServices, APPT_CMD_LIST, kUsers).value);
  EXPECT_EQ(0, Request(kServices, APPT_CMD_SET, kUsers + ".2", "Name=guest").result);
  EXPECT_EQ("1.Name=\0032.Name=guest", Request(kServices, APPT_CMD_GET, kUsers).value);
  EXPECT_EQ("Name=guest\3", Request(kServices, APPT_CMD_GET, kUsers + ".2", "Name").value);
  EXPECT_EQ(0, Request(kServices, APPT_CMD_DEL, kUsers + ".1").result);
  EXPECT_EQ(-1, Request(kServices, APPT_CMD_DEL, kUsers + ".1").result);
  EXPECT_EQ("2", Request(kServices, APPT_CMD_LIST, kUsers).value);
  AwaitCommand("killall -q smbd"); /* the changed list has armed Samba's timer */
}

TEST_F(Dispatch, ANodeWithoutTypeIsReportedBeforeTheAcknowledgement) {
  Send(kServices, EV_APPT_MSG_REQUEST, RequestFrame(0x01020304, APPT_CMD_GET, kRoot + "Nowhere"));
  EXPECT_EQ("\4\3\2\1", AwaitMessage(EV_APPT_MSG_NO_OBJECT).payload) << "little-endian";
  EXPECT_EQ(-1, ParseAck(AwaitMessage(EV_APPT_MSG_ACKTO_AGT).payload).result);
}

struct FrameCase {
  const char *what;
  std::string frame;
  bool acknowledged; /* with -1; else dropped */
};

TEST_F(Dispatch, FramesThatAreNone) {
  const std::string head = RequestFrame(7, APPT_CMD_GET, "").substr(0, APPT_HEAD_SIZE);
  const std::string whole = RequestFrame(7, APPT_CMD_GET, kTelnet, "Port");
  const std::string odd_url = RequestFrame(7, APPT_CMD_GET, std::string("ab\0cd", 5));
  const FrameCase kCases[] = {
      {"nothing", "", false},
      {"eleven bytes", head.substr(0, 11), false},
      {"the head alone", head, true},
      {"a url length with nothing behind", head + "\5", true},
      {"a url cut short", head + "\5abc", true},
      {"a url without its NUL", head + "\3abcd", true},
      {"a url and no value length", head + std::string("\3abc\0", 5), true},
      {"a NUL inside the url", odd_url, true},
      {"the value's NUL missing", whole.substr(0, whole.size() - 1), true},
      {"a value length past the end", head + std::string("\1a\0\377b\0", 6), true},
  };
  for (const FrameCase &one : kCases) {
    Send(kServices, EV_APPT_MSG_REQUEST, one.frame);
    if (one.acknowledged) {
      Ack ack = ParseAck(AwaitMessage(EV_APPT_MSG_ACKTO_AGT).payload);
      EXPECT_EQ(-1, ack.result) << one.what;
      EXPECT_EQ(3U, ack.code) << one.what;
    }
    /* whatever came: the next good request is the next one answered */
    Ack next = Request(kServices, APPT_CMD_GET, kTelnet, "Port");
    EXPECT_EQ("Port=23\3", next.value) << one.what;
  }
  Send(kServices, EV_APPT_MSG_REQUEST, whole + "padding");
  EXPECT_EQ("Port=23\3", ParseAck(AwaitMessage(EV_APPT_MSG_ACKTO_AGT).payload).value)
      << "bytes behind the frame are ignored";
}

TEST_F(Dispatch, ARequestLeavesNoBlockBehind) {
  auto round = [&] {
    Request(kServices, APPT_CMD_SET, kTelnet, "Port=1\3Enable=0\3Nowhere=1");
    Request(kServices, APPT_CMD_GET, kTelnet, "Port\3Enable");
    Request(kServices, APPT_CMD_GET, kRoot + "Services");
    Request(kServices, APPT_CMD_ATTR, kTelnet);
    Request(kServices, APPT_CMD_LIST, kUsers);
    Request(kServices, APPT_CMD_DEL, Request(kServices, APPT_CMD_ADD, kUsers).value);
    Request(kServices, 0x40, kTelnet, "Port");
  };
  round();
  int64_t blocks = tds_malloc_count("appt_Do_OpFunc").blocks;
  TdsMallocCount before = tds_malloc_count(nullptr);
  for (int i = 0; i < 20; ++i) round();
  /* the acknowledgement is freed after it was sent: one more request, and the last round's is gone
   */
  EXPECT_EQ(blocks, tds_malloc_count("appt_Do_OpFunc").blocks);
  EXPECT_LE(tds_malloc_count(nullptr).blocks, before.blocks + 1);
}

TEST(LeafList, PiecesNamesAndValues) {
  const std::string longest(80, 'n');
  LeafNode *list = appt_ParseLeafList(("a=1\3b\3c=\3d=x=y\3" + longest + "\3\3=v").c_str());
  const std::pair<std::string, const char *> kExpected[] = {
      {"a", "1"},    {"b", nullptr}, {"c", nullptr}, {"d", "x=y"}, {std::string(64, 'n'), nullptr},
      {"", nullptr}, {"", "v"}};
  LeafNode *leaf = list;
  for (const auto &[name, value] : kExpected) {
    ASSERT_NE(nullptr, leaf);
    EXPECT_EQ(name, leaf->leafName);
    EXPECT_STREQ(value, leaf->leafValue);
    leaf = leaf->next;
  }
  EXPECT_EQ(nullptr, leaf);
  appt_FreeLeafList(list);
  EXPECT_EQ(nullptr, appt_ParseLeafList(""));
  EXPECT_EQ(nullptr, appt_ParseLeafList(nullptr));
}

TEST_F(StoreTest, StoreWrappersAnswerAsTheyShould) {
  MsgArg arg = {};
  const std::string users = kUsers;
  arg.url = users.c_str();
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
