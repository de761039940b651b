// The op functions of short messages: what a request asks for, what is printed and traced.
#include "sms_support.h"

namespace {

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
  for (size_t digits : {255u, 256u}) { /* a list that would be cut */
    SetLeaf(SHORT_MSG ".ActionArgument", std::string(digits, '1'));
    EXPECT_EQ(Set("ActionCode=3"), digits == 255 ? 0 : -1);
    EXPECT_EQ(TakeCommands().size(), digits == 255 ? 1U : 0U);
  }
}

/* ---- what is printed ---- */

void Add(const char *name, const char *path) {
  RunOp(kCapabInfoFuncTable, name, TMF_ADD, path, "x=1");
}

struct LogCase {
  int level;
  void (*work)();
  const char *text;
};

#define LOGGED(path) ": op: 4, path: " path ", value: x=1  @P:source/sms_func,L:"
#define LONG(n)      std::string(n, 'a').c_str()

const LogCase kLogs[] = {
    {2, [] { Add("FuncServShortMsg", "A"); }, "FuncHandleShortMsg" LOGGED("A")},
    {2, [] { Add("FuncServShortMsgSend", "B"); }, "FuncHandleShortMsgSend" LOGGED("B")},
    {2, [] { Add("FuncServShortMsgUssdSend", "C"); }, "FuncServShortMsgUssdSend" LOGGED("C")},
    {4, [] { Set("ActionCode=oops"); }, "action \"oops\" refused"},
    {4, [] { ModemSetServiceCentre("x"); }, "service centre refused, give its number: x"},
    {4, [] { ModemAddPhonebookEntry("1", "x"); }, "phonebook entry refused"},
    {4, [] { SHORTMSG_SendMessage("1", "a", LONG(20)); }, "number aaaaaaaaaaaaaaaaaaaa1 cannot"},
    {4, [] { SHORTMSG_SendMessage("1", LONG(36976), ""); }, "message of 36976 bytes takes more"},
    {4, [] { AtMngrCommand(LONG(1100), nullptr, 0); }, "modem command of 1121 bytes not run"},
};

TEST_F(ShortMsg, LogsHaveTheirLevels) {
  for (const LogCase &one : kLogs)
    for (int level : {one.level, one.level + 1}) {
      const std::string log = LogOf(level, one.work);
      EXPECT_EQ(log.find(one.text) != log.npos, level == one.level) << one.text << ": " << log;
    }
}

/* The numbers of lines are nobody's business. */
std::string WithoutLines(const std::string &text) {
  std::string rest;
  for (size_t at = 0, digits; at < text.size(); at += std::max(digits, size_t{1})) {
    digits = strspn(text.c_str() + at, "0123456789");
    bool line = digits > 1 && strchr(">:-", text[at + digits]) != nullptr;
    rest += line ? "#" : text.substr(at, std::max(digits, size_t{1}));
  }
  return rest;
}

void PrintAll() {
  char list[8];
  ShortMsgParam record = {};
  ShortMsgEntry entry = {};
  RunShellCapture(nullptr, nullptr, 0);
  RunShellCapture("ls", list, 0);
  SHORTMSG_SMS_Get(7, list, sizeof list);
  SHORTMSG_SendMessage("1", "a[b", "");
  SHORTMSG_SendMessage("1", "\u00e9", "");
  SHORTMSG_saveMessage("x", "a", "", 3);
  SHORTMSG_DecodePdu("03917283040BC87238880900F10000993092516195800161", &record, &entry);
  WriteText("/var/tmp/devinfo", "");
  SHORTMSG_DoLockedCommand("x");
}

/* Traces go to standard output and a file, and only while their switch is there. */
TEST_F(ShortMsg, PrintsAndTraces) {
  const std::string printed =
      "script name too long or zero:NULL\ncan not read\n"
      "Fun:SHORTMSG_SMS_Get cmd: /usr/syscfg/sms_getmsg.sh 7 &\n"
      "SHORTMSG_EncodePdu,827,nSrcLength=3\n";
  const std::string sent =
      "----SHORTMSG_DoCommand, #----   cmd =nanocom /dev/ttyUSB3 1 0"
      "----SHORTMSG_DoCommand, #----   1 "
      "----SHORTMSG_read_file_value, #----   <#> svalue = \n[ OK\r\n ]\n"
      "----SHORTMSG_GetCommandResult, #----   nLength=4";
  const std::string traced =
      sent + sent +
      "----SHORTMSG_saveMessage, #----   ===>SHORTMSG_saveMessage() stat is 3\n"
      "----SHORTMSG_saveMessage, #----   <===SHORTMSG_saveMessage() ret is -1\n"
      "----SHORTMSG_DecodePdu, #----   pDst->SCA=[2738]\n"
      "----SHORTMSG_DecodePdu, #----   SHORTMSG_DecodePdu-#:nDstLength=1, ucUDL=1\na, 0\n\n"
      "----SHORTMSG_DoLockedCommand, #----   open device  fail";
  OnDelay([] {});
  for (const std::string &log : {std::string(), traced}) {
    SetUp();
    if (!log.empty()) WriteText("/var/sms_debug", "");
    testing::internal::CaptureStdout();
    PrintAll();
    const std::string out = WithoutLines(testing::internal::GetCapturedStdout());
    EXPECT_EQ(WithoutLines(FileText("/var/sms_log")), log.empty() ? "(none)" : log);
    EXPECT_EQ(out.size(), printed.size() + log.size()) << out;
    EXPECT_TRUE(!log.empty() || out == printed) << out;
  }
}

}  // namespace
