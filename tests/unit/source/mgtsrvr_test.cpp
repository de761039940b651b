// The management server's object: which WAN connections are saved, the inform states, and what a
// write starts.
#include <gtest/gtest.h>

#include "mgtsrvr_func.h"
#include "mgtsrvr_thread.h"
#include "support.h"

namespace {

#define SERVER "InternetGatewayDevice.ManagementServer."
#define WAN    "InternetGatewayDevice.WANDevice."

constexpr char kModel[] = R"(<?xml version="1.0"?>
<InternetGatewayDevice type="object">
  <ManagementServer type="object" op="FuncManagementServer" mod="sysmgr:mgtsrvr">
    <URL type="string"/>
    <X_CT-COM_InformState type="int" writable="0">0</X_CT-COM_InformState>
    <X_CT-COM_ManualInformState type="int" writable="0">0</X_CT-COM_ManualInformState>
    <X_CT-COM_ManualInform type="boolean">0</X_CT-COM_ManualInform>
    <X_KVO_TR069UpWAN type="string" writable="0"/>
    <X_KVO_TR069WANSAVE type="string" writable="0"/>
    <X_KVO-SucessFlag type="int" writable="0">0</X_KVO-SucessFlag>
    <X_CT-COM_Events type="array" op="FuncManagementServerEventsI"><Template/></X_CT-COM_Events>
  </ManagementServer>
  <WANDevice type="object">
    <A type="object"><X_CT-COM_ServiceList type="string">TR069</X_CT-COM_ServiceList></A>
    <AB type="object"><X_CT-COM_ServiceList type="string">INTERNET,TR069</X_CT-COM_ServiceList></AB>
    <V type="object"><X_CT-COM_ServiceList type="string">VOICE</X_CT-COM_ServiceList></V>
    <N type="object"/>
  </WANDevice>
</InternetGatewayDevice>
)";

constexpr char kSaved[] = SERVER "X_KVO_TR069WANSAVE";
enum : uint32_t { ADDED = 0x100037, CHANGED = 0x100038, REMOVED = 0x100039 };

using Commands = std::vector<std::string>;

class MgtSrvrTest : public StoreTest {
  std::string DataModel() const override { return kModel; }
};

/* The payload as the port manager sends it: with the NUL. */
std::string WithNul(const std::string &path) { return std::string(path.c_str(), path.size() + 1); }

/* ---- notifications ---- */

struct WanCase {
  const char *what;
  uint32_t id;
  std::string payload, before, after;
};

const WanCase kWans[] = {
    {"add to an empty list", ADDED, WithNul(WAN "A"), "", WAN "A,"},
    {"the newest comes first", ADDED, WithNul(WAN "AB"), WAN "A,", WAN "AB," WAN "A,"},
    {"add twice", ADDED, WithNul(WAN "A"), WAN "A,", WAN "A,"},
    {"a part of a saved path counts as saved", ADDED, WithNul(WAN "A"), WAN "AB,", WAN "AB,"},
    {"add without the service", ADDED, WithNul(WAN "V"), WAN "V,", WAN "V,"},
    {"add without a service list", ADDED, WithNul(WAN "N"), "", ""},
    {"change saves, too", CHANGED, WithNul(WAN "A"), "", WAN "A,"},
    {"change without the service deletes", CHANGED, WithNul(WAN "V"), WAN "A," WAN "V,", WAN "A,"},
    {"change without a service list deletes", CHANGED, WithNul(WAN "N"), WAN "N," WAN "A,",
     WAN "A,"},
    {"remove the first", REMOVED, WithNul(WAN "B"), WAN "B," WAN "A,", WAN "A,"},
    {"remove the middle one", REMOVED, WithNul("b"), "a,b,c,", "a,c,"},
    {"remove the only one", REMOVED, WithNul("a"), "a,", ""},
    {"remove is exact", REMOVED, WithNul("a"), "ab,ba,", "ab,ba,"},
    {"remove one of two equal ones", REMOVED, WithNul("a"), "a,b,a,", "b,a,"},
    {"remove what is not there", REMOVED, WithNul("c"), "b,a,", "b,a,"},
    {"an entry without its comma is none", REMOVED, WithNul("a"), "b,a", "b,a"},
    {"remove from an empty list", REMOVED, WithNul("a"), "", ""},
    {"remove an empty path", REMOVED, WithNul(""), "a,", "a,"},
    {"add: no NUL", ADDED, WAN "A", "", ""},
    {"add: a byte behind the NUL", ADDED, WithNul(WAN "A") + "x", "", ""},
    {"add: a NUL behind the NUL", ADDED, WithNul(WithNul(WAN "A")), "", ""},
    {"add: no payload", ADDED, "", "", ""},
    {"change: no NUL", CHANGED, WAN "V", WAN "V,", WAN "V,"},
    {"remove: no NUL", REMOVED, "a", "a,", "a,"},
    {"remove: a byte too many", REMOVED, WithNul("a") + "x", "a,", "a,"},
    {"remove: no payload", REMOVED, "", "a,", "a,"},
    {"add: the list just fits", ADDED, WithNul(WAN "A"),
     std::string(1023 - sizeof(WAN "A") - 1, 'x') + ",",
     WAN "A," + std::string(1023 - sizeof(WAN "A") - 1, 'x') + ","},
    {"add: the list is full", ADDED, WithNul(WAN "A"),
     std::string(1023 - sizeof(WAN "A"), 'x') + ",",
     std::string(1023 - sizeof(WAN "A"), 'x') + ","},
    {"add: a path that is too long", ADDED, WithNul(std::string(70000, 'x')), "", ""},
};

TEST_F(MgtSrvrTest, KeepsTheListOfWans) {
  for (const WanCase &c : kWans) {
    SetLeaf(kSaved, c.before);
    RunMessage(kMgtSrvrMsgTable, c.id, c.payload);
    EXPECT_EQ(Leaf(kSaved), c.after) << c.what;
  }
  EXPECT_EQ(TakeCommands(), Commands{});
}

TEST_F(MgtSrvrTest, NamesWhatIsWrongWithAMessage) {
  struct FaultCase {
    uint32_t id;
    const char *text;
  };
  const FaultCase kCases[] = {{ADDED, "wancPath does not exit\n"},
                              {CHANGED, "wancPath does not exit\n"},
                              {REMOVED, "MgtSrvrMsgDelSaveNode Parameters Error"}};
  for (const FaultCase &c : kCases) {
    testing::internal::CaptureStderr();
    RunMessage(kMgtSrvrMsgTable, c.id, "no NUL");
    std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find(c.text), std::string::npos) << log;
  }
  testing::internal::CaptureStderr();
  SaveNodeWANPath("A", 1);
  DelNodeWANPath(nullptr, 2);
  std::string log = testing::internal::GetCapturedStderr();
  EXPECT_NE(log.find("SaveNodeWANPath Parameters Error"), std::string::npos) << log;
  EXPECT_NE(log.find("DelNodeWANPath Parameters Error"), std::string::npos) << log;
}

/* ---- inform states ---- */

struct StateCase {
  const char *what, *saved, *up, *url, *flag;
  std::string state, manual_of_get, manual_of_set;
};

const StateCase kStates[] = {
    {"nothing saved", "", "W", "http://x", "0", "1", "0", "1"},
    {"nothing saved, but it went well", "", "", "", "1", "11", "11", "1"},
    {"another flag", "", "", "", "11", "1", "0", "1"},
    {"none is up", "a,", "", "http://x", "1", "2", "0", "2"},
    {"no server", "a,", "W", "", "1", "4", "0", "4"},
    {"all is there", "a,", "W", "http://x", "1", "0", "0", "0"},
};

void Prepare(const StateCase &c) {
  SetLeaf(kSaved, c.saved);
  SetLeaf(SERVER "X_KVO_TR069UpWAN", c.up);
  SetLeaf(SERVER "URL", c.url);
  SetLeaf(SERVER "X_KVO-SucessFlag", c.flag);
  SetLeaf(SERVER "X_CT-COM_InformState", "0");
  SetLeaf(SERVER "X_CT-COM_ManualInformState", "0");
}

int Op(int op, const char *value) {
  return RunOp(kMgtSrvrFuncTable, "FuncManagementServer", op, SERVER, value);
}

TEST_F(MgtSrvrTest, InformStates) {
  const std::string inform = "/usr/sbin/cfgcmd manully_inform EV MI X_CT-COM_ManualInform &";
  for (const StateCase &c : kStates) {
    Prepare(c);
    EXPECT_EQ(Op(TMF_GET, nullptr), 0) << c.what;
    EXPECT_EQ(Leaf(SERVER "X_CT-COM_InformState"), c.state) << c.what;
    EXPECT_EQ(Leaf(SERVER "X_CT-COM_ManualInformState"), c.manual_of_get) << c.what;
    EXPECT_EQ(TakeCommands(), Commands{}) << c.what;
    Prepare(c);
    EXPECT_EQ(Op(TMF_SET, "X_CT-COM_ManualInform=1"), 0) << c.what;
    EXPECT_EQ(Leaf(SERVER "X_CT-COM_InformState"), "0") << c.what;
    EXPECT_EQ(Leaf(SERVER "X_CT-COM_ManualInformState"), c.manual_of_set) << c.what;
    EXPECT_EQ(TakeCommands(), Commands{inform}) << c.what;
  }
}

struct SetCase {
  const char *what;
  int op;
  const char *value;
  Commands lines;
};

const Commands kApply = {"/usr/syscfg/tr069.sh set"};

const SetCase kSets[] = {
    {"maintenance done",
     TMF_SET,
     "X_CT-COM_MaintainComplete=1",
     {"/usr/sbin/cfgcmd manully_inform EV AC X_CT-COM_MaintainComplete &"}},
    {"inform switched off", TMF_SET, "X_CT-COM_ManualInform=0", kApply},
    {"inform and something else", TMF_SET, "X_CT-COM_ManualInform=1\x03URL=x", kApply},
    {"any leaf", TMF_SET, "URL=http://x", kApply},
    {"no value", TMF_SET, nullptr, kApply},
    {"init", TMF_INIT, nullptr, {}},
    {"add", TMF_ADD, "X_CT-COM_MaintainComplete=1", {}},
    {"delete", TMF_DEL, "X_CT-COM_ManualInform=1", {}},
};

TEST_F(MgtSrvrTest, SetStartsTheClient) {
  for (const SetCase &c : kSets) {
    EXPECT_EQ(Op(c.op, c.value), 0) << c.what;
    EXPECT_EQ(TakeCommands(), c.lines) << c.what;
  }
  EXPECT_EQ(Leaf(SERVER "X_CT-COM_ManualInformState"), "0");
}

/* ---- the module ---- */

TEST_F(MgtSrvrTest, AnswersRequests) {
  StartModules();
  SetLeaf(kSaved, "a,");
  Ack ack = Request("sysmgr:mgtsrvr", APPT_CMD_GET, "InternetGatewayDevice.ManagementServer",
                    "X_CT-COM_InformState");
  EXPECT_EQ(ack.result, 0);
  EXPECT_EQ(ack.value, "X_CT-COM_InformState=2\x03") << "refreshed before it is read";
  ack = Request("sysmgr:mgtsrvr", APPT_CMD_ADD, SERVER "X_CT-COM_Events");
  EXPECT_EQ(ack.result, 1) << "a node without a handler is accepted, with the look-up's own result";
}

}  // namespace
