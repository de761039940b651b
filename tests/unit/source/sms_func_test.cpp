// Short messages on the modem: the command lines of actions and sends, and what becomes of the
// modem's answers.
#include <algorithm>

#include "sms_support.h"

namespace {

/* The lines of the interactive route. */
Lines Interactive(const std::string &text, bool answer_before = false) {
  Lines lines = {"echo \"\" > /var/atcmd_lock", "echo \"\" > /var/atcmd",
                 "echo '" + text + "' > /var/atcmd", "cat /var/atcmd"};
  if (answer_before) lines.push_back("rm  /var/atresult_1");
  lines.push_back("nanocom /dev/ttyUSB3 1 0");
  lines.push_back("rm -f /var/atcmd_lock");
  return lines;
}

Lines operator+(Lines left, const Lines &right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

/* ---- actions ---- */

struct ActionCase {
  const char *what, *code, *argument, *content;
  std::map<std::string, std::string> answers;
  int result;
  Lines lines;
};

const char kCentre[] = AT("AT+CSCA=\\\"+861\\\"\r");
const char kAdd[] = AT("AT+CPBW=,\\\"10086\\\",129,\\\"0041\\\"\r");
const std::map<std::string, std::string> kFill = {{"CPBS", "+CPBS: \"SM\",3,250\r\nOK\r\n"}};

const ActionCase kActions[] = {
    {"delete two", "3", "1,12", "", {}, 0, {AT("AT+CMGD=1\r"), AT("AT+CMGD=12\r")}},
    {"a failure stops", "0", "1,2", "", {{"CMGD", "+CMS ERROR: 1\r\n"}}, 403, {AT("AT+CMGD=1\r")}},
    {"delete nothing", "1", "", "", {}, 200, {}},
    {"delete empty pieces", "2", ",,", "", {}, 200, {}},
    {"an index that is none", "3", "1;reboot", "", {}, 403, {}},
    {"select only", "4", "", "", {}, 200, {kGsm}},
    {"nothing", "12", "", "", {}, 200, {}},
    {"no such action", "15", "", "", {}, 200, {}},
    {"junk is no action", "oops", "1", "", {}, 200, {}},
    {"a code that no int holds", "4294967299", "1", "", {}, 200, {}},
    {"service centre", "14", "+861", "", {}, 0, {kGsm, kCentre}},
    {"centre refused", "14", "+861", "", {{"CSCA=", "ERROR\r\n"}}, 402, {kGsm, kCentre}},
    {"no service centre", "14", "12\\\"3", "", {}, 402, {}},
    {"add", "11", "10086", "0041", {}, 0, {kSimBook, kUcs2, kAdd}},
    {"a name that is no hex", "11", "10086", "Bob;id", {}, 404, {}},
    {"full", "11", "10086", "0041", {{"CPBW", "ERROR\r\n"}}, 404, {kSimBook, kUcs2, kAdd}},
    {"entry", "9", "1,250", "", kFill, 0, {kBook, AT("AT+CPBW=1\r"), AT("AT+CPBW=250\r")}},
    {"entry past the end", "10", "251", "", kFill, 403, {kBook}},
    {"phonebook of a modem that is gone", "9", "1", "", {{"CPBS", ""}}, 403, {kBook}},
};

TEST_F(ShortMsg, Actions) {
  for (const ActionCase &one : kActions) {
    SetUp();
    answers_ = one.answers;
    EXPECT_EQ(ShortMsgAction(one.code, one.argument, one.content, ""), one.result) << one.what;
    EXPECT_EQ(msgResult, one.result) << one.what;
    EXPECT_EQ(TakeCommands(), one.lines) << one.what;
  }
}

TEST_F(ShortMsg, ErrorNumbersAreTheModems) {
  answers_ = {{"CPBS", "+CME ERROR: 14\r\n"}};
  EXPECT_EQ(ModemPhonebookFill(), -1);
  EXPECT_EQ(msgResult, 14);
  answers_ = {{"CPBS", "ERROR\r\n"}, {"CPMS", "nonsense"}};
  EXPECT_EQ(ModemPhonebookFill(), -1);
  EXPECT_EQ(ModemSelectStorage(), -1);
  EXPECT_EQ(msgResult, 14) << "no number, no change";
  answers_ = {{"CPMS", "+CPMS: 7,40,7,40,7,40\r\nOK\r\n"}};
  EXPECT_EQ(ModemSelectStorage(), 0);
  EXPECT_EQ(shortMsgState.used * 1000 + shortMsgState.total, 7040);
}

TEST_F(ShortMsg, RequestsAreReadLeafByLeaf) {
  const struct {
    const char *what, *value;
    int result;
    Lines lines;
  } cases[] = {
      {"delete among others", "ActionContent=x\3DelIdx=5\3MsgResult=1", 0, {AT("AT+CMGD=5\r")}},
      {"a text that names a leaf", "ActionContent=DelIdx=5\3ActionCode=4", 0, {kGsm}},
      {"a code in a text", "ActionContent=ActionCode=0\3ActionCode=4", 0, {kGsm}},
      {"nothing that acts", "ActionArgument=1", 0, {}},
      {"a failure", "DelIdx=x", -1, {}},
      {"a code that is no number", "ActionCode=oops", -1, {}},
      {"no code", "ActionCode=", -1, {}},
  };
  SetLeaf(SHORT_MSG ".ActionArgument", "1");
  for (const auto &one : cases) {
    EXPECT_EQ(Set(one.value), one.result) << one.what;
    EXPECT_EQ(TakeCommands(), one.lines) << one.what;
  }
  SetLeaf(SHORT_MSG ".ActionArgument", std::string(300, '1'));
  EXPECT_EQ(Set("ActionCode=3"), -1) << "a list that would be cut";
  EXPECT_EQ(TakeCommands(), Lines{});
}

/* ---- numbers ---- */

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
    char digits[SHORTMSG_NUMBER_SIZE] = "";
    bool refused = *one.digits == '\0';
    EXPECT_EQ(ShortMsgDial(one.number, one.country, digits), refused ? -1 : 0) << one.number;
    EXPECT_STREQ(refused ? "" : digits, one.digits) << one.number;
  }
}

TEST_F(ShortMsg, ModemByItsIds) {
  const std::pair<const char *, const char *> cases[] = {
      {"2c7c 0125\n", "/dev/ttyUSB3"},
      {"2CB7\t0a06", "/dev/ttyUSB0"},
      {"0x1519 0x0443\n", "/dev/ttyACM2"},
      {"0125 2c7c\n", ""},
      {"2c7c\n", ""},
      {"0 0\n", ""},
      {"2c7c 0126\n", ""},
      {"", ""},
      {"\n2c7c 0125\n", ""},
  };
  for (const auto &[devinfo, tty] : cases) {
    char path[128] = "";
    WriteText("/var/tmp/devinfo", devinfo);
    ModemDevicePath(path);
    EXPECT_STREQ(path, tty) << devinfo;
  }
}

/* ---- sending ---- */

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
  AskToSend("13800138000", "Hi");
  EXPECT_EQ(Send(), 0);
  std::string pdu = std::string(kHi) + "\x1a\r";
  EXPECT_EQ(TakeCommands(), Lines({kSimStorage, kGsm, kReadCentre, kPduMode}) +
                                Interactive("AT+CMGW=17,3\r|" + pdu) +
                                Lines({kReadCentre, kPduMode}) +
                                Interactive("AT+CMGS=17\r|" + pdu, true));
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

/* All of a text is stored before the first part of it is sent; 160 septets are one part. */
TEST_F(ShortMsg, LongTextsGoInParts) {
  const struct {
    std::string text;
    Lines parts;
  } cases[] = {
      {std::string(155, 'a') + "[[[", {"AT+CMGW=", "AT+CMGW=", "AT+CMGS=", "AT+CMGS="}},
      {std::string(80, '['), {"AT+CMGW=", "AT+CMGS="}},
  };
  for (const auto &one : cases) {
    AskToSend("10010", one.text);
    EXPECT_EQ(Send(), 0) << one.text;
    Lines parts;
    for (const std::string &line : TakeCommands())
      if (line.find("echo 'AT+CMG") == 0) parts.push_back(line.substr(6, 8));
    EXPECT_EQ(parts, one.parts) << one.text;
  }
}

TEST_F(ShortMsg, FailuresHaveCodesAndBlockNothing) {
  const std::pair<const char *, const char *> failures[] = {
      {"CMGF", "ERROR"},
      {"nanocom", "+CMS ERROR: 322\r\n"},
      {"nanocom", "%$&/"},
      {"nanocom", ""},
  };
  for (const auto &failure : failures) {
    SetUp();
    answers_ = {failure};
    AskToSend("10010", "Hi");
    EXPECT_EQ(Send(), -1) << failure.second;
    EXPECT_EQ(Leaf(SHORT_MSG ".MsgResult"), "401") << failure.second;
    EXPECT_FALSE(fs::exists("/var/atTmpResult")) << failure.second;
    answers_.clear();
    EXPECT_EQ(Send(), 0) << "after: " << failure.second;
  }
  answers_ = {{"nanocom", ""}};
  TakeCommands();
  AskToSend("10010", std::string(400, 'a'));
  EXPECT_EQ(Send(), -1) << "the modem is gone in the middle of a long text";
  Lines lines = TakeCommands();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "nanocom /dev/ttyUSB3 1 0"), 1);
  fs::remove("/dev/ttyUSB3");
  EXPECT_EQ(Send(), -1) << "the modem is gone";
}

TEST_F(ShortMsg, AnswersAreBounded) {
  char text[64] = "";
  EXPECT_EQ(SHORTMSG_read_file_value(nullptr, text, sizeof text), -1);
  EXPECT_EQ(SHORTMSG_DoCommand(nullptr, 0), -1);
  WriteText("/var/atresult_1", std::string(200, 'x'));
  EXPECT_EQ(SHORTMSG_GetCommandResult(text, sizeof text), 63);
  fs::remove("/var/atresult_1");
  EXPECT_EQ(SHORTMSG_GetCommandResult(text, sizeof text), -1) << "none comes";
}

TEST_F(ShortMsg, CapturedLinesAreBounded) {
  char reply[8] = "";
  EXPECT_EQ(RunShellCapture(std::string(1003, 'x').c_str(), reply, 7), -1);
  EXPECT_EQ(RunShellCapture(nullptr, reply, 7), -1);
  EXPECT_EQ(RunShellCapture("ls", reply, 0), -1);
  EXPECT_EQ(RunShellCapture("ls", nullptr, 0), 0);
  EXPECT_EQ(RunShellCapture("ls", reply, 2), 2) << "no more than there is room for";
  EXPECT_EQ(TakeCommands(), Lines(3, "ls > /var/atTmpResult"));
  (void)AtMngrCommand("AT\r", nullptr, 0); /* no shell ran, so no status */
  EXPECT_EQ(TakeCommands(), Lines{"at-mngr  AT\r 2>/dev/null"});
}

}  // namespace
