// FTP: vsftpd through its script.
#pragma once

#include "ams_common_api.h"

int FuncServFTP(OpFuncArg *arg);
