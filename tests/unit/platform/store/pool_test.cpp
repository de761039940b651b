// The store in shared memory: who takes it over in which state, what a full one refuses, and who is
// ended or taken back for it. Until the first test of Store this process itself is not
// attached, so that others can be forked from it.
#include <signal.h>
#include <sys/mman.h>

#include "../failing_commit.h"
#include "../nvram/nvram_calls.h"
#include "../other_process.h"
#include "store_support.h"
#include "transaction.h"

namespace {
bool fork_fails;
}

extern "C" pid_t __real_fork(void);
extern "C" pid_t __wrap_fork(void);
pid_t __wrap_fork(void) {
  errno = EAGAIN;
  return fork_fails ? -1 : __real_fork();
}

namespace {

bool Attach() {
  gptXmlTrees = ShmPoolCliInit();
  root = gptXmlTrees == nullptr ? nullptr : gptXmlTrees->root;
  return root != nullptr;
}
bool Serve() { /* loads its file and dies */
  gptXmlTrees = ShmPoolSrvInit();
  return gptXmlTrees != nullptr && (gptXmlTrees->root = Load(Model())) != nullptr;
}
bool ServeDeaf() { /* as whatever a daemon starts that ignores its children's end */
  signal(SIGCHLD, SIG_IGN);
  return Serve();
}
bool ServeForkless() {
  fork_fails = true;
  return Serve();
}

/* A client that changes a value and then has to see another server's. */
bool Watch() {
  return Attach() && ams_mxml_fset_leaf(IGD "Summary", "watched") == 0 && raise(SIGSTOP) == 0 &&
         Leaf(IGD "Summary") == "sum";
}

/* Before the rest: this process must not be attached while the files are damaged. */
TEST(StoreTakeover, ADamagedStoreIsReplacedAndASoundOneKept) {
  ASSERT_EQ(gptXmlTrees, nullptr);
  EXPECT_FALSE(Elsewhere(Attach)) << "there is no store yet";
  ASSERT_TRUE(Elsewhere(Serve));
  const char *const kDamages[] = {
      "true",
      "truncate -s 20000 data.mdb",
      "truncate -s 0 data.mdb",
      "head -c 99999 /dev/urandom >data.mdb",
      "head -c 99999 /dev/urandom | dd of=data.mdb bs=4096 seek=2 conv=notrunc 2>/dev/null",
      "rm lock.mdb",
  };
  for (const char *damage : kDamages) {
    EXPECT_EQ(system((std::string("cd /dev/shm/ams_store; ") + damage).c_str()), 0);
    EXPECT_TRUE(Elsewhere(Serve)) << damage;
    EXPECT_TRUE(Elsewhere(Attach)) << damage;
  }
}

TEST(StoreTakeover, ClientsStayAttached) {
  for (bool (*server)() : {Serve, ServeDeaf, ServeForkless}) {
    pid_t watcher = StartStopped(Watch);
    EXPECT_TRUE(Elsewhere(server)) << "while a client is attached";
    EXPECT_EQ(End(watcher), 0) << "it must see the new tree";
  }
  pid_t watcher = StartStopped(Watch);
  EXPECT_EQ(system("dd if=/dev/urandom of=/dev/shm/ams_store/data.mdb bs=4096 seek=2 count=9 "
                   "conv=notrunc 2>/dev/null"),
            0);
  ExpectInUse(watcher, Serve);
  EXPECT_TRUE(Elsewhere(Serve));
}

/* A server with many leaves that has kept one, and then writes `most` long status values, or as
   many as the store takes. Says how many it found, and how many there are in the end. */
bool Crowd(int most, int *found, int *there) {
  const std::string status(AMS_VALUE_MAX, 's');
  char value[AMS_VALUE_MAX + 1];
  std::string leaves;
  auto path = [](int leaf) { return IGD "Crowd.L" + std::to_string(leaf); };
  for (int leaf = 0; leaf < 8000; ++leaf)
    leaves += "<L" + std::to_string(leaf) + " type=\"string\"/>";
  gptXmlTrees = ShmPoolSrvInit();
  if (gptXmlTrees == nullptr || ams_write_begin() != 0) return false;
  gptXmlTrees->root = root =
      Load("<InternetGatewayDevice type=\"object\"><Kept type=\"string\"/><Crowd type=\"object\">" +
           leaves + "</Crowd></InternetGatewayDevice>");
  if (root == nullptr || update_from_nvram(root, NVTYPE_STAGING) != 0) return false;
  if (ams_write_end() != 0 || Leaf(IGD "Kept") != "longer than in the file") return false;
  *found = 0;
  for (int leaf = 0; ams_mxml_get_leaf_value(path(leaf).c_str(), value) == 0; ++leaf)
    *found += value == status ? 1 : 0;
  *there = *found;
  for (int leaf = 0; leaf < most; ++leaf) {
    if (ams_mxml_get_leaf_value(path(leaf).c_str(), value) == 0 && value[0] != '\0') continue;
    if (ams_mxml_fset_leaf(path(leaf).c_str(), status.c_str()) != 0) break;
    ++*there;
  }
  return true;
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
  int *counts = static_cast<int *>(
      mmap(nullptr, 2 * sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  ASSERT_TRUE(Elsewhere(
      [] { return nvram_set(IGD "Kept", "longer than in the file", NVTYPE_STAGING) == 0; }));
  int before = 0;
  for (const auto &start : kStarts) {
    std::string told = LogOf([&] {
      EXPECT_TRUE(Elsewhere([&] { return Crowd(start.most, counts, counts + 1); })) << start.what;
    });
    size_t line = told.find(" status values passed over");
    int passed_over = line == told.npos ? 0 : atoi(told.c_str() + told.rfind(' ', line - 1));
    EXPECT_EQ(counts[0] + passed_over, before) << start.what << told;
    EXPECT_GE(counts[0], start.found) << start.what;
    before = counts[1];
  }
}

/* ---- this process is the server ---- */

TEST_F(Store, NothingOfItIsInheritedByPrograms) {
  EXPECT_NE(nvram_init_semaphore(), -1);
  EXPECT_EQ(system("! ls -l /proc/self/fd | grep -q mdb"), 0);
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
  std::string told = LogOf([&] { EXPECT_EQ(AddLong(url), -1); });
  EXPECT_NE(told.find("the store is full: delete something"), told.npos) << told;
  for (int round = 0; round < 300; ++round) /* what makes it no larger goes on */
    EXPECT_EQ(ams_mxml_fset_leaf(IGD "Summary", round % 2 != 0 ? "full" : "FULL"), 0);
  int deleted = 0;
  for (; deleted < 400 && AddLong(url) != 0; ++deleted)
    EXPECT_EQ(
        ams_del_obj(root, (IGD "Services.List." + std::to_string(highest - 9 - deleted)).c_str()),
        0);
  EXPECT_LT(deleted, 400);
}

/* Written again and again in one span, the rows of wide objects take their pages once. */
TEST_F(Store, WideObjectsTakeTheirPagesOnce) {
  std::string leaves, elements;
  for (int leaf = 0; leaf < 100; ++leaf)
    leaves += "<Leaf" + std::to_string(leaf) + " type=\"string\"/>";
  for (const char *name : {"A", "B", "C"})
    elements += "<" + std::string(name) + " type=\"object\">" + leaves + "</" + name + ">";
  for (size_t objects = 1; objects <= 3; ++objects) {
    root = Load("<InternetGatewayDevice type=\"object\">" + elements + "</InternetGatewayDevice>");
    ASSERT_NE(root, nullptr);
    ASSERT_EQ(ams_write_begin(), 0);
    for (size_t set = 0; set < 3000; ++set) {
      const std::string leaf = IGD + std::string(1, static_cast<char>('A' + set % objects)) +
                               ".Leaf" + std::to_string(set / objects % 100);
      ASSERT_EQ(ams_mxml_fset_leaf(leaf.c_str(), std::to_string(set % 7).c_str()), 0);
    }
    EXPECT_LT(shared_tree.lmdb.pages.large, 20u) << objects;
    EXPECT_EQ(ams_write_end(), 0);
  }
}

/* The settings' commit comes first, then the tree's, then, to take it back, the settings' again. */
TEST_F(Store, WhatIsKeptIsTakenBackWhenTheTreesCommitFails) {
  const char *const kCases[][3] = {{"-", "(none)", "not changed"},
                                   {"+-", "(none)", "committing to the tree failed"},
                                   {"+--", "new", IGD "Summary, with others, is kept"}};
  for (const auto &[fails, kept, says] : kCases) {
    ASSERT_EQ(nvram_clean(NVTYPE_STAGING) | nvram_commit(NVTYPE_STAGING), 0);
    commits = fails;
    std::string told = LogOf([] {
      EXPECT_EQ(ams_write_begin(), 0);
      for (const char *value : {"first", "new"})
        EXPECT_EQ(ams_set_node_value(root, IGD "Summary", value), 0);
      EXPECT_EQ(ams_write_end(), -1);
    });
    EXPECT_EQ(commits + Leaf(IGD "Summary"), "sum") << fails;
    EXPECT_EQ(Get(IGD "Summary"), kept) << fails;
    EXPECT_NE(told.find(says), told.npos) << told;
  }
}

TEST_F(Store, AReaderThatStandsStillIsEndedWhenThePagesRunOut) {
  NEEDS_ANEW();
  pid_t holder = StartStopped(Anew("hold"));
  int refused = 0;
  std::string told = LogOf([&] {
    for (int round = 0; round < 10000; ++round) {
      std::string value(AMS_VALUE_MAX, static_cast<char>('a' + round % 2));
      refused += ams_mxml_fset_leaf(IGD "Summary", value.c_str()) == 0 ? 0 : 1;
    }
  });
  EXPECT_EQ(refused, 1) << "the write that found no page";
  EXPECT_NE(told.find("process " + std::to_string(holder) + " stood still"), told.npos) << told;
  EXPECT_EQ(End(holder), SIGKILL);
}

}  // namespace

int main(int argc, char **argv) {
  if (argc == 2 && strcmp(argv[1], "hold") == 0) /* stands still inside a read */
    return Attach() ? TreeRead([](MDB_txn *) { return raise(SIGSTOP); }) : 1;
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
