// The services module on its thread.
#include "services_func.h"

#include "capabinfo_thread.h"
#include "support.h"

namespace {

/* The whole way: request, op function, notification, timer. */
TEST_F(StoreTest, AChangeOfTheUserListAppliesSamba) {
  StartModules();
  char url[AMS_PATH_SIZE];
  ASSERT_EQ(ams_add_obj(gptXmlTrees->root, "InternetGatewayDevice.X_CT-COM_UserInfo.UserList", url),
            0);
  EXPECT_EQ(Request("sysmgr:capabinfo", APPT_CMD_SET, url, "Name=guest").result, 0);
  EXPECT_EQ(AwaitCommand("killall -q smbd"),
            (std::vector<std::string>{"/usr/syscfg/httpd.sh restart &", "killall -q nmbd",
                                      "killall -q smbd"}));
}

/* What each row runs then is in tests/data/ops. */
TEST_F(StoreTest, TheStartOfTheModuleIsLogged) {
  RecordRuntime();
  ExpectRecords("source/services_func", {"2 CapabInfo init success."},
                [] { RunMessage(kCapabInfoMsgTable, TDS_MSG_INIT); });
}

}  // namespace
