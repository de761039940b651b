// The data-model store: files, paths, texts, instances, spans, and what other processes do to it.
// The program is also its own second process (see kRoles).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <thread>

#include "nvram.h"
#include "store_desk.h"
#include "store_support.h"
#include "tds_desk.h"
#include "transaction.h"

namespace {
bool fork_fails;
std::string commits; /* what happens to the next ones: '+', or '-' for one that fails */
}  // namespace

extern "C" pid_t __real_fork(void);
extern "C" pid_t __wrap_fork(void) {
  errno = EAGAIN;
  return fork_fails ? -1 : __real_fork();
}

extern "C" int __real_mdb_txn_commit(MDB_txn *txn);
extern "C" int __wrap_mdb_txn_commit(MDB_txn *txn) {
  bool fails = commits[0] == '-';
  if (!commits.empty()) commits.erase(0, 1);
  if (!fails) return __real_mdb_txn_commit(txn);
  mdb_txn_abort(txn);
  return ENOMEM;
}

namespace {

/* ---- the second process ---- */

int Attach() {
  gptXmlTrees = ShmPoolCliInit();
  root = gptXmlTrees == nullptr ? nullptr : gptXmlTrees->root;
  return root == nullptr ? 1 : 0;
}
int ServeRole() { /* a server that loads its file and dies */
  gptXmlTrees = ShmPoolSrvInit();
  return gptXmlTrees != nullptr && (gptXmlTrees->root = Load(kModel)) != nullptr ? 0 : 1;
}
int DeafRole() { /* as whatever a daemon starts that ignores its children's end */
  signal(SIGCHLD, SIG_IGN);
  return ServeRole();
}
int ForklessRole() {
  fork_fails = true;
  return ServeRole();
}
int AttachRole() { return Attach(); }
int WatchRole() { /* attaches, changes a value, says so, and waits for another server's */
  if (Attach() != 0 || ams_mxml_fset_leaf(IGD "Summary", "watched") != 0) return 1;
  char go;
  return write(1, "+", 1) == 1 && read(0, &go, 1) == 1 && Leaf(IGD "Summary") == "sum" ? 0 : 1;
}
int WriteRole() { /* writes pairs and rows until it is killed */
  if (Attach() != 0) return 1;
  for (int round = 0;; ++round) {
    char url[AMS_PATH_SIZE];
    const std::string value = std::to_string(round);
    ams_write_begin();
    ams_set_node_value(root, IGD "DeviceInfo.Zeta", value.c_str());
    ams_add_obj(root, IGD "Services.List", url);
    ams_set_node_value(root, IGD "DeviceInfo.Alpha", value.c_str());
    ams_write_end();
    ams_del_obj(root, url);
    if (round == 20 && write(1, "+", 1) != 1) return 1;
  }
}

int HoldRole() { /* stands still inside a read */
  if (Attach() != 0) return 1;
  return TreeRead([](MDB_txn *) { return raise(SIGSTOP); });
}

/* A server with many leaves that has kept one, and then writes as many long status values as it is
   told and the store takes. Says how many it found, and how many there are in the end. */
int CrowdRole() {
  const std::string status(AMS_VALUE_MAX, 's');
  char value[AMS_VALUE_MAX + 1];
  int most = 0, counts[2] = {0, 0};
  std::string leaves;
  auto path = [](int leaf) { return IGD "Crowd.L" + std::to_string(leaf); };
  for (int leaf = 0; leaf < 8000; ++leaf)
    leaves += "<L" + std::to_string(leaf) + " type=\"string\"/>";
  gptXmlTrees = ShmPoolSrvInit();
  if (read(0, &most, sizeof most) != sizeof most || gptXmlTrees == nullptr) return 1;
  if (ams_write_begin() != 0) return 1;
  gptXmlTrees->root = root =
      Load("<InternetGatewayDevice type=\"object\"><Kept type=\"string\"/><Crowd type=\"object\">" +
           leaves + "</Crowd></InternetGatewayDevice>");
  if (root == nullptr || update_from_nvram(root, NVTYPE_STAGING) != 0) return 2;
  if (ams_write_end() != 0 || Leaf(IGD "Kept") != "longer than in the file") return 3;
  for (int leaf = 0; ams_mxml_get_leaf_value(path(leaf).c_str(), value) == 0; ++leaf)
    counts[0] += value == status ? 1 : 0;
  counts[1] = counts[0];
  for (int leaf = 0; leaf < most; ++leaf) {
    bool there = ams_mxml_get_leaf_value(path(leaf).c_str(), value) == 0 && value[0] != '\0';
    if (!there && ams_mxml_fset_leaf(path(leaf).c_str(), status.c_str()) != 0) break;
    counts[1] += there ? 0 : 1;
  }
  return write(1, counts, sizeof counts) == sizeof counts ? 0 : 4;
}

struct Role {
  const char *name;
  int (*run)();
};
const Role kRoles[] = {{"serve", ServeRole},   {"deaf", DeafRole},   {"forkless", ForklessRole},
                       {"attach", AttachRole}, {"watch", WatchRole}, {"write", WriteRole},
                       {"hold", HoldRole},     {"crowd", CrowdRole}};

struct Child {
  pid_t pid;
  int in, out;
};
Child Start(const char *role) {
  int in[2], out[2];
  EXPECT_EQ(pipe2(in, O_CLOEXEC) | pipe2(out, O_CLOEXEC), 0);
  pid_t pid = fork();
  if (pid == 0) {
    dup2(in[0], 0);
    dup2(out[1], 1);
    execl("/proc/self/exe", "store_test", role, nullptr);
    _exit(127);
  }
  close(in[0]);
  close(out[1]);
  return {pid, in[1], out[0]};
}
int End(const Child &child) {
  int status = -1;
  waitpid(child.pid, &status, 0);
  close(child.in);
  close(child.out);
  return status;
}
int RunRole(const char *role) { return End(Start(role)); }

/* Before the rest: this process must not be attached while the files are damaged. */
TEST(StoreTakeover, ADamagedStoreIsReplacedAndASoundOneKept) {
  const std::string data = "/dev/shm/ams_store/data.mdb";
  ASSERT_EQ(gptXmlTrees, nullptr);
  EXPECT_NE(RunRole("attach"), 0) << "there is no store yet";
  ASSERT_EQ(RunRole("serve"), 0);
  struct Damage {
    const char *what, *command;
  };
  const Damage kDamages[] = {
      {"nothing", "true"},
      {"cut short", "truncate -s 20000 /dev/shm/ams_store/data.mdb"},
      {"empty", "truncate -s 0 /dev/shm/ams_store/data.mdb"},
      {"no LMDB file", "head -c 99999 /dev/urandom > /dev/shm/ams_store/data.mdb"},
      {"junk in the pages",
       "head -c 99999 /dev/urandom | dd of=/dev/shm/ams_store/data.mdb bs=4096 seek=2 "
       "conv=notrunc"},
      {"no lock file", "rm /dev/shm/ams_store/lock.mdb"},
  };
  for (const Damage &damage : kDamages) {
    EXPECT_EQ(WEXITSTATUS(system((std::string(damage.command) + " 2>/dev/null").c_str())), 0);
    EXPECT_EQ(RunRole("serve"), 0) << damage.what;
    EXPECT_EQ(RunRole("attach"), 0) << damage.what;
  }
}

TEST(StoreTakeover, ClientsStayAttached) {
  char sign;
  for (const char *server : {"serve", "deaf", "forkless"}) {
    Child watcher = Start("watch");
    ASSERT_EQ(read(watcher.out, &sign, 1), 1);
    EXPECT_EQ(RunRole(server), 0) << "while a client is attached";
    EXPECT_EQ(write(watcher.in, "g", 1), 1);
    EXPECT_EQ(End(watcher), 0) << server << ": the client must see the new tree";
  }
  Child watcher = Start("watch");
  ASSERT_EQ(read(watcher.out, &sign, 1), 1);
  EXPECT_EQ(WEXITSTATUS(system("dd if=/dev/urandom of=/dev/shm/ams_store/data.mdb bs=4096 seek=2 "
                               "count=9 conv=notrunc 2>/dev/null")),
            0);
  testing::internal::CaptureStderr();
  EXPECT_NE(RunRole("serve"), 0) << "damaged, and in use";
  std::string told = testing::internal::GetCapturedStderr();
  EXPECT_NE(told.find("process " + std::to_string(watcher.pid) + " has it open"), told.npos)
      << told;
  kill(watcher.pid, SIGKILL);
  End(watcher);
  EXPECT_EQ(RunRole("serve"), 0);
}

TEST(StoreTakeover, StatusThatHasNoRoomIsPassedOver) {
  const struct {
    const char *what;
    int most, found; /* at least */
  } kStarts[] = {{"an empty store is filled over the half", 4500, 0},
                 {"what fits beside it is there again", 0, 2000},
                 {"all of that, as there is room now", 0, 2000},
                 {"it is filled", 8000, 2000},
                 {"no room at all", 0, 0},
                 {"and at once again", 0, 0}};
  ASSERT_EQ(nvram_set(IGD "Kept", "longer than in the file", NVTYPE_STAGING), 0);
  int before = 0;
  for (const auto &start : kStarts) {
    int counts[2] = {-1, -1}, passed_over = 0;
    testing::internal::CaptureStderr();
    Child server = Start("crowd");
    EXPECT_EQ(write(server.in, &start.most, sizeof start.most), ssize_t{sizeof start.most});
    EXPECT_EQ(read(server.out, counts, sizeof counts), ssize_t{sizeof counts}) << start.what;
    EXPECT_EQ(WEXITSTATUS(End(server)), 0) << start.what;
    std::string told = testing::internal::GetCapturedStderr();
    size_t line = told.find(" status values passed over");
    if (line != told.npos) passed_over = atoi(told.c_str() + told.rfind(' ', line - 1));
    EXPECT_EQ(counts[0] + passed_over, before) << start.what << told;
    EXPECT_GE(counts[0], start.found) << start.what;
    before = counts[1];
  }
  ASSERT_EQ(nvram_clean(NVTYPE_STAGING), 0);
}

std::string Kept(const char *path) {
  std::unique_ptr<char, void (*)(void *)> value(nvram_get(path, NVTYPE_STAGING), free);
  return value == nullptr ? "(none)" : value.get();
}

TEST_F(Store, KilledWriterLeavesItWholeAndUnlocked) {
  for (int round = 0; round < 5; ++round) {
    Child writer = Start("write");
    char sign;
    ASSERT_EQ(read(writer.out, &sign, 1), 1);
    kill(writer.pid, SIGKILL);
    End(writer);
    EXPECT_EQ(Leaf(IGD "DeviceInfo.Zeta"), Leaf(IGD "DeviceInfo.Alpha")) << "half a span";
    EXPECT_EQ(Kept(IGD "DeviceInfo.Zeta"), Kept(IGD "DeviceInfo.Alpha")) << "half a span is kept";
    EXPECT_GE(atoi(Kept(IGD "DeviceInfo.Zeta").c_str()), atoi(Leaf(IGD "DeviceInfo.Zeta").c_str()));
    std::string list = Indexes(IGD "Services.List");
    EXPECT_EQ(std::to_string(std::count(list.begin(), list.end(), ',') + 1),
              Leaf(IGD "Services.ListNumberOfEntries"));
    EXPECT_EQ(ams_mxml_fset_leaf(IGD "Summary", "after"), 0);
  }
}

TEST_F(Store, ASecondServerTouchesNothing) {
  EXPECT_EQ(ams_mxml_fset_leaf(IGD "Summary", "of the first"), 0);
  testing::internal::CaptureStderr();
  EXPECT_NE(RunRole("serve"), 0);
  std::string told = testing::internal::GetCapturedStderr();
  EXPECT_NE(told.find("process " + std::to_string(getpid()) + " serves"), told.npos) << told;
  EXPECT_EQ(Leaf(IGD "Summary"), "of the first");
}

TEST_F(Store, NothingOfItIsInheritedByPrograms) {
  EXPECT_NE(nvram_init_semaphore(), -1);
  EXPECT_EQ(WEXITSTATUS(system("ls -l /proc/self/fd | grep -q mdb")), 1);
}

/* ---- reading ---- */

TEST_F(Store, TextForms) {
  struct Case {
    const char *path, *text;
  };
  const char info[] =
      "UpTime=7|Zeta=last letter, first here|Alpha=a<b|Inner.Deep=-4|Inner-2.Deep=1|Blank= |Empty=";
  const Case kCases[] = {
      {IGD "DeviceInfo.Zeta.", "Zeta=last letter, first here"},
      {IGD "DeviceInfo", info},
      {IGD "Services.List",
       "2.Name=new|2.Port=22|2.SubNumberOfEntries=1|2.Sub.4.Leaf=x|"
       "9.Name=new|9.Port=80|9.SubNumberOfEntries=1|9.Sub.1.Leaf=default row|"
       "10.Name=ten|10.Port=80|10.SubNumberOfEntries=1|10.Sub.1.Leaf=default row"},
      {IGD "Services.List.9.Sub.1", "Leaf=default row"},
      {IGD "Services.Bare", ""},
      {IGD "DeviceInfo.Nothing", "(none)"},
      {IGD "DeviceInfo.Inner.Deep.Deeper", "(none)"},
      {IGD "Services.List.02", "(none)"},
      {IGD "Services.List.99999999999", "(none)"},
      {IGD "Services.List.Template", "(none)"},
      {IGD "Services..List", "(none)"},
      {IGD "Services.List.9x", "(none)"},
      {IGD "DeviceInfo\x01Zeta", "(none)"}, /* the store's own marks open nothing */
      {"InternetGatewayDevice\2DeviceInfo.Zeta", "(none)"},
      {"\xF2" IGD "Services.List.\x04.Name", "(none)"},
      {"\xF3" IGD "DeviceInfo.Zeta", "(none)"},
      {"InternetGatewayDevic", "(none)"},
      {"", "(none)"},
  };
  for (const Case &c : kCases) {
    EXPECT_EQ(Text(c.path), c.text) << c.path;
    EXPECT_EQ(ams_check_node(root, c.path), Text(c.path) == "(none)" ? -1 : 0) << c.path;
  }
  EXPECT_EQ(Text("InternetGatewayDevice").find("Summary=sum|DeviceInfo.UpTime=7|"), 0u);
  EXPECT_EQ(ams_check_node(nullptr, IGD "Summary"), -1);
}

TEST_F(Store, Attributes) {
  struct Case {
    const char *path, *name, *value;
  };
  const Case kCases[] = {
      {IGD "DeviceInfo", "op", "FuncDeviceInfo"},
      {IGD "DeviceInfo.UpTime", "op", "(none)"},
      {IGD "DeviceInfo.Alpha", "description", "a \"b\""},
      {IGD "DeviceInfo.Alpha", "typ", "(none)"},
      {IGD "Services.List", "type", "array"},
      {IGD "Services.List.9.", "op", "FuncRow"},
      {IGD "Services.List.2.Port", "writable", "0"},
      {IGD "Services.List.9.Port", "writable", "(none)"},
      {IGD "Services.None", "type", "(none)"},
  };
  for (const Case &c : kCases)
    EXPECT_EQ(Attribute(c.path, c.name), c.value) << c.path << " " << c.name;
  char mod[32], small[5];
  EXPECT_EQ(ams_desk_mod(IGD "Services.List.9.Sub.1.Leaf", mod, sizeof mod), 0);
  EXPECT_STREQ(mod, "sysmgr:capabinfo");
  EXPECT_EQ(ams_desk_mod(IGD "Summary", mod, sizeof mod), -1);
  EXPECT_EQ(ams_desk_mod(IGD "Services", small, sizeof small), -1);
  EXPECT_EQ(WithAttributes(IGD "DeviceInfo.Alpha", 0),
            "Alpha=a<b type=\"string\" description=\"a &quot;b&quot;\"");
  EXPECT_EQ(WithAttributes(IGD "Services.List.9.Sub", 0), "1.Leaf=default row type=\"string\"");
  EXPECT_EQ(WithAttributes(IGD "Services.None", 0), "(none)");
}

TEST_F(Store, ChildrenInTheFilesOrderWhileOthersWrite) {
  EXPECT_EQ(Children("InternetGatewayDevice"), "Summary DeviceInfo Services ALL_CHANGED_DATA ");
  EXPECT_EQ(Children(IGD "DeviceInfo."), "UpTime Zeta Alpha Inner Inner-2 Blank Empty ");
  EXPECT_EQ(Children(IGD "Services.List"), "2 9 10 ");
  EXPECT_EQ(Children(IGD "Services.Bare"), "");
  EXPECT_EQ(Children(IGD "Summary"), "");
  char url[AMS_PATH_SIZE];
  ASSERT_EQ(ams_get_first_child(root, IGD "DeviceInfo", url), 0);
  EXPECT_EQ(ams_mxml_fset_leaf(IGD "DeviceInfo.Zeta", "other"), 0);
  ASSERT_EQ(ams_get_next_child(root, url, url), 0);
  EXPECT_STREQ(url, IGD "DeviceInfo.Zeta") << "a write between must not lose the place";
  EXPECT_EQ(ams_del_obj(root, IGD "Services.List.9"), 0);
  ASSERT_EQ(ams_get_next_child(root, IGD "Services.List.9", url), 0);
  EXPECT_STREQ(url, IGD "Services.List.10") << "after an instance that was deleted";
  ASSERT_EQ(ams_write_begin(), 0);
  EXPECT_EQ(Children(IGD "DeviceInfo."), "UpTime Zeta Alpha Inner Inner-2 Blank Empty ");
  EXPECT_EQ(Children(IGD "Services.List"), "2 10 ");
  ASSERT_EQ(ams_write_end(), 0);
}

TEST_F(Store, BuffersOfTheCallerAreNeverOverrun) {
  struct {
    char text[4], guard;
  } box;
  box.guard = '#';
  EXPECT_EQ(ams_mxml_get_leaf_value(IGD "DeviceInfo.Zeta", box.text), 0);
  EXPECT_STREQ(box.text, "las");
  EXPECT_EQ(ams_mxml_get_leaf_value(IGD "DeviceInfo.Zetb", box.text), -1);
  EXPECT_STREQ(box.text, "las") << "untouched when there is no such leaf";
  EXPECT_EQ(ams_get_node_attr(root, IGD "DeviceInfo", "op", box.text), 0);
  EXPECT_STREQ(box.text, "Fun");
  EXPECT_EQ(ams_get_idxes(root, IGD "Services.List", box.text), -1);
  EXPECT_STREQ(box.text, "");
  EXPECT_EQ(box.guard, '#');
  char slots[AMS_LIST_SLOTS + 1][AMS_LIST_SLOT_SIZE], url[AMS_PATH_SIZE];
  slots[AMS_LIST_SLOTS][0] = '#';
  AmsArrayList list = {0, slots};
  for (int row = 0; row < AMS_LIST_SLOTS; ++row)
    ASSERT_EQ(ams_add_obj(root, IGD "Services.List", url), 0);
  EXPECT_EQ(ams_mxml_list_array(IGD "Services.List.", &list), 0);
  EXPECT_EQ(list.count, AMS_LIST_SLOTS);
  EXPECT_STREQ(slots[0], IGD "Services.List.2.");
  EXPECT_STREQ(slots[AMS_LIST_SLOTS - 1], IGD "Services.List.57.");
  EXPECT_EQ(slots[AMS_LIST_SLOTS][0], '#');
  EXPECT_EQ(ams_mxml_list_array(IGD "Services", &list), -1);
}

/* ---- writing ---- */

TEST_F(Store, WhatASetRefuses) {
  std::string longest(AMS_VALUE_MAX, 'v'), path(AMS_PATH_SIZE, 'p');
  struct Case {
    const char *what, *path;
    std::string value;
    int set, sset; /* results */
  };
  const Case kCases[] = {
      {"a trailing dot", IGD "DeviceInfo.Zeta.", "", 0, 0},
      {"read-only", IGD "DeviceInfo.UpTime", "8", -1, 0},
      {"the longest value", IGD "DeviceInfo.Zeta", longest, 0, 0},
      {"a longer one", IGD "DeviceInfo.Zeta", longest + "v", -1, -1},
      {"the separator", IGD "DeviceInfo.Zeta", "a\x03z", -1, -1},
      {"an object", IGD "DeviceInfo", "x", -1, -1},
      {"no such leaf", IGD "DeviceInfo.Eta", "x", -1, -1},
      {"a template", "\xF2" IGD "Services.List.\x04.Name", "x", -1, -1},
      {"a path that is too long", path.c_str(), "x", -1, -1},
  };
  for (const Case &c : kCases) {
    std::string before = Text("InternetGatewayDevice");
    EXPECT_EQ(ams_set_node_value(root, c.path, c.value.c_str()), c.set) << c.what;
    if (c.set != 0) {
      EXPECT_EQ(Text("InternetGatewayDevice"), before) << c.what;
    }
    EXPECT_EQ(ams_sset_node_value(root, c.path, c.value.c_str()), c.sset) << c.what;
    if (c.sset == 0) {
      EXPECT_EQ(Text(c.path).substr(Text(c.path).find('=') + 1), c.value) << c.what;
    }
  }
  EXPECT_EQ(ams_set_node_value(root, IGD "DeviceInfo.Zeta", nullptr), 0);
  EXPECT_EQ(Leaf(IGD "DeviceInfo.Zeta"), "");
  EXPECT_EQ(ams_mxml_sset_leaf_int(IGD "DeviceInfo.UpTime", -5), 0);
  EXPECT_EQ(Leaf(IGD "DeviceInfo.UpTime"), "-5");
  EXPECT_EQ(ams_set_node_value(nullptr, IGD "Summary", "x"), -1);
}

TEST_F(Store, InstancesKeepTheirNumbers) {
  char url[AMS_PATH_SIZE];
  ASSERT_EQ(ams_add_obj(root, IGD "Services.List.", url), 0);
  EXPECT_STREQ(url, IGD "Services.List.11");
  EXPECT_EQ(Attribute(url, "op"), "FuncRow");
  EXPECT_EQ(Attribute(IGD "Services.List.11.Name", "notify"), "1") << "as in the template";
  EXPECT_EQ(ams_add_obj(root, IGD "Services.List.11.Sub", url), 0);
  EXPECT_STREQ(url, IGD "Services.List.11.Sub.2");
  EXPECT_EQ(Text(url), "Leaf=x");
  EXPECT_EQ(ams_del_obj(root, IGD "Services.List.11."), 0);
  EXPECT_EQ(Text(IGD "Services.List.11.Sub.2.Leaf"), "(none)");
  ASSERT_EQ(ams_add_obj(root, IGD "Services.List", url), 0);
  EXPECT_EQ(Indexes(IGD "Services.List"), "2,9,10,12") << "the number of a deleted one is gone";
  for (const char *no :
       {IGD "Services", IGD "Services.List", IGD "Summary", "InternetGatewayDevice"})
    EXPECT_EQ(ams_del_obj(root, no), -1) << no;
  for (const char *no : {IGD "Services", IGD "Services.Bare", IGD "Summary", IGD "None", ""})
    EXPECT_EQ(ams_add_obj(root, no, url), -1) << no;
  EXPECT_STREQ(url, "");
}

TEST_F(Store, ChangeListHoldsWhatChangedSinceItWasRead) {
  const char kAll[] = IGD "ALL_CHANGED_DATA";
  EXPECT_EQ(WithAttributes(kAll, 1), "") << "loading a file is no change";
  ams_mxml_fset_leaf(IGD "DeviceInfo.Alpha", "no notify attribute");
  ams_mxml_fset_leaf(IGD "DeviceInfo.Zeta", "last letter, first here"); /* the same */
  EXPECT_EQ(WithAttributes(kAll, 1), "");
  ams_mxml_fset_leaf(IGD "Services.List.10.Name", "x");
  ams_mxml_fset_leaf(IGD "Services.List.9.Name", "y");
  ams_mxml_fset_leaf(IGD "DeviceInfo.Zeta", "z");
  EXPECT_EQ(WithAttributes(IGD "DeviceInfo", 1), "Zeta=z type=\"string\" notify=\"2\"");
  EXPECT_EQ(WithAttributes(kAll, 1),
            "Services.List.9.Name=y type=\"string\" notify=\"1\"|"
            "Services.List.10.Name=x type=\"string\" notify=\"1\"");
  EXPECT_EQ(WithAttributes(kAll, 1), "") << "reading empties it";
  ams_mxml_fset_leaf(IGD "Services.List.9.Name", "gone");
  EXPECT_EQ(ams_del_obj(root, IGD "Services.List.9"), 0);
  EXPECT_EQ(WithAttributes(kAll, 1),
            "Services.ListNumberOfEntries=2 type=\"unsignedInt\" writable=\"0\" notify=\"1\"");
  char notify[8];
  EXPECT_EQ(ams_get_attr(root, IGD "DeviceInfo.Alpha", notify, sizeof notify), 0);
  EXPECT_STREQ(notify, "0");
  EXPECT_EQ(ams_set_attr(root, IGD "DeviceInfo.Alpha", "1"), 0);
  ams_mxml_fset_leaf(IGD "DeviceInfo.Alpha", "now");
  EXPECT_EQ(ams_set_attr(root, IGD "DeviceInfo.Alpha", "0"), 0);
  EXPECT_EQ(WithAttributes(kAll, 1), "") << "switched off before it was read";
  EXPECT_EQ(Leaf(IGD "DeviceInfo.Alpha"), "now");
  EXPECT_EQ(ams_set_attr(root, IGD "Nothing", "1"), -1);
  EXPECT_EQ(ams_get_attr(root, IGD "Nothing", notify, sizeof notify), -1);
}

TEST_F(Store, ASpanIsSeenWholeOrNotAtAll) {
  std::atomic<bool> done{false};
  std::atomic<int> torn{0};
  std::thread reader([&] {
    while (!done) {
      std::string text = Text(IGD "DeviceInfo");
      size_t zeta = text.find("Zeta=") + 5, alpha = text.find("Alpha=") + 6;
      std::string first = text.substr(zeta, text.find('|', zeta) - zeta);
      std::string second = text.substr(alpha, text.find('|', alpha) - alpha);
      if (first[0] == 'n' && first != second) ++torn;
    }
  });
  for (int round = 0; round < 300; ++round) {
    std::string value = "n" + std::to_string(round);
    ASSERT_EQ(ams_write_begin(), 0);
    EXPECT_EQ(ams_write_begin(), -1) << "spans do not nest";
    EXPECT_EQ(ams_mxml_fset_leaf(IGD "DeviceInfo.Zeta", value.c_str()), 0);
    EXPECT_EQ(Leaf(IGD "DeviceInfo.Zeta"), value) << "the thread reads what it wrote";
    EXPECT_EQ(ams_mxml_fset_leaf(IGD "DeviceInfo.Alpha", value.c_str()), 0);
    EXPECT_EQ(ams_set_node_value(root, IGD "DeviceInfo.UpTime", "x"), -1); /* spoils nothing */
    ASSERT_EQ(ams_write_end(), 0);
  }
  done = true;
  reader.join();
  EXPECT_EQ(torn, 0);
  EXPECT_EQ(Leaf(IGD "DeviceInfo.Alpha"), "n299");
  EXPECT_EQ(ams_write_end(), -1) << "none is open";
}

/* Adds a row with the longest name. */
int AddLong(char (&url)[AMS_PATH_SIZE]) {
  static const std::string name(AMS_VALUE_MAX, 'b');
  if (ams_add_obj(root, IGD "Services.List", url) != 0) return -1;
  return ams_mxml_fset_leaf((std::string(url) + ".Name").c_str(), name.c_str());
}

TEST_F(Store, AFullStoreRefusesAndStaysAsItWas) {
  char url[AMS_PATH_SIZE];
  ASSERT_EQ(ams_write_begin(), 0);
  int rc = 0;
  for (int row = 0; row < 20000 && rc == 0; ++row) rc = AddLong(url);
  EXPECT_EQ(rc, -1) << "there must be an end";
  EXPECT_EQ(ams_mxml_fset_leaf(IGD "Summary", "x"), -1) << "the span is lost";
  EXPECT_EQ(ams_write_end(), -1);
  EXPECT_EQ(Indexes(IGD "Services.List"), "2,9,10");
  EXPECT_EQ(ams_mxml_fset_leaf(IGD "Summary", "room again"), 0);

  for (bool room = true; room;) {
    ASSERT_EQ(ams_write_begin(), 0);
    for (int row = 0; row < 100; ++row) (void)AddLong(url); /* the end says whether all fit */
    room = ams_write_end() == 0;
  }
  for (rc = 0; rc == 0;) rc = AddLong(url);
  char last[16];
  ASSERT_EQ(ams_get_array_maxIndex(root, IGD "Services.List", last, sizeof last), 0);
  const int highest = atoi(last);
  EXPECT_GT(highest, 5800);
  testing::internal::CaptureStderr();
  EXPECT_EQ(AddLong(url), -1);
  std::string told = testing::internal::GetCapturedStderr();
  EXPECT_NE(told.find("the store is full: delete something"), told.npos) << told;
  for (int round = 0; round < 300; ++round) /* what makes it no larger goes on */
    EXPECT_EQ(ams_mxml_fset_leaf(IGD "Summary", round % 2 != 0 ? "full" : "FULL"), 0);
  int deleted = 0;
  for (; deleted < 400 && AddLong(url) != 0; ++deleted)
    EXPECT_EQ(
        ams_del_obj(root, (IGD "Services.List." + std::to_string(highest - 9 - deleted)).c_str()),
        0);
  EXPECT_LT(deleted, 400);
  ASSERT_EQ(nvram_clean(NVTYPE_STAGING) | nvram_commit(NVTYPE_STAGING), 0);
}

/* The settings' commit comes first, then the tree's, then, to take it back, the settings' again. */
TEST_F(Store, WhatIsKeptIsTakenBackWhenTheTreesCommitFails) {
  const struct {
    const char *commits, *kept, *says;
  } kCases[] = {
      {"-", "(none)", "not changed"},
      {"+-", "(none)", "committing to the tree failed"},
      {"+--", "new", IGD "Summary is kept, though"},
  };
  for (const auto &one : kCases) {
    ASSERT_EQ(nvram_clean(NVTYPE_STAGING) | nvram_commit(NVTYPE_STAGING), 0);
    testing::internal::CaptureStderr();
    commits = one.commits;
    EXPECT_EQ(ams_set_node_value(root, IGD "Summary", "new"), -1) << one.commits;
    std::string told = testing::internal::GetCapturedStderr();
    EXPECT_EQ(commits, "");
    EXPECT_EQ(Leaf(IGD "Summary"), "sum") << one.commits;
    EXPECT_EQ(Kept(IGD "Summary"), one.kept) << one.commits;
    EXPECT_NE(told.find(one.says), told.npos) << told;
  }
  ASSERT_EQ(nvram_clean(NVTYPE_STAGING), 0);
}

TEST_F(Store, AReaderThatStandsStillIsEndedWhenThePagesRunOut) {
  Child holder = Start("hold");
  int status = 0;
  ASSERT_EQ(waitpid(holder.pid, &status, WUNTRACED), holder.pid);
  ASSERT_TRUE(WIFSTOPPED(status));
  testing::internal::CaptureStderr();
  int refused = 0;
  for (int round = 0; round < 10000; ++round) {
    std::string value(AMS_VALUE_MAX, static_cast<char>('a' + round % 2));
    refused += ams_mxml_fset_leaf(IGD "Summary", value.c_str()) == 0 ? 0 : 1;
  }
  std::string told = testing::internal::GetCapturedStderr();
  EXPECT_EQ(refused, 1) << "the write that found no page";
  EXPECT_NE(told.find("process " + std::to_string(holder.pid) + " stood still"), told.npos) << told;
  EXPECT_EQ(waitpid(holder.pid, &status, WNOHANG), holder.pid);
  kill(holder.pid, SIGKILL);
  End(holder);
}

/* ---- against a plain model ---- */

struct Model {
  std::map<unsigned, std::pair<std::string, std::string>> rows; /* number: Name, Port */
  unsigned highest = 10;
};

std::string ModelText(const Model &model) {
  std::string text;
  for (const auto &row : model.rows) {
    std::string at = std::to_string(row.first);
    if (!text.empty()) text += '|';
    text += at + ".Name=" + row.second.first + "|" + at + ".Port=" + row.second.second + "|" + at +
            ".SubNumberOfEntries=1|" + at + ".Sub.1.Leaf=default row";
  }
  return text;
}

void Step(Model *model, int what, unsigned number, const std::string &value) {
  std::string row = IGD "Services.List." + std::to_string(number);
  auto found = model->rows.find(number);
  char url[AMS_PATH_SIZE];
  int expected = found == model->rows.end() ? -1 : 0;
  if (what == 0) {
    RC_ASSERT(ams_add_obj(root, IGD "Services.List", url) == 0);
    model->rows[++model->highest] = {"new", "80"};
    RC_ASSERT(std::string(url) == IGD "Services.List." + std::to_string(model->highest));
  } else if (what == 1) {
    RC_ASSERT(ams_del_obj(root, row.c_str()) == expected);
    model->rows.erase(number);
  } else {
    bool name = what == 2;
    std::string path = row + (name ? ".Name" : ".Port.");
    RC_ASSERT(ams_set_node_value(root, path.c_str(), value.c_str()) == expected);
    if (expected == 0) (name ? found->second.first : found->second.second) = value;
  }
}

TEST_F(Store, BehavesAsAPlainMap) {
  bool holds = rc::check("random adds, deletes and sets", [] {
    root = Load(kModel);
    Model model;
    for (unsigned number : {2, 9, 10}) { /* the same rows, made by the calls */
      RC_ASSERT(ams_del_obj(root, (IGD "Services.List." + std::to_string(number)).c_str()) == 0);
    }
    int steps = *rc::gen::inRange(1, 40);
    bool span = *rc::gen::arbitrary<bool>();
    if (span) RC_ASSERT(ams_write_begin() == 0);
    for (int step = 0; step < steps; ++step) {
      Step(&model, *rc::gen::inRange(0, 4), *rc::gen::inRange(9u, 11 + model.highest),
           *rc::gen::container<std::string>(rc::gen::inRange(' ', '{')));
      RC_ASSERT(Text(IGD "Services.List") == ModelText(model));
      RC_ASSERT(Leaf(IGD "Services.ListNumberOfEntries") == std::to_string(model.rows.size()));
    }
    if (span) RC_ASSERT(ams_write_end() == 0);
    RC_ASSERT(Text(IGD "Services.List") == ModelText(model));
  });
  EXPECT_TRUE(holds);
}

TEST_F(Store, TextsAreTheCallersOnly) {
  int64_t before = tds_malloc_count(nullptr).blocks;
  for (const char *path : {"InternetGatewayDevice", IGD "Summary", IGD "None"}) {
    (void)Text(path); /* frees what it got */
    (void)WithAttributes(path, 0);
    (void)WithAttributes(path, 1);
  }
  EXPECT_EQ(tds_malloc_count(nullptr).blocks, before);
}

}  // namespace

int main(int argc, char **argv) {
  for (const Role &role : kRoles)
    if (argc == 2 && strcmp(argv[1], role.name) == 0) return role.run();
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
