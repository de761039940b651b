// Control messages: what they change and what they answer.
#include "prosctl_thread.h"

#include <gtest/gtest.h>

#include <cstring>

#include "support.h"

namespace {

class ProsCtl : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    StartModules();
  }
  void TearDown() override {
    Control(PROSCTL_PRINT_LEVEL, Level("all", 3));
    appt_SetTrace(0);
  }

  /* The answer of the process endpoint; "(none)" when the message got none. */
  static std::string Control(uint32_t id, const std::string &payload) {
    void *reply;
    uint32_t length;
    if (SendMsg_syn_lib(id, payload.data(), static_cast<uint32_t>(payload.size()), "sysmgr", &reply,
                        &length) != 0)
      return "(none)";
    std::string text(static_cast<char *>(reply), length);
    __tds_free(reply);
    return text;
  }

  /* The same, with a record of level 3. */
  static std::string Logged(const std::string &record, uint32_t id, const std::string &payload) {
    std::string reply;
    ExpectRecords("./../common/include/prosctl_thread", {"3 " + record},
                  [&] { reply = Control(id, payload); });
    return reply;
  }

  static std::string Level(const std::string &name, int32_t level) {
    std::string payload = name;
    payload.resize(36);
    appt_PutWord(&payload[32], static_cast<uint32_t>(level));
    return payload;
  }

  static std::string Levels() {
    std::string levels;
    for (PrtMapEntry *row = DF_PRT_MAP; row->name != nullptr; ++row)
      levels += std::to_string(__atomic_load_n(&row->level, __ATOMIC_RELAXED));
    return levels;
  }
};

TEST_F(ProsCtl, PrintLevels) {
  const struct {
    const char *what;
    std::string payload, reply, levels;
  } kCases[] = {
      {"part of a name", Level("capab", 1), "change prt level succeed!", "33133"},
      {"whole name", Level("sysmgr:mgtsrvr", 4), "change prt level succeed!", "33143"},
      {"all, default too", Level("all", 5), "change prt level succeed!", "55555"},
      {"an empty name is default", Level("", 2), "change prt level succeed!", "25555"},
      {"the first that contains it", Level("sysmgr", 1), "change prt level succeed!", "21555"},
      {"nobody", Level("nobody", 1), "change prt level failed!", "21555"},
      {"too short", "all", "change prt level failed!", "21555"},
      {"a name without end", Level(std::string(32, 'x'), 1), "change prt level failed!", "21555"},
  };
  for (const auto &one : kCases) {
    EXPECT_EQ(one.reply, Control(PROSCTL_PRINT_LEVEL, one.payload)) << one.what;
    EXPECT_EQ(one.levels, Levels()) << one.what;
  }
  EXPECT_EQ("change prt level failed!", Logged("senderSPid is sysmgr", PROSCTL_PRINT_LEVEL, "all"));
}

TEST_F(ProsCtl, Trace) {
  const struct {
    std::string word, reply;
    int on;
  } kCases[] = {
      {"on", "trace switch on", 1},
      {"ON", "trace status not write:ON", 1},
      {"off", "trace switch off", 0},
      {"", "trace status not write:", 0},
  };
  for (const auto &one : kCases) {
    EXPECT_EQ(one.reply, Control(PROSCTL_TRACE, one.word + '\0')) << one.word;
    EXPECT_EQ(one.on, appt_Trace()) << one.word;
  }
  EXPECT_EQ("trace status not write:o",
            Logged("The trace status you input is o, not correct.", PROSCTL_TRACE, "o"));
  EXPECT_EQ("trace switch on", Control(PROSCTL_TRACE, "on")) << "a missing NUL is no harm";
}

TEST_F(ProsCtl, TheTraceShowsTheFrameAndNothingBehindIt) {
  appt_SetTrace(1);
  testing::internal::CaptureStdout();
  Request("sysmgr:capabinfo", APPT_CMD_SET, "InternetGatewayDevice.Services.ServiceTelnet",
          "Port=24");
  const std::string kOdd[] = {"",
                              "x",
                              std::string("12345678\1\0\0\0\xff", 13),
                              std::string("12345678\3\0\0\0ab", 14),
                              std::string("12345678\3\0\0\0\xfe\xff\xff\xff", 16),
                              std::string("12345678\4\0\0\0\7\0\0\0text", 20)};
  for (const std::string &frame : kOdd) Send("sysmgr:capabinfo", EV_APPT_MSG_REQUEST, frame);
  for (int acknowledged = 0; acknowledged < 4; ++acknowledged)
    EXPECT_EQ(-1, ParseAck(AwaitMessage(EV_APPT_MSG_ACKTO_AGT).payload).result);
  Request("sysmgr:capabinfo", APPT_CMD_GET, "InternetGatewayDevice.Services.ServiceTelnet", "Port");
  appt_SetTrace(0);
  std::string text = testing::internal::GetCapturedStdout();
  for (const char *line :
       {"\t#####MSGCENTER MESSAGE TRACE#####\n",
        "\t#selfSpid: sysmgr:capabinfo\n\t#senderSpid: sysmgr\n\t#timeStamp:  ",
        "\t#eventId: 0X100005\n\t#msgChainId: 0X34333231\n\t#cmdType: 0X38373635\n"
        "\t#code: 0X3\n\t#ackRet: -2\n\t###",
        "\t#cmdType: 0X2\n\t#code: 0X1\n", "\t#ackRet: 7\n\t#AckValue: text\n",
        "\t#url: InternetGatewayDevice.Services.ServiceTelnet\n", "\t#value: Port=24\n",
        "\t####LeafList start####\n\t#leafName is Port.\n\t#leafValue is 24.\n\t####LeafList  "
        "end####\n",
        "\t###############END################\n"})
    EXPECT_NE(std::string::npos, text.find(line)) << line;
}

TEST_F(ProsCtl, AllocationStatistics) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(std::string(4, '\0'), Control(PROSCTL_MALLOC, ""));
  std::string text = testing::internal::GetCapturedStdout();
  EXPECT_EQ(0U, text.find("senderSPid "));
  EXPECT_NE(std::string::npos, text.find("total"));
}

}  // namespace
