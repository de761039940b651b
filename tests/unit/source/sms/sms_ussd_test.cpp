// Service codes: the network's answers and the menu.
#include "sms_support.h"

namespace {

int Ussd(int op, const char *value) {
  return RunOp(kCapabInfoFuncTable, "FuncServShortMsgUssdSend", op, SHORT_MSG ".USSD", value);
}

TEST_F(ShortMsg, UssdAnswersBecomeTheMenu) {
  const std::pair<const char *, const char *> cases[] = {
      {"+CUSD: 1,\"1 Balance\r\n2 Data\",1\r\n", "1 Balance<br>2 Data"},
      {"+CUSD: 0,\"E8329BFD4697D9EC37\",15\r\n", "hellohello"},
      {"+CUSD: 0,\"4F60597D\",17\r\n", "\u4f60\u597d"},
      {"+CUSD: 0,\"00410042\",72\r\n", "AB"},
      {"+CUSD: 1,\"say \"yes\" now\",0\r\n", "say \"yes\" now"},
      {"+CUSD: 1,\"cut", ""},
      {"+CUSD: 0,\"41031B42\",4\r\n", "A\uFFFD\uFFFDB"},
  };
  const Lines lines = {"at-mngr 'AT+CSCS=\"GSM\"'",
                       "at-mngr 'AT+CUSD=1,\"*100#\",15' > /var/tmpValue1"};
  for (const auto &[answer, menu] : cases) {
    SetUp();
    answers_ = {{"urc", answer}};
    EXPECT_EQ(Ussd(TMF_SET, "Command=*100#"), 0) << answer;
    EXPECT_EQ(TakeCommands(), lines) << answer;
    EXPECT_EQ(Ussd(TMF_GET, "Menu"), 0);
    EXPECT_EQ(Leaf(SHORT_MSG ".USSD.Menu"), menu) << answer;
    EXPECT_FALSE(fs::exists("/var/tmp/urc_ussd_file")) << answer;
  }
}

TEST_F(ShortMsg, UssdWithoutAMenuAndWithAnOldOne) {
  EXPECT_EQ(Ussd(TMF_SET, "Command="), 0);
  EXPECT_EQ(TakeCommands(), Lines{});
  WriteText("/var/tmpUssdRunResult", "old");
  EXPECT_EQ(Ussd(TMF_SET, "Command=cancel"), 0);
  EXPECT_EQ(TakeCommands(), Lines({"at-mngr 'AT+CUSD=2'"}));
  EXPECT_FALSE(fs::exists("/var/tmpUssdRunResult"));
  for (const auto &[answer, word] :
       {std::pair("+CME ERROR: 257\r\n", "Fail"), std::pair("OK\r\n", "Success")}) {
    answers_ = {{"urc", answer}};
    EXPECT_EQ(Ussd(TMF_SET, "Command=*1#"), 0);
    EXPECT_EQ(FileText("/var/tmpUssdRunResult"), answer);
    const std::string log = LogOf(1, [] { Ussd(TMF_GET, nullptr); });
    EXPECT_NE(log.find(std::string("USSD command: ") + word), log.npos) << log;
  }
  answers_ = {{"urc", "+CUSD: 1,\"menu\",1\r\n"}};
  EXPECT_EQ(Ussd(TMF_SET, "Command=*1#"), 0);
  for (const auto &[seconds, menu] : {std::pair(30, "menu"), std::pair(31, "")}) {
    short_msg_ussd_time -= seconds;
    EXPECT_EQ(Ussd(TMF_GET, nullptr), 0);
    EXPECT_EQ(Leaf(SHORT_MSG ".USSD.Menu"), menu) << seconds << " seconds later";
  }
  EXPECT_FALSE(fs::exists("/var/tmpUssdSelectMenu"));
}

}  // namespace
