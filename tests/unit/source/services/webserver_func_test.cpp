// The web server's restart does not follow what others left. Its other cases are in
// tests/data/ops/daemons.txt.
#include "webserver_func.h"

#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "support.h"

namespace {

const char kScript[] = "/tmp/.kvo_restart_uhttpd";

/* Anybody may write to /tmp: what was left there under the name is neither followed nor used. */
TEST_F(StoreTest, RestartScriptIsAFileOfItsOwn) {
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
  unlink(kScript);
}

}  // namespace
