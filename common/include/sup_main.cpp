// Start-up. The daemon is a client of the shared store whose module threads do all the work; the
// data-base manager's process brings the store up as its server: the data-model file, the
// firmware-version check, the boot types.
#include "sup_main.h"

#include <signal.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "ams_common_api.h"
#include "ams_config_api.h"
#include "ams_config_shell.h"
#include "nvram.h"

/* ---- the daemon ---- */

namespace {

/* The text after "SMP " up to the line's end; "" when the line does not end. -1: no "SMP ". */
int BuildTime(char *version, const char **time) {
  char *text = strstr(version, "SMP ");
  if (text == nullptr) return -1;
  text += strlen("SMP ");
  char *end = strchr(text, '\n');
  if (end == nullptr) end = strchr(text, '\r');
  *(end == nullptr ? text : end) = '\0';
  *time = text;
  return 0;
}

void UpdateFirmwareTime() {
  char version[257];
  const char *time;
  /* relative on purpose: the boards start the daemon in "/", and their traces show this line */
  if (cfgShellRead("cat proc/version", version) < 0) return;
  if (BuildTime(version, &time) != 0) return;
  AMS_PRINT(1, "update_FW_createTime : %s \n", time);
  (void)cfgStatusSetStr("InternetGatewayDevice.DeviceInfo.X_KVO_FWTime", time); /* logged there */
}

int AttachStore() {
  if (gptXmlTrees != nullptr) return 0;
  gptXmlTrees = ShmPoolCliInit();
  if (gptXmlTrees != nullptr) return 0;
  AMS_PRINT(4, "ShmPoolCliInit failed \n");
  return -1;
}

}  // namespace

int SDB_clientInit() {
  constexpr char kFailed[] = "Shared DB client initial failed.";
  if (AttachStore() == 0) return 0;
  AMS_PRINT(5, "%s", kFailed);
  AMS_Log_Add(0, 3, "%s", kFailed);
  return -1;
}

int process_init_after() {
  appt_SetTrace(0);
  UpdateFirmwareTime();
  return 0;
}

int sysmgr_main() {
  signal(SIGPIPE, SIG_IGN);
  signal(SIGCHLD, SIG_IGN);
  AMS_UsrDumpInit();
  if (SDB_clientInit() != 0) {
    AMS_PRINT(5, "initShmPool failed \n");
    return -1;
  }
  AMS_PRINT(1, "gptXmlTrees addr is %d \n",
            static_cast<int>(reinterpret_cast<intptr_t>(gptXmlTrees)));
  AMS_PrintMgt_Init();
  int ret = SysInit(kSysmgrModules);
  if (ret == -1) {
    AMS_PRINT(2, "SysInit ret:%d\n", ret);
    return -1;
  }
  if (process_init_after() == -1) {
    AMS_PRINT(5, "process_init_after failed \n");
    return -1;
  }
  for (;;) tds_delay(5000);
}

/* ---- the store server ---- */

namespace {

constexpr char kFile[] = "/etc/tr098_data_model.xml";
constexpr char kTypeKey[] = "factoryType";
constexpr char kVersionKey[] = "X_KVO_FWVersion";
constexpr char kDeviceInfo[] = "InternetGatewayDevice.DeviceInfo.";

enum { SOURCE_FACTORY = 0, SOURCE_CUSTOMER = 2, SOURCE_BACKUP = 3, SOURCE_BURNT = 4 };

using HeapText = std::unique_ptr<char, decltype(&free)>;

HeapText NvramText(const char *key, int type) { return HeapText(nvram_get(key, type), free); }

void StoreBasic(const char *key, const char *value) {
  (void)nvram_set(key, value, NVTYPE_BASIC); /* both log their failure, start-up goes on */
  (void)nvram_commit(NVTYPE_BASIC);
}

int OpenStore() {
  (void)nvram_init_semaphore(); /* logged there */
  gptXmlTrees = ShmPoolSrvInit();
  AMS_PRINT(1, "server gptXmlTrees addr is %d",
            static_cast<int>(reinterpret_cast<intptr_t>(gptXmlTrees)));
  if (gptXmlTrees != nullptr) return 0;
  AMS_PRINT(5, "Shm srv init failed!");
  return -1;
}

/* The tree that the server brings up, with what is laid over it, is one span of writes: until its
   end the store's clients see the tree that was there. */
int LoadFile() {
  FILE *file = fopen(kFile, "re");
  if (file == nullptr) {
    AMS_PRINT(4, "open tr098_data_model.xml failed!");
    return -1;
  }
  gptXmlTrees->root = ams_write_begin() == 0 ? ams_mxmlLoadFile(nullptr, file, nullptr) : nullptr;
  if (gptXmlTrees->root == nullptr) AMS_PRINT(5, "null tree\n");
  fclose(file);
  mxmlSetWrapMargin(0);
  return 0;
}

/* Compares the firmware's version with the one seen at the previous start. `*force` becomes 1 when
   that one was too old to keep its settings. */
void CheckVersion(int *force) {
  *force = 0;
  std::string path = std::string(kDeviceInfo) + kVersionKey;
  if (ams_check_node(gptXmlTrees->root, path.c_str()) < 0) {
    AMS_PRINT(4, "%s is not existed, update internal version failed\n", path.c_str());
    return;
  }
  char current[1024] = "";
  (void)ams_mxml_get_leaf_value(path.c_str(), current); /* the node exists */
  HeapText old = NvramText(kVersionKey, NVTYPE_BASIC);
  if (old == nullptr || strcmp(old.get(), current) != 0) {
    StoreBasic(kVersionKey, current);
    printf("oldVersion =%s, curVersion=%s\n", old == nullptr ? "" : old.get(), current);
  }
  /* A substring test on the previous version, not a comparison of numbers: "XV1.0.3" is too old and
     "V1.1" is not. Boards in the field are told apart by it, so it stays. */
  if (old == nullptr || strstr(old.get(), "V1.0") == nullptr) return;
  *force = 1;
  printf("Version is too old, we need do factory by force");
}

/* Makes the coming boot type "clean". */
void ForceFactory() {
  if (nvram_clean(NVTYPE_STAGING) == -1)
    printf("[%s(%d)] clean NVTYPE_STAGING failed\n", "SDB_serverInit", __LINE__);
  if (nvram_clean(NVTYPE_BASIC) == -1)
    printf("[%s(%d)] clean NVTYPE_BASIC failed\n", "SDB_serverInit", __LINE__);
  StoreBasic(kTypeKey, "clean");
  (void)nvram_unset("Tr069strap", NVTYPE_STAGING); /* both log their failure */
  (void)nvram_commit(NVTYPE_STAGING);
}

void LoadFactory() {
  /* a source that has nothing says so itself */
  (void)ams_mxml_load_to_staging(SOURCE_FACTORY);
  (void)ams_mxml_load_to_staging(SOURCE_CUSTOMER);
}

void LoadStaging(int boot_type) {
  if (boot_type == BOOT_BURN_IMAGE) {
    (void)ams_mxml_load_to_staging(SOURCE_BURNT);
  } else if (boot_type == BOOT_CLEAN) {
    LoadFactory();
  } else if (boot_type == BOOT_RESTORE && ams_mxml_load_to_staging(SOURCE_BACKUP) == -1) {
    printf("[%s(%d)] back is empty!\n", "SDB_serverInit", __LINE__);
    LoadFactory();
  }
}

}  // namespace

int get_boot_type() {
  constexpr char kUserChange[] = "InternetGatewayDevice.DeviceInfo.X_KVO-UserChange";
  HeapText type = NvramText(kTypeKey, NVTYPE_BASIC);
  if (type == nullptr) {
    printf("[%s(%d)] boot from burn image\n", __func__, __LINE__);
    (void)nvram_set(kUserChange, "BurnImage", NVTYPE_STAGING); /* both log their failure */
    (void)nvram_commit(NVTYPE_STAGING);
    return BOOT_BURN_IMAGE;
  }
  if (strcmp(type.get(), "false") == 0) return BOOT_RESTART;
  int boot_type = strcmp(type.get(), "true") == 0    ? BOOT_RESTORE
                  : strcmp(type.get(), "clean") == 0 ? BOOT_CLEAN
                                                     : BOOT_INVALID;
  if (boot_type != BOOT_INVALID)
    printf("[%s(%d)] factoryType=%s\n", __func__, __LINE__, type.get());
  return boot_type;
}

int SDB_serverInit() {
  int force;
  if (OpenStore() != 0 || LoadFile() != 0) return -1;
  CheckVersion(&force); /* reads the tree of the span */
  if (force == 1) ForceFactory();
  int boot_type = get_boot_type();
  if (boot_type == BOOT_INVALID) {
    (void)ams_write_cancel(); /* a span that did not begin was logged */
    return printf("invalid boot type=%d.\n", boot_type);
  }
  LoadStaging(boot_type);
  (void)update_from_nvram(gptXmlTrees->root, NVTYPE_STAGING); /* what does not fit is logged */
  if (ams_write_end() != 0) gptXmlTrees->root = nullptr;      /* logged; the tree before stays */
  if (boot_type != BOOT_RESTART) StoreBasic(kTypeKey, "false");
  return 0;
}
