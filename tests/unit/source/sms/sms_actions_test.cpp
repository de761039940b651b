// The command lines of each action.
#include "sms_support.h"

namespace {

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
    EXPECT_EQ(ShortMsgAction(ShortMsgNumber(one.code), one.argument, one.content, ""), one.result)
        << one.what;
    EXPECT_EQ(msgResult, one.result) << one.what;
    EXPECT_EQ(TakeCommands(), one.lines) << one.what;
  }
}

}  // namespace
