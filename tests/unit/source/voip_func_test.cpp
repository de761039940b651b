// The voice service: one start a process.
#include "services_func.h"
#include "support.h"

namespace {

TEST_F(GatewayTest, OneStartAProcess) {
  EXPECT_EQ(RunOp(kCapabInfoFuncTable, "FuncServVoipServ", TMF_INIT), 0);
  (void)TakeCommands(); /* other tests may have been first */
  const std::string plan = "InternetGatewayDevice.Services.VoiceService.1.VoiceProfile.1.DigitMap";
  SetLeaf(plan, "");
  for (const char *name : {"FuncServVoipServ", "FuncServVoipCF"})
    EXPECT_EQ(RunOp(kCapabInfoFuncTable, name, TMF_INIT), 0) << name;
  EXPECT_EQ(TakeCommands(), std::vector<std::string>{});
  EXPECT_EQ(Leaf(plan), "");
}

}  // namespace
