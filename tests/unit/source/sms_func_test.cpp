// Short messages on the modem: the command lines of actions and sends, and what becomes of the
// modem's answers.
#include <algorithm>

#include "sms_support.h"

namespace {

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
    {"send to nobody", "6", "", "Hi", {}, 400, {kGsm, kReadCentre, kPduMode}},
    {"store a draft to nobody", "8", "", "Hi", {}, 401, {kGsm, kReadCentre, kPduMode}},
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

/* What the modem says is read for its numbers; without any they stay. */
TEST_F(ShortMsg, AnswersAreReadForTheirNumbers) {
  const struct {
    int (*ask)();
    const char *answer;
    std::vector<int> numbers; /* result, the modem's error, used, total */
  } cases[] = {
      {ModemPhonebookFill, "+CME ERROR: 14\r\n", {-1, 14, 0, 0}},
      {ModemPhonebookFill, "ERROR\r\n", {-1, 14, 0, 0}},
      {ModemPhonebookFill, "OK\r\n", {-1, 14, 0, 0}},
      {ModemPhonebookFill, "+CPBS: \"SM\",3,250\r\n", {0, 14, 3, 250}},
      {ModemSelectStorage, "nonsense", {-1, 14, 3, 250}},
      {ModemSelectStorage, "+CPMS:", {-1, 14, 3, 250}},
      {ModemSelectStorage, "+CPMS: 7,40,7,40,7,40\r\nOK\r\n", {0, 14, 10, 290}},
  };
  const ShortMsgState &state = short_msg_state;
  for (const auto &one : cases) {
    answers_ = {{"at-mngr", one.answer}};
    int result = one.ask();
    EXPECT_EQ(std::vector<int>(
                  {result, msgResult, state.used + state.pbUsed, state.total + state.pbTotal}),
              one.numbers)
        << one.answer;
  }
  TakeCommands();
  snprintf(short_msg_state.msgStorage, sizeof short_msg_state.msgStorage, "ME");
  EXPECT_EQ(ModemSelectStorage(), 0);
  EXPECT_EQ(TakeCommands(), Lines{AT("AT+CPMS=\\\"ME\\\",\\\"ME\\\",\\\"ME\\\"\r")});
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
  for (size_t digits : {254, 255}) { /* a list that would be cut */
    SetLeaf(SHORT_MSG ".ActionArgument", std::string(digits, '1'));
    EXPECT_EQ(Set("ActionCode=3"), digits == 254 ? 0 : -1);
    EXPECT_EQ(TakeCommands().size(), digits == 254 ? 1U : 0U);
  }
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
    int result = ShortMsgDial(one.number, one.country, digits);
    EXPECT_STREQ(result == 0 ? digits : "", one.digits) << one.number;
  }
}

std::string TtyOf(const std::string &devinfo) {
  char path[128] = "";
  WriteText("/var/tmp/devinfo", devinfo);
  ModemDevicePath(path);
  return path;
}

TEST_F(ShortMsg, ModemByItsIds) {
  std::ifstream stream(TEST_DATA "/modems.txt");
  std::string vendor, product, tty;
  int modems = 0;
  std::getline(stream, tty); /* what the file is */
  for (; stream >> vendor >> product >> tty; ++modems) {
    EXPECT_EQ(TtyOf(vendor + " " + product + "\n"), tty) << vendor << product;
    EXPECT_EQ(TtyOf("0x" + vendor + "\t0x" + product), tty) << vendor << product;
    EXPECT_EQ(TtyOf(product + " " + vendor), "") << vendor << product;
  }
  EXPECT_EQ(modems, 33);
  for (const char *devinfo : {"2c7c\n", "0 0\n", "2c7c 0126\n", "", "\n2c7c 0125\n"})
    EXPECT_EQ(TtyOf(devinfo), "") << devinfo;
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

TEST_F(ShortMsg, RoutesAreBounded) {
  char text[64] = "";
  EXPECT_EQ(SHORTMSG_read_file_value(nullptr, text, sizeof text), -1);
  EXPECT_EQ(SHORTMSG_DoCommand(nullptr, 0), -1);
  WriteText("/var/atresult_1", std::string(200, 'x'));
  EXPECT_EQ(SHORTMSG_GetCommandResult(text, sizeof text), 63);
  fs::remove("/var/atresult_1");
  EXPECT_EQ(SHORTMSG_GetCommandResult(text, sizeof text), -1) << "none comes";
  EXPECT_EQ(RunShellCapture(std::string(1003, 'x').c_str(), text, 7), -1);
  EXPECT_EQ(RunShellCapture("ls", text, 0), -1);
  EXPECT_EQ(RunShellCapture("ls", nullptr, 0), 0);
  EXPECT_EQ(RunShellCapture("ls", text, 2), 2) << "no more than there is room for";
  EXPECT_EQ(TakeCommands(), Lines(3, "ls > /var/atTmpResult"));
  WriteText("/var/nanocom", "");
  EXPECT_EQ(SHORTMSG_DoCommand(std::string(4096, 'x').c_str(), 7), 0);
  EXPECT_EQ(TakeCommands(),
            Lines({"echo \"\" > /var/atcmd_lock", "echo \"\" > /var/atcmd", "cat /var/atcmd",
                   "/var/nanocom /dev/ttyUSB3 1 7", "rm -f /var/atcmd_lock"}));
  (void)AtMngrCommand("AT\r", nullptr, 0); /* no shell ran, so no status */
  EXPECT_EQ(TakeCommands(), Lines{"at-mngr  AT\r 2>/dev/null"});
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
