// The phonebook's list.
#include "sms_support.h"

namespace {

TEST_F(ShortMsg, PhonebookList) {
  const std::string number(62, '1'), name(124, '0');
  auto line = [](const std::string &who, const std::string &what) {
    return "+CPBR: 33,\"" + who + "\",145,\"" + what + "\"\r\n";
  };
  answers_ = {{"CPBS?", "+CPBS: \"SM\",3,40\r\nOK\r\n"},
              {"CPBR=1,30", "+CPBR: 1,\"10086\",129,\"00410042\"\r\nOK\r\n"},
              {"CPBR=31,60", line("+861", "0043") + "+CPBR: broken\r\n" + line(number + "1", "") +
                                 line("2", name + "00") + "OK\r\n"}};
  char *text = nullptr;
  size_t size = 0;
  FILE *out = open_memstream(&text, &size);
  EXPECT_EQ(ShortMsgPhonebookList(out), 0);
  EXPECT_EQ(ShortMsgPhonebookList(out), 0);
  EXPECT_EQ(msgResult, SHORTMSG_NOTHING) << "so soon";
  fclose(out);
  Lines lines = TakeCommands();
  lines.resize(6); /* of the first */
  EXPECT_EQ(lines,
            Lines({kSimBook, kBook, kUcs2, AT("AT+CPBR=1,30\r"), kUcs2, AT("AT+CPBR=31,60\r")}));
  const std::string once = "1}-{10086}-{129}-{00410042|,|33}-{+861}-{145}-{0043|,|33}-{2}-{145}-{" +
                           name + "00|,|PhoneNoIdx}-{PhoneNo}-{PhoneNoType}-{PhoneName|,|";
  EXPECT_EQ(text, once + once) << "a number of 64 bytes with its quotes is passed over";
  free(text);
}

TEST_F(ShortMsg, AnEmptyPhonebook) {
  answers_ = {{"CPBS?", "+CPBS: \"SM\",0,40\r\nOK\r\n"}};
  char text[128];
  FILE *out = fmemopen(text, sizeof text, "w");
  EXPECT_EQ(ShortMsgPhonebookList(out), 0);
  fclose(out);
  EXPECT_STREQ(text, "not foundPhoneNoIdx}-{PhoneNo}-{PhoneNoType}-{PhoneName|,|");
}

}  // namespace
