// The gateway's own network daemons, started and stopped from their parameters.
#pragma once

#include <string_view>
#include <vector>

#include "ams_common_api.h"

/* "23,2323" -> {23, 2323}. Pieces go through atoi, so junk and an empty piece read as 0; order is
   kept. An empty text has no piece. */
std::vector<int> PortList(std::string_view text);

/* Serves FuncServTelnet, FuncServTFTP and FuncServSSH. */
int FuncPortDaemon(OpFuncArg *arg);

int FuncServPrinter(OpFuncArg *arg);
