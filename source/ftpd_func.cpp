// FTP: vsftpd through its script, which writes the configuration and starts the server anew. Texts
// of the parameters go into the command line as they are.
#include "ftpd_func.h"

#include <dirent.h>

#include "ams_config_shell.h"
#include "op_rows.h"
#include "op_values.h"

#define FTP "InternetGatewayDevice.Services.ServiceFTP."

namespace {

bool IsFolder(const char *path) {
  DIR *folder = opendir(path);
  if (folder == nullptr) return false;
  closedir(folder);
  return true;
}

/* At start the folder may be on storage that is not plugged in. A set is taken as it is: who makes
   it knows which folder is to come. */
int Apply(int op) {
  if (LeafInt(FTP "Enable") == 0) return cfgSystemCmd("killall -q vsftpd");
  /* Without the nodes these stay empty; the script sees the missing argument. */
  char root[64] = "", port[128] = "";
  if (LeafText(FTP "RootDIR", root) != 0 || LeafText(FTP "Port", port) != 0) return -1;
  bool lost = op == TMF_INIT && !IsFolder(root);
  return cfgSystemCmd("/usr/syscfg/vsftpd.sh %s %s &", lost ? "/mnt" : root, port);
}

}  // namespace

int FuncServFTP(OpFuncArg *arg) {
  if (!IsInitOrSet(arg->op) || ams_check_node(gptXmlTrees->root, FTP "Enable") != 0) return 0;
  return Apply(arg->op);
}
