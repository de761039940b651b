// A rebuild of service access control with a full list and the real packet filter: the whole of it
// beside the time that it spends in its command lines. Runs in the sandbox, behind `firewall`.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "nanoseconds.h"
#include "serviceCtrl_func.h"

extern "C" {
int __real_system(const char *line);
int __wrap_system(const char *line);
}

namespace {

#define ACCESS "InternetGatewayDevice.Services.ServiceAccessControl."

constexpr int kRounds = 5;

uint64_t command_time, commands; /* ns and count since they were set to 0 */

[[noreturn]] void Fail(const char *why) {
  fprintf(stderr, "access_bench: %s\n", why);
  exit(1);
}

void Set(const std::string &path, const char *value) {
  if (ams_mxml_fset_leaf(path.c_str(), value) != 0) Fail("cannot set a parameter");
}

/* The web server keeps its one port, so that no restart is measured. */
void AddEntry(int i) {
  const char *const services[] = {"HTTP", "TELNET", "SSH",  "FTP", "TFTP",
                                  "SNMP", "SAMBA",  "ICMP", "TCP", "UDP"};
  char url[AMS_PATH_SIZE];
  if (ams_add_obj(gptXmlTrees->root, ACCESS "ServiceCtrlList", url) != 0) Fail("cannot add");
  const std::string row = std::string(url) + ".";
  Set(row + "Enable", "1");
  Set(row + "ServiceName", services[i % 10]);
  Set(row + "AccessDirection", i % 20 < 10 ? "LAN" : "WAN");
  Set(row + "Port", i % 10 < 8 ? "0" : "5000");
  Set(row + "IPMode", "3");
}

void Prepare() {
  FILE *file = fopen("/etc/tr098_data_model.xml", "re");
  gptXmlTrees = ShmPoolSrvInit();
  if (file == nullptr || gptXmlTrees == nullptr) Fail("it runs in the sandbox only");
  gptXmlTrees->root = ams_mxmlLoadFile(nullptr, file, nullptr);
  fclose(file);
  if (gptXmlTrees->root == nullptr) Fail("no data model");
  Set(ACCESS "Enable", "1");
  for (int i = 0; i < AMS_LIST_SLOTS; ++i) AddEntry(i);
}

double Median(std::vector<uint64_t> values) {
  std::sort(values.begin(), values.end());
  return static_cast<double>(values[values.size() / 2]);
}

}  // namespace

int __wrap_system(const char *line) {
  uint64_t start = Nanoseconds();
  int status = __real_system(line);
  command_time += Nanoseconds() - start;
  ++commands;
  if (status != 0) Fail(line);
  return status;
}

int main() {
  std::vector<uint64_t> whole, inside;
  Prepare();
  for (int round = 0; round < kRounds; ++round) {
    command_time = commands = 0;
    uint64_t start = Nanoseconds();
    (void)SclRebuild(); /* its result is always 0 */
    whole.push_back(Nanoseconds() - start);
    inside.push_back(command_time);
  }
  if (commands < 2 * AMS_LIST_SLOTS) Fail("the rebuild did not handle the list");
  printf("access/rebuild %.0f\naccess/commands %.0f\n", Median(whole), Median(inside));
  return 0;
}
