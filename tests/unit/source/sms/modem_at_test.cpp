// What becomes of the modem's answers.
#include "sms_support.h"

namespace {

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

}  // namespace
