// The voice service: one start a process, and the parent of a path.
#include "services_func.h"
#include "support.h"

namespace {

class Voip : public StoreTest {
  std::string DataModel() const override { return FileText("/etc/tr098_data_model.xml"); }
};

TEST_F(Voip, OneStartAProcess) {
  EXPECT_EQ(RunOp(kCapabInfoFuncTable, "FuncServVoipServ", TMF_INIT), 0);
  (void)TakeCommands(); /* other tests may have been first */
  const std::string plan = "InternetGatewayDevice.Services.VoiceService.1.VoiceProfile.1.DigitMap";
  SetLeaf(plan, "");
  for (const char *name : {"FuncServVoipServ", "FuncServVoipCF"})
    EXPECT_EQ(RunOp(kCapabInfoFuncTable, name, TMF_INIT), 0) << name;
  EXPECT_EQ(TakeCommands(), std::vector<std::string>{});
  EXPECT_EQ(Leaf(plan), "");
}

TEST(ParentNode, IsThePathBeforeTheLastName) {
  const std::pair<const char *, const char *> cases[] = {
      {"A.B.2", "A.B"}, {"A.B.", "A"}, {"A", ""}, {"A.", ""}, {".", ""}, {"", ""}, {nullptr, ""},
  };
  for (const auto &[path, parent] : cases) {
    char got[8] = "x";
    EXPECT_EQ(COMMON_GetParentNode(path, got), *parent == '\0' ? -1 : 0);
    EXPECT_STREQ(got, parent) << (path == nullptr ? "(null)" : path);
  }
  char small[4];
  EXPECT_EQ(COMMON_GetParentNode("A.B.2", small), 0);
  EXPECT_EQ(COMMON_GetParentNode("A.BC.2", small), -1);
  EXPECT_STREQ(small, "");
}

}  // namespace
