// What network daemons need that a row cannot say. All on the thread of "sysmgr:capabinfo".
#pragma once

#include "port_daemon.h"

/* For the rows of TFTP and SSH. */
int TftpLines(const std::vector<int> &ports, PortLines *lines);
void SshPrepare();
int SshLines(const std::vector<int> &ports, PortLines *lines);

int FuncServPrinter(OpFuncArg *arg);
