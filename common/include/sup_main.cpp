// Start-up of the daemon: a client of the shared store whose module threads do all the work.
#include "sup_main.h"

#include <signal.h>

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "ams_common_api.h"
#include "ams_config_api.h"

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
  char version[257] = "";
  const char *time;
  /* relative on purpose: the boards start the daemon in "/", and their traces show this line */
  FILE *pipe = popen("cat proc/version", "re");
  if (pipe == nullptr) return;
  version[fread(version, 1, sizeof(version) - 1, pipe)] = '\0';
  (void)pclose(pipe); /* no status: SIGCHLD is ignored */
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
  int ret = SysInit(SYSMGR_MODULES);
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
