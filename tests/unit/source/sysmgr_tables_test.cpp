// The FUNC tables: beside the desk's data-model file in both directions, and how every row begins.
#include <cstring>
#include <functional>
#include <map>
#include <set>

#include "support.h"

namespace {

AmsTree *Root() { return gptXmlTrees->root; }

/* The op names of `url` and of every node below it; each array gets a row that has what its
   Template says. */
void CollectOps(const std::string &url, std::set<std::string> *ops) {
  char op[128], type[16] = "", child[AMS_PATH_SIZE];
  if (ams_get_node_attr(Root(), url.c_str(), "op", op) == 0) ops->insert(op);
  (void)ams_get_node_attr(Root(), url.c_str(), "type", type); /* every node of a tree has one */
  bool array = strcmp(type, "array") == 0;
  ASSERT_TRUE(!array || ams_add_obj(Root(), url.c_str(), child) == 0) << url;
  for (int more = ams_get_first_child(Root(), url.c_str(), child); more == 0;
       more = ams_get_next_child(Root(), std::string(child).c_str(), child))
    CollectOps(child, ops);
}

TEST_F(StoreTest, TheDataModelFileAndTheFuncTablesNameTheSameOps) {
  FILE *file = fopen("/etc/tr098_data_model.xml", "re");
  ASSERT_NE(nullptr, file);
  ASSERT_NE(nullptr, ams_mxmlLoadFile(nullptr, file, nullptr));
  fclose(file);
  std::set<std::string> ops, rows;
  CollectOps("InternetGatewayDevice", &ops);
  for (const OpFuncEntry *const *table = kFuncTables; *table != nullptr; ++table)
    for (const OpFuncEntry *row = *table; row->name != nullptr; ++row) {
      rows.insert(row->name);
      bool named = row->handler == nullptr || ops.count(row->name) == 1;
      EXPECT_TRUE(named) << "no node names the op function " << row->name;
    }
  EXPECT_GT(ops.size(), 20U);
  for (const std::string &op : ops) EXPECT_EQ(1U, rows.count(op)) << "no row for op " << op;
}

/* Calls `work` with each row that has a handler. */
void ForEachRow(const std::function<void(const OpFuncEntry &)> &work) {
  for (const OpFuncEntry *const *table = kFuncTables; *table != nullptr; ++table)
    for (const OpFuncEntry *row = *table; row->name != nullptr; ++row)
      if (row->handler != nullptr) work(*row);
}

TEST_F(StoreTest, ANullArgumentIsRefusedOrLeftAlone) {
  const std::set<std::string> fine = {"FuncUserInfo", "FuncSCL", "FuncSrvLists", "FuncSyslog",
                                      "FuncUPNP"};
  ForEachRow([&](const OpFuncEntry &row) {
    EXPECT_EQ(row.handler(nullptr), fine.count(row.name) == 1 ? 0 : -1) << row.name;
  });
  EXPECT_EQ(TakeCommands(), std::vector<std::string>{});
}

/* With its name in front, but for these. */
TEST_F(StoreTest, EveryHandlerLogsWhatItIsAsked) {
  const std::map<std::string, std::string> others = {
      {"FuncUserInfoUserListI", ""},
      {"FuncDlnaServer", ""},
      {"FuncRemoteAccess", ""},
      {"FuncWOL", ""},
      {"FuncZabbix", ""},
      {"FuncConnRecovery", ""},
      {"FuncDongleWanKeep", ""},
      {"FuncStatusUpdater", ""},
      {"FuncServFotaUpgrade", ""},
      {"FuncVrrp", ""},
      {"FuncIpSla", ""},
      {"FuncServShortMsg", "FuncHandleShortMsg: "},
      {"FuncServShortMsgSend", "FuncHandleShortMsgSend: "}};
  RecordRuntime();
  ForEachRow([&](const OpFuncEntry &row) {
    const auto other = others.find(row.name);
    const std::string begin = other == others.end() ? row.name + std::string(": ") : other->second;
    char value[] = "x";
    OpFuncArg arg = {row.name, TMF_GET, "A.B", value};
    const std::string log = LogOf(2, [&] { (void)row.handler(&arg); }); /* each has its own test */
    EXPECT_NE(log.find(" 2 " + begin + "op: 1, path: A.B, value: x"), log.npos) << row.name << log;
  });
}

}  // namespace
