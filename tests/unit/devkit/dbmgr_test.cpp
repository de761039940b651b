// The data-base manager's checks of requests and values, what becomes of a request, and what the
// data-model file and the documentation say of the values that reach a shell line.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <future>
#include <mutex>
#include <set>
#include <sstream>

#include "appt_request.h"
#include "dbmgr_commands.h"
#include "dbmgr_forms.h"
#include "dbmgr_proto.h"
#include "dbmgr_route.h"
#include "dbmgr_timers.h"
#include "dbmgr_watch.h"
#include "escape.h"
#include "nodes.h"
#include "print_desk.h"
#include "refusals.h"
#include "tds_desk.h"
#include "watch.h"

namespace {

std::string SourceFile(const std::string &name) {
  const char *source = getenv("DEVKIT_SOURCE");
  return std::string(source == nullptr ? "." : source) + "/" + name;
}

/* Rows "LEFT => RIGHT" of a file in tests/data/dbmgr, which says what they mean; \xHH on the left
   is a byte. */
std::vector<std::pair<std::string, std::string>> Rows(const std::string &name) {
  std::ifstream file(SourceFile("tests/data/dbmgr/" + name));
  std::vector<std::pair<std::string, std::string>> rows;
  for (std::string line; std::getline(file, line);) {
    size_t arrow = line.find(" => ");
    if (line[0] == '#' || arrow == line.npos) continue;
    rows.emplace_back(line.substr(0, arrow), line.substr(arrow + 4));
    std::string &left = rows.back().first;
    for (size_t at = 0; (at = left.find("\\x", at)) != left.npos; ++at)
      left.replace(at, 4, 1, static_cast<char>(std::stoi(left.substr(at + 2, 2), nullptr, 16)));
  }
  EXPECT_GT(rows.size(), 10U) << name;
  return rows;
}

/* The leaf of "int min=1 max=7", or of a string with the form "port list". */
AmsDeskLeaf LeafOf(std::string attributes) {
  AmsDeskLeaf leaf;
  leaf.path = "A.B";
  for (auto [mark, value] : {std::pair<const char *, std::string *>{" values=", &leaf.values},
                             {" max=", &leaf.max},
                             {" min=", &leaf.min}}) {
    const size_t at = attributes.find(mark);
    if (at == attributes.npos) continue;
    *value = attributes.substr(at + strlen(mark));
    attributes.erase(at);
  }
  const bool type =
      std::set<std::string>{"string", "dateTime", "boolean", "int", "unsignedInt"}.count(
          attributes) != 0;
  leaf.type = type ? attributes : "string";
  if (!type) leaf.check = attributes;
  return leaf;
}

TEST(Path, IsAtOrBelowAnotherByWholeNames) {
  for (const auto &[path, top, below] :
       std::initializer_list<std::tuple<const char *, const char *, bool>>{
           {"A.B", "A.B", true},
           {"A.B.1.C", "A.B", true},
           {"A", "A.B", false},
           {"A.List.10", "A.List.1", false},
           {"A.BC", "A.B", false}})
    EXPECT_EQ(IsAtOrBelow(path, top), below) << path << " " << top;
}

TEST(Forms, TakeOnlyWhatAShellReadsAsTextOrTheTypeHas) {
  std::string why;
  for (auto [value, expected] : Rows("forms.txt")) {
    const size_t arrow = expected.find(" => ");
    const std::string says = arrow == expected.npos ? "" : expected.substr(arrow + 4);
    std::string form = expected.substr(0, arrow), stored = value;
    const bool taken = form.compare(0, 3, "no ") != 0;
    if (!taken) form.erase(0, 3);
    const AmsDeskLeaf leaf = LeafOf(form);
    EXPECT_EQ(CheckValue(leaf, &stored, &why), taken ? 0 : -1) << form << ": " << value << why;
    EXPECT_EQ(stored, taken && !says.empty() ? says : value) << form;
    if (taken) continue;
    EXPECT_EQ(why.find("\"A.B\" cannot be \""), 0U) << why;
    EXPECT_NE(why.find(says.empty() ? leaf.check : says), why.npos) << why;
    EXPECT_EQ(why.find('\n'), why.npos) << why;
    trust_values = true;
    EXPECT_EQ(CheckValue(leaf, &stored, &why), 0);
    EXPECT_EQ(stored, value);
    trust_values = false;
  }
}

TEST(Reason, IsTheLastRecordThatTellsMoreThanThatThereWasOne) {
  for (auto [records, reason] : Rows("reasons.txt"))
    EXPECT_EQ(Reason(records, "its log"), reason) << records;
}

TEST(Answer, ThatNoMessageHoldsIsARefusalWithItsSize) {
  std::string largest(TDS_PAYLOAD_MAX - 5, 'x');
  for (const char *more : {"", "x"}) {
    DbmgrAnswer answer = {0, DbmgrText::TEXT, largest + more};
    DbmgrFit(&answer);
    std::string bytes = DbmgrPutAnswer(std::move(answer));
    ASSERT_LE(bytes.size(), size_t{TDS_PAYLOAD_MAX});
    ASSERT_EQ(DbmgrGetAnswer(bytes, &answer), 0);
    bool fits = *more == '\0';
    EXPECT_EQ(answer.result, fits ? 0 : -1);
    EXPECT_EQ(answer.text == largest, fits);
    EXPECT_EQ(answer.text.find(std::to_string(largest.size() + 1)) != answer.text.npos, !fits);
  }
}

TEST(Printable, WhatMaySteerATerminalIsShownAsItsCode) {
  for (const auto &[bytes, shown] : Rows("printable.txt")) EXPECT_EQ(Printable(bytes), shown);
  EXPECT_EQ(Printable("a\nb"), "a\nb");
}

/* ---- the file and the documentation ---- */

using Checks =
    std::set<std::string>; /* "path form", rows as {i}, a service with ports as {service} */

/* The path with "{i}" for each number. */
std::string WithoutNumbers(const std::string &path) {
  std::istringstream parts(path);
  std::string result;
  for (std::string part; std::getline(parts, part, '.');)
    result += (result.empty() ? "" : ".") +
              (part.find_first_not_of("0123456789") == part.npos ? "{i}" : part);
  return result;
}

/* "PATH FORM" as the documentation has it. */
std::string Documented(const std::string &path, const std::string &form) {
  return (form == "port list" ? "Services.{service}.Port" : WithoutNumbers(path)) + " " + form;
}

/* Also expects of each parameter that may be set that it can be set back to what it has. */
void CollectChecks(const std::string &url, Checks *checks) {
  char form[64] = "", type[32] = "", child[AMS_PATH_SIZE];
  AmsTree *root = gptXmlTrees->root;
  (void)ams_get_node_attr(root, url.c_str(), "type", type);  /* every node of a tree has one */
  (void)ams_get_node_attr(root, url.c_str(), "check", form); /* most have none */
  if (*form != '\0') checks->insert(Documented(url.substr(url.find('.') + 1), form));
  std::string why, value(AMS_VALUE_MAX + 1, '\0');
  AmsDeskLeaf leaf;
  if (ams_desk_leaf(url.c_str(), &leaf) == 0 && leaf.writable) {
    ASSERT_EQ(ams_mxml_get_leaf(url.c_str(), value.data(), value.size()), 0) << url;
    value.resize(strlen(value.c_str()));
    EXPECT_EQ(CheckValue(leaf, &value, &why), 0) << why;
  }
  if (strcmp(type, "array") == 0) {
    char row[AMS_PATH_SIZE]; /* one that has what the Template says */
    ASSERT_EQ(ams_add_obj(root, url.c_str(), row), 0) << url;
  }
  for (int more = ams_get_first_child(root, url.c_str(), child); more == 0;
       more = ams_get_next_child(root, std::string(child).c_str(), child))
    CollectChecks(child, checks);
}

Checks DocumentedChecks() {
  std::ifstream file(SourceFile("docs/security.md"));
  Checks checks;
  for (std::string line; std::getline(file, line);) { /* | `PATH` | FORM | COMMAND | */
    size_t form = line.find("` | "), end = line.find(" |", form + 4);
    if (line.compare(0, 3, "| `") == 0 && form != line.npos && end != line.npos)
      checks.insert(line.substr(3, form - 3) + " " + line.substr(form + 4, end - form - 4));
  }
  return checks;
}

class Model : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    gptXmlTrees = ShmPoolSrvInit();
    ASSERT_NE(gptXmlTrees, nullptr);
  }
  void SetUp() override { Load(fopen("/etc/tr098_data_model.xml", "re")); }
  static void Load(FILE *file) {
    ASSERT_NE(file, nullptr);
    gptXmlTrees->root = ams_mxmlLoadFile(nullptr, file, nullptr);
    fclose(file);
    ASSERT_NE(gptXmlTrees->root, nullptr);
  }
};

#define IGD        "InternetGatewayDevice"
#define LAN_SERVER IGD ".LANDevice.1.LANHostConfigManagement"

TEST_F(Model, RequestsBecomePlans) {
  char row[AMS_PATH_SIZE];
  for (const char *array : {".Services.VoiceService.1.VoiceProfile.1.Line",
                            ".Services.ServiceAccessControl.ServiceCtrlList"})
    ASSERT_EQ(ams_add_obj(gptXmlTrees->root, (std::string(IGD) + array).c_str(), row), 0);
  for (const auto &[request, expected] : Rows("plans.txt")) {
    std::string name, url, value, why;
    std::istringstream(request) >> name >> url >> value;
    uint32_t command = 1;
    while (FindCommand(command) == nullptr || name != FindCommand(command)->name) command <<= 1;
    Plan plan;
    const int result = PlanRequest({command, url, value}, &plan, &why);
    std::string got = (plan.module.empty() ? "-" : plan.module) + " " + plan.url;
    if (result != 0)
      got = why.find(expected.substr(4)) != why.npos ? "no: " + expected.substr(4) : why;
    for (const Ask &ask : plan.asks) got += " < " + ask.module + " " + ask.url;
    EXPECT_EQ(got, expected) << request;
  }
  /* A leaf that the store would refuse when the one before it is written already. */
  Plan plan;
  std::string why,
      value = "Enable=1\x03IPInterfaceSubnetMask=" + std::string(AMS_VALUE_MAX + 1, 'x');
  EXPECT_EQ(PlanRequest({APPT_CMD_SET, LAN_SERVER ".IPInterface.1", value}, &plan, &why), -1);
  EXPECT_NE(why.find("32769 bytes"), why.npos) << why;
}

TEST_F(Model, ARefusalSaysWhatItLeft) {
  const std::string array = LAN_SERVER ".IPInterface", mask = array + ".1.IPInterfaceSubnetMask";
  Plan set, add;
  std::string why;
  char row[AMS_PATH_SIZE];
  auto says = [](const Plan &plan, const char *new_row) {
    return RefusedBy("a:b", plan, "its line", new_row).text;
  };
  ASSERT_EQ(
      PlanRequest({APPT_CMD_SET, array + ".1", "IPInterfaceSubnetMask=255.0.0.0"}, &set, &why), 0);
  set.before = ValuesOf(set.paths);
  EXPECT_NE(says(set, "").find("IPInterface.1\": its line; its parameters are as before"), why.npos)
      << says(set, "");
  ASSERT_EQ(ams_set_node_value(gptXmlTrees->root, mask.c_str(), "255.0.0.0"), 0);
  EXPECT_EQ(says(set, "").find("as before"), why.npos) << says(set, "");

  ASSERT_EQ(PlanRequest({APPT_CMD_ADD, array, ""}, &add, &why), 0);
  EXPECT_NE(says(add, "").find("no row is new"), why.npos) << says(add, "");
  ASSERT_EQ(ams_add_obj(gptXmlTrees->root, array.c_str(), row), 0);
  EXPECT_EQ(says(add, row).find("no row is new"), why.npos) << says(add, row);
  EXPECT_NE(says(add, row).find(row), why.npos) << says(add, row);
  ASSERT_EQ(ams_del_obj(gptXmlTrees->root, row), 0);
  EXPECT_NE(says(add, row).find("no row is new"), why.npos) << says(add, row);
}

/* Not with ThreadSanitizer, which takes memory of its own when it likes: 27 MB were seen. */
#ifndef __SANITIZE_THREAD__
/* KiB of the process's own memory at its most, since `anew` let it begin to count. */
long MostMemory(bool anew) {
  if (anew && !(std::ofstream("/proc/self/clear_refs") << 5 << std::flush)) return -1;
  std::ifstream file("/proc/self/status");
  for (std::string line; std::getline(file, line);)
    if (line.compare(0, 6, "VmHWM:") == 0) return atol(line.c_str() + 6);
  return -1;
}

TEST_F(Model, AListTouchesNoMemoryForRowsThatAreGone) {
  char model[] =
      "<" IGD " type=\"object\"><A type=\"array\"><Template/><Instance id=\"7000000\"/></A></" IGD
      ">";
  Load(fmemopen(model, sizeof model - 1, "r"));
  Plan plan;
  plan.command = APPT_CMD_LIST;
  plan.url = IGD ".A";
  long before = MostMemory(true);
  EXPECT_EQ(ServeFromStore(plan).text, "7000000");
  EXPECT_LT(MostMemory(false), before + 16 * 1024);
}
#endif

/* A node may go between the check of a request and its turn. */
TEST_F(Model, ASetWithALeafThatIsGoneChangesNothing) {
  const std::string row = LAN_SERVER ".IPInterface.1";
  char before[AMS_PATH_SIZE] = "", after[AMS_PATH_SIZE] = "";
  Plan plan;
  plan.command = APPT_CMD_SET;
  plan.url = row;
  plan.value = "IPInterfaceSubnetMask=255.0.0.0\x03Gone=1";
  plan.paths = {row + ".IPInterfaceSubnetMask", row + ".Gone"};
  ASSERT_EQ(ams_mxml_get_leaf_value(plan.paths[0].c_str(), before), 0);
  EXPECT_EQ(ServeFromStore(plan).result, -1);
  ASSERT_EQ(ams_mxml_get_leaf_value(plan.paths[0].c_str(), after), 0);
  EXPECT_STREQ(after, before);
}

/* ---- the way of a request ---- */

std::mutex in_work; /* of who shares something with the router, which ends with the program */
bool silent;        /* the next request that the module gets stays without an acknowledgement */
int failing;        /* the next one is refused, after so many records of failures */

void Acknowledge(int32_t, const void *data, uint32_t) {
  char ack[APPT_ACK_HEAD_SIZE] = {};
  const std::lock_guard<std::mutex> lock(in_work);
  if (std::exchange(silent, false)) return;
  memcpy(ack, data, APPT_HEAD_SIZE);
  appt_PutWord(ack + 8, APPT_CODE_RESULT);
  if (failing > 0) appt_PutWord(ack + APPT_AT_RESULT, static_cast<uint32_t>(-1));
  for (int number = 1; number <= failing; ++number) /* the text of the last one may be long */
    AMS_PRINT(4, "failure %d%s\n", number, std::string(static_cast<size_t>(number), '.').c_str());
  if (std::exchange(failing, 0) > 0) AMS_PRINT_AT(4, "common/appt/x.cpp", 1, "an op has failed");
  EXPECT_EQ(SendMsg(EV_APPT_MSG_ACKTO_AGT, ack, sizeof ack, kApptAckPeer), 0);
}

constexpr uint32_t kCount = 0x110100; /* refuses the router's allocation of the payload's number */

void CountFrom(int32_t, const void *data, uint32_t) {
  size_t turn = 0, had = refusals.count;
  char sender[TDS_NAME_SIZE];
  const std::lock_guard<std::mutex> lock(in_work);
  refusals.counting = false;
  memcpy(&turn, data, sizeof turn);
  Sender(sender);
  EXPECT_EQ(SynAckData_lib(&had, sizeof had, kCount, sender), 0);
  refusals = {true, 0, turn, turn};
}

/* The answer's text; "timeout" and the like without one. */
std::string Asked(uint32_t id, const std::string &message) {
  std::string reply;
  return tds_call(id, message.data(), static_cast<uint32_t>(message.size()), kDbmgrName, 60000,
                  &reply) == 0
             ? reply
             : strerror(errno);
}

/* "done", with `text` as the answer has it, or the text of the answer's refusal. */
std::string Answered(const DbmgrRequest &request, std::string *text = nullptr) {
  DbmgrAnswer answer;
  std::string bytes = Asked(kDbmgrRequest, DbmgrPutRequest(request));
  if (DbmgrGetAnswer(bytes, &answer) != 0) return bytes;
  if (text != nullptr) *text = answer.text;
  return answer.result == 0 ? "done" : answer.text;
}

/* The answer to a request for the module's node. */
std::string Refreshed() { return Answered({APPT_CMD_REFRESH, IGD ".A", ""}); }

WatchNews Watched(const WatchPlace &place, const std::vector<std::string> &paths = {}) {
  WatchNews news;
  const std::string bytes = Asked(kDbmgrWatch, WatchQuestion(place, paths));
  EXPECT_TRUE(WatchGetAnswer(bytes, &news)) << bytes;
  return news;
}

class Route : public Model {
 protected:
  /* A module serves one of its nodes. */
  static void LoadTree() {
    char model[] = "<" IGD
                   " type=\"object\"><A type=\"object\" mod=\"dbmgr:module\"/>"
                   "<B type=\"object\"><L type=\"string\">b</L></B><C type=\"array\"><Template>"
                   "<N type=\"string\"/></Template><Instance id=\"1\"/></C></" IGD ">";
    Load(fmemopen(model, sizeof model - 1, "r"));
  }
  void SetUp() override {
    LoadTree();
    static const int started = Start();
    ASSERT_EQ(started, 0);
  }

 private:
  static int Start() {
    static const MsgEntry kRoute[] = {
        {TDS_MSG_INIT, [](int32_t, const void *, uint32_t) { tds_serve_also(kApptAckPeer); }},
        {kDbmgrRequest, RouteRequest},
        {kCount, CountFrom},
        {kDbmgrWatch, WatchAsked},
        {TDS_MSG_TIMER + WATCH_TELL_TIMER, WatchTell},
        {TDS_MSG_TIMER + WATCH_PAUSE_TIMER, WatchPause},
        {EV_APPT_MSG_ACKTO_AGT, RouteAcknowledgement},
        {0, nullptr}};
    static const MsgEntry kServe[] = {{EV_APPT_MSG_REQUEST, Acknowledge}, {0, nullptr}};
    static const ModuleEntry kModules[] = {
        {kDbmgrName, {0, 0}, kRoute}, {"dbmgr:module", {0, 0}, kServe}, {nullptr, {0, 0}, nullptr}};
    return SysInit(kModules);
  }
};

TEST_F(Route, AnAcknowledgementThatIsMissingHoldsUpNobody) {
  {
    const std::lock_guard<std::mutex> lock(in_work);
    silent = true;
  }
  std::future<std::string> one = std::async(std::launch::async, Refreshed);
  const std::set<std::string> answers = {Refreshed(), one.get()};
  EXPECT_EQ(answers.size(), 2U);
  EXPECT_EQ(answers.begin()->find("dbmgr:module could not acknowledge it: look at "), 0U)
      << *answers.begin();
  EXPECT_EQ(*answers.rbegin(), "done");
}

TEST_F(Route, ARefusalHasTheLastFailureOfItsOwnRequest) {
  testing::internal::CaptureStderr();
  for (int number : {1, 200, 3000}) {
    {
      const std::lock_guard<std::mutex> lock(in_work);
      failing = number;
    }
    const std::string refusal = Refreshed(), told = "failure " + std::to_string(number) + ".";
    EXPECT_EQ(refusal.find("dbmgr:module refused refresh of \"" IGD ".A\": " + told), 0U)
        << refusal;
    EXPECT_LT(refusal.size(), size_t{kAmsDeskFailures} + 100);
    EXPECT_EQ(Refreshed(), "done");
  }
  (void)testing::internal::GetCapturedStderr();
}

TEST_F(Route, EachRequestThatLacksMemoryIsAnswered) {
  auto count_from = [](size_t turn) {
    size_t had = 0;
    const std::string bytes =
        Asked(kCount, std::string(reinterpret_cast<char *>(&turn), sizeof turn));
    EXPECT_EQ(bytes.size(), sizeof had) << bytes;
    memcpy(&had, bytes.data(), std::min(sizeof had, bytes.size()));
    return had;
  };
  auto load = [&] {
    /* The module notes a watched request behind its answer: not in a new tree. */
    (void)count_from(0);
    LoadTree();
  };
  auto state = [] {
    std::string text;
    EXPECT_EQ(ams_desk_text(IGD, 0, &text), 0);
    return text;
  };
  const DbmgrRequest kRequests[] = {
      {APPT_CMD_GET, IGD, ""},          {APPT_CMD_SET, IGD ".B", "L=1"},
      {APPT_CMD_ADD, IGD ".C", ""},     {APPT_CMD_DEL, IGD ".C.1", ""},
      {APPT_CMD_LIST, IGD ".C", ""},    {APPT_CMD_ATTR, IGD ".B", ""},
      {APPT_CMD_REFRESH, IGD ".A", ""},
  };
  const std::string before = state();
  for (bool is_watched : {false, true})
    for (const DbmgrRequest &request : kRequests) {
      size_t refused = 0;
      std::string good, text;
      load();
      EXPECT_EQ(Answered(request, &good), "done");
      const std::string after = state();
      for (size_t turn = 1, had = turn; had >= turn; ++turn) {
        SCOPED_TRACE(std::to_string(request.command) + " " + std::to_string(turn));
        load();
        if (is_watched) (void)Watched({});
        (void)count_from(turn);
        const std::string answer = Answered(request, &text);
        had = count_from(0);
        if (answer == "done") {
          EXPECT_EQ(text, good);
          EXPECT_EQ(state(), after);
        } else {
          ++refused;
          EXPECT_TRUE(answer.find("memory") != answer.npos ||
                      answer.find("it cannot be kept") != answer.npos)
              << answer;
          EXPECT_EQ(state(), before) << answer;
          EXPECT_EQ(Answered(request), "done");
        }
        EXPECT_EQ(Refreshed(), "done");
      }
      EXPECT_GT(refused, 0U) << request.command;
    }
  (void)count_from(0);
  const std::lock_guard<std::mutex> lock(in_work);
}

/* A watcher that is late gets the last thousand, in order, and is told of those before. */
TEST_F(Route, AWatcherSeesEachRequestOnceOrIsToldThatItDidNot) {
  WatchPlace place = Watched({}).place;
  const uint64_t first = place.next;
  for (int at = 0; at < 1100; ++at) ASSERT_EQ(Refreshed(), "done");
  for (uint64_t seen = 0, missed = 0; seen < 1000; missed = 0) {
    const WatchNews news = Watched(place);
    missed = news.missed;
    EXPECT_EQ(missed, seen == 0 ? 100U : 0U);
    ASSERT_EQ(news.events.size(), 200U);
    for (const Json &event : news.events) {
      EXPECT_EQ(event.at("command"), "refresh");
      EXPECT_EQ(event.at("path"), IGD ".A");
      EXPECT_EQ(event.at("module"), "dbmgr:module");
      EXPECT_EQ(event.at("result"), "done");
      EXPECT_EQ(event.at("pid"), getpid());
      EXPECT_GE(event.at("total_ms"), event.at("module_ms"));
    }
    seen += news.events.size();
    place = news.place;
    EXPECT_EQ(place.next, first + 100 + seen);
  }
  EXPECT_EQ(Refreshed(), "done");
  EXPECT_TRUE(Watched(place, {IGD ".Another"}).events.empty());
  EXPECT_EQ(Watched(place, {IGD}).events.size(), 1U);
  EXPECT_EQ(Watched({place.run + 1, 0}).place.next, place.next + 1) << "another run's events";
}

TEST_F(Route, QuestionsAndAnswersOfWatchersAreChecked) {
  for (const std::string bad :
       {"", "[]", "{}", R"({"run":1,"next":-1,"paths":[]})", R"({"run":1,"next":1,"paths":[1]})",
        R"({"run":"1","next":1,"paths":[]})", R"({"run":1,"next":1,"paths":{}})", "{\"run\""})
    EXPECT_EQ(Asked(kDbmgrWatch, bad), strerror(ENOMSG)) << bad;
  EXPECT_EQ(Asked(kDbmgrWatch, WatchQuestion({}, {std::string(256, 'x')})), strerror(ENOMSG));
  EXPECT_EQ(Asked(kDbmgrWatch, WatchQuestion({}, std::vector<std::string>(65))), strerror(ENOMSG));
  WatchNews news;
  for (const char *bad : {"", "{}", R"({"run":1,"next":1,"missed":0})",
                          R"({"run":1,"next":1,"missed":0,"events":[{}]})",
                          R"({"run":1,"next":1,"missed":0,"events":[1]})",
                          R"({"run":1,"next":1,"missed":0.5,"events":[]})"})
    EXPECT_FALSE(WatchGetAnswer(bad, &news)) << bad;
}

TEST_F(Model, TheDocumentationListsEveryCheckedParameter) {
  Checks checks;
  CollectChecks("InternetGatewayDevice", &checks);
  EXPECT_GT(checks.size(), 20U);
  EXPECT_EQ(checks, DocumentedChecks());
}

}  // namespace
