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
    std::function<void()> prepare;
  } cases[] = {
      {"cannot be created", [] { ASSERT_EQ(mkdir(kScript, 0700), 0); }},
      {"no room", [] { LimitFiles(256); }}, /* the log needs less, the script more */
  };
  for (const auto &one : cases) {
    one.prepare();
    Outcome outcome = Restart({WEB_PORT_SLOTS, {8080, 8081}});
    LimitFiles(RLIM_INFINITY);
    remove(kScript);
    EXPECT_EQ(outcome.lines, Lines{}) << one.what;
    EXPECT_EQ(Leaf(kMark), "0") << one.what;
    EXPECT_TRUE(Has(outcome.log, "cannot write /tmp/.kvo_restart_uhttpd")) << outcome.log;
    EXPECT_TRUE(Has(outcome.log, "restart uhttpd \n")) << one.what << ": " << outcome.log;
  }
}

/* Anybody may write to /tmp: what was left there under the name is neither followed nor used. */
TEST_F(WebServer, RestartScriptIsAFileOfItsOwn) {
  const char kOther[] = "/tmp/other";
  for (int (*plant)(const char *, const char *) : {symlink, link}) {
    std::ofstream(kOther) << "kept";
    ASSERT_EQ(chmod(kOther, 0666), 0);
    unlink(kScript);
    ASSERT_EQ(plant(kOther, kScript), 0);
    EXPECT_EQ(Restart({1, {80}}).lines, Lines{kRunScript});
    EXPECT_EQ(FileText(kOther), "kept");
    struct stat info;
    ASSERT_EQ(lstat(kScript, &info), 0);
    EXPECT_EQ(info.st_mode, static_cast<mode_t>(S_IFREG | 0600));
  }
  unlink(kOther);
}

}  // namespace
