// Downloads that the remote management server ordered. A vendor configuration is the script's of
// the management client; an image is fetched, flashed by the version manager, reported and booted,
// on a thread of its own, so that the module goes on serving. FileSize, SuccessURL and FailureURL
// of an order are for the management client.
#include "download_func.h"

#include <pthread.h>
#include <semaphore.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <set>
#include <string>

#include "ams_config_api.h"
#include "ams_config_shell.h"
#include "download_order.h"
#include "nvram.h"
#include "op_values.h"
#include "version_manager.h"

namespace {

#define DOWNLOAD "InternetGatewayDevice.X_TR69_Transfer.X_KVO_Download."

constexpr char kThreadTag[] = "tr069_download_image_thread";
constexpr char kImageType[] = "1 Firmware Upgrade Image";
constexpr char kConfigType[] = "3 Vendor Configuration File";
constexpr char kDefaultTarget[] = "zorp_image.bin";
constexpr char kPreScript[] = "/usr/syscfg/project_pre_tr069_download.sh";
constexpr char kPostScript[] = "/usr/syscfg/project_post_tr069_upgrade.sh";
constexpr char kDropCaches[] = "sync;echo 3 >/proc/sys/vm/drop_caches";
constexpr int kRoomForImage = 51200; /* kB */
constexpr unsigned kRebootDelay = 3; /* s; the values written reach the flash by then */

/* Stopped, in this order, when there is too little memory. They stay so until the next boot. */
const char *const kMakeRoom[] = {
    "killall kvophone", "rmmod hi_kslic",    "rmmod hi_kvoip",    "rmmod hi_kspi",
    "rmmod hi_khw",     "killall lpdsrv",    "killall miniupnpd", "killall dropbear",
    "killall telnetd",  "killall tftpd-hpa", "killall vsftpd",    "killall nmbd",
    "killall smbd",     "killall zebra",     "killall minidlna",  "killall snmpd",
    kDropCaches,
};

/* The parameters of an order. `absent` stands for one that is missing or empty: the data model has
   every leaf, so what was not ordered is an empty one. */
struct OrderLeaf {
  const char *path;
  const char *DownloadOrder::*text;
  const char *absent;
};
const OrderLeaf kOrderLeaves[] = {
    {DOWNLOAD "CommandKey", &DownloadOrder::command_key, ""},
    {DOWNLOAD "FileType", &DownloadOrder::file_type, ""},
    {DOWNLOAD "URL", &DownloadOrder::url, ""},
    {DOWNLOAD "Username", &DownloadOrder::username, "anonymous"},
    {DOWNLOAD "Password", &DownloadOrder::password, "anonymous"},
    {DOWNLOAD "TargetFileName", &DownloadOrder::target, ""},
    {DOWNLOAD "DelaySeconds", &DownloadOrder::delay, ""},
};
using OrderTexts = std::array<std::string, std::size(kOrderLeaves)>;

DownloadOrder ReadOrder(OrderTexts *texts) {
  DownloadOrder order = {};
  for (size_t i = 0; i < texts->size(); ++i) {
    const OrderLeaf &leaf = kOrderLeaves[i];
    std::string &text = (*texts)[i];
    (void)LeafString(leaf.path, &text); /* without the leaf it stays "" */
    order.*leaf.text = text.empty() ? leaf.absent : text.c_str();
  }
  return order;
}

void RunIfThere(const char *script, const char *argument) {
  if (access(script, X_OK) == 0) cfgSystemCmd("%s%s", script, argument);
}

/* Status writes; the store has logged a failure. */
void WriteResult(const char *path, const char *value) { (void)cfgStatusSetStr(path, value); }

void WriteTime(const char *path) {
  char text[32] = "";
  time_t now = time(nullptr);
  struct tm local;
  tzset(); /* localtime_r keeps the zone that it found first */
  if (localtime_r(&now, &local) == nullptr) return;
  strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &local);
  WriteResult(path, text);
}

/* ---- an order ---- */

/* What is left to do when everything of an order was given back. */
struct Aftermath {
  bool reboot;
  bool load_accelerator; /* this order removed the IPsec accelerator's module */
};

/* False also when it cannot be asked for: nothing is stopped on a guess. */
bool NeedsRoom() {
  char text[7]; /* kB; what is behind the sixth character is left out */
  if (cfgShellRead("free | grep Mem | awk '{print $4}'", text) < 0) return false;
  return atoi(text) < kRoomForImage;
}

/* The image must fit into memory beside what runs. "Accelate" is the data model's spelling. */
void FreeMemory(Aftermath *after) {
  char accelerated[8] = "";
  (void)ams_mxml_get_leaf_value(
      "InternetGatewayDevice.Services.X_KVO_IPSec.X_KVO_IPSec_Hardware_Accelate_Enable",
      accelerated); /* a gateway without the leaf has no accelerator */
  if (strcmp(accelerated, "1") == 0) {
    cfgSystemCmd("rmmod hi_kipsec");
    after->load_accelerator = true;
  }
  cfgSystemCmd(kDropCaches);
  if (!NeedsRoom()) return;
  for (const char *line : kMakeRoom) cfgSystemCmd("%s", line);
}

/* Targets that are being fetched or flashed, of all orders. */
std::mutex targets_mutex;
std::multiset<std::string> targets_in_work;

void EndTarget(const char *name) {
  std::lock_guard<std::mutex> lock(targets_mutex);
  targets_in_work.erase(std::find(targets_in_work.begin(), targets_in_work.end(), name));
}

/* Makes the file that curl fills, which is a new and empty one of our own: curl follows a link and
   fills a pipe, and a fetch that fails leaves what is there to be flashed. One that another order
   has in work is that already, and it may be whole. 0, then EndTarget ends it; or -1 (logged). */
int BeginTarget(const char *name) {
  std::lock_guard<std::mutex> lock(targets_mutex);
  targets_in_work.insert(name);
  if (targets_in_work.count(name) > 1) return 0;
  char path[sizeof "/tmp/" + VERSION_NAME_SIZE];
  snprintf(path, sizeof path, "/tmp/%s", name);
  (void)rmdir(path); /* seldom a folder; all else WriteOwnFile removes */
  if (WriteOwnFile(path, "") == 0) return 0;
  AMS_PRINT(4, "%s cannot be made, nothing is fetched: %m; remove what is there, or make room\n",
            path);
  targets_in_work.erase(name);
  return -1;
}

/* Whether the file came is not asked: the version manager finds out. */
void FetchAndUpgrade(const DownloadOrder &order, const DownloadLine &line, VersionWord *result) {
  AMS_PRINT(3, "DownCmd=%s", line);
  cfgShell(line);
  if (strcmp(order.file_type, kImageType) != 0) {
    AMS_PRINT(4, "unsupported TargetFileName=%s\n", order.target);
    return;
  }
  int status = upgradeVer(order.target, result);
  AMS_PRINT(3, "upgrade version result=%s:%d", *result, status);
}

void ReportSuccess(const DownloadOrder &order, DownloadLine &line) {
  WriteResult(DOWNLOAD "FaultCode", "0");
  WriteResult(DOWNLOAD "FaultString", "");
  if (DownloadStrapCommand(order.command_key, line) == 0) { /* else refused before */
    AMS_PRINT(3, "cmd=%s\n", line);
    cfgShell(line);
  }
  (void)nvram_commit(NVTYPE_STAGING); /* logged there; the image is flashed all the same */
  RunIfThere(kPostScript, " success");
}

void ReportFailure(const DownloadOrder &order, const char *result, DownloadLine &line) {
  WriteResult(DOWNLOAD "FaultCode", DownloadFaultCode(result));
  /* A key too long to send was named when the order was refused, and a part of it means nothing to
     the server: then the inform goes without one. */
  if (DownloadInformCommand(order.command_key, line) != 0) (void)DownloadInformCommand("", line);
  AMS_PRINT(3, "cmd=%s\n", line);
  cfgShell(line);
  RunIfThere(kPostScript, " failed");
}

void NoMemory() { AMS_PRINT(5, "no memory for a download: order it again when less is running\n"); }

/* The result of an order that is not refused; "" when it was not even fetched. */
void CarryOut(const DownloadOrder &order, DownloadLine &line, Aftermath *after,
              VersionWord *result) try {
  for (unsigned left = DownloadDelay(order.delay); left != 0;) left = sleep(left);
  FreeMemory(after);
  if (DownloadFetchCommand(order, line) == 0 /* else refused */ && BeginTarget(order.target) == 0) {
    FetchAndUpgrade(order, line, result);
    EndTarget(order.target);
  }
} catch (const std::bad_alloc &) {
  NoMemory();
}

/* An order that cannot be carried out whole stops nothing and fetches nothing, and is reported as
   any that failed. */
void RunOrder(const DownloadOrder &order, DownloadLine &line, Aftermath *after) {
  VersionWord result = "";
  const char *refusal = DownloadRefusal(order);
  WriteTime(DOWNLOAD "StartTime");
  RunIfThere(kPreScript, "");
  if (refusal != nullptr)
    AMS_PRINT(4, "download refused: %s\n", refusal);
  else
    CarryOut(order, line, after, &result);
  WriteTime(DOWNLOAD "CompleteTime");
  after->reboot = strcmp(result, "success") == 0;
  if (after->reboot)
    ReportSuccess(order, line);
  else
    ReportFailure(order, result, line);
}

/* All that an order holds is given back when this returns. `order_read` is posted once the order
   was read, or cannot be. */
void CarryOutOrder(sem_t *order_read, Aftermath *after) try {
  std::unique_ptr<DownloadLine, decltype(&__tds_free)> line(
      static_cast<DownloadLine *>(__tds_malloc(sizeof(DownloadLine), kThreadTag)), __tds_free);
  OrderTexts texts;
  DownloadOrder order = {};
  try {
    if (line != nullptr) order = ReadOrder(&texts);
  } catch (const std::bad_alloc &) {
    line.reset();
  }
  if (order_read != nullptr) sem_post(order_read);
  if (line == nullptr) return NoMemory();
  if (order.url[0] != '\0') {
    if (order.target[0] == '\0') order.target = kDefaultTarget;
    RunOrder(order, *line, after);
  }
  /* Only the bare name, in the daemon's own folder, on purpose: the image below /tmp stays for
     whoever has to find out why it was not taken, until a boot clears it. */
  if (DownloadIsPlainName(order.target)) (void)unlink(order.target); /* it is seldom there */
} catch (const std::bad_alloc &) {
  NoMemory();
}

/* The next order comes by way of this module, so it cannot reach the store, and mix with this one,
   before the thread has read what it needs. */
int StartThread() {
  pthread_t thread;
  sem_t order_read;
  sem_init(&order_read, 0, 0);
  int error = pthread_create(&thread, nullptr, tr069_download_image_thread, &order_read);
  if (error == 0) {
    pthread_detach(thread);
    while (sem_wait(&order_read) != 0) continue; /* a signal came */
  }
  sem_destroy(&order_read);
  return error == 0 ? 0 : -1;
}

}  // namespace

void *tr069_download_image_thread(void *order_read) {
  AMS_PrintThreadModule("sysmgr:devInfo"); /* its records follow the module's print level */
  Aftermath after = {};
  CarryOutOrder(static_cast<sem_t *>(order_read), &after);
  if (after.reboot) {
    sleep(kRebootDelay);
    cfgSystemCmd("reboot");
  } else if (after.load_accelerator) {
    cfgSystemCmd("insmod /lib/ko/hi_kipsec.ko");
  }
  return nullptr;
}

int FuncKVO_TR69Download(OpFuncArg *arg) {
  if (arg->op != TMF_SET) return 0;
  puts("FuncKVO_TR69Download ########");
  std::string type;
  if (LeafString(DOWNLOAD "FileType", &type) != 0)
    AMS_PRINT(4, "FileType is NULL\n");
  else if (type == kConfigType)
    cfgSystemCmd("/usr/syscfg/tr069_proc.sh Download &");
  else if (StartThread() != 0)
    AMS_PRINT(4, "Create upgradeVer Task err!!\n");
  return 0;
}
