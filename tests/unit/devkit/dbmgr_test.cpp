// The data-base manager's checks of requests and values, what becomes of a request, and what the
// data-model file and the documentation say of the values that reach a shell line.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "ams_common_api.h"
#include "dbmgr_commands.h"
#include "dbmgr_forms.h"
#include "escape.h"

const OpFuncEntry *const FUNC_TABLES[] = {nullptr};

namespace {

struct FormCase {
  const char *form;
  std::vector<std::string> taken, refused;
};

const FormCase kForms[] = {
    {"string", {"$(reboot)\n"}, {}},
    {"dateTime", {""}, {}},
    {"boolean", {"0", "1"}, {"2", "true", ""}},
    {"unsignedInt", {"4294967295"}, {"4294967296", "-1", "oops", "1 ", " 1", "+1", "0x1", ""}},
    {"int", {"-2147483648"}, {"2147483648", "1;reboot"}},
    {"port", {"8089"}, {"-1", "65536", ""}},
    {"port list",
     {"23,2323", "1,2,3,4,5,6,7,8,9,10,11,12,13,14,65535"},
     {"1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16", "23,,24", "65536", "23;reboot", "23 24"}},
    {"path", {"/mnt/usb1_1", "/mnt/a.b/c."}, {"mnt", "/mnt/$(id)", "/mnt/../etc", "/.ssh"}},
    {"name", {"public-2.x"}, {"-rf", ".kvo_restart_uhttpd", "..", "a'b", "gr\xc3\xbc\xc3\x9f"}},
    {"text", {"Rack 2, room 1"}, {"a\nb", "`id`", "a\\nb"}},
    {"address", {"fe80::1", "vpn.example.com"}, {"1.2.3.4|id"}},
    {"range", {"10.0.0.1-10.0.0.9", ""}, {"10.0.0.1 -j ACCEPT", "1.1.1.1-1.1.1.2-1.1.1.3"}},
    {"interface", {"ppp0.100"}, {"ppp0&"}},
    {"url", {"https://user@[fe80::1]:443/a/b.bin?x=%20#y"}, {"http://a/'"}},
    {"no such form", {}, {"1"}},
};

TEST(Forms, TakeOnlyWhatAShellReadsAsTextOrTheTypeHas) {
  std::string why;
  for (const FormCase &one : kForms) {
    for (const std::string &value : one.taken)
      EXPECT_EQ(CheckForm("A.B", one.form, value, &why), 0) << value << why;
    for (const std::string &value : one.refused) {
      EXPECT_EQ(CheckForm("A.B", one.form, value, &why), -1) << one.form << ": " << value;
      EXPECT_TRUE(why.find("\"A.B\"") == 0 && why.find(one.form) != why.npos) << why;
      EXPECT_EQ(why.find('\n'), why.npos) << why;
      trust_values = true;
      EXPECT_EQ(CheckForm("A.B", one.form, value, &why), 0);
      trust_values = false;
    }
  }
}

TEST(Answer, ThatNoMessageHoldsIsARefusalWithItsSize) {
  std::string largest(TDS_PAYLOAD_MAX - 5, 'x');
  for (const char *more : {"", "x"}) {
    DbmgrAnswer answer;
    std::string bytes = DbmgrPutAnswer({0, DbmgrText::TEXT, largest + more});
    ASSERT_LE(bytes.size(), size_t{TDS_PAYLOAD_MAX});
    ASSERT_EQ(DbmgrGetAnswer(bytes.data(), bytes.size(), &answer), 0);
    bool fits = *more == '\0';
    EXPECT_EQ(answer.result, fits ? 0 : -1);
    EXPECT_EQ(answer.text == largest, fits);
    EXPECT_EQ(answer.text.find(std::to_string(largest.size() + 1)) != answer.text.npos, !fits);
  }
}

/* What UTF-8 is follows the table of well-formed sequences in the Unicode standard. */
TEST(Printable, WhatMaySteerATerminalIsShownAsItsCode) {
  const std::pair<std::string, std::string> kCases[] = {
      {"a\tb\nc\x7f", "a\\x09b\nc\\x7f"},
      {"\x9b[J", "\\x9b[J"},
      {"\xc2\x80 \xc2\x9b \xc2\x9f", "\\u0080 \\u009b \\u009f"},
      {"\xc2\xa0 \xc3\x9b \xe2\x82\xac \xf0\x9f\x98\x80 \xf4\x8f\xbf\xbf",
       "\xc2\xa0 \xc3\x9b \xe2\x82\xac \xf0\x9f\x98\x80 \xf4\x8f\xbf\xbf"},
      {"gr\xfc\x9b", "gr\\xfc\\x9b"},
      {"\xc3\x1b", "\\xc3\\x1b"},
      {"\xe2\x82", "\\xe2\\x82"},
      {"\xc0\x9b \xc1\x9b", "\\xc0\\x9b \\xc1\\x9b"},
      {"\xe0\x82\x9b", "\\xe0\\x82\\x9b"},
      {"\xed\xa0\x80", "\\xed\\xa0\\x80"},
      {"\xf0\x80\x82\x9b", "\\xf0\\x80\\x82\\x9b"},
      {"\xf4\x90\x80\x80 \xf5", "\\xf4\\x90\\x80\\x80 \\xf5"},
  };
  for (const auto &[text, shown] : kCases) EXPECT_EQ(Printable(text), shown);
}

/* ---- the file and the documentation ---- */

using Checks = std::set<std::string>;                         /* "path form", rows as {i} */
using FormsOf = std::map<std::string, std::set<std::string>>; /* by path, of all of its rows */

/* The path with "{i}" for each number. */
std::string WithoutNumbers(const std::string &path) {
  std::istringstream parts(path);
  std::string result;
  for (std::string part; std::getline(parts, part, '.');)
    result += (result.empty() ? "" : ".") +
              (part.find_first_not_of("0123456789") == part.npos ? "{i}" : part);
  return result;
}

/* Also expects of each parameter that may be set that it can be set back to what it has. */
void CollectForms(const std::string &url, FormsOf *forms) {
  char form[64] = "", type[32] = "", writable[4] = "", child[AMS_PATH_SIZE];
  AmsTree *root = gptXmlTrees->root;
  (void)ams_get_node_attr(root, url.c_str(), "type", type);  /* every node of a tree has one */
  (void)ams_get_node_attr(root, url.c_str(), "check", form); /* most have none */
  (void)ams_get_node_attr(root, url.c_str(), "writable", writable);
  (*forms)[WithoutNumbers(url)].insert(form);
  std::string why, value(AMS_VALUE_MAX + 1, '\0');
  bool leaf = strcmp(type, "array") != 0 && strcmp(type, "object") != 0 && *writable != '0';
  if (leaf) {
    ASSERT_EQ(ams_mxml_get_leaf(url.c_str(), value.data(), value.size()), 0) << url;
    EXPECT_EQ(CheckForm(url, *form != '\0' ? form : type, value.c_str(), &why), 0) << why;
  }
  if (strcmp(type, "array") == 0) {
    char row[AMS_PATH_SIZE]; /* one that has what the Template says */
    ASSERT_EQ(ams_add_obj(root, url.c_str(), row), 0) << url;
  }
  for (int more = ams_get_first_child(root, url.c_str(), child); more == 0;
       more = ams_get_next_child(root, std::string(child).c_str(), child))
    CollectForms(child, forms);
}

Checks DocumentedChecks() {
  std::string source = getenv("DEVKIT_SOURCE") == nullptr ? "." : getenv("DEVKIT_SOURCE");
  std::ifstream file(source + "/docs/security.md");
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

/* What a request is to become: who serves it and its url there, or a part of the refusal. */
struct PlanCase {
  uint32_t command;
  const char *url, *value;
  const char *served, *refused;
};

#define IGD        "InternetGatewayDevice"
#define LAN_SERVER IGD ".LANDevice.1.LANHostConfigManagement"

const PlanCase kPlans[] = {
    {APPT_CMD_GET, IGD ".Services.", "", "sysmgr:capabinfo " IGD ".Services", nullptr},
    {APPT_CMD_GET, IGD ".Services..", "", nullptr, "no parameter"},
    {APPT_CMD_SET, IGD ".Services.ServiceTelnet.", "Port=23",
     "sysmgr:capabinfo " IGD ".Services.ServiceTelnet", nullptr},
    {APPT_CMD_SET, IGD ".Services.ServiceTelnet", "Port.=23", nullptr, "\"Port.\" is no name"},
    {APPT_CMD_SET, IGD ".Services", "ServiceTelnet.Port=23", nullptr, "is no name"},
    {APPT_CMD_SET, IGD ".Services.ServiceTelnet", "Enable=on", nullptr, "type int"},
    {APPT_CMD_DEL, IGD ".X_CT-COM_UserInfo.UserList.1.", "",
     "sysmgr:capabinfo " IGD ".X_CT-COM_UserInfo.UserList.1", nullptr},
    {APPT_CMD_LIST, IGD ".X_CT-COM_UserInfo.UserList", "", " " IGD ".X_CT-COM_UserInfo.UserList",
     nullptr},
    {APPT_CMD_SET, LAN_SERVER, "DHCPServerEnable=1", " " LAN_SERVER, nullptr},
};

TEST_F(Model, RequestsBecomePlans) {
  for (const PlanCase &one : kPlans) {
    Plan plan;
    std::string why, what = std::to_string(one.command) + " " + one.url + " " + one.value;
    EXPECT_EQ(PlanRequest({one.command, one.url, one.value}, &plan, &why),
              one.refused == nullptr ? 0 : -1)
        << what << ": " << why;
    if (one.refused == nullptr)
      EXPECT_EQ(plan.module + " " + plan.url, one.served) << what;
    else
      EXPECT_NE(why.find(one.refused), why.npos) << what << ": " << why;
  }
  /* A leaf that the store would refuse when the one before it is written already. */
  Plan plan;
  std::string why;
  EXPECT_EQ(
      PlanRequest({APPT_CMD_SET, LAN_SERVER ".IPInterface.1",
                   "Enable=1\x03IPInterfaceSubnetMask=" + std::string(AMS_VALUE_MAX + 1, 'x')},
                  &plan, &why),
      -1);
  EXPECT_NE(why.find("32769 bytes"), why.npos) << why;
}

/* Values besides 0 and 1 that an op function has its own answer to. */
TEST_F(Model, SwitchesTakeWhatTheirOpFunctionsTellApart) {
#define SERVICES IGD ".Services"
#define PROFILE  SERVICES ".VoiceService.1.VoiceProfile.1"
  char row[AMS_PATH_SIZE];
  for (const char *array : {PROFILE ".Line", SERVICES ".ServiceAccessControl.ServiceCtrlList"})
    ASSERT_EQ(ams_add_obj(gptXmlTrees->root, array, row), 0);
  const std::pair<const char *, const char *> kCases[] = {
      {IGD ".DeviceInfo.X_CT-COM_ServiceManage",
       "X_KVO_DebugToolEnable=\x03X_KVO_OneBitEnable=true"},
      {IGD ".DeviceInfo.X_CT-COM_Restore", "Enable=2"},
      {IGD ".ManagementServer", "X_CT-COM_MaintainComplete=\x03X_CT-COM_ManualInform=now"},
      {IGD ".X_CT-COM_UserInfo", "Result=-1"},
      {SERVICES ".ServiceTelnet", "Enable=2"},
      {SERVICES ".ServiceSSH", "Enable=2"},
      {SERVICES ".ServiceFTP", "Enable=2"},
      {SERVICES ".ServiceTFTP", "Enable=2"},
      {SERVICES ".ServiceSNMP", "Enable=2\x03TrapEnabled=-1"},
      {SERVICES ".X_KVO-ServicePrinter", "Enabled=2"},
      {SERVICES ".ServiceSamba", "Enable=2"},
      {SERVICES ".ServiceAccessControl", "Enable=2\x03OnlyTr69Wan=2"},
      {SERVICES ".ServiceAccessControl.ServiceCtrlList.1", "Enable=2"},
      {SERVICES ".X_KVO_IPSec", "X_KVO_IPSec_Hardware_Accelate_Enable=2"},
      {SERVICES ".VoiceService.X_KVO_Is_Voip", "X_KVO_Voip_select=-1\x03X_KVO_Voip_Enable=2"},
      {PROFILE ".X_KVO-ACTION.1", "Register=2\x03Unregister=-1\x03Reboot=10"},
      {PROFILE ".Line.1.Stats", "ResetStatistics=now"},
  };
  for (const auto &[url, value] : kCases) {
    Plan plan;
    std::string why;
    EXPECT_EQ(PlanRequest({APPT_CMD_SET, url, value}, &plan, &why), 0) << why;
  }
}

TEST_F(Model, ARefusalSaysWhatItLeft) {
  const std::string array = LAN_SERVER ".IPInterface", mask = array + ".1.IPInterfaceSubnetMask";
  Plan set, add;
  std::string why;
  char row[AMS_PATH_SIZE];
  auto says = [](const Plan &plan, const char *new_row) {
    return RefusedBy("a:b", plan, "its log", new_row).text;
  };
  ASSERT_EQ(
      PlanRequest({APPT_CMD_SET, array + ".1", "IPInterfaceSubnetMask=255.0.0.0"}, &set, &why), 0);
  set.before = ValuesOf(set);
  EXPECT_NE(says(set, "").find("as before; its log says why"), why.npos) << says(set, "");
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

TEST_F(Model, WhatIsAboveModulesAsksEachOfThem) {
  const std::string all = "sysmgr:devInfo " IGD
                          ".DeviceInfo\n"
                          "sysmgr:mgtsrvr " IGD
                          ".ManagementServer\n"
                          "sysmgr:devInfo " IGD
                          ".X_TR69_Transfer\n"
                          "sysmgr:capabinfo " IGD
                          ".X_CT-COM_UserInfo\n"
                          "sysmgr:capabinfo " IGD ".Services\n";
  const std::pair<uint32_t, std::string> kCases[] = {
      {APPT_CMD_GET, IGD "."},         {APPT_CMD_ATTR, IGD},
      {APPT_CMD_REFRESH, IGD},         {APPT_CMD_GET, IGD ".LANDevice"},
      {APPT_CMD_GET, IGD ".Services"}, {APPT_CMD_GET, IGD ".DeviceSummary"}};
  for (const auto &[command, url] : kCases) {
    Plan plan;
    std::string why, asks;
    ASSERT_EQ(PlanRequest({command, url, ""}, &plan, &why), 0) << why;
    for (const Ask &ask : plan.asks) asks += ask.module + " " + ask.url + "\n";
    EXPECT_EQ(asks, plan.url == IGD && plan.leaf.empty() ? all : "") << url;
  }
}

TEST_F(Model, TheDocumentationListsEveryCheckedParameter) {
  FormsOf forms;
  CollectForms("InternetGatewayDevice", &forms);
  Checks checks;
  for (const auto &[path, of_rows] : forms) {
    EXPECT_EQ(of_rows.size(), 1U) << path << ": its rows have different forms";
    if (!of_rows.begin()->empty())
      checks.insert(path.substr(strlen("InternetGatewayDevice.")) + " " + *of_rows.begin());
  }
  EXPECT_GT(checks.size(), 20U);
  EXPECT_EQ(checks, DocumentedChecks());
}

}  // namespace
