// Short messages on the modem: the command lines of actions, sends and USSD, what becomes of the
// modem's answers, and the list for the web page.
#include "sms_func.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>

#include "capabinfo_thread.h"
#include "modem_at.h"
#include "sms_actions.h"
#include "support.h"

namespace {

using Lines = std::vector<std::string>;
namespace fs = std::filesystem;

#define SHORT_MSG "InternetGatewayDevice.Services.X_KVO_ShortMsg"

constexpr char kModel[] = R"(<InternetGatewayDevice type="object">
  <Services type="object"><X_KVO_ShortMsg type="object" op="FuncServShortMsg">
    <MsgInbox type="string" writable="0"/><MsgOutbox type="string" writable="0"/>
    <DelIdx type="string"/><ActionCode type="string"/><ActionArgument type="string"/>
    <ActionContent type="string"/><MsgResult type="string" writable="0"/>
    <MsgSend type="object" op="FuncServShortMsgSend"><MsgCountryCode type="string"/>
      <MsgTo type="string"/><MsgContent type="string"/></MsgSend>
    <USSD type="object" op="FuncServShortMsgUssdSend"><Command type="string"/>
      <Menu type="string" writable="0"/></USSD></X_KVO_ShortMsg></Services>
  <WANDevice type="array"><Template><WANDongleInterfaceConfig type="object">
    <X_KVO-CellLock type="string"/></WANDongleInterfaceConfig></Template>
    <Instance id="3"/></WANDevice>
</InternetGatewayDevice>)";

void WriteText(const std::string &path, const std::string &text) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

std::string ReadText(const std::string &path) {
  std::ifstream stream(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(stream), {});
}

/* Stands for the modem: answers by the first key that a line holds. */
class ShortMsg : public StoreTest {
 protected:
  std::string DataModel() const override { return kModel; }

  void SetUp() override {
    StoreTest::SetUp();
    for (const char *file :
         {"/var/atcmd_lock", "/var/atresult_1", "/var/atTmpResult", "/var/tmp/runCPMSFlag",
          "/var/atresult_msg", "/var/tmpUssdRunResult", "/var/tmpUssdSelectMenu",
          "/var/tmp/urc_ussd_file", "/var/nanocom", "/dev/ttyUSB3"})
      fs::remove(file);
    shortMsgState = {};
    msgResult = 0;
    answers_.clear();
    WriteText("/var/tmp/devinfo", "2c7c 0125\n");
    WriteText("/dev/ttyUSB3", ""); /* locks as a tty does; its queues are not there */
    OnSystem([this](const std::string &line) { Leave(line); });
  }

  /* The queries' answers, by a piece of the line; "OK" for any other. */
  std::map<std::string, std::string> answers_;

 private:
  void Leave(const std::string &line) {
    if (line.find("nanocom") != line.npos) WriteText("/var/atresult_1", Answer("nanocom"));
    if (line.find("sms_getmsg") != line.npos) WriteText("/var/atresult_msg", Answer("sms_getmsg"));
    if (line.find("echo 1 >") != line.npos) WriteText("/var/tmp/runCPMSFlag", "1\n");
    if (line.find(" > /var/atTmpResult") != line.npos) WriteText("/var/atTmpResult", Answer(line));
    if (line.find("AT+CUSD=1") != line.npos && answers_.count("urc") == 1)
      WriteText("/var/tmp/urc_ussd_file", answers_["urc"]);
  }

  std::string Answer(const std::string &line) {
    for (const auto &[piece, answer] : answers_)
      if (line.find(piece) != line.npos) return answer;
    return "OK\r\n";
  }
};

constexpr char kGsm[] = "at-mngr 'AT+CSCS=\"GSM\"' > /var/atTmpResult";
constexpr char kPduMode[] = "at-mngr AT+CMGF=0\r > /var/atTmpResult";
constexpr char kReadCentre[] = "at-mngr AT+CSCA?\r > /var/atTmpResult";
constexpr char kSimStorage[] =
    "at-mngr AT+CPMS=\\\"SM\\\",\\\"SM\\\",\\\"SM\\\"\r > /var/atTmpResult";

std::string Query(const std::string &text) { return "at-mngr " + text + " > /var/atTmpResult"; }

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

const ActionCase kActions[] = {
    {"delete two", "3", "1,12", "", {}, 0, {Query("AT+CMGD=1\r"), Query("AT+CMGD=12\r")}},
    {"delete stops at a failure",
     "0",
     "1,2",
     "",
     {{"CMGD", "+CMS ERROR: 321\r\n"}},
     403,
     {Query("AT+CMGD=1\r")}},
    {"delete nothing", "1", "", "", {}, 200, {}},
    {"delete empty pieces", "2", ",,", "", {}, 200, {}},
    {"an index that is none", "3", "1;reboot", "", {}, 403, {}},
    {"select only", "4", "", "", {}, 200, {kGsm}},
    {"select only, too", "5", "", "", {}, 200, {kGsm}},
    {"nothing", "12", "", "", {}, 200, {}},
    {"no such action", "15", "", "", {}, 200, {}},
    {"below", "-1", "", "", {}, 200, {}},
    {"junk is action 0", "x", "", "", {}, 200, {}},
    {"service centre",
     "14",
     "+8613800100500",
     "",
     {},
     0,
     {kGsm, Query("AT+CSCA=\\\"+8613800100500\\\"\r")}},
    {"service centre refused",
     "14",
     "123",
     "",
     {{"CSCA=", "ERROR\r\n"}},
     402,
     {kGsm, Query("AT+CSCA=\\\"123\\\"\r")}},
    {"no service centre", "14", "12\\\"3", "", {}, 402, {}},
    {"phonebook add",
     "11",
     "10086",
     "00410042",
     {},
     0,
     {Query("AT+CPBS=\\\"SM\\\"\r"), Query("AT+CSCS=\\\"UCS2\\\"\r"),
      Query("AT+CPBW=,\\\"10086\\\",129,\\\"00410042\\\"\r")}},
    {"phonebook name that is no hex", "11", "10086", "Bob;id", {}, 404, {}},
    {"phonebook is full",
     "11",
     "1",
     "0041",
     {{"CPBW", "+CME ERROR: 20\r\n"}},
     404,
     {Query("AT+CPBS=\\\"SM\\\"\r"), Query("AT+CSCS=\\\"UCS2\\\"\r"),
      Query("AT+CPBW=,\\\"1\\\",129,\\\"0041\\\"\r")}},
    {"phonebook delete",
     "9",
     "1,250",
     "",
     {{"CPBS", "+CPBS: \"SM\",3,250\r\nOK\r\n"}},
     0,
     {Query("AT+CPBS?\r"), Query("AT+CPBW=1\r"), Query("AT+CPBW=250\r")}},
    {"phonebook delete past its end",
     "10",
     "251",
     "",
     {{"CPBS", "+CPBS: \"SM\",3,250\r\n"}},
     403,
     {Query("AT+CPBS?\r")}},
    {"phonebook of a modem that is gone", "9", "1", "", {{"CPBS", ""}}, 403, {Query("AT+CPBS?\r")}},
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
  int used = 0, total = 0;
  EXPECT_EQ(ModemPhonebookFill(&used, &total), -1);
  EXPECT_EQ(msgResult, 14);
  answers_ = {{"CPBS", "ERROR\r\n"}, {"CPMS", "nonsense"}};
  EXPECT_EQ(ModemPhonebookFill(&used, &total), -1);
  EXPECT_EQ(ModemStorageFill("ME", &used, &total), -1);
  EXPECT_EQ(msgResult, 14) << "no number, no change";
  answers_ = {{"CPMS", "+CPMS: 7,40,7,40,7,40\r\nOK\r\n"}};
  EXPECT_EQ(ModemStorageFill("anything", &used, &total), 0);
  EXPECT_EQ(used * 1000 + total, 7040);
}

int Set(const std::string &value) {
  return RunOp(kCapabInfoFuncTable, "FuncServShortMsg", TMF_SET, SHORT_MSG, value.c_str());
}

TEST_F(ShortMsg, RequestsAreReadLeafByLeaf) {
  const struct {
    const char *what, *value;
    int result;
    Lines lines;
  } cases[] = {
      {"delete", "DelIdx=5", 0, {Query("AT+CMGD=5\r")}},
      {"delete among others",
       "ActionContent=x\x03"
       "DelIdx=5,6\x03"
       "MsgResult=1",
       0,
       {Query("AT+CMGD=5\r"), Query("AT+CMGD=6\r")}},
      {"a text that names a leaf",
       "ActionContent=DelIdx=5\x03"
       "ActionCode=4",
       0,
       {kGsm}},
      {"a code in a text",
       "ActionContent=ActionCode=0\x03"
       "ActionCode=4",
       0,
       {kGsm}},
      {"nothing that acts", "ActionArgument=1", 0, {}},
      {"a failure", "DelIdx=x", -1, {}},
  };
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
      {"13800138000", "86", "8613800138000"},
      {"+13800138000", "+86", "8613800138000"},
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
  const struct {
    const char *what, *devinfo, *tty;
  } cases[] = {
      {"first row", "2c7c 0125\n", "/dev/ttyUSB3"},
      {"last row", "2CB7\t0a06", "/dev/ttyUSB0"},
      {"with 0x", "0x1519 0x0443\n", "/dev/ttyACM2"},
      {"swapped", "0125 2c7c\n", ""},
      {"one word", "2c7c\n", ""},
      {"no ids", "0 0\n", ""},
      {"unknown", "2c7c 0126\n", ""},
      {"empty", "", ""},
      {"second line", "\n2c7c 0125\n", ""},
  };
  for (const auto &one : cases) {
    char path[128] = "";
    WriteText("/var/tmp/devinfo", one.devinfo);
    ModemDevicePath(path);
    EXPECT_STREQ(path, one.tty) << one.what;
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

TEST_F(ShortMsg, LongTextsGoInParts) {
  AskToSend("10010", std::string(161, 'a'));
  EXPECT_EQ(Send(), 0);
  Lines parts;
  for (const std::string &line : TakeCommands())
    if (line.find("echo 'AT+CMG") == 0) parts.push_back(line.substr(6, 8));
  EXPECT_EQ(parts, Lines({"AT+CMGW=", "AT+CMGW=", "AT+CMGS=", "AT+CMGS="}));
}

TEST_F(ShortMsg, TextsFullOfEscapesAreRefused) {
  const struct {
    std::string text;
    bool fits;
  } cases[] = {{std::string(80, '['), true},
               {std::string(81, '['), false},
               {std::string(160, 'a') + "[", true},
               {std::string(160, '['), false}};
  for (const auto &one : cases) {
    AskToSend("10010", one.text);
    EXPECT_EQ(Send(), one.fits ? 0 : -1) << one.text;
  }
}

struct FailureCase {
  const char *what;
  std::map<std::string, std::string> answers;
  int result;
};

const FailureCase kFailures[] = {
    {"no PDU mode", {{"CMGF", "ERROR"}}, 401},
    {"not stored", {{"nanocom", "+CMS ERROR: 322\r\n"}}, 401},
    {"garbage", {{"nanocom", "%$&/"}}, 401},
    {"empty answer", {{"nanocom", ""}}, 401},
};

TEST_F(ShortMsg, FailuresHaveCodesAndBlockNothing) {
  for (const FailureCase &one : kFailures) {
    SetUp();
    answers_ = one.answers;
    AskToSend("10010", "Hi");
    EXPECT_EQ(Send(), -1) << one.what;
    EXPECT_EQ(Leaf(SHORT_MSG ".MsgResult"), std::to_string(one.result)) << one.what;
    EXPECT_FALSE(fs::exists("/var/atTmpResult")) << one.what;
    answers_.clear();
    EXPECT_EQ(Send(), 0) << "after: " << one.what;
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
  EXPECT_EQ(SHORTMSG_read_file_value("", text, sizeof text), -1);
  EXPECT_EQ(SHORTMSG_read_file_value(nullptr, text, sizeof text), -1);
  EXPECT_EQ(SHORTMSG_read_file_value("/var/none", nullptr, 1), -1);
  EXPECT_EQ(SHORTMSG_DoCommand(nullptr, 0), -1);
  WriteText("/var/atresult_1", std::string(200, 'x'));
  EXPECT_EQ(SHORTMSG_GetCommandResult(text, sizeof text), 63);
  fs::remove("/var/atresult_1");
  EXPECT_EQ(SHORTMSG_GetCommandResult(text, sizeof text), -1) << "none comes";
}

TEST_F(ShortMsg, CapturedLinesAreBounded) {
  char reply[8] = "";
  testing::internal::CaptureStdout();
  EXPECT_EQ(RunShellCapture(std::string(1003, 'x').c_str(), reply, 7), -1);
  EXPECT_EQ(RunShellCapture(nullptr, reply, 7), -1);
  EXPECT_EQ(RunShellCapture("ls", reply, 0), -1);
  EXPECT_EQ(RunShellCapture("ls", nullptr, 0), 0);
  std::string said = testing::internal::GetCapturedStdout();
  EXPECT_NE(said.find("script name too long or zero:NULL\n"), said.npos) << said;
  EXPECT_NE(said.find("can not read"), said.npos) << said;
  EXPECT_EQ(TakeCommands(), Lines({"ls > /var/atTmpResult", "ls > /var/atTmpResult"}));
  EXPECT_EQ(RunShellCapture("ls", reply, 2), 2) << "no more than there is room for";
  (void)AtMngrCommand("AT\r", nullptr, 0); /* no shell ran, so no status */
  EXPECT_EQ(TakeCommands().back(), "at-mngr  AT\r 2>/dev/null");
}

/* ---- lists ---- */

std::string Listed(int index, int stat, const std::string &pdu) {
  return "+CMGL: " + std::to_string(index) + "," + std::to_string(stat) + ",,20\r\n" + pdu + "\r\n";
}

/* From 27838890001, 99/03/29 15:16:59, "hellohello". */
constexpr char kHello[] =
    "07917283010010F5040BC87238880900F10000993092516195800AE8329BFD4697D9EC37";

int ReadInbox() {
  return RunOp(kCapabInfoFuncTable, "FuncServShortMsg", TMF_GET, SHORT_MSG, "MsgInbox");
}

TEST_F(ShortMsg, UnreadStaysUnreadForTheUser) {
  const std::string record = "}-{0}-{27838890001}-{2099-03-29 15:16:59}-{hellohello}-{|,|";
  answers_ = {{"CPMS", "+CPMS: 1,40,1,40,1,40\r\nOK\r\n"},
              {"sms_getmsg", "AT+CMGL=4\r\n" + Listed(3, 0, kHello) + "\r\nOK\r\n"}};
  EXPECT_EQ(ReadInbox(), 0);
  EXPECT_EQ(Leaf(SHORT_MSG ".MsgInbox"), "3" + record);
  EXPECT_EQ(TakeCommands(), Lines({kSimStorage, "echo 1 > /var/tmp/runCPMSFlag", kReadCentre,
                                   "/usr/syscfg/sms_getmsg.sh 0 &"}));
  answers_ = {{"sms_getmsg", Listed(3, 1, kHello) + Listed(4, 1, kHello) + "OK\r\n"}};
  EXPECT_EQ(ReadInbox(), 0);
  EXPECT_EQ(Leaf(SHORT_MSG ".MsgInbox"),
            "3" + record + "4}-{1}-{27838890001}-{2099-03-29 15:16:59}-{hellohello}-{|,|");
  EXPECT_EQ(shortMsgState.received, 2);
  EXPECT_FALSE(fs::exists("/var/atresult_msg"));
}

TEST_F(ShortMsg, PlacesAreUsedAgain) {
  auto status = [this](int stat) {
    answers_ = {{"sms_getmsg", Listed(3, stat, kHello) + "\nOK\r\n"}};
    EXPECT_EQ(ReadInbox(), 0);
    return Leaf(SHORT_MSG ".MsgInbox").substr(0, 8);
  };
  EXPECT_EQ(status(0), "3}-{0}-{");
  EXPECT_EQ(status(1), "3}-{0}-{");
  answers_.clear();
  EXPECT_EQ(Set("DelIdx=3"), 0);
  EXPECT_EQ(status(1), "3}-{1}-{") << "another message";
}

TEST_F(ShortMsg, BrokenListsLoseOnlyWhatIsBroken) {
  answers_ = {{"sms_getmsg", "+CMGL: 1,1,,20\r\n" + Listed(2, 1, kHello) +
                                 "+CMGL: 5,1,,20\r\n\r\n" + kHello +
                                 "\r\n+CMGL: 4,1,,20\r\nOK\r\n"}};
  EXPECT_EQ(ReadInbox(), 0);
  const std::string record = "}-{1}-{27838890001}-{2099-03-29 15:16:59}-{hellohello}-{|,|";
  EXPECT_EQ(Leaf(SHORT_MSG ".MsgInbox"), "2" + record + "5" + record);
}

TEST_F(ShortMsg, ListsThatFailLeaveTheLastOne) {
  SetLeaf(SHORT_MSG ".MsgInbox", "last");
  for (const char *answer : {"+CMS ERROR: 310\r\n", "", "garbage\n"}) {
    answers_ = {{"sms_getmsg", answer}};
    EXPECT_EQ(ReadInbox(), 0);
    EXPECT_EQ(Leaf(SHORT_MSG ".MsgInbox"), "last") << answer;
    EXPECT_FALSE(fs::exists("/var/atresult_msg"));
  }
  EXPECT_EQ(msgResult, 310);
}

TEST_F(ShortMsg, CellLockIsCarriedOutAndNotListed) {
  /* From 907, "1036". */
  const std::string pdu = "0004038109F70000993092516195800431D8CC06";
  answers_ = {{"sms_getmsg", Listed(5, 0, pdu) + "OK\r\n"}};
  EXPECT_EQ(ReadInbox(), 0);
  EXPECT_NE(Leaf(SHORT_MSG ".MsgInbox").find("}-{1036}-{"), std::string::npos)
      << Leaf(SHORT_MSG ".MsgInbox");
  TakeCommands();
  SetLeaf("InternetGatewayDevice.WANDevice.3.WANDongleInterfaceConfig.X_KVO-CellLock", "1");
  EXPECT_EQ(ReadInbox(), 0);
  EXPECT_EQ(Leaf(SHORT_MSG ".MsgInbox"), "");
  Lines lines = TakeCommands();
  ASSERT_GE(lines.size(), 3U);
  lines.erase(lines.begin(), lines.end() - 3);
  EXPECT_EQ(lines, Lines({"at-mngr AT+QCELLLOCK=0 > /dev/null",
                          "at-mngr AT+QCELLLOCK=1 > /dev/null", Query("AT+CMGD=5\r")}));
}

ShortMsgEntry Entry(int index, int stat, const char *time, int part = 0, int total = 0) {
  ShortMsgEntry entry = {};
  entry.index = static_cast<int16_t>(index);
  entry.stat = static_cast<int16_t>(stat);
  snprintf(entry.number, sizeof entry.number, "10086");
  snprintf(entry.time, sizeof entry.time, "%s", time);
  snprintf(entry.content, sizeof entry.content, "<%d>", index);
  entry.hasUdh = part > 0 ? 1 : 0;
  entry.concatSeq = static_cast<uint8_t>(part);
  entry.concatTotal = static_cast<uint8_t>(total);
  if (part > 0) memcpy(entry.concatRef, "770E", 4);
  return entry;
}

std::string Format(std::vector<ShortMsgEntry> entries, int filter, size_t size = 25600) {
  bool marks[SHORTMSG_MARKS] = {};
  std::string text(size, 'x');
  ShortMsgFormatList(entries.data(), entries.size(), filter, marks, text.data(), size);
  return text.c_str();
}

std::string Shown(const std::string &index, int stat, const std::string &time,
                  const std::string &content) {
  return index + "}-{" + std::to_string(stat) + "}-{10086}-{" + time + "}-{" + content + "}-{|,|";
}

TEST_F(ShortMsg, FormatsLists) {
  EXPECT_EQ(Format({Entry(1, 1, "b"), Entry(2, 1, "c"), Entry(3, 1, "a"), Entry(4, 1, "b")}, 0),
            Shown("2", 1, "c", "<2>") + Shown("1", 1, "b", "<1>") + Shown("4", 1, "b", "<4>") +
                Shown("3", 1, "a", "<3>"))
      << "newest first";
  std::vector<ShortMsgEntry> mixed = {Entry(1, 1, "t"), Entry(2, 2, "t"), Entry(3, 3, "t")};
  EXPECT_EQ(Format(mixed, 1), Shown("3", 3, "t", "<3>"));
  EXPECT_EQ(Format(mixed, 2), Shown("2", 2, "t", "<2>"));
  EXPECT_EQ(Format(mixed, 9).size(), 3 * Shown("1", 1, "t", "<1>").size());
  EXPECT_EQ(Format({Entry(9, 1, "t", 2, 3), Entry(7, 1, "t", 1, 3), Entry(8, 1, "t", 3, 3)}, 0),
            Shown("7,9,8", 1, "t", "<7><9><8>"))
      << "parts in their order";
  EXPECT_EQ(Format({Entry(7, 1, "t", 1, 3), Entry(8, 1, "t", 3, 3)}, 0),
            Shown("7,8", 1, "t", "<7><8>"))
      << "one is missing";
  EXPECT_EQ(Format({Entry(9, 1, "t", 2, 2)}, 0), "") << "the first is missing";
  size_t one = Shown("1", 1, "t", "<1>").size();
  EXPECT_EQ(Format({Entry(1, 1, "t"), Entry(2, 1, "t")}, 0, 2 * one), Shown("1", 1, "t", "<1>"))
      << "no half record";
  EXPECT_EQ(Format({Entry(-5, 0, "t"), Entry(255, 0, "s")}, 0),
            Shown("-5", 0, "t", "<-5>") + Shown("255", 0, "s", "<255>"))
      << "indexes without a mark";
}

/* ---- phonebook and USSD ---- */

TEST_F(ShortMsg, PhonebookList) {
  answers_ = {{"CPBS?", "+CPBS: \"SM\",2,40\r\nOK\r\n"},
              {"CPBR=1,30", "+CPBR: 1,\"10086\",129,\"00410042\"\r\nOK\r\n"},
              {"CPBR=31,60", "+CPBR: 33,\"+861\",145,\"0043\"\r\n+CPBR: broken\r\nOK\r\n"}};
  char *text = nullptr;
  size_t size = 0;
  FILE *out = open_memstream(&text, &size);
  EXPECT_EQ(ShortMsgPhonebookList(out), 0);
  fclose(out);
  const std::string ucs2 = Query("AT+CSCS=\\\"UCS2\\\"\r");
  EXPECT_EQ(TakeCommands(), Lines({Query("AT+CPBS=\\\"SM\\\"\r"), Query("AT+CPBS?\r"), ucs2,
                                   Query("AT+CPBR=1,30\r"), ucs2, Query("AT+CPBR=31,60\r")}));
  EXPECT_STREQ(text,
               "1}-{10086}-{129}-{00410042|,|33}-{+861}-{145}-{0043|,|"
               "PhoneNoIdx}-{PhoneNo}-{PhoneNoType}-{PhoneName|,|");
  free(text);
}

struct UssdCase {
  const char *what, *answer, *menu;
};

const UssdCase kUssd[] = {
    {"copied", "+CUSD: 1,\"1 Balance\r\n2 Data\",1\r\n", "1 Balance<br>2 Data"},
    {"7-bit", "+CUSD: 0,\"E8329BFD4697D9EC37\",15\r\n", "hellohello"},
    {"UCS2", "+CUSD: 0,\"4F60597D\",17\r\n", "\xe4\xbd\xa0\xe5\xa5\xbd"},
    {"UCS2 by its low half", "+CUSD: 0,\"00410042\",72\r\n", "AB"},
    {"8-bit", "+CUSD: 0,\"4142\",4\r\n", "AB"},
    {"quotes inside", "+CUSD: 1,\"say \"yes\" now\",0\r\n", "say \"yes\" now"},
    {"no end", "+CUSD: 1,\"cut", ""},
};

int Ussd(int op, const char *value) {
  return RunOp(kCapabInfoFuncTable, "FuncServShortMsgUssdSend", op, SHORT_MSG ".USSD", value);
}

TEST_F(ShortMsg, UssdAnswersBecomeTheMenu) {
  for (const UssdCase &one : kUssd) {
    SetUp();
    answers_ = {{"urc", one.answer}};
    EXPECT_EQ(Ussd(TMF_SET, "Command=*100#"), 0) << one.what;
    EXPECT_EQ(TakeCommands(), Lines({"at-mngr 'AT+CSCS=\"GSM\"'",
                                     "at-mngr 'AT+CUSD=1,\"*100#\",15' > /var/tmpValue1"}))
        << one.what;
    EXPECT_EQ(Ussd(TMF_GET, "Menu"), 0);
    EXPECT_EQ(Leaf(SHORT_MSG ".USSD.Menu"), one.menu) << one.what;
    EXPECT_FALSE(fs::exists("/var/tmp/urc_ussd_file")) << one.what;
  }
}

TEST_F(ShortMsg, UssdWithoutAMenu) {
  EXPECT_EQ(Ussd(TMF_SET, "Command="), 0);
  EXPECT_EQ(TakeCommands(), Lines{});
  WriteText("/var/tmpUssdRunResult", "old");
  EXPECT_EQ(Ussd(TMF_SET, "Command=cancel"), 0);
  EXPECT_EQ(TakeCommands(), Lines({"at-mngr 'AT+CUSD=2'"}));
  EXPECT_FALSE(fs::exists("/var/tmpUssdRunResult"));
  answers_ = {{"urc", "+CME ERROR: 257\r\n"}};
  EXPECT_EQ(Ussd(TMF_SET, "Command=*1#"), 0);
  EXPECT_EQ(ReadText("/var/tmpUssdRunResult"), "+CME ERROR: 257\r\n");
}

TEST_F(ShortMsg, UssdMenusExpire) {
  answers_ = {{"urc", "+CUSD: 1,\"menu\",1\r\n"}};
  EXPECT_EQ(Ussd(TMF_SET, "Command=*1#"), 0);
  shortMsgState.ussdTime -= 30;
  EXPECT_EQ(Ussd(TMF_GET, nullptr), 0);
  EXPECT_EQ(Leaf(SHORT_MSG ".USSD.Menu"), "menu");
  shortMsgState.ussdTime -= 31;
  EXPECT_EQ(Ussd(TMF_GET, nullptr), 0);
  EXPECT_EQ(Leaf(SHORT_MSG ".USSD.Menu"), "");
  EXPECT_FALSE(fs::exists("/var/tmpUssdSelectMenu"));
}

}  // namespace
