// Which modem it is, and the two ways to it.
#include "modem_route.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "sms_send.h"
#include "support.h"

namespace {

namespace fs = std::filesystem;

void WriteText(const std::string &path, const std::string &text) { std::ofstream(path) << text; }

/* A modem that answers each query with "OK". */
class ModemRoute : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    for (const char *file : {"/var/atcmd_lock", "/var/atresult_1", "/var/nanocom"})
      fs::remove(file);
    fs::create_directories("/var/tmp");
    WriteText("/var/tmp/devinfo", "2c7c 0125\n");
    OnSystem([](const std::string &line) {
      if (line.find(" > /var/atTmpResult") != line.npos) WriteText("/var/atTmpResult", "OK\r\n");
    });
  }
};

std::string TtyOf(const std::string &devinfo) {
  char path[128] = "";
  WriteText("/var/tmp/devinfo", devinfo);
  ModemDevicePath(path);
  return path;
}

TEST_F(ModemRoute, ModemByItsIds) {
  std::ifstream stream(TEST_DATA "/modems.txt");
  std::string vendor, product, tty;
  int modems = 0;
  std::getline(stream, tty); /* what the file is */
  for (; stream >> vendor >> product >> tty; ++modems) {
    EXPECT_EQ(TtyOf(vendor + " " + product + "\n"), tty) << vendor << product;
    EXPECT_EQ(TtyOf("0x" + vendor + "\t0x" + product), tty) << vendor << product;
    EXPECT_EQ(TtyOf(product + " " + vendor), "") << vendor << product;
  }
  EXPECT_GE(modems, 33);
  for (const char *devinfo : {"2c7c\n", "0 0\n", "2c7c 0126\n", "", "\n2c7c 0125\n"})
    EXPECT_EQ(TtyOf(devinfo), "") << devinfo;
}

TEST_F(ModemRoute, RoutesAreBounded) {
  char text[64] = "";
  EXPECT_EQ(SHORTMSG_read_file_value(nullptr, text, sizeof text), -1);
  EXPECT_EQ(SHORTMSG_DoCommand(nullptr, 0), -1);
  WriteText("/var/atresult_1", std::string(200, 'x'));
  EXPECT_EQ(SHORTMSG_GetCommandResult(text, sizeof text), 63);
  fs::remove("/var/atresult_1");
  EXPECT_EQ(SHORTMSG_GetCommandResult(text, sizeof text), -1) << "none comes";
  testing::internal::CaptureStdout();
  const std::string longer(1003, 'x'), told = "script name too long or zero:";
  EXPECT_EQ(RunShellCapture(longer.c_str(), text, 7), -1);
  EXPECT_EQ(RunShellCapture(nullptr, text, 7), -1);
  EXPECT_EQ(RunShellCapture("ls", text, 0), -1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            told + longer + "\n" + told + "NULL\ncan not read\n");
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
  ExpectRecords("source/sms/modem_route",
                {"4 modem command of 1121 bytes not run, 1023 fit: send less\n"},
                [] { AtMngrCommand(std::string(1100, 'a').c_str(), nullptr, 0); });
  ExpectRecords("source/sms/sms_send",
                {"4 message of 36976 bytes takes more than 255 parts: send less\n"},
                [] { SHORTMSG_SendMessage("1", std::string(36976, 'a').c_str(), ""); });
}

/* Who has the lock gives it back once it is told that somebody waits. */
TEST_F(ModemRoute, TheLockIsWaitedFor) {
  int ends[2];
  std::string told;
  WriteText("/var/atcmd_lock", "");
  ASSERT_EQ(pipe(ends), 0);
  fflush(stdout);
  const int before = dup(STDOUT_FILENO);
  dup2(ends[1], STDOUT_FILENO);
  close(ends[1]);
  std::thread holder([&] {
    char text[4096];
    for (ssize_t length; (length = read(ends[0], text, sizeof text)) > 0;) {
      told.append(text, static_cast<size_t>(length));
      fs::remove("/var/atcmd_lock");
    }
  });
  EXPECT_EQ(SHORTMSG_DoCommand("AT", 2), 0);
  fflush(stdout);
  dup2(before, STDOUT_FILENO);
  close(before);
  holder.join();
  close(ends[0]);
  EXPECT_EQ(told.find("shortmsg card is lockd\n"), 0U) << told;
}

}  // namespace
