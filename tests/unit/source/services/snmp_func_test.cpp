// SNMP's configuration when it cannot be written.
#include <sys/stat.h>

#include <fstream>

#include "daemons_support.h"
#include "services_func.h"

namespace {

/* The status of the lines cannot be seen, so the file tells: it is tried before the agent is
   killed, and looked at before the next one starts. */
TEST_F(GatewayTest, SnmpDoesNotStartOnHalfAFile) {
  const std::string text = kSnmpText, first = text.substr(0, text.find('\n') + 1);
  auto nothing = [] {};
  const struct {
    const char *what;
    std::function<void()> prepare;
    std::string left; /* by each line; "": no file */
    const char *last; /* what the last line begins with; "": there is none */
    std::string log;
  } cases[] = {
      {"a folder is in the way", [] { ASSERT_EQ(mkdir(kSnmpConfig, 0700), 0); }, "", "",
       "remove what"},
      {"no room", [] { LimitFiles(1024); }, "", "", "make room"},
      {"no file", nothing, "", "echo", "not whole"},
      {"half a line", nothing, text.substr(0, text.size() - 1), "echo", "not whole"},
      {"a line is missing", nothing, text.substr(first.size()), "echo", "not whole"},
      {"whole", nothing, text, "/usr/sbin/snmpd", ""},
  };
  SetLeaf(kServices + "ServiceSNMP.Enable", "1");
  for (const auto &one : cases) {
    remove(kSnmpConfig);
    one.prepare();
    OnSystem([&](const std::string &) {
      if (!one.left.empty()) std::ofstream(kSnmpConfig) << one.left;
    });
    const std::string log = LogOf(4, [&] {
      EXPECT_EQ(RunOp(kCapabInfoFuncTable, "FuncServSNMP", TMF_SET), one.log.empty() ? 0 : -1)
          << one.what;
    });
    LimitFiles(RLIM_INFINITY);
    const Lines lines = TakeCommands();
    EXPECT_TRUE(BeginsWith(lines.empty() ? "" : lines.back(), one.last)) << one.what;
    EXPECT_NE(log.find(one.log), log.npos) << one.what << ": " << log;
  }
  remove(kSnmpConfig);
}

}  // namespace
