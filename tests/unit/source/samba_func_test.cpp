// Samba's holes in the firewall that an earlier process left.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>

#include "capabinfo_thread.h"
#include "services/daemons_support.h"

namespace {

/* Where the apply closes holes, in order: the interfaces of the deleted rules. */
std::string Closed() {
  std::string interfaces;
  for (const std::string &line : TakeCommands())
    if (BeginsWith(line, "iptables -t filter -D INPUT -i "))
      if (line.find("--dport 139 ") != line.npos)
        interfaces += line.substr(31, line.find(" -p") - 30);
  return interfaces;
}

/* A process that runs knows nothing of the one before but what that left in a file. */
TEST_F(GatewayTest, SambaClosesWhatAnEarlierProcessOpened) {
  const std::string file = "/var/samba_holes", other = "/var/samba_other";
  auto write = [](const std::string &path, const std::string &text) {
    std::ofstream(path) << text;
  };
  const struct {
    const char *what;
    std::function<void()> leave;
    std::string closed;
  } cases[] = {
      {"its file", [&] { write(file, "ppp2"); }, "ppp2 ppp3 "},
      {"no file", [] {}, "ppp3 "},
      {"an empty one", [&] { write(file, ""); }, "ppp3 "},
      {"no name", [&] { write(file, "ppp2;reboot"); }, "ppp3 "},
      {"two lines", [&] { write(file, "ppp2\n"); }, "ppp3 "},
      {"too long", [&] { write(file, std::string(64, 'p')); }, "ppp3 "},
      {"a link",
       [&] {
         write(other, "ppp2");
         ASSERT_EQ(symlink(other.c_str(), file.c_str()), 0);
       },
       "ppp3 "},
      {"a pipe", [&] { ASSERT_EQ(mkfifo(file.c_str(), 0600), 0); }, "ppp3 "},
      {"a folder", [&] { ASSERT_EQ(mkdir(file.c_str(), 0700), 0); }, "ppp3 "},
  };
  SetLeaf("InternetGatewayDevice.ManagementServer.X_KVO_TR069WANIFNAME", "ppp3");
  for (const auto &one : cases) {
    remove(file.c_str());
    one.leave();
    for (const std::string &closed : {one.closed, std::string("ppp3 ")}) {
      RunMessage(kCapabInfoMsgTable, TDS_MSG_TIMER + CAPABINFO_TIMER_SAMBA);
      EXPECT_EQ(Closed(), closed) << one.what;
    }
  }
  remove(file.c_str());
  remove(other.c_str());
  write(file, "ppp2");
  AnswerSystem(-1, EAGAIN); /* the first rule stays */
  for (const char *closed : {"ppp2 ppp3 ", "ppp2 ppp3 ", "ppp3 "}) {
    RunMessage(kCapabInfoMsgTable, TDS_MSG_TIMER + CAPABINFO_TIMER_SAMBA);
    EXPECT_EQ(Closed(), closed);
  }
}

}  // namespace
