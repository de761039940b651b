// The list of short messages for the web page, the phonebook's, and service codes.
#include "sms_support.h"

namespace {

std::string ReadText(const std::string &path) {
  std::ifstream stream(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(stream), {});
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
  EXPECT_EQ(shortMsgCounts.received, 2);
  EXPECT_FALSE(fs::exists("/var/atresult_msg"));
  answers_.erase("sms_getmsg");
  EXPECT_EQ(Set("DelIdx=3"), 0);
  answers_ = {{"sms_getmsg", Listed(3, 1, kHello) + "OK\r\n"}};
  EXPECT_EQ(ReadInbox(), 0);
  EXPECT_EQ(Leaf(SHORT_MSG ".MsgInbox").substr(0, 8), "3}-{1}-{") << "another message";
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
  OnDelay([] {}); /* nothing more comes */
  for (const char *answer : {"+CMS ERROR: 310\r\n", "garbage\n"}) {
    answers_ = {{"sms_getmsg", answer}};
    EXPECT_EQ(ReadInbox(), 0);
    EXPECT_EQ(Leaf(SHORT_MSG ".MsgInbox"), "last") << answer;
    EXPECT_FALSE(fs::exists("/var/atresult_msg"));
  }
  EXPECT_EQ(msgResult, 310);
}

/* From 907 at 99/03/29 15:16:59: 7-bit text that begins with a yen sign, code 3; class 2, so taken
   for 8-bit data; a sender whose name begins with code 1. */
TEST_F(ShortMsg, ControlCharactersAreReplaced) {
  const std::string head = "0004038109F700", time = "99309251619580";
  answers_ = {{"sms_getmsg", Listed(1, 1, head + "00" + time + "028320") +
                                 Listed(2, 1, head + "12" + time + "0641031B0D0A7F") +
                                 Listed(3, 1, "0004049181A10000" + time + "0131") + "OK\r\n"}};
  EXPECT_EQ(ReadInbox(), 0);
  const std::string from = "}-{1}-{907}-{2099-03-29 15:16:59}-{", end = "}-{|,|";
  EXPECT_EQ(Leaf(SHORT_MSG ".MsgInbox"), "1" + from + "\uFFFDA" + end + "2" + from +
                                             "A\uFFFD\uFFFD<br>\uFFFD" + end +
                                             "3}-{1}-{\uFFFDC}-{2099-03-29 15:16:59}-{1" + end);
}

class ShortMsgWithoutLists : public ShortMsg {
 protected:
  std::string DataModel() const override {
    return R"(<InternetGatewayDevice type="object"><Services type="object">
      <X_KVO_ShortMsg type="object"/></Services></InternetGatewayDevice>)";
  }
};

TEST_F(ShortMsgWithoutLists, WhatCannotBeStoredIsRefused) {
  answers_ = {{"sms_getmsg", Listed(3, 1, kHello) + "OK\r\n"}};
  EXPECT_EQ(ReadInbox(), -1);
  EXPECT_EQ(RunOp(kCapabInfoFuncTable, "FuncServShortMsg", TMF_GET, SHORT_MSG, "MsgOutbox"), -1);
  EXPECT_EQ(RunOp(kCapabInfoFuncTable, "FuncServShortMsgUssdSend", TMF_GET, SHORT_MSG ".USSD"), -1);
}

/* The file is there at once, and the modem's lines come while it is read. */
TEST_F(ShortMsg, AListIsReadUntilItsEnd) {
  const std::string list = Listed(3, 1, kHello) + Listed(4, 1, kHello) + "\r\nOK\r\n";
  const std::string record = "}-{1}-{27838890001}-{2099-03-29 15:16:59}-{hellohello}-{|,|";
  for (size_t cut : {size_t{0}, size_t{10}, list.find(kHello) + 40, list.size() - 3}) {
    answers_ = {{"sms_getmsg", list.substr(0, cut)}};
    int waits = 0;
    OnDelay([&] { /* the reader has seen the end of what is there */
                  if (++waits == 5)
                    std::ofstream("/var/atresult_msg", std::ios::app) << list.substr(cut);
    });
    SetLeaf(SHORT_MSG ".MsgInbox", "");
    EXPECT_EQ(ReadInbox(), 0);
    EXPECT_EQ(waits, 5) << cut;
    EXPECT_EQ(Leaf(SHORT_MSG ".MsgInbox"), "3" + record + "4" + record) << cut;
  }
}

/* The messages that a log says are not listed. */
Lines Unlisted(const std::string &log) {
  Lines found;
  const std::string end = " is not listed";
  for (size_t at = 0; (at = log.find(end, at)) != log.npos; at += end.size()) {
    size_t start = log.rfind(' ', at - 1) + 1;
    found.push_back(log.substr(start, at - start));
  }
  return found;
}

/* A second part of three; a header of ports; a reply path. */
TEST_F(ShortMsg, WhatIsNotListedIsLoggedOnce) {
  const std::string from = "038109F7000099309251619580";
  answers_ = {
      {"sms_getmsg", Listed(3, 1, "0044" + from + "12050003CC0302E6E5F1DB4D06C1C3723A") +
                         Listed(4, 1, "0044" + from + "140B05040B8423F00003550201C0DF727A990C") +
                         Listed(5, 1, "0084" + from + "0961F1985C369FD169") + Listed(6, 1, kHello) +
                         "OK\r\n"}};
  auto lines = [] { return Unlisted(LogOf(3, [] { EXPECT_EQ(ReadInbox(), 0); })); };
  EXPECT_EQ(lines(), Lines({"3", "4", "5"}));
  EXPECT_EQ(lines(), Lines{});
  EXPECT_EQ(Set("DelIdx=4"), 0);
  EXPECT_EQ(lines(), Lines{"4"}) << "another one";
}

TEST_F(ShortMsg, CellLockIsCarriedOutAndNotListed) {
  /* "1036" from 907, the provider, and from 908. */
  const std::string pdu = "0004038109F70000993092516195800431D8CC06";
  const std::string other = "0004038109F80000993092516195800431D8CC06";
  answers_ = {{"sms_getmsg", Listed(5, 0, pdu) + Listed(6, 0, other) + "OK\r\n"}};
  EXPECT_EQ(ReadInbox(), 0);
  const std::string both = Leaf(SHORT_MSG ".MsgInbox");
  EXPECT_EQ(both.find("5}-{0}-{907}-{"), 0U) << both;
  TakeCommands();
  SetLeaf("InternetGatewayDevice.WANDevice.3.WANDongleInterfaceConfig.X_KVO-CellLock", "1");
  EXPECT_EQ(ReadInbox(), 0);
  EXPECT_EQ(Leaf(SHORT_MSG ".MsgInbox").find("6}-{0}-{908}-{"), 0U);
  Lines lines = TakeCommands();
  ASSERT_GE(lines.size(), 3U);
  lines.erase(lines.begin(), lines.end() - 3);
  EXPECT_EQ(lines, Lines({"at-mngr AT+QCELLLOCK=0 > /dev/null",
                          "at-mngr AT+QCELLLOCK=1 > /dev/null", AT("AT+CMGD=5\r")}));
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
  ShortMsgMark marks[SHORTMSG_MARKS] = {};
  std::string text(size, 'x');
  ShortMsgFormatList(entries.data(), entries.size(), filter, marks, text.data(), size);
  return text.c_str();
}

TEST_F(ShortMsg, FormatsLists) {
  auto shown = [](const std::string &index, const std::string &rest) {
    return index + "}-{1}-{10086}-{t}-{" + rest + "}-{|,|";
  };
  const struct {
    const char *what;
    std::vector<ShortMsgEntry> entries;
    std::string text;
  } cases[] = {
      {"parts in their order",
       {Entry(9, 1, "t", 2, 3), Entry(7, 1, "t", 1, 3), Entry(8, 1, "t", 3, 3)},
       shown("7,9,8", "<7><9><8>")},
      {"one is missing", {Entry(7, 1, "t", 1, 3), Entry(8, 1, "t", 3, 3)}, shown("7,8", "<7><8>")},
      {"the first is missing", {Entry(9, 1, "t", 2, 2)}, ""},
      {"a sent one of the same number",
       {Entry(0, 3, "t", 1, 2), Entry(1, 1, "t", 1, 2), Entry(2, 3, "t", 2, 2),
        Entry(3, 0, "t", 2, 2)},
       shown("1,3", "<1><3>")},
      {"two of one number",
       {Entry(1, 1, "t", 1, 2), Entry(2, 1, "t", 2, 2), Entry(3, 1, "t", 1, 2),
        Entry(4, 1, "t", 2, 2)},
       shown("1,2", "<1><2>") + shown("3,4", "<3><4>")},
      {"the second's part is missing",
       {Entry(1, 1, "t", 1, 2), Entry(2, 1, "t", 2, 2), Entry(3, 1, "t", 1, 2)},
       shown("1,2", "<1><2>") + shown("3", "<3>")},
      {"indexes without a mark",
       {Entry(-5, 1, "t"), Entry(255, 1, "t")},
       shown("-5", "<-5>") + shown("255", "<255>")},
  };
  for (const auto &one : cases) EXPECT_EQ(Format(one.entries, 0), one.text) << one.what;
  const std::string times =
      Format({Entry(1, 1, "b"), Entry(2, 1, "c"), Entry(3, 1, "a"), Entry(4, 1, "b")}, 0);
  std::string order;
  for (size_t at = 0; (at = times.find('<', at)) != times.npos; ++at) order += times[at + 1];
  EXPECT_EQ(order, "2143") << "newest first";
  const std::vector<ShortMsgEntry> mixed = {Entry(1, 1, "t"), Entry(2, 2, "t"), Entry(3, 3, "t")};
  EXPECT_EQ(Format(mixed, 1), "3}-{3}-{10086}-{t}-{<3>}-{|,|");
  const std::vector<ShortMsgEntry> drafts = {Entry(0, 2, "t", 1, 2), Entry(1, 3, "t", 1, 2),
                                             Entry(2, 3, "t", 2, 2), Entry(3, 2, "t", 2, 2)};
  EXPECT_EQ(Format(drafts, 1), "1,2}-{3}-{10086}-{t}-{<1><2>}-{|,|") << "no part of a draft";
  EXPECT_EQ(Format(drafts, 2), "0,3}-{2}-{10086}-{t}-{<0><3>}-{|,|") << "no part that was sent";
  EXPECT_EQ(Format({Entry(0, 2, "t", 1, 2), Entry(1, 2, "t", 2, 2), Entry(2, 3, "t", 1, 2)}, 1),
            "2}-{3}-{10086}-{t}-{<2>}-{|,|")
      << "the draft has its own";
  const std::vector<ShortMsgEntry> torn = {Entry(0, 2, "t", 1, 2), Entry(1, 3, "t", 1, 2),
                                           Entry(2, 3, "t", 2, 2)};
  EXPECT_EQ(Format(torn, 1), "1,2}-{3}-{10086}-{t}-{<1><2>}-{|,|") << "a draft is torn, not this";
  EXPECT_EQ(Format(torn, 2), "0}-{2}-{10086}-{t}-{<0>}-{|,|") << "no tail of another message";
  EXPECT_EQ(Format(mixed, 2), "2}-{2}-{10086}-{t}-{<2>}-{|,|");
  const std::string one = shown("1", "<1>");
  EXPECT_EQ(Format(mixed, 9).size(), 3 * one.size());
  EXPECT_EQ(Format({Entry(1, 1, "t"), Entry(2, 1, "t")}, 0, 2 * one.size()), one) << "no half one";
}

TEST_F(ShortMsg, AFullListTellsWhatItLeavesOut) {
  std::vector<ShortMsgEntry> entries = {Entry(1, 1, "t"),       Entry(2, 0, "t"),
                                        Entry(3, 1, "t", 2, 3), Entry(4, 1, "t"),
                                        Entry(5, 1, "t", 1, 2), Entry(6, 1, "t", 2, 2)};
  ShortMsgMark marks[SHORTMSG_MARKS] = {};
  char text[40]; /* for one record */
  const std::string log = LogOf(
      3, [&] { ShortMsgFormatList(entries.data(), entries.size(), 0, marks, text, sizeof text); });
  EXPECT_STREQ(text, "1}-{1}-{10086}-{t}-{<1>}-{|,|");
  EXPECT_NE(log.find("ends before message 2"), log.npos) << log;
  EXPECT_EQ(log.find("ends before"), log.rfind("ends before")) << "once: " << log;
  EXPECT_EQ(Unlisted(log), Lines{"3"}) << "6 is a part of 5: " << log;
  EXPECT_TRUE(marks[2].unread) << "the modem calls it read from now on";
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
  EXPECT_EQ(TakeCommands(),
            Lines({kSimBook, kBook, kUcs2, AT("AT+CPBR=1,30\r"), kUcs2, AT("AT+CPBR=31,60\r")}));
  EXPECT_STREQ(text,
               "1}-{10086}-{129}-{00410042|,|33}-{+861}-{145}-{0043|,|"
               "PhoneNoIdx}-{PhoneNo}-{PhoneNoType}-{PhoneName|,|");
  free(text);
}

const std::pair<const char *, const char *> kUssd[] = {
    {"+CUSD: 1,\"1 Balance\r\n2 Data\",1\r\n", "1 Balance<br>2 Data"},
    {"+CUSD: 0,\"E8329BFD4697D9EC37\",15\r\n", "hellohello"},
    {"+CUSD: 0,\"4F60597D\",17\r\n", "\u4f60\u597d"},
    {"+CUSD: 0,\"00410042\",72\r\n", "AB"},
    {"+CUSD: 0,\"4142\",4\r\n", "AB"},
    {"+CUSD: 1,\"say \"yes\" now\",0\r\n", "say \"yes\" now"},
    {"+CUSD: 1,\"cut", ""},
    {"+CUSD: 0,\"41031B42\",4\r\n", "A\uFFFD\uFFFDB"},
};

int Ussd(int op, const char *value) {
  return RunOp(kCapabInfoFuncTable, "FuncServShortMsgUssdSend", op, SHORT_MSG ".USSD", value);
}

TEST_F(ShortMsg, UssdAnswersBecomeTheMenu) {
  const Lines lines = {"at-mngr 'AT+CSCS=\"GSM\"'",
                       "at-mngr 'AT+CUSD=1,\"*100#\",15' > /var/tmpValue1"};
  for (const auto &[answer, menu] : kUssd) {
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
  answers_ = {{"urc", "+CME ERROR: 257\r\n"}};
  EXPECT_EQ(Ussd(TMF_SET, "Command=*1#"), 0);
  EXPECT_EQ(ReadText("/var/tmpUssdRunResult"), "+CME ERROR: 257\r\n");
  answers_ = {{"urc", "+CUSD: 1,\"menu\",1\r\n"}};
  EXPECT_EQ(Ussd(TMF_SET, "Command=*1#"), 0);
  for (const auto &[seconds, menu] : {std::pair(30, "menu"), std::pair(31, "")}) {
    shortMsgUssdTime -= seconds;
    EXPECT_EQ(Ussd(TMF_GET, nullptr), 0);
    EXPECT_EQ(Leaf(SHORT_MSG ".USSD.Menu"), menu) << seconds << " seconds later";
  }
  EXPECT_FALSE(fs::exists("/var/tmpUssdSelectMenu"));
}

}  // namespace
