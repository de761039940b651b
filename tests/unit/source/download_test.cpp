// Ordered downloads: what an order runs, writes, asks the version manager and gives back.
#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "devinfo_func.h"
#include "devinfo_thread.h"
#include "download_func.h"
#include "support.h"
#include "tds_desk.h"

namespace {

using Lines = std::vector<std::string>;
using Leaves = std::vector<std::pair<std::string, std::string>>;

const std::string kOrder = "InternetGatewayDevice.X_TR69_Transfer.X_KVO_Download.";
const std::string kPre = "/usr/syscfg/project_pre_tr069_download.sh";
const std::string kPost = "/usr/syscfg/project_post_tr069_upgrade.sh";
const std::string kDrop = "sync;echo 3 >/proc/sys/vm/drop_caches";
const std::string kFree = "free | grep Mem | awk '{print $4}'";
const std::string kImage = "1 Firmware Upgrade Image";

std::string Fetch(const std::string &file, const std::string &url = "http://s/i") {
  return "curl --globoff --anyauth --connect-timeout 20 -u anonymous:anonymous -o '" + file +
         "' '" + url + "'";
}

const std::string kFetch = Fetch("/tmp/zorp_image.bin");
const std::string kInform = "cfgcmd manully_inform EV TC- Dn-";

std::string Word(const std::string &text) { return text + '\0'; }

Lines Joined(std::initializer_list<Lines> parts) {
  Lines all;
  for (const Lines &part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

const Lines kStart = {kPre, kDrop, kFree}, kFailed = {kInform, kPost + " failed"};
const Lines kPlain = Joined({kStart, {kFetch}, kFailed});
const Lines kRefused = Joined({{kPre}, kFailed});

class Download : public StoreTest {
 protected:
  void SetUp() override {
    StartModules();
    StoreTest::SetUp();
    Order({});
  }

  /* The desk's own file, so that its node is tried as well. */
  std::string DataModel() const override {
    std::ostringstream text;
    text << std::ifstream("/etc/tr098_data_model.xml").rdbuf();
    return text.str();
  }

  /* A fresh order of an image, changed by `leaves`. */
  void Order(const Leaves &leaves) {
    LoadModel(DataModel());
    SetLeaf(kOrder + "FileType", kImage);
    SetLeaf(kOrder + "URL", "http://s/i");
    for (const char *leaf : {"StartTime", "CompleteTime", "FaultCode", "FaultString"})
      SetLeaf(kOrder + leaf, "before");
    for (const auto &[name, value] : leaves) SetLeaf(kOrder + name, value);
  }
};

void RunThread() { std::thread(tr069_download_image_thread, nullptr).join(); }

/* Whether what an order had is given back: its command buffer, the values read and the answers. The
   other modules have such blocks for moments only, a block that is left over stays. */
bool NothingLeft() {
  auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  for (;; tds_delay(1)) {
    int64_t blocks = 0;
    for (const char *tag : {"tr069_download_image_thread", "ams_text", "SendMsg_syn_lib"})
      blocks += tds_malloc_count(tag).blocks;
    if (blocks == 0 || std::chrono::steady_clock::now() > end) return blocks == 0;
  }
}

/* The time `seconds` from now, as an order has it. Such texts sort by time. */
std::string TimeIn(time_t seconds) {
  char text[32];
  struct tm parts;
  time_t then = time(nullptr) + seconds;
  strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", gmtime_r(&then, &parts));
  return text;
}

/* Whether it is the time of the last minute, where the clock is `hours` ahead. */
bool IsTime(const std::string &leaf, int hours = 0) {
  std::string text = Leaf(kOrder + leaf);
  return text.size() == 19 && text >= TimeIn(hours * 3600 - 60) && text <= TimeIn(hours * 3600);
}

/* What the version manager was asked: the image's name or the state word. */
Lines Asked() {
  Lines asked;
  for (const PeerMessage &message : TakeMessages("tdsmgr:vermgt")) {
    bool request = message.id == 0xfff04;
    EXPECT_EQ(message.payload.size(), request ? 320 : strlen(message.payload.c_str()) + 1)
        << message.payload;
    asked.push_back(message.payload.substr(request ? 192 : 0).c_str());
  }
  return asked;
}

const std::string kName = "zorp_image.bin", kGoesOn = Word("downloading");

/* Runs the order that the store holds and checks what every failure leaves behind. */
void ExpectFailure(const Lines &commands, const Lines &asked, const std::string &fault) {
  RunThread();
  EXPECT_EQ(TakeCommands(), commands);
  EXPECT_EQ(Asked(), asked);
  EXPECT_EQ(Leaf(kOrder + "FaultCode"), fault);
  EXPECT_EQ(Leaf(kOrder + "FaultString"), "before");
  EXPECT_TRUE(IsTime("StartTime")) << Leaf(kOrder + "StartTime");
  EXPECT_TRUE(IsTime("CompleteTime")) << Leaf(kOrder + "CompleteTime");
  EXPECT_TRUE(NothingLeft());
}

TEST_F(Download, TimesFollowTheZone) {
  for (const auto &[zone, hours] : {std::pair("EAST-9", 9), {"UTC0", 0}}) {
    SetZone(zone);
    RunThread();
    EXPECT_TRUE(IsTime("StartTime", hours)) << zone << Leaf(kOrder + "StartTime");
    EXPECT_TRUE(IsTime("CompleteTime", hours)) << zone << Leaf(kOrder + "CompleteTime");
  }
}

TEST_F(Download, VersionManagerFails) {
  const struct {
    const char *what;
    Lines replies, words; /* what it answers, and the words that it is asked */
    std::string fault;
  } cases[] = {
      {"occupied", {Word("occupied")}, {}, "9001"},
      {"no answer", {}, {}, "9001"},
      {"empty answer", {""}, {}, "9001"},
      {"image refused", {kGoesOn, Word("fwchk_failed")}, {"downloading"}, "9001"},
      {"words not terminated", {"downloading", "upg_failed"}, {"downloading"}, "9002"},
      {"failed before the first poll", {Word("upg_failed")}, {}, "9001"},
      {"not confirmed",
       {kGoesOn, Word("downloaded"), Word("upg_failed")},
       {"downloading", "success"},
       "9001"},
      {"confirmed with the poll's word",
       {kGoesOn, Word("downloaded"), kGoesOn},
       {"downloading", "success"},
       "9001"},
      {"poll not answered", {kGoesOn, ""}, {"downloading"}, "9001"},
      {"long word", {"downloading" + std::string(5000, 'd')}, {}, "9001"},
      {"long word of failure",
       {kGoesOn, "upg_failed" + std::string(5000, 'x')},
       {"downloading"},
       "9001"},
  };
  for (const auto &one : cases) {
    SCOPED_TRACE(one.what);
    Order({});
    AnswerPopen("51200\n");
    AnswerVersionManager(one.replies);
    ExpectFailure(kPlain, Joined({{kName}, one.words}), one.fault);
  }
}

TEST_F(Download, OrdersThatFail) {
  const std::string kLongest(127, 'n');
  const struct {
    const char *what;
    Leaves leaves;
    const char *free_memory; /* NULL: cannot be asked for */
    Lines commands, asked;
  } cases[] = {
      {"memory not known", {}, nullptr, kPlain, {kName}},
      {"every text of an order",
       {{"CommandKey", "k7"},
        {"URL", "https://s/a?b=c&d"},
        {"Username", "u"},
        {"Password", "p"},
        {"TargetFileName", "fw.bin"},
        {"DelaySeconds", "soon"}},
       "51200\n",
       Joined({kStart,
               {"curl --globoff --digest --insecure --connect-timeout 20 -u u:p"
                " -o '/tmp/fw.bin' 'https://s/a?b=c&d'",
                "cfgcmd manully_inform EV TC-k7 Dn-k7", kPost + " failed"}}),
       {"fw.bin"}},
      {"password too long", {{"Password", std::string(2000, 'p')}}, "", kRefused, {}},
  };
  for (const auto &one : cases) {
    SCOPED_TRACE(one.what);
    StoreTest::SetUp(); /* forgets answers that were not asked for */
    Order(one.leaves);
    if (one.free_memory == nullptr)
      FailPopen();
    else
      AnswerPopen(one.free_memory);
    ExpectFailure(one.commands, one.asked, "9001");
  }
}

TEST_F(Download, NothingToAskTheVersionManagerAbout) {
  DownloadState result = "";
  EXPECT_EQ(upgradeVer(nullptr, &result), -1);
  EXPECT_EQ(upgradeVer("i", nullptr), -1);
  EXPECT_EQ(upgradeVer(std::string(128, 'n').c_str(), &result), -1);
  EXPECT_EQ(Asked(), Lines{});
}

/* So that curl, which follows links and fills pipes, and may fetch nothing, makes an image of what
   this order fetched, or none. */
TEST_F(Download, TheTargetIsAnEmptyFileOfOurOwn) {
  const std::string image = "/tmp/" + kName, other = "/tmp/other";
  const std::pair<std::string, int> cases[] = {
      {"true", 1},
      {"echo old >" + image, 1},
      {"ln -s " + other + " " + image, 1},
      {"ln " + other + " " + image, 1},
      {"mkfifo " + image, 1},
      {"mkdir " + image, 1},
      {"mkdir -p " + image + "/full", 0}, /* it cannot be had: nothing is fetched */
  };
  for (const auto &[leave, fetches] : cases) {
    SCOPED_TRACE(leave);
    RunCommands(true);
    EXPECT_EQ(system(("echo kept >" + other + "; rm -rf " + image + "; " + leave).c_str()), 0);
    RunCommands(false);
    TakeCommands();
    int fetched = 0;
    OnSystem([&](const std::string &line) {
      struct stat found;
      if (line != kFetch) return;
      ++fetched;
      EXPECT_TRUE(lstat(image.c_str(), &found) == 0 && S_ISREG(found.st_mode));
      EXPECT_EQ(found.st_size, 0);
      EXPECT_EQ(found.st_nlink, 1U);
      EXPECT_EQ(found.st_mode & 077, 0U);
    });
    Order({});
    RunThread();
    EXPECT_EQ(fetched, fetches);
    EXPECT_EQ(Asked(), Lines(static_cast<size_t>(fetches), kName));
    EXPECT_EQ(Leaf(kOrder + "FaultCode"), "9001");
    std::string kept;
    std::getline(std::ifstream(other), kept);
    EXPECT_EQ(kept, "kept");
  }
  OnSystem(nullptr);
  std::filesystem::remove_all(image);
}

/* The first waits when the second comes, and must not take over any of it. */
TEST_F(Download, TwoOrdersAtOnceDoNotMix) {
  auto order = [] { return RunOp(kDevInfoFuncTable, "FuncKVO_TR69Download", TMF_SET); };
  Order({{"URL", "http://s/1"}, {"CommandKey", "k1"}, {"DelaySeconds", "1"}});
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(order(), 0);
  SetLeaf(kOrder + "CommandKey", "k2"); /* the last one that is read is the first to change */
  SetLeaf(kOrder + "URL", "http://s/2");
  SetLeaf(kOrder + "DelaySeconds", "0");
  EXPECT_EQ(order(), 0);
  EXPECT_TRUE(NothingLeft());
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  Lines all = TakeCommands();
  for (const std::string &line :
       {Fetch("/tmp/zorp_image.bin", "http://s/1"), Fetch("/tmp/zorp_image.bin", "http://s/2"),
        std::string("cfgcmd manully_inform EV TC-k1 Dn-k1"),
        std::string("cfgcmd manully_inform EV TC-k2 Dn-k2")})
    EXPECT_EQ(std::count(all.begin(), all.end(), line), 1) << line;
  EXPECT_EQ(Asked(), (Lines{kName, kName}));
}

TEST_F(Download, OpFunction) {
  const struct {
    const char *what, *type;
    int op;
    Lines commands;
  } cases[] = {
      {"configuration",
       "3 Vendor Configuration File",
       TMF_SET,
       {"/usr/syscfg/tr069_proc.sh Download &"}},
      {"at start", "3 Vendor Configuration File", TMF_INIT, {}},
      {"read", kImage.c_str(), TMF_GET, {}},
  };
  for (const auto &one : cases) {
    SCOPED_TRACE(one.what);
    Order({{"FileType", one.type}});
    EXPECT_EQ(RunOp(kDevInfoFuncTable, "FuncKVO_TR69Download", one.op), 0);
    EXPECT_EQ(TakeCommands(), one.commands);
    EXPECT_TRUE(NothingLeft());
  }
}

/* A model without the leaf: not even the empty type was ordered. */
TEST_F(Download, NoType) {
  std::string model = DataModel();
  size_t leaf = model.find("<FileType ", model.find("<X_KVO_Download"));
  ASSERT_NE(leaf, model.npos);
  LoadModel(model.erase(leaf, model.find("/>", leaf) + 2 - leaf));
  std::string log =
      LogOf(4, [] { EXPECT_EQ(RunOp(kDevInfoFuncTable, "FuncKVO_TR69Download", TMF_SET), 0); });
  EXPECT_NE(log.find("FileType is NULL\n"), std::string::npos) << log;
  EXPECT_EQ(TakeCommands(), Lines{});
}

TEST_F(Download, BoardWithoutScripts) {
  ASSERT_EQ(rename(kPre.c_str(), "/usr/syscfg/aside1"), 0);
  ASSERT_EQ(rename(kPost.c_str(), "/usr/syscfg/aside2"), 0);
  AnswerPopen("51200\n");
  RunThread();
  EXPECT_EQ(rename("/usr/syscfg/aside1", kPre.c_str()), 0);
  EXPECT_EQ(rename("/usr/syscfg/aside2", kPost.c_str()), 0);
  EXPECT_EQ(TakeCommands(), (Lines{kDrop, kFree, kFetch, kInform}));
}

TEST(DownloadDecisions, Numbers) {
  for (const auto &[text, seconds] : std::vector<std::pair<const char *, unsigned>>{
           {"", 0}, {"0", 0}, {"soon", 0}, {"-3", 0}, {"15", 15}, {"99999999999", UINT32_MAX}})
    EXPECT_EQ(DownloadDelay(text), seconds) << text;
  for (const auto &[text, size] : std::vector<std::pair<const char *, int>>{
           {"", 0}, {"51200\n", 51200}, {"0511990\n", 51199}, {"free", 0}})
    EXPECT_EQ(DownloadFreeMemory(text), size) << text;
}

}  // namespace
