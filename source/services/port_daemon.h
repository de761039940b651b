// Network daemons that listen on each port of a list, started and stopped from their parameters.
// All on the thread of "sysmgr:capabinfo".
#pragma once

#include <string>
#include <vector>

#include "op_rows.h"

using PortLines = std::vector<std::string>;

/* A daemon with a list of ports; the rows are in services_func.cpp. */
struct PortDaemon {
  const char *enable, *ports; /* its parameters */
  bool node_check;            /* a model without the Enable parameter has no such service */
  const char *kill;
  int type;         /* of its sockets: SOCK_... */
  const char *each; /* the line that starts it on one port, %d; NULL: `lines` makes them */
  /* The lines that start it on these ports; -1 (logged) when they cannot be had: they are made
     before a daemon that runs is killed. */
  int (*lines)(const std::vector<int> &ports, PortLines *lines) = nullptr;
  int usual_port = 0;          /* in place of a number below 1, and without any; 0: it has none */
  void (*prepare)() = nullptr; /* at the start of the module */
};

/* Brings the daemon to what its parameters say. 0 or -1 (logged). */
int ApplyPortDaemon(const PortDaemon &daemon, int op);

template <const PortDaemon &Daemon>
int FuncPortDaemon(OpFuncArg *arg) {
  return IsInitOrSet(arg->op) ? ApplyPortDaemon(Daemon, arg->op) : 0;
}

/* The rest of a row {NAME, PORT_DAEMON(FORM, DAEMON)}. */
#define PORT_DAEMON(form, row) Op<form, FuncPortDaemon<row>>, nullptr, &(row)
