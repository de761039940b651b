// The device-info module: values that the machine gives.
#include "devinfo_func.h"

#include <sys/sysinfo.h>

#include "devinfo_thread.h"
#include "nvram.h"
#include "support.h"

namespace {

const std::string kInfo = "InternetGatewayDevice.DeviceInfo.";

class DevInfo : public StoreTest {};

TEST_F(DevInfo, MacAddressComesFromTheBasicSettings) {
  ASSERT_EQ(nvram_unset("MAC", NVTYPE_BASIC), 0);
  SetLeaf(kInfo + "MacAddress", "before");
  EXPECT_EQ(RunOp(kDevInfoFuncTable, "FuncDeviceInfo", TMF_INIT), 0);
  EXPECT_EQ(Leaf(kInfo + "MacAddress"), "before");
  ASSERT_EQ(nvram_set("MAC", "02:00:00:00:00:01", NVTYPE_BASIC), 0);
  EXPECT_EQ(RunOp(kDevInfoFuncTable, "FuncDeviceInfo", TMF_SET), 0);
  EXPECT_EQ(Leaf(kInfo + "MacAddress"), "before") << "only the start refreshes it";
  EXPECT_EQ(RunOp(kDevInfoFuncTable, "FuncDeviceInfo", TMF_INIT), 0);
  EXPECT_EQ(Leaf(kInfo + "MacAddress"), "02:00:00:00:00:01");
}

/* The timer comes first, so that it goes on whatever the store says. */
TEST_F(DevInfo, UpTimeIsRefreshedAgainAndAgain) {
  struct sysinfo before, after;
  RecordRuntime();
  ASSERT_EQ(sysinfo(&before), 0);
  SetLeaf(kInfo + "UpTime", "unset");
  RunMessage(kDevInfoMsgTable, TDS_MSG_TIMER + DEVINFO_TIMER_UPTIME);
  const long up_time = atol(Leaf(kInfo + "UpTime").c_str());
  ASSERT_EQ(sysinfo(&after), 0);
  EXPECT_GE(up_time, before.uptime);
  EXPECT_LE(up_time, after.uptime);
  LoadModel("<InternetGatewayDevice type=\"object\"><A type=\"int\"/></InternetGatewayDevice>");
  RunMessage(kDevInfoMsgTable, TDS_MSG_TIMER + DEVINFO_TIMER_UPTIME);
  EXPECT_EQ(TakeCommands(), std::vector<std::string>(2, "SetTimer(1, 1000)"));
}

}  // namespace
