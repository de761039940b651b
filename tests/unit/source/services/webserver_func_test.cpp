// The web server's restart when its script cannot be written, and what is not followed on the way.
#include "webserver_func.h"

#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "support.h"

namespace {

const std::string kMark = "InternetGatewayDevice.DeviceInfo.X_KVO-RestartWeb";
const char kScript[] = "/tmp/.kvo_restart_uhttpd";

class WebServer : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    unlink(kScript);
  }
};

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
    const std::string log = LogOf(3, [] { WebServerRestart({kWebPortSlots, {8080, 8081}}); });
    LimitFiles(RLIM_INFINITY);
    remove(kScript);
    EXPECT_EQ(TakeCommands(), Lines{}) << one.what;
    EXPECT_EQ(Leaf(kMark), "0") << one.what;
    EXPECT_NE(log.find("cannot write /tmp/.kvo_restart_uhttpd"), log.npos) << log;
    EXPECT_NE(log.find("restart uhttpd \n"), log.npos) << one.what << ": " << log;
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
    WebServerRestart({1, {80}});
    EXPECT_EQ(TakeCommands(), Lines{"sh /tmp/.kvo_restart_uhttpd &"});
    EXPECT_EQ(FileText(kOther), "kept");
    struct stat info;
    ASSERT_EQ(lstat(kScript, &info), 0);
    EXPECT_EQ(info.st_mode, static_cast<mode_t>(S_IFREG | 0600));
  }
  unlink(kOther);
}

}  // namespace
