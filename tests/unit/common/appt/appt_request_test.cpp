// Frames that are none, and leaf lists.
#include "appt_request.h"

#include "support.h"

namespace {

const std::string kTelnet = "InternetGatewayDevice.Services.ServiceTelnet";
const std::string kServices = "sysmgr:capabinfo";

struct FrameCase {
  const char *what;
  std::string frame;
  bool acknowledged; /* with -1; else dropped */
};

TEST_F(StoreTest, FramesThatAreNone) {
  StartModules();
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

TEST(LeafList, PiecesNamesAndValues) {
  const std::string longest(80, 'n');
  LeafNode *list;
  EXPECT_EQ(0, appt_ParseLeafList(("a=1\3b\3c=\3d=x=y\3" + longest + "\3\3=v").c_str(), &list));
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
  for (const char *none : {"", static_cast<const char *>(nullptr)}) {
    EXPECT_EQ(0, appt_ParseLeafList(none, &list));
    EXPECT_EQ(nullptr, list);
  }
}

}  // namespace
