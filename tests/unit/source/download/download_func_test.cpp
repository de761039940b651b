// Ordered downloads beside their command lines: times, the file that is filled, what is given back,
// two at once.
#include "download_func.h"

#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>

#include "devinfo_func.h"
#include "support.h"
#include "tds_heap.h"

namespace {

const std::string kOrder = "InternetGatewayDevice.X_TR69_Transfer.X_KVO_Download.";

class Download : public GatewayTest {
 protected:
  void SetUp() override {
    GatewayTest::SetUp();
    Order("1");
  }

  /* A fresh order; `number` is in its key and its URL. */
  void Order(const std::string &number) {
    LoadModel(FileText("/etc/tr098_data_model.xml"));
    SetLeaf(kOrder + "FileType", "2 Web Content");
    SetLeaf(kOrder + "URL", "http://s/" + number);
    SetLeaf(kOrder + "CommandKey", "k" + number);
    SetLeaf(kOrder + "FaultCode", "before");
  }
};

/* Whether what an order had is given back: its command buffer, the values read and the answers.
   Other threads have such blocks for moments only, a block that is left over stays. */
bool NothingLeft() {
  auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  for (;; usleep(1000)) {
    int64_t blocks = 0;
    for (const char *tag : {"tr069_download_image_thread", "ams_text", "SendMsg_syn_lib"})
      blocks += tds_malloc_count(tag).blocks;
    if (blocks == 0 || std::chrono::steady_clock::now() > end) return blocks == 0;
  }
}

/* On this thread, so that it is over when this returns. */
void Carry() {
  EXPECT_EQ(tr069_download_image_thread(nullptr), nullptr);
  AMS_PrintThreadModule("default"); /* as before: it is a thread of its own */
  EXPECT_TRUE(NothingLeft());
}

/* The time `seconds` from now, as an order has it. Such texts sort by time. */
std::string TimeIn(time_t seconds) {
  char text[32];
  struct tm parts;
  timespec then; /* time() is of a coarser clock, which may lag behind the order's */
  clock_gettime(CLOCK_REALTIME, &then);
  then.tv_sec += seconds;
  strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", gmtime_r(&then.tv_sec, &parts));
  return text;
}

/* Whether it is the time of the last minute, where the clock is `hours` ahead. */
bool IsTime(const std::string &leaf, int hours = 0) {
  std::string text = Leaf(kOrder + leaf);
  return text.size() == 19 && text >= TimeIn(hours * 3600 - 60) && text <= TimeIn(hours * 3600);
}

TEST_F(Download, TimesFollowTheZone) {
  for (const auto &[zone, hours] : {std::pair("EAST-9", 9), {"UTC0", 0}}) {
    SetZone(zone);
    Carry();
    EXPECT_TRUE(IsTime("StartTime", hours)) << zone << Leaf(kOrder + "StartTime");
    EXPECT_TRUE(IsTime("CompleteTime", hours)) << zone << Leaf(kOrder + "CompleteTime");
  }
}

/* So that curl, which follows links and fills pipes, and may fetch nothing, makes an image of what
   this order fetched, or none. */
TEST_F(Download, TheTargetIsAnEmptyFileOfOurOwn) {
  const std::string image = "/tmp/zorp_image.bin", other = "/tmp/other";
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
      if (line.compare(0, 5, "curl ") != 0) return;
      ++fetched;
      EXPECT_TRUE(lstat(image.c_str(), &found) == 0 && S_ISREG(found.st_mode));
      EXPECT_EQ(found.st_size, 0);
      EXPECT_EQ(found.st_nlink, 1U);
      EXPECT_EQ(found.st_mode & 077, 0U);
    });
    Order("1");
    Carry();
    EXPECT_EQ(fetched, fetches);
    EXPECT_EQ(Leaf(kOrder + "FaultCode"), "9001");
    EXPECT_EQ(FileText(other), "kept\n");
  }
  OnSystem(nullptr);
  std::filesystem::remove_all(image);
}

/* The usual name is that of every order without one. */
TEST_F(Download, AnOrderLeavesAnImageAloneThatAnotherHasInWork) {
  const std::string image = "/tmp/zorp_image.bin";
  int fetched = 0;
  OnSystem([&](const std::string &line) {
    if (line.compare(0, 5, "curl ") != 0 || fetched++ > 0) return;
    std::ofstream(image) << "whole";
    Order("2");
    EXPECT_EQ(tr069_download_image_thread(nullptr), nullptr);
    EXPECT_EQ(FileText(image), "whole");
  });
  Carry();
  EXPECT_EQ(fetched, 2);
  OnSystem(nullptr);
  Order("3");
  Carry();
  EXPECT_EQ(FileText(image), "") << "nobody has it in work";
}

/* The first stands in its script until the second is through, and must not take over any of it. */
TEST_F(Download, TwoOrdersAtOnceDoNotMix) {
  const auto order = [] { return RunOp(kDevInfoFuncTable, "FuncKVO_TR69Download", TMF_SET); };
  const auto fetch = [](const std::string &number) {
    return "curl --globoff --anyauth --connect-timeout 20 -u anonymous:anonymous"
           " -o '/tmp/zorp_image.bin' 'http://s/" +
           number + "'";
  };
  std::promise<void> first_stands, second_is_through;
  bool first = true;
  OnSystem([&](const std::string &line) {
    if (!first || line != "/usr/syscfg/project_pre_tr069_download.sh") return;
    first = false; /* before the second order begins */
    first_stands.set_value();
    second_is_through.get_future().wait();
  });
  EXPECT_EQ(order(), 0);
  first_stands.get_future().wait();
  Order("2");
  EXPECT_EQ(order(), 0);
  std::vector<std::string> lines = AwaitCommand("cfgcmd manully_inform EV TC-k2 Dn-k2");
  EXPECT_EQ(std::count(lines.begin(), lines.end(), fetch("2")), 1);
  second_is_through.set_value();
  lines = AwaitCommand("cfgcmd manully_inform EV TC-k1 Dn-k1");
  EXPECT_EQ(std::count(lines.begin(), lines.end(), fetch("1")), 1);
  EXPECT_TRUE(NothingLeft());
}

}  // namespace
