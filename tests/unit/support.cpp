// The store and the calls behind support.h.
#include "support.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <utility>

#include "ams_common_api.h"

namespace {

/* Before any thread, so that a change later moves nothing that they read. */
const int first_zone = setenv("TZ", "UTC0", 1);

void Forget() {
  ForgetRecord();
  ForgetMessages();
}

}  // namespace

void LoadModel(const std::string &text) {
  if (gptXmlTrees == nullptr) gptXmlTrees = ShmPoolSrvInit();
  ASSERT_NE(gptXmlTrees, nullptr);
  FILE *file = fmemopen(const_cast<char *>(text.data()), text.size(), "r");
  ASSERT_NE(file, nullptr);
  AmsTree *root = ams_mxmlLoadFile(nullptr, file, nullptr);
  fclose(file);
  ASSERT_NE(root, nullptr) << text;
  /* Modules that run already read the word: it changes only with the first tree. */
  if (gptXmlTrees->root != root) gptXmlTrees->root = root;
}

std::string Leaf(const std::string &path) {
  std::string value(AMS_VALUE_MAX + 1, '\0');
  if (ams_mxml_get_leaf(path.c_str(), value.data(), value.size()) != 0) return "(none)";
  return value.c_str();
}

void SetLeaf(const std::string &path, const std::string &value) {
  EXPECT_EQ(ams_mxml_fset_leaf(path.c_str(), value.c_str()), 0) << path;
}

std::string FileText(const std::string &path) {
  std::ifstream file(path);
  std::ostringstream text;
  text << file.rdbuf();
  return file ? text.str() : "(none)";
}

std::string StoreTest::DataModel() const { return FileText(TEST_DATA "/small_model.xml"); }

void StoreTest::SetUp() {
  LoadModel(DataModel());
  Forget();
}

void StoreTest::StartModules() {
  static bool started = false;
  if (started) return;
  started = true;
  LoadModel(FileText(TEST_DATA "/small_model.xml"));
  StartWithPeers();
  LoadModel(DataModel());
  Forget();
}

void LimitFiles(rlim_t bytes) {
  signal(SIGXFSZ, SIG_IGN); /* the writer sees EFBIG instead */
  rlimit limit;
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
  limit.rlim_cur = std::min(bytes, limit.rlim_max);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
}

int RunOp(const OpFuncEntry *table, const std::string &name, int op, const std::string &path,
          const char *value) {
  OpFuncArg arg = {name.c_str(), op, "", nullptr};
  std::string text = value == nullptr ? "" : value;
  if (value != nullptr) arg.value = text.data();
  snprintf(arg.path, sizeof arg.path, "%s", path.c_str());
  for (; table->name != nullptr; ++table)
    if (table->name == name && table->handler != nullptr) return table->handler(&arg);
  ADD_FAILURE() << "no handler " << name;
  return -1;
}

std::string LogOf(int32_t level, const std::function<void()> &work) {
  const int32_t before = std::exchange(DF_PRT_MAP[0].level, level);
  testing::internal::CaptureStderr();
  work();
  DF_PRT_MAP[0].level = before;
  return testing::internal::GetCapturedStderr();
}

void ExpectRecords(const std::string &source, const Lines &records,
                   const std::function<void()> &work) {
  const std::string log = LogOf(1, work);
  size_t at = 0;
  for (const std::string &record : records) {
    const std::string whole = " " + record + "  @P:" + source + ",L:";
    const size_t found = log.find(whole, at);
    ASSERT_NE(found, log.npos) << "no" << whole << "\n" << log.substr(at);
    at = found + whole.size();
  }
}

void SetZone(const char *zone) { EXPECT_EQ(setenv("TZ", zone, 1) + first_zone, 0); }

void RunMessage(const MsgEntry *table, uint32_t id, const std::string &payload) {
  const void *data = payload.empty() ? nullptr : payload.data();
  for (; table->handler != nullptr; ++table)
    if (table->id == id)
      return table->handler(static_cast<int32_t>(id), data, static_cast<uint32_t>(payload.size()));
  ADD_FAILURE() << "no row for message " << id;
}
