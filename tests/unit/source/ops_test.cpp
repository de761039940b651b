// Runs the case files of tests/data/ops, whose README tells their form: a file there is a test.
#include <gtest/gtest-spi.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>

#include "appt_dispatch.h"
#include "modem_at.h"
#include "nvram.h"
#include "ops_runs.h"
#include "ops_text.h"
#include "refusals.h"
#include "serviceCtrl_func.h"
#include "sms_box.h"
#include "sms_ussd.h"
#include "sup_main.h"
#include "support.h"
#include "tds_heap.h"

namespace {
thread_local std::string no_memory_for; /* a tag; "": there is memory */
}

extern "C" char *__real___tds_strdup(const char *text, const char *tag);
extern "C" char *__wrap___tds_strdup(const char *text, const char *tag);
char *__wrap___tds_strdup(const char *text, const char *tag) {
  return no_memory_for == tag ? nullptr : __real___tds_strdup(text, tag);
}

extern "C" void *__real___tds_malloc(size_t size, const char *tag);
extern "C" void *__wrap___tds_malloc(size_t size, const char *tag);
void *__wrap___tds_malloc(size_t size, const char *tag) {
  return no_memory_for == tag ? nullptr : __real___tds_malloc(size, tag);
}

namespace {

/* What is run, and what has to come of it; or lines that get a name. */
struct Act {
  std::string where, let;
  std::vector<std::function<int(const Act &)>> runs; /* of each the same has to come */
  bool caught = true; /* whoever calls what is run catches what it throws */
  bool is_timers =
      false; /* a message that the timers bring: those it sets anew are, come what may */
  int result = 0;
  Lines lines;
  std::vector<std::pair<std::string, std::string>> leaves, nodes, files;
  std::optional<std::string> reply,
      kept; /* a request has a reply or none; kept is looked at when told */
  std::vector<Record> records;
  std::string source; /* of the records; "": any */
  Lines unlogged;
};

/* What a command line with `piece` in it leaves. */
struct Leaving {
  std::string piece, path, text;
};

struct Script {
  std::string model_file = "/etc/tr098_data_model.xml", model, where;
  Act act = {};
  Lines aside;                   /* files that the case put out of the way */
  std::vector<Leaving> leavings; /* the last one that fits counts */
  std::map<std::string, Lines> named;
  size_t refused = 0; /* not 0: the acts lack this allocation of theirs, and nothing is compared */
  size_t allocated = 0; /* how many they had so far then */
};

/* ---- acts ---- */

/* The records of the act have to be there in their order, and all of level 4 have to be its. */
void ExpectRecords(const Act &act, const std::string &log) {
  size_t next = 0;
  for (const Record &record : Records(log)) {
    const bool fits = next < act.records.size() && act.records[next].level == record.level &&
                      Fits(act.records[next].text, record.text);
    if (fits) ++next;
    for (const std::string &text : act.unlogged)
      EXPECT_FALSE(Fits(text, record.text)) << act.where << record.text;
    if (fits && record.level > 0 && !act.source.empty()) {
      EXPECT_EQ(record.source, act.source) << act.where;
    }
    EXPECT_TRUE(fits || record.level < 4) << act.where << " also logs: " << record.text;
  }
  if (next < act.records.size()) {
    ADD_FAILURE() << act.where << " does not log: " << act.records[next].text << "\n" << log;
  }
}

/* Runs a request on this thread; what it answers is compared with the act's. */
int RunRequest(const Act &act, uint32_t command, const std::string &url, const std::string &value) {
  MsgArg arg = {};
  const bool counting = std::exchange(refusals.counting, false);
  const std::string frame = RequestFrame(7, command, url, value);
  EXPECT_EQ(appt_FillMsgArg(&arg, frame.data(), static_cast<uint32_t>(frame.size())), 0);
  refusals.counting = counting;
  const int result = appt_RunRequest(&arg);
  const MemoryOfTheTest own;
  std::optional<std::string> reply;
  if (arg.rBuf != nullptr) reply = std::string(arg.rBuf, arg.rLen - 1);
  __tds_free(arg.rBuf);
  EXPECT_EQ(reply, act.reply) << act.where;
  return result;
}

std::string NodeText(const std::string &path) {
  char *text = nullptr;
  if (ams_get_node_value(gptXmlTrees->root, path.c_str(), &text) != 0) return "(none)";
  const std::string copy = text;
  __tds_free(text);
  return copy;
}

/* What nvram keeps, by path below the root, in the order of the paths. */
std::string Kept() {
  std::string kept;
  auto visit = [](const char *key, const char *value, void *context) {
    auto *all = static_cast<std::string *>(context);
    *all += (all->empty() ? "" : " ") + std::string(key + strlen("InternetGatewayDevice.")) + "=" +
            value;
    return 0;
  };
  EXPECT_EQ(nvram_walk(NVTYPE_STAGING, "InternetGatewayDevice.", visit, &kept), 0);
  return kept;
}

size_t OpenDescriptors() {
  const auto all = std::filesystem::directory_iterator("/proc/self/fd");
  return static_cast<size_t>(std::distance(begin(all), end(all)));
}

/* What is refused to an act costs that act, and nothing that is held stays behind. */
void RunRefused(Script *script, const Act &act) {
  testing::TestPartResultArray ignored;
  const ptrdiff_t blocks = tds_malloc_count(nullptr).blocks;
  const size_t descriptors = OpenDescriptors();
  bool threw = false;
  for (const auto &run : act.runs) {
    const testing::ScopedFakeTestPartResultReporter reporter(
        testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &ignored);
    const size_t at = script->refused - std::min(script->refused, script->allocated);
    (void)LogOf(5, [&] {
      script->allocated += WithoutMemory(at, at, [&] {
        try {
          (void)run(act);
        } catch (const std::bad_alloc &) {
          threw = true;
        }
      });
    });
    no_memory_for.clear();
    LimitFiles(RLIM_INFINITY);
  }
  const Lines commands = TakeCommands();
  for (const std::string &line : act.lines)
    EXPECT_TRUE(!act.is_timers || line.find("SetTimer(") != 0 ||
                std::count(commands.begin(), commands.end(), line) != 0)
        << act.where << line;
  EXPECT_EQ(tds_malloc_count(nullptr).blocks, blocks) << act.where;
  EXPECT_EQ(OpenDescriptors(), descriptors) << act.where;
  EXPECT_TRUE(!threw || act.caught) << act.where;
}

void Run(Script *script) {
  const Act act = std::exchange(script->act, {});
  if (!act.let.empty()) script->named[act.let] = act.lines;
  if (script->refused != 0) return RunRefused(script, act);
  for (const auto &run : act.runs) {
    testing::internal::CaptureStdout();
    std::string log = LogOf(1, [&] { EXPECT_EQ(run(act), act.result) << act.where; });
    log += testing::internal::GetCapturedStdout();
    no_memory_for.clear();
    LimitFiles(RLIM_INFINITY);
    EXPECT_EQ(TakeCommands(), act.lines) << act.where;
    ExpectRecords(act, log);
    for (const auto &[path, value] : act.leaves) EXPECT_EQ(Leaf(path), value) << act.where << path;
    if (act.kept) {
      EXPECT_EQ(Kept(), *act.kept) << act.where;
    }
    for (const auto &[path, text] : act.nodes) EXPECT_EQ(NodeText(path), text) << act.where << path;
    for (const auto &[path, text] : act.files)
      EXPECT_TRUE(Fits(text, FileText(path))) << act.where << path << ": " << FileText(path);
  }
}

const OpFuncEntry *TableOf(const std::string &name) {
  for (const OpFuncEntry *const *table = kFuncTables; *table != nullptr; ++table)
    for (const OpFuncEntry *row = *table; row->name != nullptr; ++row)
      if (name == row->name && row->handler != nullptr) return *table;
  ADD_FAILURE() << "no op function " << name;
  return kFuncTables[0];
}

/* op NAME[,NAME...] OP[,OP...] [PATH [VALUE]] */
void AddOps(Act *act, std::string rest) {
  static const std::vector<std::pair<std::string, int>> kOps = {
      {"init", TMF_INIT}, {"get", TMF_GET}, {"set", TMF_SET}, {"add", TMF_ADD}, {"del", TMF_DEL}};
  const Lines names = Split(Word(&rest), ','), ops = Split(Word(&rest), ',');
  const bool valued = rest.find(' ') != rest.npos;
  const std::string path = Word(&rest), value = Expanded(rest);
  for (const std::string &name : names)
    for (const std::string &word : ops)
      for (const auto &[op_name, op] : kOps)
        if (op_name == word)
          act->runs.push_back([=, op = op](const Act &) {
            return RunOp(TableOf(name), name, op, Expanded(path), valued ? value.c_str() : nullptr);
          });
  EXPECT_EQ(act->runs.size(), names.size() * ops.size()) << act->where << " names no op";
}

/* request COMMAND PATH [VALUE] */
void AddRequest(Act *act, std::string rest) {
  static const std::map<std::string, uint32_t> kCommands = {
      {"get", APPT_CMD_GET},        {"set", APPT_CMD_SET},   {"add", APPT_CMD_ADD},
      {"del", APPT_CMD_DEL},        {"list", APPT_CMD_LIST}, {"attr", APPT_CMD_ATTR},
      {"refresh", APPT_CMD_REFRESH}};
  const std::string word = Word(&rest);
  const bool number = word.compare(0, 2, "0x") == 0;
  const auto command =
      number ? static_cast<uint32_t>(std::stoul(word, nullptr, 16)) : kCommands.at(word);
  const std::string path = Word(&rest), value = Expanded(rest);
  act->runs.push_back([=](const Act &now) { return RunRequest(now, command, path, value); });
  act->caught = false;
}

/* message MODULE ID [PAYLOAD] */
void AddMessage(Act *act, std::string rest) {
  const std::string name = Word(&rest);
  const uint32_t id = static_cast<uint32_t>(std::stoul(Word(&rest), nullptr, 0));
  const std::string payload = Expanded(rest);
  act->is_timers = id >= TDS_MSG_TIMER && id < TDS_MSG_TIMER + TDS_TIMERS;
  for (const ModuleEntry *module = kSysmgrModules; module->name != nullptr; ++module)
    if (name == module->name)
      act->runs.push_back([=, table = module->table](const Act &) {
        RunMessage(table, id, payload);
        return 0;
      });
  EXPECT_EQ(act->runs.size(), 1U) << act->where << " names no module";
}

/* run WHAT [ARGUMENTS]: what is run neither by an op nor by a message alone. */
void AddRun(Act *act, std::string rest) {
  const std::string what = Word(&rest), arguments = Expanded(rest);
  act->caught = what != "download"; /* a thread of its own */
  for (const OpsRun *row = kOpsRuns; row->name != nullptr; ++row)
    if (what == row->name)
      act->runs.push_back([=, run = row->run](const Act &) { return run(arguments); });
  EXPECT_EQ(act->runs.size(), 1U) << act->where << " runs nothing";
}

/* ---- what stands before an act ---- */

/* Names the element otherwise, so that the model lacks it. */
void LeaveOut(Script *script, const std::string &element) {
  bool found = false;
  for (const std::string &tag : {"<" + element + " ", "</" + element + ">"})
    for (size_t at = 0; (at = script->model.find(tag, at)) != script->model.npos;
         ++at, found = true)
      script->model.insert(at + (tag[1] == '/' ? 2 : 1), "Without");
  EXPECT_TRUE(found) << script->where << " leaves out what is not there";
  LoadModel(script->model);
}

/* What is there comes back at the end of the case, and what is not is not there then. */
void PutAside(Script *script, const std::string &path) {
  if (std::count(script->aside.begin(), script->aside.end(), path) != 0) {
    std::filesystem::remove_all(path); /* of the case itself */
    return;
  }
  const bool there = std::rename(path.c_str(), (path + ".aside").c_str()) == 0;
  EXPECT_TRUE(there || errno == ENOENT) << script->where;
  script->aside.push_back(path);
}

void PutBack(Script *script) {
  for (const std::string &path : script->aside) {
    std::filesystem::remove_all(path);
    if (std::filesystem::exists(std::filesystem::symlink_status(path + ".aside")))
      std::filesystem::rename(path + ".aside", path);
  }
  script->aside.clear();
}

/* What a shell makes of the lines that write a file by echo. */
void Echo(const std::string &line) {
  const std::string echo = "echo -e \"";
  const size_t end = line.rfind("\" >"), name = line.rfind(' ');
  if (line.compare(0, echo.size(), echo) != 0 || end == line.npos) return;
  std::ofstream(line.substr(name + 1), line[end + 3] == '>' ? std::ios::app : std::ios::trunc)
      << line.substr(echo.size(), end - echo.size()) << '\n';
}

void Leave(const Script &script, const std::string &line) {
  for (auto one = script.leavings.rbegin(); one != script.leavings.rend(); ++one)
    if (line.find(one->piece) != line.npos) {
      std::ofstream(one->path) << one->text;
      return;
    }
  Echo(line);
}

/* What modules keep beside the data model is as after a start. */
void Begin(Script *script) {
  PutBack(script);
  script->model = FileText(script->model_file);
  LoadModel(script->model);
  EXPECT_EQ(nvram_clean(NVTYPE_STAGING), 0);
  WebPortList = {1, {80}};
  WebRestartForced = 0;
  script->leavings.clear();
  OnDelay(nullptr);
  short_msg_state = {};
  short_msg_ussd_time = msgResult = 0;
  for (int index = 0; index < 10; ++index) ShortMsgForget(index);
}

void Prepare(Script *script, const std::string &word, std::string rest) {
  char url[AMS_PATH_SIZE];
  if (word == "set") {
    const std::string path = Word(&rest);
    SetLeaf(path, Expanded(rest));
  } else if (word == "keep") {
    const std::string path = Word(&rest);
    EXPECT_EQ(ams_set_node_value(gptXmlTrees->root, path.c_str(), rest.c_str()), 0);
  } else if (word == "row") {
    EXPECT_EQ(ams_add_obj(gptXmlTrees->root, Word(&rest).c_str(), url), 0) << script->where;
    for (const std::string &leaf : Split(rest, ' ')) {
      const size_t equals = leaf.find('=');
      SetLeaf(url + ("." + leaf.substr(0, equals)), Expanded(leaf.substr(equals + 1)));
    }
  } else if (word == "delete") {
    EXPECT_EQ(ams_del_obj(gptXmlTrees->root, rest.c_str()), 0) << script->where;
  } else if (word == "without") {
    LeaveOut(script, rest);
  } else if (word == "prints") {
    AnswerPopen(Expanded(rest));
  } else if (word == "no-shell") {
    FailPopen();
  } else if (word == "no-process") {
    AnswerSystem(-1, EAGAIN);
  } else if (word == "no-memory") {
    no_memory_for = rest;
  } else if (word == "no-thread") {
    FailThread();
  } else if (word == "answers") {
    AnswerCall(Expanded(rest));
  } else if (word == "forced") {
    WebRestartForced = atoi(rest.c_str());
  } else if (word == "later") {
    short_msg_ussd_time -= atoi(rest.c_str());
  } else if (word == "leaves") {
    const std::string piece = Word(&rest), path = Word(&rest);
    script->leavings.push_back({piece, path, Expanded(rest)});
  } else if (word == "grows") {
    const std::string path = Word(&rest);
    OnDelay([path, text = Expanded(rest), waits = 0]() mutable {
      const MemoryOfTheTest own;
      if (++waits == 5) std::ofstream(path, std::ios::app) << text;
    });
  } else if (word == "gone") {
    PutAside(script, rest);
  } else if (word == "file") {
    const std::string path = Word(&rest);
    PutAside(script, path);
    std::error_code exists;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), exists);
    std::ofstream(path) << Expanded(rest);
  } else if (word == "folder") {
    PutAside(script, rest);
    EXPECT_EQ(mkdir(rest.c_str(), 0700), 0) << script->where;
  } else if (word == "pipe") {
    PutAside(script, rest);
    EXPECT_EQ(mkfifo(rest.c_str(), 0600), 0) << script->where;
  } else if (word == "room") {
    LimitFiles(strtoul(rest.c_str(), nullptr, 10));
  } else if (word == "link") {
    const std::string path = Word(&rest);
    PutAside(script, path);
    EXPECT_EQ(symlink(rest.c_str(), path.c_str()), 0) << script->where;
  } else {
    ADD_FAILURE() << script->where << " begins with an unknown word";
  }
}

/* Whether the line tells what has to come of the act. */
bool Expects(Script *script, const std::string &word, std::string rest) {
  Act *act = &script->act;
  if (word == ">") {
    act->lines.push_back(Expanded(rest));
  } else if (word == ">>") {
    EXPECT_EQ(script->named.count(rest), 1U) << script->where << "is the name of no lines";
    const Lines &lines = script->named[rest];
    act->lines.insert(act->lines.end(), lines.begin(), lines.end());
  } else if (word == "=") {
    const std::string path = Word(&rest);
    act->leaves.emplace_back(path, Expanded(rest));
  } else if (word == "holds") {
    const std::string path = Word(&rest);
    act->nodes.emplace_back(path, Expanded(rest));
  } else if (word == "reply") {
    act->reply = Expanded(rest);
  } else if (word == "kept") {
    act->kept = Expanded(rest);
  } else if (word == "file=") {
    const std::string path = Word(&rest);
    act->files.emplace_back(path, Expanded(rest));
  } else if (word == "words=") {
    const std::string path = Word(&rest);
    std::string bytes;
    for (const std::string &number : Split(rest, ' ')) bytes += NativeWord(number);
    act->files.emplace_back(path, bytes);
  } else if (word == "log") {
    const int level = atoi(Word(&rest).c_str());
    act->records.push_back({level, Expanded(rest), ""});
  } else if (word == "nolog") {
    act->unlogged.push_back(Expanded(rest));
  } else if (word == "from") {
    act->source = rest;
  } else if (word == "result") {
    act->result = atoi(rest.c_str());
  } else {
    return false;
  }
  return true;
}

void Handle(Script *script, std::string line) {
  const std::string word = Word(&line);
  if (word == "times") {
    for (int count = atoi(Word(&line).c_str()); count > 0; --count) Handle(script, line);
    return;
  }
  if (Expects(script, word, line)) return;
  Run(script);
  script->act.where = script->where;
  if (word == "case")
    Begin(script);
  else if (word == "let")
    script->act.let = line;
  else if (word == "op")
    AddOps(&script->act, line);
  else if (word == "request")
    AddRequest(&script->act, line);
  else if (word == "model")
    script->model_file = TEST_DATA "/" + line;
  else if (word == "message")
    AddMessage(&script->act, line);
  else if (word == "run")
    AddRun(&script->act, line);
  else
    Prepare(script, word, line);
}

Lines Files() {
  Lines names;
  for (const auto &file : std::filesystem::directory_iterator(TEST_DATA "/ops"))
    if (file.path().extension() == ".txt") names.push_back(file.path().stem());
  std::sort(names.begin(), names.end());
  return names;
}

class Ops : public StoreTest, public testing::WithParamInterface<std::string> {};

TEST_P(Ops, DoWhatTheirCasesTell) {
  Script script;
  std::ifstream file(TEST_DATA "/ops/" + GetParam() + ".txt");
  std::string line, what;
  RecordRuntime();
  OnSystem([&](const std::string &command) { Leave(script, command); });
  for (int number = 1; std::getline(file, line); ++number) {
    if (line.empty() || line[0] == '#') continue;
    if (line.compare(0, 5, "case ") == 0) what = line.substr(5);
    script.where = GetParam() + ".txt:" + std::to_string(number) + " (" + what + "): " + line + " ";
    Handle(&script, line);
  }
  Handle(&script, "case end");
  PutBack(&script);
}

/* Runs the lines of a case. How many allocations its acts had, when one is refused. */
size_t Replay(Script *script, const Lines &lines, size_t refused) {
  script->refused = refused;
  script->allocated = 0;
  for (const std::string &line : lines) {
    script->where = "without allocation " + std::to_string(refused) + ": " + line + " ";
    Handle(script, line);
  }
  Run(script);
  ForgetAnswers();
  return script->allocated;
}

/* Each case without one of the allocations of its acts, and then as it is told. GATEWAY_MEMORY_STEP
   says how far one that is tried is from the next: 1 for all of them, which takes long. */
TEST_P(Ops, LackMemoryInTurn) {
  const char *wanted = getenv("GATEWAY_MEMORY_STEP");
  const size_t step = wanted == nullptr ? 41 : std::max(1UL, strtoul(wanted, nullptr, 10));
  Script script;
  Lines lines;
  size_t turns = 0;
  std::ifstream file(TEST_DATA "/ops/" + GetParam() + ".txt");
  RecordRuntime();
  OnSystem([&](const std::string &command) { Leave(script, command); });
  for (std::string line; !HasFailure();) {
    const bool more = static_cast<bool>(std::getline(file, line));
    if (!more || line.compare(0, 5, "case ") == 0) {
      for (size_t refused = 1, last = 1; refused <= last && !HasFailure();
           refused += step, ++turns) {
        SCOPED_TRACE(GetParam() + ".txt: " + (lines.empty() ? "" : lines[0]));
        last = Replay(&script, lines, refused);
        Replay(&script, lines, 0);
      }
      lines.clear();
    }
    if (!more) break;
    if (!line.empty() && line[0] != '#') lines.push_back(line);
  }
  Handle(&script, "case end");
  PutBack(&script);
  printf("%zu turns\n", turns);
}

std::string FileOf(const testing::TestParamInfo<std::string> &file) { return file.param; }

INSTANTIATE_TEST_SUITE_P(Files, Ops, testing::ValuesIn(Files()), FileOf);

}  // namespace
