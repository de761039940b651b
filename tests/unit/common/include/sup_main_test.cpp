// The store server's bring-up by boot type, and what follows the start of the modules.
#include "sup_main.h"

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <thread>

#include "nvram.h"
#include "store_desk.h"
#include "support.h"

namespace {
std::string fails; /* the call of the platform that does; "": none */
}

#define MAY_FAIL(result, failure, name, parameters, arguments) \
  extern "C" result __real_##name parameters;                  \
  extern "C" result __wrap_##name parameters;                  \
  result __wrap_##name parameters { return fails == #name ? failure : __real_##name arguments; }
MAY_FAIL(XmlTreeSet *, nullptr, ShmPoolCliInit, (), ())
MAY_FAIL(XmlTreeSet *, nullptr, ShmPoolSrvInit, (), ())
MAY_FAIL(int, -1, SysInit, (const ModuleEntry *modules), (modules))
MAY_FAIL(int, -1, nvram_clean, (int type), (type))
MAY_FAIL(FILE *, nullptr, fopen, (const char *path, const char *mode), (path, mode))
MAY_FAIL(AmsTree *, nullptr, ams_mxmlLoadFile, (void *top, FILE *file, void *callback),
         (top, file, callback))

namespace {

constexpr char kSource[] = "./../common/include/sup_main";
constexpr char kCode[] = "InternetGatewayDevice.DeviceInfo.ProvisioningCode";
constexpr char kUrl[] = "InternetGatewayDevice.ManagementServer.URL";
constexpr char kPorts[] = "InternetGatewayDevice.Services.ServiceTelnet.Port";
constexpr char kUserChange[] = "InternetGatewayDevice.DeviceInfo.X_KVO-UserChange";
constexpr char kBackup[] = "/var/config/backup.conf";

std::string Setting(const char *key, int type) {
  std::unique_ptr<char, decltype(&free)> value(nvram_get(key, type), free);
  return value == nullptr ? "(none)" : value.get();
}

void Set(const char *key, const char *value, int type) {
  if (value != nullptr)
    ASSERT_EQ(nvram_set(key, value, type), 0);
  else
    ASSERT_EQ(nvram_unset(key, type), 0);
}

/* The lines that `work` prints, without what the store does; "#" for the numbers of lines. */
std::string Printed(const std::function<void()> &work) {
  testing::internal::CaptureStdout();
  work();
  std::istringstream printed(testing::internal::GetCapturedStdout());
  std::string text;
  for (std::string line; std::getline(printed, line);) {
    const size_t number = line.find('(') + 1, end = line.find(")]");
    if (line.rfind("staging source ", 0) == 0) continue;
    if (end != line.npos) line.replace(number, end - number, "#");
    text += line + "\n";
  }
  return text;
}

class StartupTest : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    Clean();
  }
  void TearDown() override { Clean(); }
  void Clean() {
    nvram_clean(NVTYPE_STAGING);
    nvram_clean(NVTYPE_BASIC);
    (void)remove(kBackup); /* most tests have none */
  }
};

TEST_F(StartupTest, TheBootTypeIsReadFromItsExactWords) {
  const std::pair<const char *, int> kTypes[] = {
      {nullptr, BOOT_BURN_IMAGE}, {"false", BOOT_RESTART}, {"true", BOOT_RESTORE},
      {"clean", BOOT_CLEAN},      {"TRUE", BOOT_INVALID},  {"", BOOT_INVALID},
  };
  for (const auto &[word, type] : kTypes) {
    Set("factoryType", word, NVTYPE_BASIC);
    EXPECT_EQ(get_boot_type(), type) << (word == nullptr ? "absent" : word);
  }
  EXPECT_EQ(Setting(kUserChange, NVTYPE_STAGING), "BurnImage");
}

struct BootCase {
  const char *what;
  const char *boot_type, *backup, *old_version; /* NULL: there is none */
  bool succeeds;
  const char *code, *url; /* what the two parameters read as; a kept one is "KEPT" */
  const char *next;       /* boot type afterwards */
  const char *prints;     /* behind the versions */
};

#define TOO_OLD "Version is too old, we need do factory by force"

/* The staging files of the root file system give FACTORY and a URL of example.net (factory,
   customer) or BURNT; the data-model file gives "" and a URL of example.com. */
const BootCase kBoots[] = {
    {"burnt image", nullptr, nullptr, nullptr, true, "BURNT", "com", "false",
     "[get_boot_type(#)] boot from burn image\n"},
    {"restart keeps what was changed", "false", nullptr, nullptr, true, "KEPT", "com", "false", ""},
    {"restore from the backup", "true", "BACKUP", nullptr, true, "BACKUP", "com", "false",
     "[get_boot_type(#)] factoryType=true\n"},
    {"restore without a backup is factory", "true", nullptr, nullptr, true, "FACTORY", "net",
     "false", "[get_boot_type(#)] factoryType=true\n[SDB_serverInit(#)] back is empty!\n"},
    {"clean", "clean", "BACKUP", nullptr, true, "FACTORY", "net", "false",
     "[get_boot_type(#)] factoryType=clean\n"},
    {"an unknown word leaves the tree as it was", "TRUE", "BACKUP", nullptr, false, "FACTORY",
     "net", "TRUE", "invalid boot type=0.\n"},
    {"a version that is too old forces factory", "false", nullptr, "XV1.0.3", true, "FACTORY",
     "net", "false", TOO_OLD "[get_boot_type(#)] factoryType=clean\n"},
    {"so does the oldest", "false", nullptr, "V1.0", true, "FACTORY", "net", "false",
     TOO_OLD "[get_boot_type(#)] factoryType=clean\n"},
    {"a version that is not", "false", nullptr, "V1.1", true, "KEPT", "com", "false", ""},
};

TEST_F(StartupTest, EachBootTypeLaysItsParametersOverTheTree) {
  for (const BootCase &row : kBoots) {
    SCOPED_TRACE(row.what);
    Clean();
    Set("factoryType", row.boot_type, NVTYPE_BASIC);
    Set("X_KVO_FWVersion", row.old_version, NVTYPE_BASIC);
    Set("Tr069strap", "1", NVTYPE_STAGING);
    if (row.boot_type != nullptr) Set(kCode, "KEPT", NVTYPE_STAGING);
    if (row.backup != nullptr) std::ofstream(kBackup) << kCode << '=' << row.backup << '\n';
    const std::string old = row.old_version == nullptr ? "" : row.old_version;
    EXPECT_EQ(Printed([&] { EXPECT_EQ(SDB_serverInit() == 0, row.succeeds); }),
              "oldVersion =" + old + ", curVersion=V2.3.1\n" + row.prints);
    EXPECT_EQ(Leaf(kCode), row.code);
    EXPECT_NE(Leaf(kUrl).find(std::string("example.") + row.url), std::string::npos) << Leaf(kUrl);
    EXPECT_EQ(Setting("factoryType", NVTYPE_BASIC), row.next);
    if (!row.succeeds) continue;
    bool forced = row.old_version != nullptr && row.code == std::string("FACTORY");
    EXPECT_EQ(Setting("X_KVO_FWVersion", NVTYPE_BASIC), forced ? "(none)" : "V2.3.1");
    if (row.old_version != nullptr) {
      EXPECT_EQ(Setting("Tr069strap", NVTYPE_STAGING), forced ? "(none)" : "1");
    }
  }
}

TEST_F(StartupTest, AForcedFactoryGoesOnWhenNvramCannotBeCleaned) {
  Set("X_KVO_FWVersion", "V1.0", NVTYPE_BASIC);
  fails = "nvram_clean";
  EXPECT_EQ(Printed([] { EXPECT_EQ(SDB_serverInit(), 0); }),
            "oldVersion =V1.0, curVersion=V2.3.1\n" TOO_OLD
            "[SDB_serverInit(#)] clean NVTYPE_STAGING failed\n"
            "[SDB_serverInit(#)] clean NVTYPE_BASIC failed\n"
            "[get_boot_type(#)] factoryType=clean\n");
  fails.clear();
}

/* A check of a kept parameter stands in the middle of the bring-up. */
std::string seen_meanwhile;
int LookMeanwhile(const AmsDeskLeaf &, std::string *, std::string *) {
  std::thread([] { seen_meanwhile = Leaf(kCode) + " " + Leaf(kPorts); }).join();
  return 0;
}

TEST_F(StartupTest, ClientsSeeTheNewTreeInOneStep) {
  Set("factoryType", "false", NVTYPE_BASIC);
  for (const char *start : {"first", "second"}) {
    Set(kCode, start, NVTYPE_STAGING);
    Set(kPorts, start, NVTYPE_STAGING);
    ams_desk_check_kept = start[0] == 's' ? LookMeanwhile : nullptr;
    EXPECT_EQ(SDB_serverInit(), 0);
    EXPECT_EQ(Leaf(kCode), start);
  }
  ams_desk_check_kept = nullptr;
  EXPECT_EQ(seen_meanwhile, "first first");
}

TEST_F(StartupTest, ASecondAttachSucceeds) {
  XmlTreeSet *attached = gptXmlTrees;
  EXPECT_EQ(SDB_clientInit(), 0);
  EXPECT_EQ(gptXmlTrees, attached);
  gptXmlTrees = nullptr;
  EXPECT_EQ(SDB_clientInit(), 0);
  EXPECT_EQ(gptXmlTrees, attached);
}

TEST_F(StartupTest, TheBuildTimeIsTheKernelsLineBehindSmp) {
  constexpr char kTime[] = "InternetGatewayDevice.DeviceInfo.X_KVO_FWTime";
  const std::string filler(300, 'x');
  const struct {
    const char *what;
    std::string version;
    const char *time;
  } kCases[] = {
      {"up to the line feed", "Linux 3.18 #1 SMP Mon Jan 5\nmore", "Mon Jan 5"},
      {"a carriage return ends it without one", "#1 SMP Tue\rx", "Tue"},
      {"no end: nothing", "#1 SMP Wed", ""},
      {"no SMP: not written", "Linux 3.18 #1 PREEMPT\n", "before"},
      {"behind byte 256 nothing is read", filler + "SMP Thu\n", "before"},
  };
  for (const auto &row : kCases) {
    SetLeaf(kTime, "before");
    appt_SetTrace(1);
    AnswerPopen(row.version);
    Lines records = {"1 update_FW_createTime : " + std::string(row.time) + " \n"};
    if (row.time == std::string("before")) records.clear();
    ExpectRecords(kSource, records, [&] { EXPECT_EQ(process_init_after(), 0) << row.what; });
    EXPECT_EQ(Leaf(kTime), row.time) << row.what;
    EXPECT_EQ(appt_Trace(), 0) << row.what;
  }
  FailPopen();
  EXPECT_EQ(process_init_after(), 0);
  std::vector<std::string> commands = TakeCommands();
  EXPECT_EQ(commands.size(), std::size(kCases) + 1);
  for (const std::string &command : commands) EXPECT_EQ(command, "cat proc/version");
}

TEST_F(StartupTest, WhatFailsIsLogged) {
  XmlTreeSet *const attached = gptXmlTrees;
  const std::string address =
      std::to_string(static_cast<int>(reinterpret_cast<intptr_t>(attached)));
  const struct {
    const char *fails;
    int (*work)(), result;
    Lines records;
  } cases[] = {
      {"ShmPoolCliInit",
       sysmgr_main,
       -1,
       {"4 ShmPoolCliInit failed \n", "5 Shared DB client initial failed.",
        "5 initShmPool failed \n"}},
      {"SysInit",
       sysmgr_main,
       -1,
       {"1 gptXmlTrees addr is " + address + " \n", "2 SysInit ret:-1\n"}},
      {"ShmPoolSrvInit",
       SDB_serverInit,
       -1,
       {"1 server gptXmlTrees addr is 0", "5 Shm srv init failed!"}},
      {"fopen",
       SDB_serverInit,
       -1,
       {"1 server gptXmlTrees addr is " + address, "4 open tr098_data_model.xml failed!"}},
      {"ams_mxmlLoadFile",
       SDB_serverInit,
       0,
       {"5 null tree\n",
        "4 InternetGatewayDevice.DeviceInfo.X_KVO_FWVersion is not existed, update internal "
        "version failed\n"}},
  };
  for (const auto &one : cases)
    ExpectRecords(kSource, one.records, [&] {
      gptXmlTrees = nullptr;
      fails = one.fails;
      EXPECT_EQ(one.work(), one.result) << one.fails;
      fails.clear();
    });
  gptXmlTrees = attached;
  signal(SIGPIPE, SIG_DFL);
  signal(SIGCHLD, SIG_DFL);
}

}  // namespace
