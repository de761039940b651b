// The list of short messages for the web page.
#include "sms_support.h"

namespace {

std::string Listed(int index, int stat, const std::string &pdu) {
  return "+CMGL: " + std::to_string(index) + "," + std::to_string(stat) + ",,20\r\n" + pdu + "\r\n";
}

/* From 27838890001, 99/03/29 15:16:59, "hellohello". */
constexpr char kHello[] =
    "07917283010010F5040BC87238880900F10000993092516195800AE8329BFD4697D9EC37";

std::string Hello(int index, int stat = SHORTMSG_READ) {
  return std::to_string(index) + "}-{" + std::to_string(stat) +
         "}-{27838890001}-{2099-03-29 15:16:59}-{hellohello}-{|,|";
}

std::string Hex(const std::string &bytes) {
  std::string hex;
  for (char byte : bytes)
    for (int digit : {byte >> 4 & 15, byte & 15}) hex += "0123456789ABCDEF"[digit];
  return hex;
}

/* What the modem lists for messages of 10086 in 8-bit data, each "INDEX STATUS SECOND", of a part
   with its number and their total. Only received ones have a time. */
std::string Listing(std::string list) {
  std::string answer;
  for (; !list.empty(); list.erase(0, list.find(';') + 1)) {
    int index, stat, second, part, total;
    bool is_part =
        sscanf(list.c_str(), "%d %d %d %d %d", &index, &stat, &second, &part, &total) > 3;
    std::string data = "(" + std::to_string(index) + ")";
    if (is_part)
      data.insert(0, {5, 0, 3, '\xCC', static_cast<char>(total), static_cast<char>(part)});
    const std::string first = stat > 1 ? (is_part ? "5100" : "1100") : is_part ? "44" : "04";
    const std::string time = stat > 1 ? "00" : "9930925161" + std::to_string(second) + "080";
    answer += Listed(
        index, stat,
        "00" + first + "05810180F60004" + time + Hex({static_cast<char>(data.size())}) + Hex(data));
  }
  return answer;
}

class Box : public ShortMsg {
  void SetUp() override {
    ShortMsg::SetUp();
    for (int index = 0; index < 10; ++index) ShortMsgForget(index);
  }

 protected:
  /* The inbox after this answer of the modem. */
  std::string Inbox(const std::string &answer) {
    answers_["sms_getmsg"] = answer;
    EXPECT_EQ(RunOp(kCapabInfoFuncTable, "FuncServShortMsg", TMF_GET, SHORT_MSG, "MsgInbox"), 0);
    EXPECT_FALSE(fs::exists("/var/atresult_msg")) << answer;
    return Leaf(SHORT_MSG ".MsgInbox");
  }

  /* The list of what the modem lists (see Listing), with blanks for the marks and of the time only
     the last digit. */
  std::string List(const std::string &entries, int filter, size_t size = 25600) {
    std::string text(size, 'x');
    answers_["sms_getmsg"] = Listing(entries) + "OK\r\n";
    EXPECT_EQ(SHORTMSG_SMS_Get(filter, text.data(), size), 0);
    text.resize(strlen(text.c_str()));
    for (const std::string piece : {"}-{", "2099-03-29 15:16:0"})
      for (size_t at; (at = text.find(piece)) != text.npos;)
        text.replace(at, piece.size(), piece[0] == '}' ? " " : "");
    return text;
  }
};

TEST_F(Box, UnreadStaysUnreadForTheUser) {
  answers_ = {{"CPMS", "+CPMS: 1,40,1,40,1,40\r\nOK\r\n"}};
  EXPECT_EQ(Inbox("AT+CMGL=4\r\n" + Listed(3, 0, kHello) + "\r\nOK\r\n"), Hello(3, 0));
  EXPECT_EQ(TakeCommands(), Lines({kSimStorage, "echo 1 > /var/tmp/runCPMSFlag", kReadCentre,
                                   "/usr/syscfg/sms_getmsg.sh 0 &"}));
  EXPECT_EQ(Inbox(Listed(3, 1, kHello) + Listed(4, 1, kHello) + "OK\r\n"), Hello(3, 0) + Hello(4));
  EXPECT_EQ(short_msg_counts.received, 2);
  EXPECT_EQ(Set("DelIdx=3"), 0);
  EXPECT_EQ(Inbox(Listed(3, 1, kHello) + "OK\r\n"), Hello(3)) << "another message";
}

TEST_F(Box, BrokenListsLoseOnlyWhatIsBroken) {
  OnDelay([] {}); /* nothing more comes */
  const std::string broken = "+CMGL: 1,1,,20\r\n" + Listed(2, 1, kHello) +
                             "+CMGL: 5,1,,20\r\n\r\n" + kHello + "\r\n+CMGL: 4,1,,20\r\nOK\r\n";
  EXPECT_EQ(Inbox(broken), Hello(2) + Hello(5));
  for (const char *answer : {"+CMS ERROR: 310\r\n", "garbage\n", ""})
    EXPECT_EQ(Inbox(answer), Hello(2) + Hello(5)) << "the last one stays: " << answer;
  EXPECT_EQ(msgResult, 310);
}

/* From 907: 7-bit text that begins with a yen sign, code 3; a sender whose name begins with code 1.
 */
TEST_F(Box, ControlCharactersAreReplaced) {
  const std::string time = "99309251619580", shown = "}-{2099-03-29 15:16:59}-{";
  EXPECT_EQ(Inbox(Listed(1, 1, "0004038109F70000" + time + "028320") +
                  Listed(3, 1, "0004049181A10000" + time + "0131") + "OK\r\n"),
            "1}-{1}-{907" + shown + "\uFFFDA}-{|,|3}-{1}-{\uFFFDC" + shown + "1}-{|,|");
}

TEST_F(Box, WhatCannotBeStoredIsRefused) {
  LoadModel(R"(<InternetGatewayDevice type="object"/>)");
  answers_ = {{"sms_getmsg", "OK\r\n"}};
  for (const char *leaf : {"MsgInbox", "MsgOutbox"})
    EXPECT_EQ(RunOp(kCapabInfoFuncTable, "FuncServShortMsg", TMF_GET, SHORT_MSG, leaf), -1);
  EXPECT_EQ(RunOp(kCapabInfoFuncTable, "FuncServShortMsgUssdSend", TMF_GET, SHORT_MSG ".USSD"), -1);
}

/* The file is there at once, and the modem's lines come while it is read. */
TEST_F(Box, AListThatGrowsIsReadUntilItsEnd) {
  const std::string list = Listed(3, 1, kHello) + Listed(4, 1, kHello) + "\r\nOK\r\n";
  for (size_t cut : {size_t{0}, size_t{10}, list.find(kHello) + 40, list.size() - 3}) {
    int waits = 0;
    OnDelay([&] { /* the reader has seen the end of what is there */
                  if (++waits == 5)
                    std::ofstream("/var/atresult_msg", std::ios::app) << list.substr(cut);
    });
    SetLeaf(SHORT_MSG ".MsgInbox", "");
    EXPECT_EQ(Inbox(list.substr(0, cut)), Hello(3) + Hello(4)) << cut;
    EXPECT_EQ(waits, 5) << cut;
  }
}

/* What a log says is not listed. */
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
TEST_F(Box, WhatIsNotListedIsLoggedOnce) {
  const std::string from = "038109F7000099309251619580";
  const std::string list = Listed(3, 1, "0044" + from + "12050003CC0302E6E5F1DB4D06C1C3723A") +
                           Listed(4, 1, "0044" + from + "140B05040B8423F00003550201C0DF727A990C") +
                           Listed(5, 1, "0084" + from + "0961F1985C369FD169") +
                           Listed(6, 1, kHello) + "OK\r\n";
  auto lines = [&] { return Unlisted(LogOf(3, [&] { Inbox(list); })); };
  EXPECT_EQ(lines(), Lines({"3", "4", "5"}));
  EXPECT_EQ(lines(), Lines{});
  EXPECT_EQ(Set("DelIdx=4"), 0);
  EXPECT_EQ(lines(), Lines{"4"}) << "another one";
}

TEST_F(Box, CellLockIsCarriedOutAndNotListed) {
  /* "1036" from 907, the provider, and from 908. */
  const std::string text = "0000993092516195800431D8CC06";
  const std::string list =
      Listed(5, 0, "0004038109F7" + text) + Listed(6, 0, "0004038109F8" + text) + "OK\r\n";
  EXPECT_EQ(Inbox(list).find("5}-{0}-{907}-{"), 0U);
  SetLeaf("InternetGatewayDevice.WANDevice.3.WANDongleInterfaceConfig.X_KVO-CellLock", "1");
  TakeCommands();
  EXPECT_EQ(Inbox(list).find("6}-{0}-{908}-{"), 0U);
  EXPECT_EQ(TakeCommands(), Lines({kSimStorage, kReadCentre, "/usr/syscfg/sms_getmsg.sh 0 &",
                                   "at-mngr AT+QCELLLOCK=0 > /dev/null",
                                   "at-mngr AT+QCELLLOCK=1 > /dev/null", AT("AT+CMGD=5\r")}));
}

TEST_F(Box, FormatsLists) {
  /* Two messages of two parts, one of them sent, and two drafts. */
  const std::string mixed = "0 3 0 1 2;1 1 1 1 2;2 3 0 2 2;3 0 1 2 2;4 2 0 1 2;5 2 0;";
  const std::string sent = "0,2 3 10086   (0)(2) |,|", received = "1,3 1 10086 1 (1)(3) |,|";
  const std::string drafts = "4 2 10086   (4) |,|5 2 10086   (5) |,|";
  const struct {
    const char *what;
    std::string entries;
    int filter;
    std::string list;
  } cases[] = {
      {"parts in their order", "9 1 1 2 3;7 1 1 1 3;8 1 1 3 3;", 0,
       "7,9,8 1 10086 1 (7)(9)(8) |,|"},
      {"one is missing", "7 1 1 1 3;8 1 1 3 3;", 0, "7,8 1 10086 1 (7)(8) |,|"},
      {"the first is missing", "9 1 1 2 2;", 0, ""},
      {"two of one number", "1 1 1 1 2;2 1 1 2 2;3 1 1 1 2;", 0,
       "1,2 1 10086 1 (1)(2) |,|3 1 10086 1 (3) |,|"},
      {"no mark for these", "-5 1 1;255 0 1;", 0, "-5 1 10086 1 (-5) |,|255 0 10086 1 (255) |,|"},
      {"newest first", "1 1 2;2 1 3;4 1 2;", 0,
       "2 1 10086 3 (2) |,|1 1 10086 2 (1) |,|4 1 10086 2 (4) |,|"},
      {"received", mixed, 0, received},
      {"sent", mixed, 1, sent},
      {"drafts, no tail of another message", mixed, 2, drafts},
      {"all", mixed, 9, received + sent + drafts},
  };
  for (const auto &one : cases) EXPECT_EQ(List(one.entries, one.filter), one.list) << one.what;
  const size_t record = strlen("1}-{1}-{10086}-{2099-03-29 15:16:01}-{(1)}-{|,|");
  for (size_t size : {2 * record, 2 * record + 1})
    EXPECT_EQ(List("1 1 1;2 1 1;", 0, size).find("|,|2 ") != std::string::npos, size > 2 * record);
}

TEST_F(Box, AFullListTellsWhatItLeavesOut) {
  const std::string log = LogOf(
      3, [&] { List("1 1 1;2 0 1;3 1 1 2 3;4 1 1;5 1 1 1 2;6 1 1 2 2;", 0, 60 /* one record */); });
  EXPECT_NE(log.find("ends before message 2"), log.npos) << log;
  EXPECT_EQ(log.find("ends before"), log.rfind("ends before")) << "once: " << log;
  EXPECT_EQ(Unlisted(log), Lines{"3"}) << "6 is a part of 5: " << log;
  EXPECT_EQ(List("2 1 1;", 0), "2 0 10086 1 (2) |,|") << "the modem calls it read from now on";
}

TEST_F(Box, MoreMessagesThanTheListHolds) {
  std::string list;
  for (int index = 0; index < 130; ++index) list += Listed(index, 1, kHello);
  list += "+CMGL: 7,\"x\",,\r\n00\r\nOK\r\n";
  const std::string log = LogOf(3, [&] { Inbox(list); });
  EXPECT_EQ(Unlisted(log), Lines({"128", "129"}));
  EXPECT_NE(log.find("passed over, it cannot be read: +CMGL: 7,"), log.npos) << log;
}

}  // namespace
