// The voice service: its start, the voice path, new lines, statistics, tests and actions.
#include <unistd.h>

#include <chrono>
#include <fstream>

#include "capabinfo_thread.h"
#include "services_func.h"
#include "support.h"
#include "voip_func.h"

namespace {

using Lines = std::vector<std::string>;

#define VOICE   "InternetGatewayDevice.Services.VoiceService."
#define IS_VOIP VOICE "X_KVO_Is_Voip."
#define PROFILE VOICE "1.VoiceProfile."

const std::string kLte = IS_VOIP "X_KVO_has_lte", kSelect = IS_VOIP "X_KVO_Voip_select",
                  kEnable = IS_VOIP "X_KVO_Voip_Enable", kMap = PROFILE "1.DigitMap",
                  kLine = PROFILE "1.Line.1";
const char kChanged[] = "/usr/sbin/voipcmd vc";
const char kBare[] =
    "<InternetGatewayDevice type=\"object\"><A type=\"string\"/></InternetGatewayDevice>";

const char kVoiceService[] = R"(
    <VoiceService type="array" op="FuncServVoipServ">
      <Template><VoiceProfile type="array" op="FuncServVoiceProfile">
        <Template>
          <DigitMap type="string"/>
          <X_KVO-ACTION type="array"><Template><Register type="boolean"/></Template></X_KVO-ACTION>
          <Line type="array" op="FuncServVoipLines"><Template>
            <Enable type="string">Disabled</Enable>
            <PhyReferenceList type="string"/>
            <Codec type="object"><List type="array" op="FuncServVoipCodecList"><Template>
              <Codec type="string"/><Priority type="unsignedInt"/>
            </Template></List></Codec>
          </Template></Line>
        </Template>
        <Instance id="1"/>
      </VoiceProfile></Template>
      <Instance id="1"/>
      <X_KVO_Is_Voip type="object" op="FuncServVoipServ">
        <X_KVO_has_lte type="unsignedInt"/>
        <X_KVO_Voip_select type="unsignedInt"/>
        <X_KVO_Voip_Enable type="boolean"/>
      </X_KVO_Is_Voip>
    </VoiceService>)";

class Voip : public StoreTest {
 protected:
  std::string DataModel() const override {
    std::string model = StoreTest::DataModel();
    return model.insert(model.find("</Services>"), kVoiceService);
  }
};

int Call(const char *name, int op, const std::string &path = "", const char *value = nullptr) {
  return RunOp(kCapabInfoFuncTable, name, op, path, value);
}

std::string Add(const std::string &array) {
  char url[AMS_PATH_SIZE] = "";
  EXPECT_EQ(ams_add_obj(gptXmlTrees->root, array.c_str(), url), 0) << array;
  return url;
}

std::string Numbers(const std::string &array) {
  char list[64] = "";
  EXPECT_EQ(ams_get_idxes(gptXmlTrees->root, array.c_str(), list), 0) << array;
  return list;
}

/* ---- start ---- */

/* A folder with the files of the voice stack but for one. */
class Stack {
 public:
  explicit Stack(const std::string &missing) : folder_(testing::TempDir() + "voip_test_XXXXXX") {
    EXPECT_NE(mkdtemp(folder_.data()), nullptr);
    for (const char *name : kFiles)
      if (name != missing) std::ofstream(folder_ + "/" + name) << "x";
  }
  ~Stack() {
    for (const char *name : kFiles) (void)unlink((folder_ + "/" + name).c_str()); /* one may lack */
    (void)rmdir(folder_.c_str()); /* a file that stays is seen in /tmp */
  }
  /* What a start logs and runs is the caller's to take. */
  void Start() const { VoipStart(folder_.c_str(), (folder_ + "/kvophone").c_str()); }

 private:
  static constexpr const char *kFiles[] = {"hi_khw.ko", "hi_kvoip.ko", "hi_kspi.ko", "hi_kslic.ko",
                                           "kvophone"};
  std::string folder_;
};

const char kLow[] = "/usr/syscfg/led.sh voip_select low\n";
const char kHigh[] = "/usr/syscfg/led.sh voip_select high\n";
const char kFirst[] = "\"[2-8]xxxxxxx|", kLast[] = "|x[0-9*].T\"";

struct StartCase {
  const char *what, *lte, *select, *enable, *missing, *map;
  std::string lines;
  bool fills; /* the default dial plan is stored */
  const char *logs;
};

const StartCase kStarts[] = {
    {"a stack that is whole", "0", "1", "1", "", "", "", true, "voip init complete OK!"},
    {"a plan stays", "0", "1", "1", "", "x.T", "", false, "voip init complete OK!"},
    {"voice off", "0", "1", "0", "", "", "", false, ""},
    {"voice off, with a modem", "1", "1", "0", "", "", kLow, false, ""},
    {"selection 2", "1", "2", "1", "", "", kLow, true, "use the default digital map!"},
    {"selection 3", "2", "3", "1", "", "", kHigh, true, ""},
    {"selection 0", "1", "0", "1", "", "", kHigh, true, ""},
    {"first module", "0", "1", "1", "hi_khw.ko", "", "", false, "/hi_khw.ko file is non existent)"},
    {"second", "0", "1", "1", "hi_kvoip.ko", "", "", false, "/hi_kvoip.ko file is non existent)"},
    {"third", "0", "1", "1", "hi_kspi.ko", "", "", false, "/hi_kspi.ko file is non existent)"},
    {"last", "0", "1", "1", "hi_kslic.ko", "", "", false, "/hi_kslic.ko file is non existent)"},
    {"program", "1", "1", "1", "kvophone", "", kLow, false, "voip init complete failed(cause:"},
};

TEST_F(Voip, TheStartLooksForTheStackAndFillsTheDialPlan) {
  for (const StartCase &one : kStarts) {
    SetLeaf(kLte, one.lte);
    SetLeaf(kSelect, one.select);
    SetLeaf(kEnable, one.enable);
    SetLeaf(kMap, one.map);
    testing::internal::CaptureStderr();
    Stack(one.missing).Start();
    std::string log = testing::internal::GetCapturedStderr();
    std::string lines;
    for (const std::string &line : TakeCommands()) lines += line + "\n";
    EXPECT_EQ(lines, one.lines) << one.what;
    EXPECT_NE(log.find(one.logs), log.npos) << one.what << ": " << log;
    EXPECT_EQ(log.find("complete OK!") != log.npos, *one.enable == '1' && *one.missing == '\0')
        << one.what;
    std::string map = Leaf(kMap);
    EXPECT_EQ(map.size(), one.fills ? 423U : strlen(one.map)) << one.what << ": " << map;
    if (!one.fills) continue;
    EXPECT_EQ(map.compare(0, strlen(kFirst), kFirst), 0) << map;
    EXPECT_EQ(map.substr(map.size() - strlen(kLast)), kLast);
  }
}

TEST_F(Voip, OneStartAProcess) {
  EXPECT_EQ(Call("FuncServVoipServ", TMF_INIT), 0);
  (void)TakeCommands(); /* other tests may have been first */
  SetLeaf(kLte, "1");
  SetLeaf(kEnable, "1");
  for (const char *name : {"FuncServVoipServ", "FuncServVoipCF"})
    EXPECT_EQ(Call(name, TMF_INIT), 0) << name;
  EXPECT_EQ(TakeCommands(), Lines{});
  EXPECT_EQ(Leaf(kMap), "");
}

/* ---- voice path ---- */

/* V back to IP, R still IP, S modem's script; 3 and 0 the modem's voice. */
Lines PathLines(const std::string &code) {
  Lines lines;
  for (char letter : code) {
    if (letter == 'V') lines.push_back("/usr/syscfg/lte.sh voip&");
    if (letter == 'R') lines.push_back("/usr/syscfg/lte.sh isvoiprun&");
    if (letter == 'R') lines.push_back(kChanged);
    if (letter == 'S') lines.push_back("/usr/syscfg/lte.sh start&");
    if (letter == '3') lines.push_back("at-mngr AT+CVMOD=3");
    if (letter == '0') lines.push_back("at-mngr AT+CVMOD=0");
  }
  return lines;
}

struct PathCase {
  const char *select, *line;
  const char *codes[6]; /* by the previous selection, 0 to 5 */
};

const PathCase kPaths[] = {
    {"0", "Enabled", {"S0", "S0", "S0", "S0", "S0", "S0"}},
    {"0", "Disabled", {"S0", "S0", "S0", "S0", "S0", "S0"}},
    {"1", "Enabled", {"R3", "R3", "R3", "V3", "V3", "R3"}},
    {"1", "Disabled", {"S3", "S3", "S3", "S3", "S3", "S3"}},
    {"2", "Enabled", {"R", "R", "R", "V", "V", "R"}},
    {"2", "Disabled", {"S", "S", "S", "S", "S", "S"}},
    {"2", "Quiescent", {"S", "S", "S", "S", "S", "S"}},
    {"3", "Enabled", {"S3", "S3", "S3", "S3", "S3", "S3"}},
    {"3", "Disabled", {"S3", "S3", "S3", "S3", "S3", "S3"}},
    {"4", "Enabled", {"S0", "S0", "S0", "S0", "S0", "S0"}},
    {"4", "Disabled", {"S0", "S0", "S0", "S0", "S0", "S0"}},
    {"-1", "Enabled", {"S0", "S0", "S0", "S0", "S0", "S0"}},
};

/* The state after a start of a gateway. */
void StartWith(const char *lte, const std::string &select) {
  SetLeaf(kLte, lte);
  SetLeaf(kSelect, select);
  VoipStart("/none", "/none");
  (void)TakeCommands(); /* the LED's, tested above */
}

TEST_F(Voip, TheVoicePathFollowsTheSelection) {
  ASSERT_EQ(Add(PROFILE "1.Line"), kLine);
  for (const char *lte : {"0", "1"})
    for (const PathCase &one : kPaths)
      for (int previous = 0; previous < 6; ++previous) {
        StartWith(lte, std::to_string(previous));
        SetLeaf(kSelect, one.select);
        SetLeaf(kLine + ".Enable", one.line);
        EXPECT_EQ(Call("FuncServVoipServ", TMF_SET), 0);
        EXPECT_EQ(TakeCommands(), *lte == '0' ? Lines{kChanged} : PathLines(one.codes[previous]))
            << "lte " << lte << ", " << previous << " to " << one.select << ", line " << one.line;
      }
}

TEST_F(Voip, EachSetIsThePreviousOfTheNext) {
  StartWith("1", "1");
  ASSERT_EQ(Add(PROFILE "1.Line"), kLine);
  SetLeaf(kLine + ".Enable", "Enabled");
  SetLeaf(kLte, "0"); /* read at the start alone */
  const std::pair<const char *, const char *> sets[] = {{"3", "S3"}, {"1", "V3"}, {"1", "R3"}};
  for (const auto &[select, code] : sets) {
    SetLeaf(kSelect, select);
    EXPECT_EQ(Call("FuncServVoipServ", TMF_SET), 0);
    EXPECT_EQ(TakeCommands(), PathLines(code)) << select;
  }
  LoadModel(kBare); /* without the parameter the selection is 1 */
  EXPECT_EQ(Call("FuncServVoipServ", TMF_SET), 0);
  EXPECT_EQ(TakeCommands(), PathLines("S3"));
}

/* ---- objects that come and go ---- */

TEST_F(Voip, ANewLineGetsItsPortAndItsCodecs) {
  for (const char *port : {"1", "0", ""}) {
    std::string line = Add(PROFILE "1.Line");
    EXPECT_EQ(Call("FuncServVoipLines", TMF_ADD, line), 0);
    EXPECT_EQ(TakeCommands(), Lines{kChanged}) << line;
    EXPECT_EQ(Leaf(line + ".PhyReferenceList"), port) << line;
    EXPECT_EQ(Numbers(line + ".Codec.List"), "1,2,3,4") << line;
    std::string codecs;
    for (int row = 1; row <= 4; ++row)
      for (const char *leaf : {"Codec", "Priority"})
        codecs += Leaf(line + ".Codec.List." + std::to_string(row) + "." + leaf) + " ";
    EXPECT_EQ(codecs, "G711U 3 G711A 1 G729 4 G722 2 ") << line;
  }
}

TEST_F(Voip, ANewProfileGetsAnActionAndWhatIsBelowItNothing) {
  std::string profile = Add(PROFILE), line = Add(profile + ".Line"),
              codec = Add(Add(PROFILE "1.Line") + ".Codec.List");
  for (const std::string &path : {profile, line, codec}) {
    EXPECT_EQ(Call("FuncServVoiceProfile", TMF_ADD, path), 0);
    EXPECT_EQ(TakeCommands(), Lines{kChanged}) << path;
  }
  EXPECT_EQ(Numbers(profile + ".X_KVO-ACTION"), "1");
  EXPECT_EQ(Numbers(line + ".Codec.List"), "") << "only the first profile's lines are filled";
  EXPECT_EQ(Numbers(PROFILE "1.Line.1.Codec.List"), "1");
  EXPECT_EQ(Call("FuncServVoipLines", TMF_DEL, line), 0);
  EXPECT_EQ(TakeCommands(), Lines{kChanged});
  EXPECT_EQ(Call("FuncServVoipLines", TMF_GET, line), 0);
  EXPECT_EQ(TakeCommands(), Lines{});
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

/* ---- statistics, tests, actions ---- */

const std::string kStats = kLine + ".Stats", kStats2 = PROFILE "1.Line.2.Stats",
                  kPort = VOICE "1.PhyInterface.1", kPort2 = VOICE "1.PhyInterface.2";

struct ToolCase {
  const char *what, *name;
  int op;
  std::string path;
  const char *value;
  std::string lines; /* below /usr/sbin, each ended */
};

const char kCounters[] = "FuncServVoipLineStats", kPortTest[] = "FuncServVoipPhyTest",
           kDiag[] = "FuncServVoipIADDiag", kAct[] = "FuncServAction";
const char kSeveral[] = "Unregister=1\3Register=0\3Reboot=1";
const char kEnded[] = "Unregister=1\3Register=1\3Reboot=1";

const ToolCase kTools[] = {
    {"counters of line 1", kCounters, TMF_GET, kStats, nullptr, "voipcmd state 1\n"},
    {"counters of line 2", kCounters, TMF_GET, kStats2, nullptr, "voipcmd state 2\n"},
    {"no line", kCounters, TMF_GET, PROFILE "1.Line.11.Stats", nullptr, ""},
    {"reset 1", kCounters, TMF_SET, kStats, "A=0\3ResetStatistics=0",
     "voipcmd reset_statistics 1\n"},
    {"reset 2", kCounters, TMF_SET, kStats2, "ResetStatistics=1", "voipcmd reset_statistics 2\n"},
    {"reset no line", kCounters, TMF_SET, kLine, "ResetStatistics=1", ""},
    {"another parameter", kCounters, TMF_SET, kStats, "PacketsSent=1", ""},
    {"no value", kCounters, TMF_SET, kStats, nullptr, ""},
    {"registration test", kDiag, TMF_SET, "A", "B=1", "voipcmd diag_test\n"},
    {"registration read", kDiag, TMF_GET, "A", nullptr, ""},
    {"port 1", kPortTest, TMF_SET, kPort + ".Tests", "A=1", "voipcmd phy_test 1\n"},
    {"port 2, simulated", "FuncServVoipSimulateTest", TMF_SET, kPort2 + ".X", "A=1",
     "voipcmd phy_test 2\n"},
    {"port 3", kPortTest, TMF_SET, VOICE "1.PhyInterface.3", "A=1", ""},
    {"port read", kPortTest, TMF_GET, kPort + ".Tests", nullptr, ""},
    {"register", kAct, TMF_SET, "A.2", "Register=1", "voipcmd line_register 2\n"},
    {"unregister", kAct, TMF_SET, "A.1", "Unregister=1", "voipcmd line_register -1\n"},
    {"reboot", kAct, TMF_SET, "A.1", "Reboot=1", "voipcmd reset\n"},
    {"a 0 does nothing", kAct, TMF_SET, "A.1", "Register=0", ""},
    {"10 is no 1", kAct, TMF_SET, "A.1", "Reboot=10", ""},
    {"unknown", kAct, TMF_SET, "A.1", "XRegister=1", ""},
    {"empty", kAct, TMF_SET, "A.1", "=1", ""},
    {"no item", kAct, TMF_SET, "A.1", "Register", ""},
    {"no value", kAct, TMF_SET, "A.1", nullptr, ""},
    {"several, from the end", kAct, TMF_SET, "A.2", kSeveral,
     "voipcmd reset\nvoipcmd line_register -2\n"},
    {"a registration ends the walk", kAct, TMF_SET, "A.1", kEnded,
     "voipcmd reset\nvoipcmd line_register 1\n"},
    {"action read", kAct, TMF_GET, "A.1", "Register=1", ""},
};

TEST_F(Voip, TheVoiceToolIsToldWhatIsAsked) {
  for (const ToolCase &one : kTools) {
    EXPECT_EQ(Call(one.name, one.op, one.path, one.value), 0) << one.what;
    std::string lines;
    for (const std::string &line : TakeCommands()) {
      EXPECT_EQ(line.compare(0, 10, "/usr/sbin/"), 0) << line;
      lines += line.substr(10) + "\n";
    }
    EXPECT_EQ(lines, one.lines) << one.what;
  }
}

/* The voice stack writes the counters after its tool has ended. */
TEST_F(Voip, AGetOfCountersWaitsForThem) {
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Call("FuncServVoipLineStats", TMF_GET, "A.1"), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
}

}  // namespace
