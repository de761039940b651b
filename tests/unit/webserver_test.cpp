// The web server's restart: the script, byte for byte, and what happens when it cannot be written.
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "support.h"
#include "webserver_func.h"

namespace {

using Lines = std::vector<std::string>;

const std::string kMark = "InternetGatewayDevice.DeviceInfo.X_KVO-RestartWeb";
const char kScript[] = "/tmp/.kvo_restart_uhttpd";
const char kRunScript[] = "sh /tmp/.kvo_restart_uhttpd &";

class WebServer : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    unlink(kScript);
  }
};

struct Outcome {
  Lines lines;
  std::string log; /* what went to standard error */
};

Outcome Restart(const WebPorts &web) {
  const std::string log = LogOf(3, [&] { WebServerRestart(web); });
  return {TakeCommands(), log};
}

bool Has(const std::string &text, const std::string &part) { return text.find(part) != text.npos; }

std::string FileText(const char *path) {
  std::ifstream file(path);
  std::stringstream text;
  text << file.rdbuf();
  return file ? text.str() : "(no file)";
}

struct RestartCase {
  const char *what;
  WebPorts web;
  const char *options, *checked;
};

const RestartCase kRestarts[] = {
    {"in order of the list", {3, {8080, 80, 8081}}, " -p :8080  -p :80  -p :8081 ", "8080"},
    {"one port: a shorter script", {1, {80}}, " -p :80 ", "80"},
    {"no port: the first slot is checked", {0, {80}}, "", "80"},
    {"no port at all", {0, {}}, "", "0"},
};

TEST_F(WebServer, RestartScript) {
  for (const RestartCase &one : kRestarts) {
    SetLeaf(kMark, "0");
    Outcome outcome = Restart(one.web);
    EXPECT_EQ(outcome.log, "restart uhttpd \n") << one.what;
    EXPECT_EQ(outcome.lines, Lines{kRunScript}) << one.what;
    EXPECT_EQ(Leaf(kMark), "1") << one.what;
    EXPECT_EQ(FileText(kScript),
              std::string("sleep 4 \n"
                          "cfgcmd sset InternetGatewayDevice.DeviceInfo.X_KVO-RestartWeb 0 \n"
                          "killall -9 uhttpd \n"
                          "killall -9 http-check.sh \n"
                          "uhttpd -n 10 -f -D -h /www -s :443 -K /etc/uhttpd.key.us -C "
                          "/etc/uhttpd.crt ") +
                  one.options + " 2>/dev/null 1>/dev/null & \n/usr/syscfg/http-check.sh " +
                  one.checked + " & \n")
        << one.what;
  }
}

/* The server goes on as it is, and nobody waits for a restart that does not come. */
TEST_F(WebServer, RestartScriptThatCannotBeWritten) {
  const struct {
    const char *what;
    int (*prepare)();
    const char *log;
  } cases[] = {
      {"cannot be created", [] { return mkdir(kScript, 0700); }, "cannot create"},
      {"no room", [] { return symlink("/dev/full", kScript); }, "cannot write"},
  };
  for (const auto &one : cases) {
    ASSERT_EQ(one.prepare(), 0) << one.what;
    Outcome outcome = Restart({1, {80}});
    EXPECT_EQ(remove(kScript), 0) << one.what;
    EXPECT_EQ(outcome.lines, Lines{}) << one.what;
    EXPECT_EQ(Leaf(kMark), "0") << one.what;
    EXPECT_TRUE(Has(outcome.log, one.log)) << one.what << ": " << outcome.log;
    EXPECT_TRUE(Has(outcome.log, "restart uhttpd \n")) << one.what << ": " << outcome.log;
  }
}

}  // namespace
