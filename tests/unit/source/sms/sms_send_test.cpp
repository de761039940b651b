// Sending and storing: who is dialled, the PDUs and their order, failures.
#include <algorithm>

#include "sms_support.h"

namespace {

/* The digits in the PDU that went out; "" when none did. */
std::string Dialled() {
  ShortMsgParam record = {};
  ShortMsgEntry entry = {};
  char text[SHORTMSG_TEXT_SIZE];
  record.stat = SHORTMSG_SENT;
  for (const std::string &line : TakeCommands())
    if (line.find('|') != line.npos)
      PduDecode(line.c_str() + line.find('|') + 1, &record, &entry, text);
  return record.TPA;
}

TEST_F(ShortMsg, Dials) {
  const struct {
    const char *number, *country, *digits; /* "": refused */
  } cases[] = {
      {"13800138000", "+86", "8613800138000"},
      {"013800138000", "086", "8613800138000"},
      {"+013800138000", "", "13800138000"},
      {"10010", "86", "10010"},
      {"10011", "86", "8610011"},
      {"12345678901234567890", "", "12345678901234567890"},
      {"12345678901234567890", "1", ""},
      {"1'; id", "", ""},
      {"", "", ""},
  };
  for (const auto &one : cases) {
    EXPECT_EQ(SHORTMSG_SendMessage(one.number, "a", one.country), *one.digits == '\0' ? -1 : 0);
    EXPECT_EQ(Dialled(), one.digits) << one.number;
  }
}

/* "Hi" to 8613800138000 without a service centre. */
constexpr char kHi[] = "019111000D91683108108300F000000002C834";

void AskToSend(const std::string &to, const std::string &content) {
  SetLeaf(SHORT_MSG ".MsgSend.MsgCountryCode", "86");
  SetLeaf(SHORT_MSG ".MsgSend.MsgTo", to);
  SetLeaf(SHORT_MSG ".MsgSend.MsgContent", content);
}

int Send() {
  return RunOp(kCapabInfoFuncTable, "FuncServShortMsgSend", TMF_SET, SHORT_MSG ".MsgSend");
}

TEST_F(ShortMsg, StoresThenSends) {
  const std::string pdu = std::string(kHi) + "\x1a\r";
  Lines lines = {kSimStorage, kGsm};
  for (const char *command : {"AT+CMGW=17,3", "AT+CMGS=17"})
    for (const std::string &line :
         Lines({kReadCentre, kPduMode, "echo \"\" > /var/atcmd_lock", "echo \"\" > /var/atcmd",
                "echo '" + (command + ("\r|" + pdu)) + "' > /var/atcmd", "cat /var/atcmd",
                "rm  /var/atresult_1", "nanocom /dev/ttyUSB3 1 0", "rm -f /var/atcmd_lock"}))
      lines.push_back(line);
  lines.erase(lines.begin() + 8); /* before the first there is no answer to remove */
  AskToSend("13800138000", "Hi");
  EXPECT_EQ(Send(), 0);
  EXPECT_EQ(TakeCommands(), lines);
  EXPECT_EQ(Leaf(SHORT_MSG ".MsgResult"), "0");
}

TEST_F(ShortMsg, EachRecipientGetsOne) {
  answers_ = {{"CSCA?", "+CSCA: \"+8613800100500\",145\r\nOK\r\n"}};
  AskToSend(";10010;;x;13800138001", "Hi");
  EXPECT_EQ(Send(), -1) << "one of them cannot be dialled";
  int sent = 0, centres = 0;
  for (const std::string &line : TakeCommands()) {
    sent += line.find("AT+CMGS=") != line.npos ? 1 : 0;
    centres += line.find("AT+CSCA?") != line.npos ? 1 : 0;
    bool is_pdu = line.find('|') != line.npos;
    EXPECT_EQ(line.find("|0891683108100005F0") != line.npos, is_pdu) << line;
  }
  EXPECT_EQ(sent, 2);
  EXPECT_EQ(centres, 1) << "it is read once";
}

TEST_F(ShortMsg, FailuresHaveCodesAndBlockNothing) {
  const struct {
    const char *what, *answer;
    size_t text;
    int tried; /* parts */
  } cases[] = {
      {"CMGF", "ERROR", 2, 0},   {"nanocom", "+CMS ERROR: 322\r\n", 2, 1},
      {"nanocom", "%$&/", 2, 1}, {"nanocom", "ERROR", 161, 2},
      {"nanocom", "", 161, 1},
  };
  for (const auto &one : cases) {
    SetUp();
    answers_ = {{one.what, one.answer}};
    AskToSend("10010", std::string(one.text, 'a'));
    EXPECT_EQ(Send(), -1) << one.answer;
    EXPECT_EQ(Leaf(SHORT_MSG ".MsgResult"), "401") << one.answer;
    Lines lines = TakeCommands();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "nanocom /dev/ttyUSB3 1 0"), one.tried);
    EXPECT_FALSE(fs::exists("/var/atTmpResult") || fs::exists("/var/atcmd_lock")) << one.answer;
  }
  fs::remove("/dev/ttyUSB3");
  EXPECT_EQ(Send(), -1) << "the modem is gone";
}

}  // namespace
